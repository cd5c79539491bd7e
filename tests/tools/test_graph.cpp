// `qimctl graph`, and what it draws.

#include <gmock/gmock.h>

#include <cstdlib>

#include "policy/graph/dot.h"
#include "tests/policy/lists_support.h"
#include "tests/tools/lists_database.h"
#include "tools/base/output.h"
#include "tools/base/program.h"

namespace {

using qimctl::to_dot;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

qimctl::Model drawn() {
  return lists_test::model({lists_test::list("guard", {"ssh port=22 log", "web port=80"}),
                            lists_test::list("a<b&\"c\"", {"x drop"}), lists_test::list("off", {})},
                           {"guard eth0/in", "a<b&\"c\" eth0/in", "guard eth1/out"});
}

std::string dot_of(const std::string& what) {
  return to_dot(drawn(), qimctl::graph_choice(what));
}

TEST(Graph, draws_interfaces_lists_and_shared_actions) {
  const std::string dot = dot_of("");
  EXPECT_THAT(dot, StartsWith("digraph policy {\n"));
  EXPECT_THAT(dot, AllOf(HasSubstr(">if:eth0<"), HasSubstr(">if:eth1<"), HasSubstr(">in, stage 2<"),
                         HasSubstr("interface1:p0 -> list0:head;")));
  EXPECT_THAT(dot, AllOf(HasSubstr(">a&lt;b&amp;&quot;c&quot;  (ipv4, 1 entry)<"),
                         HasSubstr(">off  (ipv4, 0 entries)<"), HasSubstr(">tcp to any port 80<")));
  EXPECT_THAT(dot,
              AllOf(HasSubstr("label=<accept log>"), HasSubstr("list2 -> action2 [style=dashed]")));
}

TEST(Graph, draws_what_is_chosen) {
  EXPECT_THAT(dot_of("off"), AllOf(HasSubstr("off"), Not(HasSubstr("guard"))));
  EXPECT_THAT(dot_of("if:eth1"),
              AllOf(HasSubstr("guard"), Not(HasSubstr("eth0")), Not(HasSubstr("off"))));
  EXPECT_THAT(dot_of("if:eth0/in"), HasSubstr("guard"));
  EXPECT_THAT(dot_of("if:eth0/out"), IsEmpty());
  EXPECT_THAT(dot_of("nothing"), IsEmpty());
  EXPECT_THAT(dot_of("if:eth9"), IsEmpty());
}

TEST(Graph, folds_long_lists) {
  std::vector<std::string> entries;
  for (int i = 1; i <= 10000; i++) entries.push_back("e" + std::to_string(i));
  const qimctl::Model model = lists_test::model({lists_test::list("long", entries)});
  const std::string dot = to_dot(model, {});
  EXPECT_THAT(dot, AllOf(HasSubstr(">long  (ipv4, 10,000 entries)<"), HasSubstr(">... 9,940 more<"),
                         HasSubstr(">e50<"), Not(HasSubstr(">e51<")), Not(HasSubstr(">e9990<")),
                         HasSubstr(">e9991<"), HasSubstr(">e10000<")));
}

TEST(Graph, shows_the_limits_of_policers) {
  qimctl::Model model = lists_test::model({lists_test::list("l", {"a police=gold"})});
  model.policers = {{"gold", qimctl::Policer::Unit::packets, 50, 5, 0, 0}};
  EXPECT_THAT(to_dot(model, {}), HasSubstr("<accept police gold: 50 packets/s burst 5>"));
}

class GraphOf : public tools_test::ListsDatabase {};

TEST_F(GraphOf, a_database_is_printed_for_graphviz) {
  EXPECT_THAT(output({"graph", "--format", "dot", "guard"}),
              HasSubstr(">guard  (ipv4, 2 entries)<"));
  expect_failure({"graph", "none"}, qimctl::exit_not_found,
                 "cannot draw \"none\": there is no such");
  const tools_test::Outcome outcome =
      tools_test::run_qimctl({"--db", dir_ / "empty", "graph", "--format", "dot"});
  EXPECT_EQ(outcome.code, qimctl::exit_database);
  EXPECT_EQ(run({"graph", "--format", "png"}).code, qimctl::exit_usage);
}

TEST_F(GraphOf, what_is_missing_is_said) {
  const tools_test::Outcome outcome =
      tools_test::run_qimctl(on_database({"graph"}), {"PATH=/nowhere"});
  EXPECT_EQ(outcome.code, qimctl::exit_output);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, HasSubstr("there is no program 'dot'; install Graphviz, or take "
                                     "--format dot"));
}

TEST_F(GraphOf, programs_that_fail_are_told) {
  std::filesystem::create_directory(dir_ / "bin");
  std::filesystem::create_symlink("/bin/false", dir_ / "bin/dot");
  const tools_test::Outcome outcome =
      tools_test::run_qimctl(on_database({"graph"}), {"PATH=" + (dir_ / "bin").string()});
  EXPECT_EQ(outcome.code, qimctl::exit_output);
  EXPECT_THAT(outcome.err, HasSubstr("the program 'dot' failed"));
}

TEST_F(GraphOf, pictures_are_drawn_where_there_is_graphviz) {
  if (!qimctl::run_program({"dot", "-V"}, "").found) GTEST_SKIP() << "there is no Graphviz";
  EXPECT_THAT(output({"graph"}),
              AllOf(HasSubstr("<svg"), HasSubstr("if:eth0"), HasSubstr("guard")));
}

TEST(Program, gets_its_input_and_gives_its_output) {
  const qimctl::ProgramResult result = qimctl::run_program({"cat"}, "some; $(words)\n");
  EXPECT_TRUE(result.found && result.good);
  EXPECT_EQ(result.output, "some; $(words)\n");
  EXPECT_FALSE(qimctl::run_program({"no-such-program-anywhere"}, "").found);
  // An emulated process starts programs from a copy of itself, and is told of no failure.
  const char* emulator = getenv("QIM_EMULATOR");
  if (emulator != nullptr && *emulator != '\0') return;
  EXPECT_THROW(qimctl::run_program({"/etc/passwd"}, ""), qimctl::OutputError);
}

}  // namespace
