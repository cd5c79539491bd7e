// A database is made what another state of it is, with no edit too many.
#include <gmock/gmock.h>

#include "policy/store/rollback.h"
#include "policy/store/stored_node.h"
#include "rov_edit.h"
#include "tests/tools/support.h"

namespace {

using qimctl::Database;
using qimctl::NodeEdits;
using qimctl::ReadSession;
using qimctl::WriteSession;
using Bytes = std::vector<uint8_t>;

class Rollback : public testing::Test {
 protected:
  Rollback() {
    WriteSession writer(database_);
    put(writer, 1, {1}, 0);
    put(writer, 2, {2}, 21);
    put(writer, 3, {3}, 0);
    link(writer, 1, 0x81, 2, 7);
    link(writer, 1, 0x8082, 3, 0);
    keep(writer, 1, 9, {1, 2});
    keep(writer, 1, 10, {3});
    writer.commit();
  }

  static void put(const WriteSession& writer, uint32_t id, Bytes tlv, uint32_t named) {
    const Bytes name(named, static_cast<uint8_t>(id));
    const rov_edit_node_t node = {qimctl::database_id(id),
                                  0,
                                  static_cast<uint32_t>(tlv.size()),
                                  tlv.data(),
                                  named,
                                  name.data()};
    ASSERT_EQ(rov_edit_node_put(writer.handle(), &node), 0u);
  }
  static void link(const WriteSession& writer, uint32_t from, uint16_t field, uint32_t to,
                   uint32_t val) {
    rov_link_t form{};
    form.owner = qimctl::database_id(from);
    form.field = field;
    form.node = qimctl::database_id(to);
    form.val = val;
    ASSERT_EQ(rov_edit_link_put(writer.handle(), &form), 0u);
  }
  static void keep(const WriteSession& writer, uint32_t id, uint32_t client, Bytes data) {
    ASSERT_EQ(rov_edit_priv_put(writer.handle(), qimctl::database_id(id), client, data.data(),
                                static_cast<uint32_t>(data.size())),
              0u);
  }

  // Commits what `change` does, rolls that back, and tells how many edits it took.
  NodeEdits undo(const std::function<void(const WriteSession&)>& change) {
    const ReadSession before(database_);
    WriteSession changing(database_);
    change(changing);
    changing.commit();
    WriteSession writer(database_);
    const ReadSession now(database_);
    const NodeEdits counted = qimctl::roll_back(before, now, nullptr);
    const NodeEdits made = qimctl::roll_back(before, now, &writer);
    EXPECT_EQ(counted.total(), made.total());
    writer.commit();
    EXPECT_EQ(qimctl::roll_back(before, ReadSession(database_), nullptr).total(), 0u);
    return made;
  }

  tools_test::TempDir dir_;
  Database database_{dir_ / "db", qimctl::OpenMode::create};
};

TEST_F(Rollback, of_nothing_takes_no_edit) {
  EXPECT_EQ(undo([](const WriteSession& writer) { put(writer, 1, {1}, 0); }).total(), 0u);
}

TEST_F(Rollback, takes_away_what_is_new) {
  const NodeEdits edits = undo([](const WriteSession& writer) {
    put(writer, 4, {4}, 0);
    put(writer, 5, {5}, 0);
    link(writer, 3, 0x81, 4, 0);
    keep(writer, 3, 9, {5});
  });
  EXPECT_EQ(edits.nodes_deleted, 2u);
  EXPECT_EQ(edits.links, 1u);
  EXPECT_EQ(edits.privates, 1u);
  EXPECT_EQ(edits.nodes_put, 0u);
}

TEST_F(Rollback, brings_back_what_is_gone) {
  const NodeEdits edits = undo([](const WriteSession& writer) {
    ASSERT_EQ(rov_edit_node_del(writer.handle(), qimctl::database_id(1)), 0u);
  });
  EXPECT_EQ(edits.nodes_put, 1u);
  EXPECT_EQ(edits.links, 2u);
  EXPECT_EQ(edits.privates, 2u);
}

TEST_F(Rollback, mends_what_differs_and_nothing_else) {
  const NodeEdits edits = undo([](const WriteSession& writer) {
    put(writer, 2, {2}, 0);  // without its name
    put(writer, 3, {3, 3}, 0);
    link(writer, 1, 0x81, 2, 8);
    ASSERT_EQ(rov_edit_link_del(writer.handle(), qimctl::database_id(1), 0x8082), 0u);
    keep(writer, 1, 9, {});
    keep(writer, 1, 10, {4});
  });
  EXPECT_EQ(edits.nodes_put, 2u);
  EXPECT_EQ(edits.links, 2u);
  EXPECT_EQ(edits.privates, 2u);
  EXPECT_EQ(edits.nodes_deleted, 0u);
}

}  // namespace
