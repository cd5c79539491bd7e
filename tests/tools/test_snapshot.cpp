// `qimctl snapshot` and `qimctl rollback`.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/lists_database.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;
using tools_test::lists_file;

class Snapshots : public tools_test::ListsDatabase {
 protected:
  void change() {
    import(
        replaced(replaced(lists_file, "\"accept\"", "\"reject\""), "\"port\": 22", "\"port\": 23"));
  }
};

TEST_F(Snapshots, are_made_listed_and_removed) {
  EXPECT_EQ(output({"snapshot", "list"}), "0 snapshots\n");
  EXPECT_THAT(output({"snapshot", "make", "monday"}),
              StartsWith("made snapshot \"monday\" of revision 2, "));
  EXPECT_EQ(json::parse(output({"snapshot", "make", "acme://edge/nightly", "--json"}))["revision"],
            2);
  EXPECT_THAT(output({"snapshot", "list"}), HasSubstr("\nacme://edge/nightly  2  "));
  const json listed = json::parse(output({"snapshot", "list", "--json"}));
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(listed[1]["snapshot"], "monday");
  EXPECT_EQ(output({"snapshot", "remove", "monday"}), "removed snapshot \"monday\"\n");
  EXPECT_EQ(json::parse(output({"snapshot", "remove", "acme://edge/nightly", "--json"}))["removed"],
            "acme://edge/nightly");
  EXPECT_EQ(output({"snapshot", "list"}), "0 snapshots\n");
}

TEST_F(Snapshots, are_never_made_or_removed_by_mistake) {
  output({"snapshot", "make", "a"});
  expect_failure({"snapshot", "make", "a"}, qimctl::exit_database, "there is one of that name");
  expect_failure({"snapshot", "remove", "b"}, qimctl::exit_not_found, "none of that name");
  expect_failure({"rollback", "b"}, qimctl::exit_not_found, "none of that name");
  output({"snapshot", "make", "a/b"});
  expect_failure({"snapshot", "remove", "a"}, qimctl::exit_database, "lies below it");
  EXPECT_EQ(json::parse(output({"snapshot", "list", "--json"})).size(), 2u);
}

TEST_F(Snapshots, that_are_damaged_do_not_hide_the_others) {
  output({"snapshot", "make", "a"});
  output({"snapshot", "make", "b"});
  tools_test::write_text(dir_ / "db/snapshots/a/format", "node database\nformat 9\n");
  const auto told = run({"snapshot", "list"});
  EXPECT_EQ(told.code, qimctl::exit_database);
  EXPECT_THAT(told.out, HasSubstr("cannot "));
  EXPECT_THAT(told.err, HasSubstr("1 snapshot can't be read"));
  const json listed = json::parse(run({"snapshot", "list", "--json"}).out);
  EXPECT_TRUE(listed[0].contains("damage"));
  EXPECT_EQ(listed[1]["revision"], 2);
  EXPECT_EQ(run({"rollback", "a"}).code, qimctl::exit_database);
}

TEST_F(Snapshots, are_what_the_database_goes_back_to) {
  output({"snapshot", "make", "before"});
  const std::string dump = output({"dump"});
  change();
  EXPECT_NE(output({"dump"}), dump);
  const std::string dry = output({"rollback", "--dry-run", "before"});
  EXPECT_THAT(dry,
              StartsWith("guard: ssh reject -> accept, ssh: ipv4 tcp to 192.0.2.0/24 port 23 -> "
                         "ipv4 tcp to 192.0.2.0/24 port 22\nrolling back to \"before\" "
                         "(revision 2): "));
  EXPECT_NE(output({"dump"}), dump);
  const std::string done = output({"rollback", "before"});
  EXPECT_THAT(done, HasSubstr("\nrolled back to \"before\" (revision 2): "));
  EXPECT_THAT(done, HasSubstr("\nrevision 4\n"));
  EXPECT_EQ(output({"dump"}), dump);
  EXPECT_THAT(output({"rollback", "before"}), StartsWith("unchanged: "));
  EXPECT_EQ(json::parse(output({"status", "--json"}))["revision"], 4);
}

TEST_F(Snapshots, going_back_is_told_as_json) {
  output({"snapshot", "make", "before"});
  change();
  const json told = json::parse(output({"rollback", "before", "--json"}));
  EXPECT_EQ(told["snapshot_revision"], 2);
  EXPECT_EQ(told["revision"], 4);
  EXPECT_EQ(told["dry_run"], false);
  EXPECT_EQ(told["lists"][0]["list"], "guard");
  EXPECT_EQ(told["lists"][0]["changes"][0], "ssh reject -> accept");
}

TEST_F(Snapshots, are_read_by_all_that_only_reads) {
  output({"snapshot", "make", "before"});
  const std::string exported = run({"export", "--lossy"}).out;
  change();
  EXPECT_EQ(run({"export", "--lossy", "--at", "before"}).out, exported);
  EXPECT_NE(run({"export", "--lossy"}).out, exported);
  tools_test::write_text(dir_ / "before.json", exported);
  EXPECT_EQ(run({"diff", dir_ / "before.json", "--at", "before"}).code, qimctl::exit_ok);
  EXPECT_EQ(run({"diff", dir_ / "before.json"}).code, qimctl::exit_differs);
  EXPECT_EQ(run({"diff", "--from", "before", "--at", "before"}).code, qimctl::exit_ok);
  EXPECT_EQ(json::parse(run({"check", "--at", "before", "--json"}).out)["revision"], 2);
  const json told = json::parse(output({"status", "--at", "before", "--json"}));
  EXPECT_EQ(told["snapshot"], "before");
  EXPECT_EQ(told["revision"], 2);
  EXPECT_EQ(told["lists"], 3);
  EXPECT_THAT(output({"status", "--at", "before"}),
              HasSubstr("\nsnapshot      before\nrevision      2\npolicy        3 access lists, "));
}

TEST_F(Snapshots, are_not_asked_for_where_they_mean_nothing) {
  output({"snapshot", "make", "before"});
  const std::string file = dir_ / "lists.json";
  expect_failure({"check", file, "--at", "before"}, qimctl::exit_usage, "leave --at out");
  expect_failure({"diff", file, "--from", "before", "--at", "before"}, qimctl::exit_usage,
                 "--from and --at both say");
  expect_failure({"diff", "--db", database(), "--db", database(), "--at", "before"},
                 qimctl::exit_usage, "compared with each other alone");
  expect_failure({"gc", "--dry-run", "--at", "before"}, qimctl::exit_usage,
                 "for commands that only read");
}

TEST_F(Snapshots, are_found_by_the_revision_that_they_hold) {
  output({"snapshot", "make", "before"});
  output({"snapshot", "make", "damaged"});
  tools_test::write_text(dir_ / "db/snapshots/damaged/format", "node database\nformat 9\n");
  change();
  const auto before = run({"diff", "--from", "before"});
  EXPECT_EQ(before.code, qimctl::exit_differs);
  EXPECT_EQ(run({"diff", "--from", "2"}).out, before.out);
  EXPECT_EQ(run({"diff", "--from", "3"}).code, qimctl::exit_ok);
  expect_failure({"diff", "--from", "1"}, qimctl::exit_not_found, "revision 1: it is gone");
}

TEST_F(Snapshots, of_another_database_are_refused) {
  change();
  output({"snapshot", "make", "late"});
  const std::string copy = dir_ / "db/snapshots/late";
  const auto away = dir_ / "late";
  std::filesystem::copy(copy, away, std::filesystem::copy_options::recursive);
  std::filesystem::remove_all(dir_ / "db");
  import(lists_file);
  output({"snapshot", "make", "own"});
  std::filesystem::copy(away, copy, std::filesystem::copy_options::recursive);
  const std::string dump = output({"dump"});
  expect_failure({"rollback", "late"}, qimctl::exit_database,
                 "it is of another database: it holds revision 3, and this one has only 2");
  EXPECT_EQ(output({"dump"}), dump);
}

}  // namespace
