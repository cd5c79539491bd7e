// Copying a node record: which bytes a copy takes over, and which it leaves alone.

#include <cstddef>
#include <cstring>

#include "schema/rows.h"
#include "tests/library/node/support.h"
#include "tests/support/fake/records.h"

namespace {

using fake::report;
using node_test::Bytes;
using node_test::bytes_of;
using node_test::kInternal;
using node_test::kNodeType;
using node_test::kSes;

using Texts = std::vector<std::string>;

// Inclusive positions in the body.
struct Range {
  std::size_t first;
  std::size_t last;
};

struct Copier {
  const char* name;
  std::uint32_t type;
  std::vector<Range> copied;
};

void PrintTo(const Copier& copier, std::ostream* os) {
  *os << copier.name;
}

// What copies of a type's body take over. Pointers come last in every body that has some, so these
// positions hold in every build.
Copier copier(const char* name, std::uint32_t type, const char* kind) {
  Copier made = {name, type, {}};
  const fake::RecordLayout& record = fake::record_layout(kind);
  for (const fake::RecordMember& member : record.members) {
    if (member.copy == fake::Copy::no) continue;
    const std::size_t at = record.here(member);
    made.copied.push_back({at, at + member.width_here() - 1});
  }
  // Members that came after the table was written are the rows' to say.
  for (const qim::schema::Row& row : *qim::schema::node_type(type)->body) {
    if (row.copied && !record.has(row.name)) {
      made.copied.push_back({row.position, row.position + row.width - 1});
    }
  }
  return made;
}

std::vector<Copier> make_copiers() {
  std::vector<Copier> copiers;
  for (const fake::TypeLayout& type : fake::type_layouts) {
    copiers.push_back(copier(type.name, type.code, type.kind));
  }
  copiers.push_back({"NoName", 33, {}});
  return copiers;
}
const std::vector<Copier> kCopiers = make_copiers();

constexpr std::uint8_t kOld = 0x55;

// A node whose every byte differs from kOld and from its neighbours.
qim_node_t source(std::uint32_t type) {
  qim_node_t node;
  auto* const bytes = reinterpret_cast<std::uint8_t*>(&node);
  for (std::size_t i = 0; i < sizeof node; ++i) bytes[i] = static_cast<std::uint8_t>(0x80 | i);
  node.type = type;
  return node;
}

qim_node_t old_record() {
  qim_node_t node;
  std::memset(&node, kOld, sizeof node);
  return node;
}

bool holds(const std::vector<Range>& ranges, std::size_t position) {
  for (const Range& range : ranges) {
    if (position >= range.first && position <= range.last) return true;
  }
  return false;
}

class NodeCopy : public node_test::NodeTest {
 protected:
  // What a copy of `type` makes of `old_record`.
  static Bytes expected(std::uint32_t type, const std::vector<Range>& body) {
    const Bytes from = bytes_of(source(type));
    Bytes bytes = bytes_of(old_record());
    const std::size_t begin = offsetof(qim_node_t, body);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const bool in_priv_buf = i >= offsetof(qim_node_t, priv_buf) &&
                               i < offsetof(qim_node_t, priv_buf) + sizeof(std::uint8_t*);
      if (i < begin ? !in_priv_buf : holds(body, i - begin)) bytes[i] = from[i];
    }
    return bytes;
  }
};

TEST_F(NodeCopy, works_on_the_168_bytes_of_the_device_record) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(sizeof(qim_node_t), 168u);
    EXPECT_EQ(offsetof(qim_node_t, priv_buf), 32u);
    EXPECT_EQ(offsetof(qim_node_t, priv_ptr), 36u);
    EXPECT_EQ(offsetof(qim_node_t, body), 40u);
  }
}

class NodeCopyTypes : public NodeCopy, public testing::WithParamInterface<Copier> {};

INSTANTIATE_TEST_SUITE_P(, NodeCopyTypes, testing::ValuesIn(kCopiers), node_test::name_of<Copier>);

TEST_P(NodeCopyTypes, take_over_exactly_these_bytes) {
  const qim_node_t from = source(GetParam().type);
  const Bytes before = bytes_of(from);
  qim_node_t to = old_record();
  EXPECT_EQ(qim_node_cp(kSes, &from, &to), 0u);
  EXPECT_EQ(bytes_of(to), expected(GetParam().type, GetParam().copied));
  EXPECT_EQ(bytes_of(from), before);
}

TEST_P(NodeCopyTypes, are_described_alike_by_the_rows) {
  const qim::schema::NodeType* const type = qim::schema::node_type(GetParam().type);
  ASSERT_NE(type, nullptr);
  std::vector<Range> rows;
  for (const qim::schema::Row& row : *type->body) {
    if (row.copied) rows.push_back({row.position, row.position + row.width - 1});
  }
  for (std::size_t i = 0; i < sizeof(qim_node_body_t); ++i) {
    EXPECT_EQ(holds(rows, i), holds(GetParam().copied, i)) << i;
  }
}

TEST_P(NodeCopyTypes, ask_nothing_of_the_platform_and_ignore_the_session) {
  const qim_node_t from = source(GetParam().type);
  qim_node_t to = old_record();
  qim_node_t again = old_record();
  EXPECT_EQ(qim_node_cp(0, &from, &to), 0u);
  EXPECT_EQ(qim_node_cp(0xffffffff, &from, &again), 0u);
  EXPECT_EQ(bytes_of(to), bytes_of(again));
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(NodeCopy, leaves_out_pointers_and_the_groups_bare_link) {
  EXPECT_EQ(offsetof(qim_filter_t, crit_aux), 24u);
  EXPECT_GT(offsetof(qim_filter_t, crit), 23u);
  EXPECT_EQ(offsetof(qim_action_t, args_len), 8u);
  EXPECT_GT(offsetof(qim_action_t, args), 11u);
  EXPECT_EQ(offsetof(qim_def_t, args_len), 24u);
  EXPECT_GT(offsetof(qim_def_t, args), 27u);
  EXPECT_EQ(offsetof(qim_group_t, ln_282), 0u);
  EXPECT_EQ(offsetof(qim_group_t, type), 4u);
  EXPECT_EQ(offsetof(qim_police_t, gap0), 52u);
  EXPECT_EQ(offsetof(qim_police_t, reserved), 120u);
}

TEST_F(NodeCopy, of_an_unknown_type_copies_the_header_and_fails) {
  std::vector<std::uint32_t> types = {0, 34, 64, 0x100, 0x80000001, 0xffffffff};
  for (std::uint32_t type = TLVO_UNION_MEMBERS + 1; type < 32; ++type) types.push_back(type);
  for (const std::uint32_t type : types) {
    SCOPED_TRACE(type);
    const std::size_t before = fake::reports().size();
    const qim_node_t from = source(type);
    qim_node_t to = old_record();
    EXPECT_EQ(qim_node_cp(kSes, &from, &to), kNodeType);
    EXPECT_EQ(bytes_of(to), expected(type, {}));
    const Texts texts = fake::report_texts();
    EXPECT_EQ(
        Texts(texts.begin() + static_cast<std::ptrdiff_t>(before), texts.end()),
        (Texts{report(kInternal, "qim_node_cp", 1268), report(kNodeType, "qim_node_cp", 1275)}));
  }
}

TEST_F(NodeCopy, of_an_unknown_type_is_reported_as_internal_whatever_the_debug_bit) {
  report_only_unconditionally();
  const qim_node_t from = source(TLVO_UNION_MEMBERS + 1);
  qim_node_t to = old_record();
  EXPECT_EQ(qim_node_cp(kSes, &from, &to), kNodeType);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_node_cp", 1268)}));
}

}  // namespace
