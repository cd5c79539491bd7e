// What the rows say of node types and links beyond the layout: which links lead where, which types
// have a data-set name, arguments or criteria, and by which constants the public header names links.

#include <algorithm>
#include <string>
#include <vector>

#include "schema/rows.h"
#include "tests/support/fake/fixture.h"

namespace {

using qim::schema::Naming;
using qim::schema::NodeType;
using qim::schema::Row;
using Codes = std::vector<std::uint32_t>;

const Codes kPolicy = {1, 2, 3, 4, 5, 6, 7, 9};

struct Expected {
  std::uint32_t type;
  std::uint32_t field;
  Codes targets;
};

const std::vector<Expected> kLinks = {{1, QIM_LN_FILTER_NEXT, {1, 4}},
                                      {4, QIM_LN_FILTER_NEXT, {1, 4}},
                                      {4, QIM_LN_HFILTER_2, kPolicy},
                                      {2, QIM_LN_ACTION_NEXT, {2, 5, 6}},
                                      {5, QIM_LN_ACTION_NEXT, {2, 5, 6}},
                                      {6, QIM_LN_ACTION_NEXT, {2, 5, 6}},
                                      {5, QIM_LN_HACTION_2, kPolicy},
                                      {6, QIM_LN_POLICE_1, kPolicy},
                                      {6, QIM_LN_POLICE_2, kPolicy},
                                      {6, QIM_LN_POLICE_3, kPolicy},
                                      {3, QIM_LN_IFELSE_1, kPolicy},
                                      {3, QIM_LN_IFELSE_2, kPolicy},
                                      {3, QIM_LN_IFELSE_3, kPolicy},
                                      {3, QIM_LN_IFELSE_4, kPolicy},
                                      {7, QIM_LN_GROUP_FIRST, kPolicy},
                                      {7, QIM_LN_GROUP_DEF, {9}},
                                      {8, QIM_LN_PINST, kPolicy},
                                      {10, QIM_LN_PINST, {8}},
                                      {32, QIM_LN_PINST, {8}},
                                      {9, QIM_LN_DEF_NEXT, {9}},
                                      {9, QIM_LN_DEF_2, kPolicy}};

// Of the types that this test knows.
Codes targets_of(const NodeType& from, const Row& slot) {
  Codes codes;
  for (const std::uint32_t code : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 32u, 33u}) {
    const NodeType& to = *qim::schema::node_type(code);
    if ((slot.leads_to & from.leads_to & to.family) != 0) codes.push_back(code);
  }
  return codes;
}

TEST(Columns, say_what_a_link_may_lead_to) {
  for (const Expected& link : kLinks) {
    SCOPED_TRACE(testing::Message() << "type " << link.type << " field " << link.field);
    const NodeType* const type = qim::schema::node_type(link.type);
    const Row* const slot = qim::schema::slot_of(*type, link.field);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(targets_of(*type, *slot), link.targets);
  }
}

TEST(Columns, know_no_slot_for_other_links) {
  for (const std::uint32_t code : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 32u, 33u}) {
    const NodeType& type = *qim::schema::node_type(code);
    EXPECT_EQ(qim::schema::slot_of(type, 0), nullptr);
    EXPECT_EQ(qim::schema::slot_of(type, QIM_LN_FILTER_TRUE), nullptr);
    EXPECT_EQ(qim::schema::slot_of(type, 0x10000 | QIM_LN_PINST), nullptr);
  }
}

TEST(Columns, say_which_types_have_data_set_names) {
  const auto naming = [](std::uint32_t code) { return qim::schema::node_type(code)->naming; };
  for (const std::uint32_t code : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 9u, 33u}) {
    EXPECT_EQ(naming(code), Naming::never) << code;
  }
  EXPECT_EQ(naming(QIM_NODE_PINST), Naming::optional);
  EXPECT_EQ(naming(QIM_NODE_EDEST), Naming::expected);
  EXPECT_EQ(naming(QIM_NODE_DSET), Naming::required);
}

TEST(Columns, say_which_types_have_arguments_and_criteria) {
  for (const std::uint32_t code : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 32u, 33u}) {
    const NodeType& type = *qim::schema::node_type(code);
    EXPECT_EQ(args_of(type) != nullptr, code == 2 || code == 9) << code;
    EXPECT_EQ(list_of(type) != nullptr, code == 1) << code;
  }
}

TEST(Columns, say_which_types_tlv_carries) {
  for (std::uint32_t code = 1; code <= 10; ++code) {
    EXPECT_EQ(qim::schema::tlv_type(code), qim::schema::node_type(code));
  }
  for (const std::uint32_t code : {0u, 32u, 33u, 64u, 0xffffffffu}) {
    EXPECT_EQ(qim::schema::tlv_type(code), nullptr);
  }
}

TEST(LinkCodes, have_these_values) {
  EXPECT_EQ(QIM_LN_FILTER_NEXT, 0x081);
  EXPECT_EQ(QIM_LN_HFILTER_2, 0x102);
  EXPECT_EQ(QIM_LN_ACTION_NEXT, 0x141);
  EXPECT_EQ(QIM_LN_HACTION_2, 0x182);
  EXPECT_EQ(QIM_LN_POLICE_1, 0x201);
  EXPECT_EQ(QIM_LN_POLICE_2, 0x202);
  EXPECT_EQ(QIM_LN_POLICE_3, 0x203);
  EXPECT_EQ(QIM_LN_IFELSE_1, 0x241);
  EXPECT_EQ(QIM_LN_IFELSE_2, 0x242);
  EXPECT_EQ(QIM_LN_IFELSE_3, 0x243);
  EXPECT_EQ(QIM_LN_IFELSE_4, 0x244);
  EXPECT_EQ(QIM_LN_GROUP_FIRST, 0x281);
  EXPECT_EQ(QIM_LN_GROUP_DEF, 0x282);
  EXPECT_EQ(QIM_LN_PINST, 0x2c1);
  EXPECT_EQ(QIM_LN_DEF_NEXT, 0x301);
  EXPECT_EQ(QIM_LN_DEF_2, 0x302);
  EXPECT_EQ(QIM_LN_OPTIONAL, 0x8000);
  EXPECT_EQ(QIM_LN_FILTER_TRUE, 0x8082);
}

}  // namespace
