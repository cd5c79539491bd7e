// `qimctl watch` in words.

#include <gmock/gmock.h>

#include "policy/store/database.h"
#include "rov_edit.h"
#include "tests/tools/lists_database.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using tools_test::lists_file;
using tools_test::Process;

class WatchLists : public tools_test::ListsDatabase {
 protected:
  void change_entry() { import(replaced(lists_file, "\"accept\"", "\"reject\"")); }

  void put_node(uint32_t id) {
    const qimctl::Database database(this->database(), qimctl::OpenMode::change);
    qimctl::WriteSession session(database);
    const rov_edit_node_t node = {qimctl::database_id(id), 0, 0, nullptr, 0, nullptr};
    ASSERT_EQ(rov_edit_node_put(session.handle(), &node), 0u);
    session.commit();
  }
};

TEST_F(WatchLists, tells_of_entries_with_revision_and_author) {
  Process watch(on_database({"watch", "--acl", "--from", "1", "--count", "2"}));
  watch.wait_for(", of guard, loose, mac\n");  // so the rest comes while it watches
  change_entry();
  const tools_test::Outcome outcome = watch.finish();
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              ContainsRegex("[0-9:]* revision 2 by .*qimctl.[0-9]*.: [0-9]* nodes put"));
  EXPECT_THAT(outcome.out, ContainsRegex("[0-9:]* revision 3 by .*qimctl.[0-9]*.: guard: "
                                         "ssh accept -> reject\n"));
}

TEST_F(WatchLists, tells_of_other_nodes_by_number) {
  put_node(7);
  put_node(8);
  EXPECT_THAT(output({"watch", "--from", "2", "--timeout", "0"}),
              ContainsRegex("revision 3 by .*: 1 node put\n.* revision 4 by .*: 1 node put\n"));
  EXPECT_EQ(output({"watch", "--acl", "--from", "2", "--timeout", "0"}), "");
  Process watch(on_database({"watch", "--from", "3", "--count", "2"}));
  watch.wait_for("revision 4");
  put_node(9);
  EXPECT_THAT(watch.finish().out, HasSubstr(": 1 node put, no access list changed\n"));
}

TEST_F(WatchLists, loses_nothing_where_changes_were_lost) {
  Process watch(on_database({"watch", "--from", "1", "--count", "2"}));
  watch.wait_for("revision 2");
  {
    const qimctl::Database database(this->database(), qimctl::OpenMode::change);
    qimctl::WriteSession session(database);
    const rov_edit_node_t node = {qimctl::database_id(7), 0, 0, nullptr, 0, nullptr};
    for (int i = 0; i < 4100; i++) ASSERT_EQ(rov_edit_node_put(session.handle(), &node), 0u);
    session.commit();
  }
  EXPECT_THAT(watch.finish().out,
              HasSubstr(": more changes than are told, no access list changed\n"));
}

TEST_F(WatchLists, stops_after_so_many_lines) {
  EXPECT_EQ(output({"watch", "--from", "1", "--count", "0"}), "");
  put_node(7);
  const std::string one = output({"watch", "--from", "1", "--count", "1"});
  EXPECT_EQ(std::count(one.begin(), one.end(), '\n'), 1);
}

TEST_F(WatchLists, tells_node_by_node_of_one_type) {
  const std::string groups = output({"watch", "--type", "Group", "--from", "1", "--timeout", "0"});
  EXPECT_THAT(groups, HasSubstr("node put"));
  EXPECT_THAT(groups, HasSubstr(" Group"));
  EXPECT_THAT(groups, Not(HasSubstr(" Filter")));
  EXPECT_EQ(run({"watch", "--raw", "--acl"}).code, qimctl::exit_usage);
}

}  // namespace
