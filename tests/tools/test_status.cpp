// `qimctl status`, and what is known of processes.

#include <gmock/gmock.h>

#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "policy/store/history.h"
#include "rov_edit.h"
#include "tests/support/pace.h"
#include "tests/tools/lists_database.h"
#include "tools/base/processes.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class StatusOf : public tools_test::ListsDatabase {
 protected:
  json status() const { return json::parse(output({"status", "--json"})); }
};

TEST_F(StatusOf, a_database_at_rest) {
  const std::string text = output({"status"});
  EXPECT_THAT(text, HasSubstr("\nrevision      2\n"));
  EXPECT_THAT(text, HasSubstr("\nlast change   in revision 2, 20"));
  EXPECT_THAT(text, HasSubstr(" qimctl["));
  EXPECT_THAT(text, HasSubstr("\npolicy        3 access lists, 3 entries, 2 interfaces, "));
  EXPECT_THAT(text, HasSubstr(" free\nwriter        none\nreaders       none\nwatchers      none"));
  const json told = status();
  EXPECT_EQ(told["entries"], 3);
  EXPECT_EQ(told["last_change"]["revision"], 2);
  EXPECT_FALSE(told.contains("writer"));
}

TEST_F(StatusOf, readers_the_writer_and_watchers_are_named) {
  const qimctl::Database database(this->database(), qimctl::OpenMode::change);
  const qimctl::ReadSession reader(database);
  const qimctl::ReadSession another(database);
  const qimctl::Following following(database, 0);
  {
    qimctl::WriteSession writer(database);
    const rov_edit_node_t node = {qimctl::database_id(7), 0, 0, nullptr, 0, nullptr};
    ASSERT_EQ(rov_edit_node_put(writer.handle(), &node), 0u);
    writer.commit();
  }
  const qimctl::WriteSession writer(database);
  const json told = status();
  const auto pid = static_cast<uint32_t>(getpid());
  ASSERT_EQ(told["readers"].size(), 1u);
  EXPECT_EQ(told["readers"][0]["pid"], pid);
  EXPECT_EQ(told["readers"][0]["revision"], 2);
  EXPECT_EQ(told["writer"]["pid"], pid);
  EXPECT_FALSE(told.contains("pages"));
  const std::string text = output({"status"});
  EXPECT_THAT(text, HasSubstr("free pages are not counted while somebody writes\n"));
  EXPECT_THAT(text, HasSubstr(", revision 2, 1 behind"));
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  EXPECT_GT(status()["readers"][0]["behind_seconds"], 0);
  EXPECT_THAT(output({"status"}), HasSubstr(", revision 2, 1 behind for "));
  if (pace::emulated()) return;  // what it watches with is another file to the system
  ASSERT_EQ(told["watchers"].size(), 1u);
  EXPECT_EQ(told["watchers"][0]["pid"], pid);
  EXPECT_THAT(text, HasSubstr("\nwatcher       "));
}

TEST_F(StatusOf, what_no_access_list_is_is_counted) {
  tools_test::write_text(dir_ / "group.json", R"({"format": "qim-policy", "version": 1, "nodes":
    [{"id": 5, "type": "Group", "body": {"type": 2, "subtype": 2}}]})");
  ASSERT_EQ(run({"import", dir_ / "group.json"}).code, 0);
  EXPECT_THAT(output({"status"}), HasSubstr("1 that cannot be read as access lists; 'qimctl acl'"));
  EXPECT_EQ(status()["unreadable"], 1);
}

TEST_F(StatusOf, a_database_that_nobody_changed) {
  const qimctl::Database empty(dir_ / "empty", qimctl::OpenMode::create);
  EXPECT_FALSE(qimctl::last_change(empty).has_value());
  EXPECT_EQ(qimctl::author_of(empty, 0x700000009).name, "client 0x00000007[9]");
  const tools_test::Outcome outcome = tools_test::run_qimctl({"--db", dir_ / "empty", "status"});
  EXPECT_THAT(outcome.out, HasSubstr("\nlast change   not known\n"));
}

TEST(ProcessesOf, this_one) {
  const auto pid = static_cast<uint32_t>(getpid());
  const qimctl::ProcessInfo info = qimctl::process_info(pid);
  EXPECT_EQ(info.pid, pid);
  EXPECT_NE(info.name, "");
  EXPECT_TRUE(qimctl::processes_watching("/nowhere/at/all").empty());
}

TEST(ProcessesOf, ages_are_told_in_fitting_units) {
  EXPECT_EQ(qimctl::process_text({7, "a b", 12}), "a b[7], running 12 s");
  EXPECT_EQ(qimctl::process_text({7, "", 600}), "process[7], running 10 min");
  EXPECT_EQ(qimctl::process_text({7, "x", 10000}), "x[7], running 2 h");
  EXPECT_EQ(qimctl::process_text({7, "x", 864000}), "x[7], running 10 days");
  EXPECT_EQ(qimctl::process_info(0x7fffffff).name, "");
}

}  // namespace
