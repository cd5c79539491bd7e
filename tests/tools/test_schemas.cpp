// What commands print to programs follows the schemas in docs/schemas/, complaints too: there is one of
// each command, and none of anything else.
#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include "policy/base/json_text.h"
#include "policy/formats/native/validator.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using namespace qimctl;
using testing::HasSubstr;
using testing::IsEmpty;

// Not of commands: --version, and what goes to standard error.
const std::set<std::string> other_schemas = {"version", "error"};

std::filesystem::path schema_folder() {
  return tools_test::source_dir() / "docs" / "schemas";
}

class Schema {
 public:
  explicit Schema(const std::string& name)
      : text_(tools_test::read_text(schema_folder() / (name + ".json"))),
        document_(parse_json(text_, name)),
        validator_(document_.view()) {}

  // "" or what is wrong with the text.
  std::string fault_of(const std::string& text) const {
    const JsonDocument document = parse_json(text, "answer");
    if (validator_.accepts(document.view())) return "";
    std::string faults = text.substr(0, 1000);
    for (const Violation& violation : validator_.violations(document.view()))
      faults += "\n" + testing::PrintToString(violation.path) + " " + violation.description;
    return faults;
  }

 private:
  std::string text_;
  JsonDocument document_;
  Validator validator_;
};

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string joined_lines(const std::string& text) {
  std::string all;
  for (const std::string& line : lines_of(text)) all += (all.empty() ? "" : ",") + line;
  return "[" + all + "]";
}

tools_test::Outcome run_here(const std::vector<std::string>& words) {
  std::vector<const char*> argv{"qimctl"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  tools_test::Outcome outcome;
  outcome.code = qimctl::run(static_cast<int>(argv.size()), argv.data());
  outcome.out = testing::internal::GetCapturedStdout();
  outcome.err = testing::internal::GetCapturedStderr();
  return outcome;
}

// The command that words begin with, as its schema is called.
std::string schema_of(const std::vector<std::string>& words) {
  static const std::set<std::string> above = {"priv", "delete", "detach", "snapshot", "name"};
  if (words[0] == "--version") return "version";
  return above.contains(words[0]) ? words[0] + "-" + words[1] : words[0];
}

constexpr const char* two_lists = R"({"ietf-access-control-list:acls": {
  "acl": [
    {"name": "guard", "type": "ipv4-acl-type", "aces": {"ace": [
      {"name": "ssh", "matches": {"ipv4": {"protocol": 6}, "tcp": {"destination-port":
        {"operator": "eq", "port": 22}}}, "actions": {"forwarding": "accept"}},
      {"name": "again", "matches": {"ipv4": {"protocol": 6}, "tcp": {"destination-port":
        {"operator": "eq", "port": 22}}}, "actions": {"forwarding": "reject"}},
      {"name": "rest", "matches": {}, "actions": {"forwarding": "FORWARDING",
        "logging": "log-syslog"}}]}},
    {"name": "idle", "type": "ipv4-acl-type", "aces": {"ace": [
      {"name": "all", "matches": {}, "actions": {"forwarding": "drop"}}]}}],
  "attachment-points": {"interface": [{"interface-id": "eth0",
    "ingress": {"acl-sets": {"acl-set": [{"name": "guard"}]}}}]}}})";

std::string lists_with(const std::string& forwarding) {
  std::string text = two_lists;
  return text.replace(text.find("FORWARDING"), 10, forwarding);
}

// A frame of an ARP request, as captured on a little-endian machine.
std::string arp_capture() {
  std::string text("\xd4\xc3\xb2\xa1\x02\0\x04\0\0\0\0\0\0\0\0\0\xff\xff\0\0\x01\0\0\0", 24);
  text += std::string("\0\0\0\0\0\0\0\0\x0e\0\0\0\x0e\0\0\0", 16);
  return text + std::string("\xff\xff\xff\xff\xff\xff\x02\0\0\0\0\x01\x08\x06", 14);
}

class Answers : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new tools_test::TempDir;
    tools_test::write_text(*dir_ / "lists.json", lists_with("drop"));
    tools_test::write_text(*dir_ / "changed.json", lists_with("accept"));
    tools_test::write_text(*dir_ / "damaged.json", "{\"ietf-access-control-list:acls\": 3}");
    tools_test::write_text(*dir_ / "frames.pcap", arp_capture());
    ASSERT_EQ(answer({"import", example("edge-all-types.json")}).code, exit_ok);
    ASSERT_EQ(answer({"apply", file("lists.json")}).code, exit_ok);
    ASSERT_EQ(answer({"snapshot", "make", "first"}).code, exit_ok);
    tools_test::write_text(*dir_ / "dump.json", answer({"dump"}).out);
    ASSERT_EQ(answer({"restore", file("dump.json")}, "restored").code, exit_ok);
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }

  static std::string file(const std::string& name) { return *dir_ / name; }
  static std::string example(const std::string& name) {
    return tools_test::source_dir() / "examples" / name;
  }

  // What a command answers, in JSON, of this database.
  static tools_test::Outcome answer(std::vector<std::string> words,
                                    const std::string& database = "db",
                                    const std::string& form = "json") {
    words.insert(words.end(), {"--db", *dir_ / database, "-o", form});
    return run_here(words);
  }

  // An answer that is to follow its command's schema.
  static void expect_answer(const std::vector<std::string>& words, int code = exit_ok,
                            const std::string& database = "db") {
    SCOPED_TRACE(testing::PrintToString(words));
    const std::string name = schema_of(words);
    const Schema schema(name);
    const tools_test::Outcome outcome = answer(words, database);
    EXPECT_EQ(outcome.code, code);
    expect_complaints(outcome.err);
    EXPECT_EQ(schema.fault_of(name == "watch" ? lines_of(outcome.out).at(0) : outcome.out), "");
    seen().insert(name);
  }

  // The same in a document a line, of a command that can be repeated.
  static void expect_lines(const std::vector<std::string>& words, int code = exit_ok) {
    expect_answer(words, code);
    SCOPED_TRACE(testing::PrintToString(words));
    const Schema schema(schema_of(words));
    const tools_test::Outcome outcome = answer(words, "db", "jsonl");
    EXPECT_EQ(outcome.code, code);
    const std::vector<std::string> lines = lines_of(outcome.out);
    if (lines.size() == 1 && schema.fault_of(lines[0]).empty()) return;
    EXPECT_EQ(schema.fault_of(joined_lines(outcome.out)), "");
    EXPECT_NE(answer(words, "db", "yaml").out, "");
  }

  static void expect_complaints(const std::string& text) {
    const Schema schema("error");
    for (const std::string& line : lines_of(text)) EXPECT_EQ(schema.fault_of(line), "");
  }

  // A failure says why, in documents that programs can read.
  static void expect_failure(const std::vector<std::string>& words, int code,
                             const std::string& database = "db") {
    SCOPED_TRACE(testing::PrintToString(words));
    for (const char* form : {"json", "jsonl", "yaml"}) {
      const tools_test::Outcome outcome = answer(words, database, form);
      EXPECT_EQ(outcome.code, code);
      EXPECT_NE(outcome.err, "");
      expect_complaints(outcome.err);
      if (form != std::string("json") || outcome.out.empty()) continue;
      EXPECT_EQ(Schema(schema_of(words)).fault_of(outcome.out), "");
    }
  }

  // The schemas that answers were held against.
  static std::set<std::string>& seen() {
    static std::set<std::string> names;
    return names;
  }

  static inline tools_test::TempDir* dir_ = nullptr;
};

TEST_F(Answers, OfNodesFollowTheirSchemas) {
  expect_lines({"list"});
  expect_lines({"list", "--type", "Filter"});
  for (const char* node : {"0x04100001", "0x04100010", "0x04100050", "0x04100090", "0x041000a1"})
    expect_lines({"show", node});
  expect_lines({"tree", "0x04100080"});
  expect_lines({"tree", "guard", "--depth", "2"});
  expect_lines({"refs", "0x04100080"});
  expect_lines({"criteria", "0x04100010"});
  expect_lines({"criteria", "guard/rest"});
  expect_lines({"args", "0x04100030"});
  expect_lines({"edest", "0x04100080"});
  expect_lines({"edest", "0x04100080", "service", "9", "srv_def", "2", "srv_vdc", "1"});
  expect_lines({"pinst", "0"});
  expect_lines({"name", "build", "interface", "3"});
  expect_lines({"name", "parse", "010000000300000000000000000000000000000000"});
  expect_lines({"name", "parse", "020000000900000002000100000000000000000501"});
  expect_lines({"priv", "get", "0x04100001"});
  expect_lines({"priv", "set", "0x04100031", "0102"});
  expect_lines({"delete", "node", "0x04100090", "--force", "--dry-run"});
}

TEST_F(Answers, OfListsFollowTheirSchemas) {
  expect_lines({"acl"});
  expect_lines({"acl", "guard"});
  expect_answer({"export", "guard", "idle"});
  expect_lines({"graph", "guard", "--format", "dot"});
  expect_lines({"trace", "if:eth0/in", "tcp 192.0.2.5:4000 > 198.51.100.7:22 syn"});
  expect_lines({"trace", "guard", "--pcap", file("frames.pcap")});
  expect_lines({"apply", "--dry-run", file("changed.json")});
  expect_lines({"diff", file("changed.json")}, exit_differs);
  expect_lines({"diff", "--semantic", file("changed.json")}, exit_differs);
  expect_lines({"detach", "acl", "guard", "if:eth0/in", "--dry-run"});
  expect_lines({"delete", "acl", "idle", "--dry-run"});
  expect_lines({"gc", "--dry-run"});
  expect_lines({"gc"});
  expect_lines({"check"});
  expect_lines({"check", file("lists.json")});
  expect_lines({"check", "--strict", example("edge-router.rfc8519.json")}, exit_defects);
  expect_answer({"watch", "--from", "1", "--timeout", "0"});
  expect_answer({"watch", "--acl", "--from", "1", "--timeout", "0"});
}

TEST_F(Answers, OfDatabasesFollowTheirSchemas) {
  expect_lines({"status"});
  expect_lines({"explain", "filter.match"});
  expect_lines({"explain", "0x0102"});
  expect_lines({"snapshot", "list"});
  expect_lines({"rollback", "--dry-run", "first"});
  expect_answer({"dump"});
  expect_lines({"--version"});
  expect_lines({"help"});
  expect_lines({"help", "priv", "set"});
  expect_answer({"import", example("edge-all-types.json")}, exit_ok, "other");
  expect_answer({"import", "--replace", example("edge-all-types.json")}, exit_ok, "other");
  expect_answer({"import", "-v", file("lists.json")}, exit_ok, "other");
  expect_answer({"snapshot", "make", "kept"}, exit_ok, "other");
  expect_answer({"apply", file("changed.json")}, exit_ok, "other");
  expect_answer({"rollback", "kept"}, exit_ok, "other");
  expect_answer({"snapshot", "remove", "kept"}, exit_ok, "other");
  expect_answer({"detach", "acl", "guard", "if:eth0/in"}, exit_ok, "other");
  expect_answer({"delete", "acl", "guard"}, exit_ok, "other");
  expect_answer({"compact"}, exit_ok, "other");
  expect_answer({"backup", "--force", file("backup")}, exit_ok, "other");
  expect_answer({"restore", file("dump.json")}, exit_ok, "another");
}

TEST_F(Answers, ThatAreFailuresFollowTheSchemaOfErrors) {
  const std::string lossy = file("lossy.json");
  tools_test::write_text(lossy, R"({"ietf-access-control-list:acls": {"acl": [
    {"name": "a", "type": "ipv4-acl-type", "aces": {"ace": [
      {"name": "x", "matches": {"ipv4": {"protocol": 6}}, "actions": {"forwarding": "drop"},
       "statistics": {"matched-packets": "3"}}]}},
    {"name": "b", "type": "ipv4-acl-type", "aces": {"ace": [
      {"name": "y", "matches": {"egress-interface": "", "ipv4": {"ttl": 3}},
       "actions": {"forwarding": "nowhere"}}]}}]}})");
  for (const char* command : {"import", "apply", "diff", "check"}) {
    expect_failure({command, file("damaged.json")}, exit_input);
    expect_failure({command, file("none.json")}, exit_input);
    expect_failure({command, lossy}, exit_input);
    expect_failure({command, "--format", "none", lossy}, exit_usage);
  }
  const std::string skipped = file("skipped.json");
  tools_test::write_text(skipped, R"({"ietf-access-control-list:acls": {"acl": [
    {"name": "a", "type": "ipv4-acl-type", "aces": {"ace": [
      {"name": "x", "actions": {"forwarding": "drop"}},
      {"name": "y", "actions": {"forwarding": "x:police"}}]}}]}})");
  for (const char* command : {"import", "apply"}) expect_failure({command, skipped}, exit_lossy);
  expect_failure({"import", example("edge-all-types.json")}, exit_input);
  expect_failure({"import", file("lists.json")}, exit_input);
  expect_failure({"restore", file("lists.json")}, exit_input);
  expect_failure({"restore", file("dump.json")}, exit_input);
  expect_failure({"trace", "guard", "--pcap", file("lists.json")}, exit_input);
  expect_failure({"trace", "guard", "nonsense"}, exit_usage);
  expect_failure({"trace", "if:none/in", "arp"}, exit_not_found);
  expect_failure({"show", "0x99999999"}, exit_not_found);
  for (const char* command : {"tree", "refs", "criteria", "args", "edest"})
    expect_failure({command, "0x99999999"}, exit_not_found);
  expect_failure({"criteria", "0x04100001"}, exit_database);
  expect_failure({"pinst", "9999"}, exit_not_found);
  expect_failure({"priv", "get", "0x99999999"}, exit_not_found);
  expect_failure({"priv", "set", "0x04100001", "xyz"}, exit_usage);
  expect_failure({"acl", "none"}, exit_not_found);
  expect_failure({"graph", "none"}, exit_not_found);
  expect_failure({"explain", "fliter"}, exit_not_found);
  expect_failure({"delete", "acl", "guard"}, exit_refused);
  expect_failure({"delete", "node", "0x04100080"}, exit_refused);
  expect_failure({"detach", "acl", "idle", "if:eth0/in"}, exit_not_found);
  expect_failure({"snapshot", "make", "first"}, exit_database);
  expect_failure({"snapshot", "remove", "none"}, exit_not_found);
  expect_failure({"rollback", "none"}, exit_not_found);
  expect_failure({"diff", "--from", "none"}, exit_not_found);
  expect_failure({"watch", "--from", "999999"}, exit_database);
  expect_failure({"name", "build", "interface"}, exit_usage);
  expect_failure({"name", "parse", "01"}, exit_usage);
  expect_failure({"help", "none"}, exit_usage);
  for (const char* command : {"list", "status", "check", "dump", "compact", "gc"})
    expect_failure({command}, exit_database, "none");
  expect_failure({"nonsense"}, exit_usage);
}

TEST_F(Answers, OfWatchingListsAreDocuments) {
  const Schema schema("watch");
  for (const char* form : {"json", "yaml"}) {
    const std::string database = file(std::string("watched-") + form);
    ASSERT_EQ(answer({"apply", file("lists.json")}, database).code, exit_ok);
    tools_test::Process watch(
        {"watch", "--acl", "--from", "1", "--count", "2", "--db", database, "-o", form});
    watch.wait_for("\n");  // so the rest comes while it watches
    ASSERT_EQ(answer({"apply", file("changed.json")}, database).code, exit_ok);
    const tools_test::Outcome outcome = watch.finish();
    EXPECT_EQ(outcome.code, exit_ok) << outcome.err;
    if (form == std::string("yaml")) {
      EXPECT_THAT(outcome.out, HasSubstr("---\nlist: guard\n"));
      continue;
    }
    EXPECT_THAT(outcome.out, HasSubstr("{\"list\":\"guard\",\"changes\":["));
    for (const std::string& line : lines_of(outcome.out)) EXPECT_EQ(schema.fault_of(line), "");
  }
}

TEST_F(Answers, ThatAreFilesHaveNoOtherForm) {
  for (const auto& [name, code] :
       {std::pair{"none", exit_not_found}, std::pair{"0x04100001", exit_not_found}}) {
    const tools_test::Outcome outcome = answer({"export", name});
    EXPECT_EQ(outcome.code, code);
    expect_complaints(outcome.err);
  }
  const tools_test::Outcome lossy = answer({"export"});
  EXPECT_EQ(lossy.code, exit_lossy);
  EXPECT_THAT(lossy.err, HasSubstr("skipped  node 0x04100001: cannot be read"));
  expect_complaints(lossy.err);
  for (const char* form : {"jsonl", "yaml"}) {
    for (const char* command : {"dump", "export"}) {
      const tools_test::Outcome outcome = answer({command}, "db", form);
      EXPECT_EQ(outcome.code, exit_usage);
      EXPECT_THAT(outcome.err, HasSubstr("leave -o out"));
      EXPECT_EQ(outcome.out, "");
    }
  }
}

// The commands that help lists, with those below them.
std::set<std::string> commands_listed(const std::vector<std::string>& above) {
  std::vector<std::string> words{"help"};
  words.insert(words.end(), above.begin(), above.end());
  std::set<std::string> names;
  bool listed = false;
  for (const std::string& line : lines_of(run_here(words).out)) {
    if (listed && line.starts_with("  ")) names.insert(line.substr(2, line.find(' ', 2) - 2));
    if (line == "Commands:") listed = true;
  }
  return names;
}

TEST_F(Answers, HaveASchemaEach) {
  std::set<std::string> wanted = other_schemas;
  for (const std::string& command : commands_listed({})) {
    const std::set<std::string> below = commands_listed({command});
    for (const std::string& name : below) wanted.insert(command + "-" + name);
    if (below.empty()) wanted.insert(command);
  }
  wanted.erase("fleet");  // which becomes another program, with schemas and a test of its own
  std::set<std::string> there;
  for (const auto& entry : std::filesystem::directory_iterator(schema_folder()))
    if (!entry.path().stem().string().starts_with("fleet-")) there.insert(entry.path().stem());
  EXPECT_EQ(there, wanted);
  std::set<std::string> untried;
  for (const std::string& name : there)
    if (!seen().contains(name) && name != "error") untried.insert(name);
  // With a filter not all tests ran before this one.
  if (testing::GTEST_FLAG(filter) != "*") return;
  EXPECT_THAT(untried, IsEmpty());
}

}  // namespace
