// The descriptions of node types, found by code.

#include "schema/rows.h"
#include "tests/support/fake/fixture.h"

namespace {

TEST(NodeTypes, are_found_by_their_code) {
  for (const auto& type : qim::schema::tlv_types) {
    EXPECT_EQ(qim::schema::node_type(type.code), &type) << type.code;
  }
  for (const auto& type : qim::schema::dset_types) {
    EXPECT_EQ(qim::schema::node_type(type.code), &type) << type.code;
  }
}

TEST(NodeTypes, are_no_others) {
  const std::uint32_t codes[] = {0, TLVO_UNION_MEMBERS + 1, 31, 34, 0xffffffff};
  for (const std::uint32_t code : codes) {
    EXPECT_EQ(qim::schema::node_type(code), nullptr) << code;
  }
}

}  // namespace
