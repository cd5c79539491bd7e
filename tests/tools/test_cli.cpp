// The command line itself: what is wrong with it, help, exit codes.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdlib>

#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tools_test::Outcome;
using tools_test::run_qimctl;

void expect_usage(const std::vector<std::string>& arguments, const std::string& complaint) {
  const Outcome outcome = run_qimctl(arguments);
  EXPECT_EQ(outcome.code, qimctl::exit_usage);
  EXPECT_THAT(outcome.err, HasSubstr(complaint));
  EXPECT_THAT(outcome.out, IsEmpty());
}

TEST(CommandLine, needs_a_command) {
  expect_usage({}, "A subcommand is required");
  expect_usage({"--db", "x"}, "A subcommand is required");
  expect_usage({"lst"}, "lst");
}

TEST(CommandLine, refuses_what_is_no_node_identifier) {
  for (const char* wrong : {"0", "4294967296", "0x1ffffffff", "-5x", "node", "1.5", "0x"}) {
    expect_usage({"show", wrong}, "is no node identifier");
  }
  expect_usage({"show"}, "NODE is required");
  expect_usage({"tree"}, "NODE is required");
  expect_usage({"show", "1", "2"}, "2");
}

TEST(CommandLine, refuses_what_is_no_node_type) {
  expect_usage({"list", "--type", "Filtre"}, "'Filtre' is no node type; known are Filter, Action");
  expect_usage({"list", "--type", "11"}, "is no node type");
}

TEST(CommandLine, refuses_a_depth_out_of_range) {
  expect_usage({"tree", "1", "--depth", "1001"}, "1001");
  expect_usage({"tree", "1", "--depth", "x"}, "x");
}

TEST(CommandLine, refuses_unknown_formats_and_options) {
  expect_usage({"import", "--format", "xml", "f"}, "xml");
  expect_usage({"import"}, "FILE is required");
  expect_usage({"list", "--colour"}, "--colour");
}

TEST(CommandLine, explains_itself) {
  const Outcome help = run_qimctl({"--help"});
  EXPECT_EQ(help.code, qimctl::exit_ok);
  size_t last = 0;
  for (const char* command :
       {"--db", "--json", "\n  import ", "\n  restore ", "\n  priv ", "\n  list ", "\n  tree ",
        "\n  watch ", "\n  show ", "\n  refs ", "\n  criteria ", "\n  args ", "\n  edest ",
        "\n  pinst ", "\n  name ", "\n  check ", "\n  dump ", "\n  compact "}) {
    const size_t at = help.out.find(command);
    EXPECT_NE(at, std::string::npos) << command;
    EXPECT_GT(at, last) << command;
    last = at;
  }
  EXPECT_THAT(help.err, IsEmpty());
  const Outcome import = run_qimctl({"import", "--help"});
  EXPECT_EQ(import.code, qimctl::exit_ok);
  for (const char* option : {"--format", "--lossy", "--replace"}) {
    EXPECT_THAT(import.out, HasSubstr(option));
  }
}

// What every command takes may stand in front of it or behind it.
TEST(CommandLine, takes_the_database_behind_every_command) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  const auto example = tools_test::source_dir() / "examples" / "edge-all-types.json";
  ASSERT_EQ(run_qimctl({"import", example, "--db", db}).code, 0);
  const Outcome dumped = run_qimctl({"dump", "--db", db});
  EXPECT_EQ(dumped.out, run_qimctl({"--db", db, "dump"}).out);
  tools_test::write_text(dir / "dump", dumped.out);
  EXPECT_EQ(run_qimctl({"restore", dir / "dump", "--db", dir / "new"}).code, 0);
  EXPECT_EQ(run_qimctl({"check", "--db", dir / "new"}).code, 0);
  EXPECT_EQ(run_qimctl({"compact", "--db", dir / "new"}).code, 0);
  EXPECT_EQ(run_qimctl({"priv", "get", "0x04100031", "--db", dir / "new"}).out, "none\n");
  EXPECT_EQ(run_qimctl({"list", "--db", dir / "new"}).out, run_qimctl({"--db", db, "list"}).out);
}

TEST(CommandLine, does_not_make_a_database_to_read_from) {
  const tools_test::TempDir dir;
  const std::string db = dir / "none";
  for (const std::vector<std::string>& command : {std::vector<std::string>{"list"},
                                                  {"show", "1"},
                                                  {"show", "--engine", "1"},
                                                  {"tree", "1"},
                                                  {"refs", "1"},
                                                  {"criteria", "1"},
                                                  {"args", "1"},
                                                  {"edest", "1"},
                                                  {"pinst", "0"},
                                                  {"priv", "get", "1"},
                                                  {"priv", "set", "1", "00"},
                                                  {"watch", "--timeout", "0"}}) {
    std::vector<std::string> arguments{"--db", db};
    arguments.insert(arguments.end(), command.begin(), command.end());
    const Outcome outcome = run_qimctl(arguments);
    EXPECT_EQ(outcome.code, qimctl::exit_database);
    EXPECT_THAT(outcome.err, HasSubstr("cannot open the database in " + db));
    EXPECT_THAT(outcome.err,
                HasSubstr("there is none; check the directory given with --db or in ROV_DB, or "
                          "make the database with 'qimctl import' (ROV_ERR_OPEN, 0x41170040)\n"));
    EXPECT_FALSE(std::filesystem::exists(db));
  }
}

TEST(CommandLine, says_what_a_foreign_directory_is_not) {
  const tools_test::TempDir dir;
  std::filesystem::create_directory(dir / "db");
  tools_test::write_text(dir / "db" / "data.mdb", std::string(8192, 'x'));
  const Outcome outcome = run_qimctl({"--db", dir / "db", "list"});
  EXPECT_EQ(outcome.code, qimctl::exit_database);
  EXPECT_THAT(outcome.err, HasSubstr((dir / "db").string()));
}

// A command that prints into a closed or full file must not look like a success.
TEST(CommandLine, fails_when_its_output_can_not_be_written) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "this system has no /dev/full";
  const tools_test::TempDir dir;
  const auto example = tools_test::source_dir() / "examples" / "edge-all-types.json";
  ASSERT_EQ(run_qimctl({"--db", dir / "db", "import", example}).code, 0);
  const Outcome outcome = run_qimctl({"--db", dir / "db", "list"}, {}, "/dev/full");
  EXPECT_EQ(outcome.code, qimctl::exit_output);
  EXPECT_THAT(outcome.err, HasSubstr("cannot write the output"));
}

// Runs the tool in a shell after `before`, with what it complains in the file `err`.
int run_after(const std::string& before, const std::string& arguments, const std::string& err) {
  signal(SIGXFSZ, SIG_DFL);  // which whoever runs tests may ignore, and children would, too
  const char* emulator = getenv("QIM_EMULATOR");
  const char* build = getenv("QIM_BUILD_DIR");
  const std::string tool = std::string(emulator == nullptr ? "" : emulator) + " " +
                           (build == nullptr ? "." : build) + "/bin/qimctl " + arguments;
  const int status = system(("exec 2>" + err + "; " + before + "; exec " + tool).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The first files that are opened get the numbers of streams that are closed.
TEST(CommandLine, prints_into_no_file_of_the_database) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  const auto example = tools_test::source_dir() / "examples" / "edge-router.rfc8519.json";
  ASSERT_EQ(run_qimctl({"--db", db, "import", "--lossy", example}).code, 0);
  const std::string dumped = run_qimctl({"--db", db, "dump"}).out;
  for (const char* closed : {"exec >&-", "exec <&- >&-"}) {
    EXPECT_EQ(run_after(closed, "--db " + db + " dump", dir / "err"), qimctl::exit_output);
    EXPECT_THAT(tools_test::read_text(dir / "err"), HasSubstr("cannot write the output: Bad file"));
    for (const auto& file : std::filesystem::directory_iterator(db)) {
      EXPECT_THAT(tools_test::read_text(file.path()), Not(HasSubstr("qim-policy")))
          << file.path() << " after " << closed;
    }
  }
  EXPECT_EQ(run_qimctl({"--db", db, "dump"}).out, dumped);
}

// A write that begins behind the limit is refused with a signal, one that ends there is cut short.
TEST(CommandLine, names_the_limit_of_file_sizes) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  const auto examples = tools_test::source_dir() / "examples";
  ASSERT_EQ(run_qimctl({"--db", db, "import", examples / "edge-all-types.json"}).code, 0);
  const std::string before = run_qimctl({"--db", db, "dump"}).out;
  const std::string import =
      "--db " + db + " import --lossy " + (examples / "edge-router.rfc8519.json").string();
  // What is counted for coverage must not be cut.
  const std::string counts = "export GCOV_PREFIX=" + (dir / "counts").string() + "; ";
  for (const int blocks : {1, 200}) {
    const std::string limit = counts + "ulimit -f " + std::to_string(blocks);
    EXPECT_EQ(run_after(limit, import, dir / "err"), qimctl::exit_database);
    EXPECT_THAT(tools_test::read_text(dir / "err"),
                HasSubstr("limit of file sizes, which is " + std::to_string(blocks * 512)));
    EXPECT_EQ(run_qimctl({"--db", db, "dump"}).out, before);
  }
  EXPECT_EQ(run_after(":", import + " >/dev/null", dir / "err"), qimctl::exit_ok);
}

}  // namespace
