// Names that the kernel takes.
#include <gtest/gtest.h>

#include <set>

#include "policy/formats/nft/names.h"

namespace {

using namespace qimctl::nft;

TEST(NftNames, AreDifferentWhereTheOnesTheyStandForAre) {
  std::set<std::string> made;
  const std::vector<std::string> names{"a",
                                       "A",
                                       "a b",
                                       "a_b",
                                       "a_20b",
                                       "a.b",
                                       "a-b",
                                       "",
                                       "ä",
                                       std::string("a\0b", 3),
                                       std::string(200, 'a'),
                                       std::string(201, 'a'),
                                       std::string(199, 'a') + "bb"};
  for (const std::string& name : names) {
    made.insert(plain(name));
    EXPECT_LE(plain(name).size(), 200u);
  }
  EXPECT_EQ(made.size(), names.size());
  EXPECT_EQ(plain("a b"), "a_20b");
}

TEST(NftNames, KeysTellListsAndEntriesApart) {
  const std::set<std::string> keys{entry_key("a", "b"), entry_key("ab", ""), entry_key("", "ab"),
                                   entry_key("a", "")};
  EXPECT_EQ(keys.size(), 4u);
  for (const std::string& key : keys) EXPECT_EQ(key.size(), key_length);
}

TEST(NftNames, TagsFitIntoACommentAndHoldNothingStrange) {
  const std::string tag =
      rule_tag(entry_key("a", "b"), "[]", "a/\"\x1b\\\xff" + std::string(300, 'x'));
  EXPECT_EQ(tag.size(), 127u);
  EXPECT_EQ(tag.substr(34, 6), "a/????");
  EXPECT_NE(rule_tag("k", "[]", "a"), rule_tag("k", "[{}]", "a"));
}

}  // namespace
