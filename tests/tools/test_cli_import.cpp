// `qimctl import` as a process.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tools_test::Outcome;
using tools_test::write_text;

const char* const two_actions = R"({"format": "qim-policy", "version": 1, "nodes": [
  {"id": 1, "type": "Action", "links": {"ln_141": 2}},
  {"id": 2, "type": "Action"}]})";

// One entry that can be carried, one that does something that can't.
const char* const lossy_list = R"({"ietf-access-control-list:acls": {"acl": [{
  "name": "a", "type": "ipv4-acl-type", "aces": {"ace": [
    {"name": "good", "matches": {"ipv4": {"protocol": 6}}, "actions": {"forwarding": "accept"}},
    {"name": "odd", "actions": {"forwarding": "accept", "example-rate:limit": 7}}]}}]}})";

class Import : public testing::Test {
 protected:
  std::string file(const std::string& name, const std::string& text) {
    write_text(dir_ / name, text);
    return dir_ / name;
  }

  Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--db", dir_ / "db"});
    return tools_test::run_qimctl(arguments);
  }

  Outcome import(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "import");
    return run(arguments);
  }

  size_t stored() { return json::parse(run({"list", "--json"}).out).size(); }

  tools_test::TempDir dir_;
};

TEST_F(Import, takes_both_formats_at_once) {
  const auto examples = tools_test::source_dir() / "examples";
  const Outcome outcome =
      import({"--lossy", examples / "edge-all-types.json", examples / "edge-router.rfc8519.json"});
  EXPECT_EQ(outcome.code, qimctl::exit_ok) << outcome.err;
  EXPECT_THAT(outcome.err, IsEmpty());
  EXPECT_THAT(outcome.out, HasSubstr("from 2 files"));
  EXPECT_GT(stored(), 300u);
}

TEST_F(Import, says_what_it_stored) {
  const Outcome outcome = import({file("a.json", two_actions)});
  EXPECT_EQ(outcome.code, qimctl::exit_ok);
  EXPECT_EQ(outcome.out, "imported 2 nodes and 1 link from 1 file\n");
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(Import, reports_as_json) {
  const Outcome outcome = import({"--json", file("a.json", two_actions)});
  EXPECT_EQ(json::parse(outcome.out), json::parse(R"({"imported": true, "nodes": 2, "links": 1,
                                                      "replaced": 0, "edits": 3, "findings": []})"));
}

TEST_F(Import, takes_the_database_behind_the_command_and_from_the_environment) {
  const std::string input = file("a.json", two_actions);
  EXPECT_EQ(tools_test::run_qimctl({"import", "--db", dir_ / "db", input}).code, 0);
  EXPECT_EQ(stored(), 2u);
  const std::string setting = "ROV_DB=" + (dir_ / "other").string();
  EXPECT_EQ(tools_test::run_qimctl({"import", input}, {setting}).code, 0);
  EXPECT_THAT(tools_test::run_qimctl({"list"}, {setting}).out, HasSubstr("2 nodes"));
}

TEST_F(Import, refuses_a_file_that_is_not_there) {
  const Outcome outcome = import({dir_ / "none.json"});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_EQ(outcome.err, "qimctl: " + (dir_ / "none.json").string() +
                             ": cannot be opened: No such file or directory\n");
  EXPECT_FALSE(std::filesystem::exists(dir_ / "db"));
}

TEST_F(Import, refuses_a_directory) {
  const Outcome outcome = import({dir_ / ""});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("cannot be read"));
}

TEST_F(Import, asks_for_the_format_when_it_can_not_be_told) {
  const Outcome outcome = import({file("a.json", "{\"nodes\": []}")});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("--format native or --format rfc8519"));
}

TEST_F(Import, believes_the_format_that_it_is_told) {
  const Outcome outcome = import({"--format", "native", file("a.json", "{\"nodes\": []}")});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("lacks the member \"format\""));
  EXPECT_EQ(import({"--format", "native", file("b.json", two_actions)}).code, 0);
}

TEST_F(Import, says_everything_that_is_wrong_in_all_files) {
  const std::string a = file("a.json",
                             "{\"format\": \"qim-policy\", \"version\": 1,\n"
                             "\"nodes\": [\n{\"id\": 0, \"type\": 1},\n{}]}");
  const std::string b = file("b.json", "{\"format\": \"qim-policy\",}");
  const Outcome outcome = import({a, b});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr(a + ":3: /nodes/0/id: is 0; expected"));
  EXPECT_THAT(outcome.err, HasSubstr(a + ":4: /nodes/1: lacks the member \"id\""));
  EXPECT_THAT(outcome.err, HasSubstr(b + ":1: "));
  EXPECT_THAT(outcome.out, IsEmpty());
}

TEST_F(Import, counts_problems_that_are_too_many_to_list) {
  std::string nodes;
  for (int i = 0; i < 60; i++) nodes += std::string(i == 0 ? "" : ",") + "{\"id\": 1}";
  const Outcome outcome = import(
      {file("a.json", "{\"format\": \"qim-policy\", \"version\": 1, \"nodes\": [" + nodes + "]}")});
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 51);
  EXPECT_THAT(outcome.err, HasSubstr("qimctl: and 10 more problems\n"));
}

TEST_F(Import, names_the_line_of_a_link_that_leads_nowhere) {
  const Outcome outcome =
      import({file("a.json", R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 1, "type": "Action"},
    {"id": 2, "type": "Action", "links": {"ln_141": 77}}]})")});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("a.json:3: /nodes/1: node 0x00000002 has a link ln_141 to "
                                     "node 0x0000004d, which is neither in the input nor in the "
                                     "database"));
  // Nothing was made for it.
  EXPECT_EQ(run({"list"}).code, qimctl::exit_database);
}

TEST_F(Import, is_all_or_nothing_over_all_files) {
  const std::string good = file("a.json", two_actions);
  const std::string bad = file("b.json", R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 3, "type": "Action"}, {"id": 2, "type": "Def"}]})");
  const Outcome outcome = import({good, bad});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("b.json:2: /nodes/1: node 0x00000002 is there already, at " +
                                     good + "/nodes/1"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "db"));
}

TEST_F(Import, does_not_overwrite_unless_told) {
  const std::string input = file("a.json", two_actions);
  ASSERT_EQ(import({input}).code, 0);
  const Outcome again = import({input});
  EXPECT_EQ(again.code, qimctl::exit_input);
  EXPECT_THAT(again.err, HasSubstr("a.json:2: /nodes/0: node 0x00000001 is in the database "
                                   "already; import with --replace"));
  std::string text = two_actions;
  text.insert(text.rfind("\"Action\"") + 8, R"(, "priv": "00")");
  const Outcome replaced = import({"--replace", file("b.json", text)});
  EXPECT_EQ(replaced.code, qimctl::exit_ok) << replaced.err;
  EXPECT_EQ(replaced.out, "imported 2 nodes and 1 link from 1 file, 2 replaced\n");
}

// Whoever watches is told of nothing then.
TEST_F(Import, commits_nothing_that_is_there_already) {
  const std::string input = file("a.json", two_actions);
  ASSERT_EQ(import({input}).code, 0);
  const json before = json::parse(run({"status", "--json"}).out);
  const Outcome again = import({"--replace", input});
  EXPECT_EQ(again.code, qimctl::exit_ok);
  EXPECT_EQ(again.out, "unchanged: 2 nodes and 1 link from 1 file\n");
  EXPECT_EQ(json::parse(import({"--replace", "--json", input}).out)["edits"], 0);
  EXPECT_EQ(json::parse(run({"status", "--json"}).out)["revision"], before["revision"]);
}

TEST_F(Import, imports_nothing_when_something_would_be_lost) {
  const std::string input = file("a.json", lossy_list);
  const Outcome outcome = import({input});
  EXPECT_EQ(outcome.code, qimctl::exit_lossy);
  EXPECT_THAT(outcome.out, HasSubstr("skipped  " + input + ":4: "));
  EXPECT_THAT(outcome.out, Not(HasSubstr("accepted  ")));
  EXPECT_THAT(outcome.err, HasSubstr("nothing was imported"));
  EXPECT_THAT(outcome.err, HasSubstr("--lossy"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "db"));
}

TEST_F(Import, accepts_a_loss_when_told) {
  const Outcome outcome = import({"--lossy", "-v", file("a.json", lossy_list)});
  EXPECT_EQ(outcome.code, qimctl::exit_ok);
  EXPECT_THAT(outcome.out, HasSubstr("skipped  "));
  EXPECT_THAT(outcome.out, HasSubstr("accepted  "));
  EXPECT_THAT(outcome.out, HasSubstr(" approximated, 1 skipped\n"));
  EXPECT_GT(stored(), 0u);
}

// A list of two entries, none of which can be carried.
const char* const emptied_list = R"({"ietf-access-control-list:acls": {"acl": [
  {"name": "a", "aces": {"ace": [
    {"name": "x", "actions": {"forwarding": "x:police"}},
    {"name": "y", "actions": {"forwarding": "x:police"}}]}}]}})";

TEST_F(Import, takes_no_list_that_would_come_out_empty) {
  const std::string input = file("a.json", emptied_list);
  const Outcome outcome = import({"--lossy", input});
  EXPECT_EQ(outcome.code, qimctl::exit_lossy);
  EXPECT_THAT(outcome.err, HasSubstr(input + ":2: /ietf-access-control-list:acls/acl/0: "));
  EXPECT_THAT(outcome.err, HasSubstr("0 of 2 entries carried"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "db"));
}

TEST_F(Import, attaches_the_lists_of_a_device_profile) {
  const std::string input = file("a.json", R"({"ietf-mud:mud": {"from-device-policy":
    {"access-lists": {"access-list": [{"name": "a"}]}}},
    "ietf-access-control-list:acls": {"acl": [{"name": "a"}]}})");
  EXPECT_EQ(import({input}).code, qimctl::exit_lossy);
  EXPECT_EQ(import({"--interface", "eth3", input}).code, qimctl::exit_ok);
  EXPECT_THAT(run({"list", "--type", "Edest"}).out,
              HasSubstr(" if:eth3/in, access list in stage 1\n1 node\n"));
}

TEST_F(Import, reports_a_loss_as_json) {
  const Outcome outcome = import({"--json", file("a.json", lossy_list)});
  EXPECT_EQ(outcome.code, qimctl::exit_lossy);
  const json report = json::parse(outcome.out);
  EXPECT_EQ(report["imported"], false);
  EXPECT_EQ(report["nodes"], 0);
  bool skipped = false;
  for (const json& finding : report["findings"]) {
    skipped = skipped || (finding["fate"] == "skipped" && finding["line"] == 4);
  }
  EXPECT_TRUE(skipped);
}

TEST_F(Import, keeps_terminal_control_out_of_its_messages) {
  const Outcome outcome = import({file("a.json",
                                       "{\"format\": \"qim-policy\", \"version\": 1,"
                                       "\"nodes\": [], \"\\u001b[2J\": 1}")});
  EXPECT_EQ(outcome.code, qimctl::exit_input);
  EXPECT_THAT(outcome.err, HasSubstr("\\x1b[2J"));
  EXPECT_THAT(outcome.err, Not(HasSubstr("\x1b")));
}

}  // namespace
