// What the commands of a fleet print to programs follows its schemas in docs/schemas/, and what they say to
// people.
#include <gmock/gmock.h>

#include <filesystem>
#include <set>

#include "fleet/publish/push.h"
#include "fleet/tool/commands.h"
#include "policy/base/json_text.h"
#include "policy/formats/native/validator.h"
#include "tests/fleet/support/fake_store.h"
#include "tests/tools/support.h"
#include "tools/base/output.h"

namespace fleet_test {
namespace {

using namespace qim::fleet;
using namespace std::chrono_literals;
using qimctl::OutputForm;
using testing::HasSubstr;
using testing::IsEmpty;

// "" or what is wrong with a document.
std::string fault_of(const std::string& schema_name, const std::string& text) {
  const std::string schema_text = tools_test::read_text(tools_test::source_dir() / "docs" /
                                                        "schemas" / (schema_name + ".json"));
  const qimctl::JsonDocument schema = qimctl::parse_json(schema_text, schema_name);
  const qimctl::JsonDocument document = qimctl::parse_json(text, "answer");
  const qimctl::Validator validator(schema.view());
  if (validator.accepts(document.view())) return "";
  std::string faults = text;
  for (const qimctl::Violation& violation : validator.violations(document.view()))
    faults += "\n" + testing::PrintToString(violation.path) + " " + violation.description;
  return faults;
}

class FleetTool : public testing::Test {
 protected:
  void push_list(const std::string& name) {
    Wanted wanted;
    qimctl::AccessList list;
    list.name = name;
    qimctl::Entry entry;
    entry.name = "only";
    list.entries.push_back(std::move(entry));
    wanted.model.lists.push_back(std::move(list));
    push(scope_, plan_push(scope_, std::move(wanted), {}), "why");
  }
  void start() {
    Stage stage;
    stage.percent = 100;
    start_rollout(scope_, stage);
  }
  void say(const std::string& device, uint64_t applied, uint64_t refused = 0) {
    Status status;
    status.scope = "edge";
    status.device = device;
    status.applied = applied;
    status.refused = refused;
    status.reason = refused == 0 ? "" : "it is bad";
    fake_.put(publisher_.keys.status("edge", device), seal_status(status, key_));
  }

  // What a call prints; what it complains of goes to `complaint_`.
  std::string printed(const std::function<void()>& call) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    call();
    qimctl::flush_output();
    complaint_ = testing::internal::GetCapturedStderr();
    return testing::internal::GetCapturedStdout();
  }
  std::string watched(qimctl::ExitCode code, OutputForm form = OutputForm::table,
                      std::chrono::milliseconds most = 0ms) {
    return printed([&] { EXPECT_EQ(watch_rollout(publisher_, {"edge", 1ms, most, form}), code); });
  }

  FakeStore fake_;
  std::unique_ptr<Store> store_ = fake_.connect();
  PrivateKey key_ = PrivateKey::generate();
  Publisher publisher_{*store_, Keys("/qim/"), TrustedKeys({{key_.public_key(), "me"}}),
                       nullptr, &key_,         "me"};
  Scope scope_{publisher_, "edge"};
  std::string complaint_;
};

TEST_F(FleetTool, AnswersFollowTheirSchemas) {
  constexpr OutputForm json = OutputForm::json;
  tools_test::TempDir dir;
  tools_test::write_text(dir / "acl.json", R"({"ietf-access-control-list:acls": {"acl": [
    {"name": "guard", "type": "ipv4-acl-type", "aces": {"ace": [
      {"name": "all", "matches": {}, "actions": {"forwarding": "drop"}}]}}]}})");
  std::map<std::string, std::function<void()>> calls;
  calls["fleet-push"] = [&] {
    PushOptions options;
    options.scope = "edge";
    options.input.files = {dir / "acl.json"};
    options.form = json;
    EXPECT_EQ(push_files(publisher_, options), qimctl::exit_ok);
  };
  push_list("first");
  start();
  say("d1", 1);
  say("d2", 0, 1);
  fake_.put(publisher_.keys.status("edge", "d3"), "nothing that it said");
  calls["fleet-head"] = [&] { print_head(scope_.head().head, json); };
  calls["fleet-status"] = [&] { print_status(publisher_, {{}, false, false, false, json}); };
  calls["fleet-log"] = [&] { print_log(scope_, json); };
  calls["fleet-diff"] = [&] { print_difference(scope_, 0, 1, json); };
  calls["fleet-verify"] = [&] { print_verification(scope_, json); };
  calls["fleet-watch"] = [&] { watch_rollout(publisher_, {"edge", 1ms, 1ms, json}); };
  calls["fleet-prune"] = [&] { prune_scope(publisher_, {"edge", 3, true, json}); };
  for (const auto& [name, call] : calls) {
    SCOPED_TRACE(name);
    EXPECT_EQ(fault_of(name, printed(call)), "");
  }
  std::set<std::string> there;
  for (const auto& entry :
       std::filesystem::directory_iterator(tools_test::source_dir() / "docs" / "schemas"))
    if (const std::string name = entry.path().stem(); name.starts_with("fleet-"))
      there.insert(name);
  for (const auto& [name, call] : calls) there.erase(name);
  EXPECT_THAT(there, IsEmpty());
}

TEST_F(FleetTool, WatchingEndsWhenAllHaveIt) {
  push_list("first");
  say("d1", 0);
  EXPECT_EQ(watched(qimctl::exit_ok), "edge: 0 of 0 devices hold revision 1, 0 refused it\n");
  start();
  EXPECT_THAT(watched(qimctl::exit_differs, OutputForm::table, 5ms), HasSubstr("0 of 1 device "));
  say("d1", 1);
  EXPECT_EQ(watched(qimctl::exit_ok), "edge: 1 of 1 device holds revision 1, 0 refused it\n");
}

TEST_F(FleetTool, WatchingHoldsWhatFails) {
  push_list("first");
  start();
  say("d1", 0, 1);
  EXPECT_THAT(watched(qimctl::exit_refused), HasSubstr("1 refused it"));
  EXPECT_THAT(complaint_, HasSubstr("1 device refused revision 1, and 0 may: it is held"));
  EXPECT_TRUE(scope_.head().head.stage.hold);
  fake_.erase(publisher_.keys.status("edge", "d1"));
  watched(qimctl::exit_refused);
  EXPECT_THAT(complaint_, HasSubstr("the rollout is held"));
}

TEST_F(FleetTool, WatchingLooksAgainWhenAHeadWasMoved) {
  push_list("first");
  start();
  say("d1", 0, 1);
  bool moved = false;
  fake_.on_call([&](const std::string& call, const std::string& key) {
    if (call == "change" && !moved && key == publisher_.keys.head("edge")) {
      moved = true;
      fake_.put(key, fake_.value(key));
    }
    return FakeStore::Fault::none;
  });
  watched(qimctl::exit_refused);
  EXPECT_TRUE(moved);
  EXPECT_TRUE(scope_.head().head.stage.hold);
}

TEST_F(FleetTool, PruningSaysWhatGoes) {
  push_list("first");
  EXPECT_THAT(printed([&] {
                prune_scope(publisher_, {"edge", 1, true});
              }),
              HasSubstr("would go: 0 revisions and 0 parts of snapshots"));
  EXPECT_THAT(printed([&] { prune_scope(publisher_, {"edge", 1, false}); }), HasSubstr("gone: "));
}

}  // namespace
}  // namespace fleet_test
