// The layout of every node record, and the codes in them.

#include <algorithm>

#include "schema/rows.h"
#include "tests/support/fake/fixture.h"
#include "tests/support/fake/layout.h"
#include "tests/support/fake/records.h"

namespace {

using qim::schema::Record;
using qim::schema::Row;

// What the rows say, which is what the compiler made of the record.
std::vector<fake::Member> members_of(const fake::RecordLayout& layout, const Record& record) {
  std::vector<fake::Member> members;
  for (const fake::RecordMember& member : layout.members) {
    for (const Row& row : record) {
      if (row.of == nullptr || row.name != std::string_view(member.name)) continue;
      members.push_back(
          {row.name, member.at, member.width, member.widens(), row.position, row.width, row.align});
    }
  }
  return members;
}

// A record that has grown has members that the table does not know.
bool has_grown(const fake::RecordLayout& layout, const Record& record) {
  return std::count_if(record.begin(), record.end(), [](const Row& row) {
           return row.of != nullptr;
         }) > static_cast<std::ptrdiff_t>(layout.members.size());
}

class RecordRows : public testing::TestWithParam<fake::RecordLayout> {
 protected:
  const Record& record() const {
    const auto* const* const found =
        std::find_if(std::begin(qim::schema::records), std::end(qim::schema::records),
                     [](const Record* one) { return one->struct_id == GetParam().struct_id; });
    return **found;
  }
};

INSTANTIATE_TEST_SUITE_P(, RecordRows, testing::ValuesIn(fake::record_layouts()), fake::kind_of);

TEST_P(RecordRows, lie_in_memory_as_on_the_device_but_for_wider_pointers) {
  const std::vector<fake::Member> members = members_of(GetParam(), record());
  ASSERT_EQ(members.size(), GetParam().members.size()) << "members are missing";
  EXPECT_STREQ(record().kind, GetParam().kind);
  if (has_grown(GetParam(), record())) return;
  std::size_t align = 1;
  for (const fake::Member& member : members) align = std::max(align, member.align);
  fake::check_layout(GetParam().kind, GetParam().size, record().size, align, members);
}

TEST_P(RecordRows, keep_their_places_and_codings) {
  for (const fake::RecordMember& member : GetParam().members) {
    SCOPED_TRACE(member.name);
    const auto* const row = std::find_if(record().begin(), record().end(), [&](const Row& one) {
      return one.name == std::string_view(member.name);
    });
    ASSERT_NE(row, record().end());
    EXPECT_EQ(row->position, GetParam().here(member));
    EXPECT_EQ(row->width, member.width_here());
    EXPECT_EQ(row->tlv_id, member.tlv);
    EXPECT_EQ(row->show_id, member.show);
    EXPECT_EQ(row->copied, member.copy == fake::Copy::yes);
    EXPECT_EQ(row->link, member.is_slot() ? fake::link_code(member) : 0);
  }
}

TEST(Records, body_is_a_union_at_its_own_start) {
  EXPECT_EQ(offsetof(qim_node_body_t, filter), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, action), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, ifelse), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, hfilter), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, haction), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, police), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, group), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, pinst), 0u);
  EXPECT_EQ(offsetof(qim_node_body_t, def), 0u);
  EXPECT_EQ(sizeof(qim_node_body_t), 128u);
}

TEST(Records, link) {
  CHECK_LAYOUT(
      qim_link_t, 16,
      {FIXED(qim_link_t, node, 0, 4), FIXED(qim_link_t, node2, 4, 4), FIXED(qim_link_t, val, 8, 4),
       FIXED(qim_link_t, tag, 12, 2), FIXED(qim_link_t, field, 14, 2)});
}

TEST(Records, have_these_type_codes) {
  EXPECT_EQ(QIM_NODE_FILTER, 1);
  EXPECT_EQ(QIM_NODE_ACTION, 2);
  EXPECT_EQ(QIM_NODE_IFELSE, 3);
  EXPECT_EQ(QIM_NODE_HFILTER, 4);
  EXPECT_EQ(QIM_NODE_HACTION, 5);
  EXPECT_EQ(QIM_NODE_POLICE, 6);
  EXPECT_EQ(QIM_NODE_GROUP, 7);
  EXPECT_EQ(QIM_NODE_PINST, 8);
  EXPECT_EQ(QIM_NODE_DEF, 9);
  EXPECT_EQ(QIM_NODE_EDEST, 10);
  EXPECT_EQ(QIM_NODE_DSET, 32);
  EXPECT_EQ(QIM_NODE_DSET_NONAME, 33);
}

TEST(Records, have_these_link_kinds) {
  EXPECT_EQ(QIM_LINK_TRUE, 1);
  EXPECT_EQ(QIM_LINK_FALSE, 2);
  EXPECT_EQ(QIM_LINK_NOMATCH, 3);
  EXPECT_EQ(QIM_LINK_NEXT, 4);
}

// ---- Predicates --------------------------------------------------------------------------------

qim_node_t node_of(std::uint32_t type, std::uint32_t group_type = 0, std::uint32_t subtype = 0) {
  qim_node_t node{};
  node.type = type;
  node.body.group.type = group_type;
  node.body.group.subtype = subtype;
  return node;
}

TEST(Predicates, answer_1_or_0_for_each_type) {
  for (std::uint32_t type = 0; type < 64; ++type) {
    SCOPED_TRACE(type);
    const qim_node_t node = node_of(type, 2, 2);
    const int filter = type == 1 || type == 4 ? 1 : 0;
    const int action = type == 2 || type == 5 || type == 6 ? 1 : 0;
    EXPECT_EQ(qim_is_filterlist_type(&node), filter);
    EXPECT_EQ(qim_is_actionlist_type(&node), action);
    EXPECT_EQ(qim_is_ifelse_filter_type(&node), filter);
  }
}

TEST(Predicates, take_the_type_as_a_whole_word) {
  for (const std::uint32_t type : {0x00000101u, 0x01000000u, 0x80000001u, 0xffffffffu}) {
    const qim_node_t node = node_of(type, 1, 1);
    EXPECT_EQ(qim_is_filterlist_type(&node), 0);
    EXPECT_EQ(qim_is_actionlist_type(&node), 0);
    EXPECT_EQ(qim_is_ifelse_filter_type(&node), 0);
  }
}

TEST(Predicates, take_a_group_of_body_type_1_for_an_ifelse_filter_whatever_its_subtype) {
  for (const std::uint32_t subtype : {0u, 1u, 2u}) {
    for (const std::uint32_t type : {0u, 1u, 2u, 0x101u, 0x80000001u}) {
      const qim_node_t node = node_of(QIM_NODE_GROUP, type, subtype);
      EXPECT_EQ(qim_is_ifelse_filter_type(&node), type == 1 ? 1 : 0);
      EXPECT_EQ(qim_is_filterlist_type(&node), 0);
      EXPECT_EQ(qim_is_actionlist_type(&node), 0);
    }
  }
}

TEST(Predicates, read_the_groups_body_type_at_byte_44_of_the_device_record) {
  EXPECT_EQ(offsetof(qim_node_t, body.group.type), offsetof(qim_node_t, body) + 4);
}

TEST(Predicates, look_at_the_body_of_groups_only) {
  for (std::uint32_t type = 0; type < 64; ++type) {
    if (type == QIM_NODE_GROUP || type == QIM_NODE_FILTER || type == QIM_NODE_HFILTER) continue;
    const qim_node_t node = node_of(type, 1, 1);
    EXPECT_EQ(qim_is_ifelse_filter_type(&node), 0) << type;
  }
}

}  // namespace
