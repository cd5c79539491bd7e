// `qimctl export` as a process.
#include <gmock/gmock.h>

#include "tests/tools/support.h"
#include "tools/base/exit_code.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tools_test::Outcome;
using tools_test::write_text;

class Export : public testing::Test {
 protected:
  Outcome run(const std::string& database, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--db", dir_ / database});
    return tools_test::run_qimctl(arguments);
  }

  std::string file(const std::string& name, const std::string& text) {
    write_text(dir_ / name, text);
    return dir_ / name;
  }

  tools_test::TempDir dir_;
};

TEST_F(Export, gives_the_same_nodes_when_it_is_imported) {
  const auto example = tools_test::source_dir() / "examples/edge-router.rfc8519.json";
  ASSERT_EQ(run("a", {"import", example}).code, 0);
  const Outcome exported = run("a", {"export"});
  EXPECT_EQ(exported.code, 0);
  EXPECT_THAT(exported.err, IsEmpty());
  ASSERT_EQ(run("b", {"import", file("again.json", exported.out)}).code, 0);
  EXPECT_EQ(run("a", {"export", "--format", "rfc8519"}).out, run("b", {"export"}).out);
}

TEST_F(Export, takes_names_and_knows_which_are_wrong) {
  const std::string input = file("a.json", R"({"ietf-access-control-list:acls": {"acl": [
    {"name": "a"}, {"name": "b"}]}})");
  ASSERT_EQ(run("a", {"import", input}).code, 0);
  const Outcome one = run("a", {"export", "b"});
  EXPECT_EQ(one.code, 0);
  EXPECT_THAT(one.out, HasSubstr("\"b\""));
  EXPECT_THAT(one.out, Not(HasSubstr("\"a\"")));
  const Outcome wrong = run("a", {"export", "a", "c"});
  EXPECT_EQ(wrong.code, qimctl::exit_not_found);
  EXPECT_THAT(wrong.out, IsEmpty());
  EXPECT_THAT(wrong.err, HasSubstr("there is no access list \"c\""));
}

// A Group that looks like an access list and has no name.
TEST_F(Export, prints_nothing_when_something_would_be_lost) {
  const std::string input = file("a.json", R"({"format": "qim-policy", "version": 1, "nodes": [
        {"id": 1, "type": "Group", "body": {"type": 2}}]})");
  ASSERT_EQ(run("a", {"import", input}).code, 0);
  const Outcome refused = run("a", {"export"});
  EXPECT_EQ(refused.code, qimctl::exit_lossy);
  EXPECT_THAT(refused.out, IsEmpty());
  EXPECT_THAT(refused.err, HasSubstr("skipped  "));
  EXPECT_THAT(refused.err, HasSubstr("nothing was exported; repeat with --lossy"));
  const Outcome accepted = run("a", {"export", "--lossy"});
  EXPECT_EQ(accepted.code, 0);
  EXPECT_THAT(accepted.out, HasSubstr("\"acl\": []"));
}

// The format of each is told from its contents.
TEST_F(Export, finds_nothing_changed_in_what_it_has_applied) {
  for (const char* name :
       {"edge-router.rfc8519.json", "campus.openconfig.json", "leaf.switch.json"}) {
    const std::string example = (tools_test::source_dir() / "examples" / name).string();
    ASSERT_EQ(run(name, {"apply", example}).code, 0) << name;
    EXPECT_EQ(run(name, {"diff", example}).code, 0) << name;
    EXPECT_THAT(run(name, {"apply", example}).out, HasSubstr("nothing to do")) << name;
  }
}

TEST_F(Export, applies_a_saved_rule_set_at_an_interface) {
  const std::string example = tools_test::source_dir() / "examples/gateway.iptables-save";
  EXPECT_EQ(run("a", {"apply", example}).code, qimctl::exit_lossy);
  const Outcome applied = run("a", {"apply", "--interface", "eth0", example});
  EXPECT_EQ(applied.code, 0);
  EXPECT_THAT(applied.out, HasSubstr("INPUT  added with 9 entries; attached to if:eth0/in"));
  EXPECT_EQ(run("a", {"diff", "--interface", "eth0", example}).code, 0);
}

TEST_F(Export, writes_the_format_that_is_asked_for) {
  const std::string example = tools_test::source_dir() / "examples/campus.openconfig.json";
  ASSERT_EQ(run("a", {"apply", example}).code, 0);
  const Outcome exported = run("a", {"export", "--format", "openconfig"});
  EXPECT_EQ(exported.code, 0);
  EXPECT_THAT(exported.err, IsEmpty());
  const std::string again = file("again.json", exported.out);
  EXPECT_EQ(run("a", {"diff", again}).code, 0);
  ASSERT_EQ(run("b", {"import", again}).code, 0);
  EXPECT_EQ(run("b", {"export", "--format", "openconfig"}).out, exported.out);
}

}  // namespace
