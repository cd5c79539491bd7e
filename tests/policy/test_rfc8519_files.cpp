// Whole files: the example, and device profiles from elsewhere when they are there.
#include <cstdlib>
#include <filesystem>
#include <map>

#include "tests/policy/rfc8519_support.h"

namespace {

using qimctl::Fate;
using rfc8519_test::by_id;
using rfc8519_test::findings;
using rfc8519_test::name_of;
using rfc8519_test::Node;
using rfc8519_test::of_type;
using rfc8519_test::Policy;
using rfc8519_test::target;

std::string source_dir() {
  const char* dir = std::getenv("QIM_SOURCE_DIR");
  return dir != nullptr ? dir : ".";
}

// The profiles are not kept here: a folder of $QIM_DATA_DIR, or of one beside the source tree.
std::string profiles_dir() {
  const char* dir = std::getenv("QIM_DATA_DIR");
  return (dir != nullptr ? std::string(dir) : source_dir() + "/../shared/data") + "/rfc8519";
}

class Rfc8519Example : public testing::Test {
 protected:
  void SetUp() override {
    const std::string text =
        rfc8519_test::contents(source_dir() + "/examples/edge-router.rfc8519.json");
    ASSERT_FALSE(text.empty()) << "run with QIM_SOURCE_DIR";
    policy_ = rfc8519_test::read(text);
  }

  // Filters of a list, following the links from its group.
  std::vector<const Node*> filters_of(const std::string& list) const {
    std::vector<const Node*> found;
    for (const Node* group : of_type(policy_, QIM_NODE_GROUP)) {
      if (name_of(policy_, *group) != list) continue;
      for (uint32_t id = target(*group, 0x281); id != 0; id = target(*found.back(), 0x081)) {
        found.push_back(&by_id(policy_, id));
      }
    }
    return found;
  }

  Policy policy_;
};

TEST_F(Rfc8519Example, IsCarriedWhole) {
  EXPECT_TRUE(findings(policy_, Fate::skipped).empty());
  EXPECT_TRUE(findings(policy_, Fate::approximated).empty());
  EXPECT_EQ(findings(policy_, Fate::accepted).size(), 12u);
}

TEST_F(Rfc8519Example, GivesEveryNodeThatItShould) {
  EXPECT_EQ(of_type(policy_, QIM_NODE_GROUP).size(), 12u);
  EXPECT_EQ(of_type(policy_, QIM_NODE_DEF).size(), 12u);
  EXPECT_EQ(of_type(policy_, QIM_NODE_FILTER).size(), 358u);
  EXPECT_EQ(of_type(policy_, QIM_NODE_ACTION).size(), 57u);
  EXPECT_EQ(of_type(policy_, QIM_NODE_PINST).size(), 13u);
  EXPECT_EQ(of_type(policy_, QIM_NODE_EDEST).size(), 22u);
  EXPECT_EQ(policy_.nodes.size(), 508u);
  size_t criteria = 0;  // with a name for each entry
  for (const Node* filter : of_type(policy_, QIM_NODE_FILTER)) criteria += filter->criteria.size();
  EXPECT_EQ(criteria, 1232u);
}

TEST_F(Rfc8519Example, ListsHaveTheirEntriesInOrder) {
  const std::map<std::string, size_t> sizes = {
      {"transit-v4-in", 100},   {"transit-v6-in", 63},  {"transit-v4-out", 26},
      {"transit-v6-out", 18},   {"customer-v4-in", 19}, {"customer-v6-in", 12},
      {"exchange-l2-in", 23},   {"exchange-v4-in", 30}, {"control-plane-v4", 34},
      {"control-plane-v6", 18}, {"management-in", 9},   {"guest-portal-out", 6}};
  for (const auto& [list, size] : sizes) EXPECT_EQ(filters_of(list).size(), size) << list;
  std::string names;
  for (const Node* filter : filters_of("management-in")) names += name_of(policy_, *filter) + " ";
  EXPECT_EQ(names,
            "arp ssh-from-jump-host ssh-from-spare-jump-host syslog-answers image-server "
            "ping-from-operations reject-rest-from-operations drop-routed-through-management "
            "drop-rest ");
}

TEST_F(Rfc8519Example, CriteriaReadLikeTheEntry) {
  const auto filters = filters_of("control-plane-v4");
  ASSERT_EQ(filters.size(), 34u);
  EXPECT_EQ(rfc8519_test::criteria_of(*filters[1]),
            "ipv4.protocol 6, ipv4.source-ipv4-network 192.0.2.0/29, tcp.flags ack, "
            "tcp.source-port eq 179");
  EXPECT_EQ(rfc8519_test::criteria_of(*filters.back()), "");
}

TEST_F(Rfc8519Example, ListsOfTheExchangeAreGoneThroughInOrder) {
  std::map<uint32_t, std::string> stages;
  for (const Node* destination : of_type(policy_, QIM_NODE_EDEST)) {
    const auto fields = rfc8519_test::dset_of(*destination);
    if (name_of(policy_, *destination) != "hu0/0/2" || fields.dir != QIM_DIR_IN) continue;
    stages[fields.type & 0xffff] = name_of(policy_, by_id(policy_, target(*destination, 0x2c1)));
  }
  EXPECT_EQ(stages, (std::map<uint32_t, std::string>{
                        {1, "exchange-l2-in"}, {2, "exchange-v4-in"}, {3, "transit-v6-in"}}));
}

// A profile each of whose entries matches on things that only other models understand.
void expect_carried(const char* name, size_t entries) {
  const std::string text = rfc8519_test::contents(profiles_dir() + "/" + name);
  if (text.empty()) GTEST_SKIP() << name << " is not there; QIM_DATA_DIR tells its folder";
  const Policy policy = rfc8519_test::read(text);
  EXPECT_EQ(of_type(policy, QIM_NODE_GROUP).size(), 2u);
  const auto filters = of_type(policy, QIM_NODE_FILTER);
  ASSERT_EQ(filters.size(), entries);
  for (const Node* filter : filters)
    EXPECT_EQ(filter->criteria.at(1).type, qimctl::criterion_opaque) << name_of(policy, *filter);
  const auto skipped = findings(policy, Fate::skipped);
  ASSERT_EQ(skipped.size(), 3u) << "two directions, and the rest of the profile";
  for (const auto* finding : skipped) EXPECT_NE(finding->place.line, 0u);
}

TEST(Rfc8519Profile, OfASensorIsCarried) {
  expect_carried("nist_mudfile-sensor.json", 14);
}

TEST(Rfc8519Profile, OfATcpDirectionTestIsCarried) {
  expect_carried("nist_mudfile-tcp-direction-test.json", 4);
}

}  // namespace
