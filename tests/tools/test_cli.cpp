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
  expect_usage({}, "a command is required: one of import, restore");
  expect_usage({"--db", "x"}, "a command is required");
  expect_usage({"priv"}, "a command is required: one of get, set; see 'qimctl help priv'");
}

TEST(CommandLine, says_what_was_meant) {
  expect_usage({"lst"}, "there is no command 'lst'; did you mean 'list'?");
  expect_usage({"priv", "gte", "1"}, "there is no command 'priv gte'; did you mean 'get'?");
  expect_usage({"zzzzzz"}, "there is no command 'zzzzzz'; see 'qimctl help'");
  expect_usage({"list", "--jsno"}, "there is no option '--jsno'; did you mean '--json'?");
  expect_usage({"tree", "1", "--deph=4"}, "there is no option '--deph'; did you mean '--depth'?");
  expect_usage({"list", "-x"}, "there is no option '-x'; see 'qimctl help list'");
  expect_usage({"help", "lst"}, "there is no command 'lst'; did you mean 'list'?");
  expect_usage({"show", "-o", "xml", "1"}, "'xml' is no form of output; there are table, wide");
  expect_usage({"compact", "--at", "x"}, "--at is for commands that only read the database");
}

TEST(CommandLine, speaks_for_itself_of_wrong_values) {
  expect_usage({"list", "--db"}, "--db needs a value; see 'qimctl help list'");
  expect_usage({"list", "--type"}, "--type needs a value");
  expect_usage({"list", "--type", "Def", "--type", "Def"}, "--type is given more than once");
  expect_usage({"show", "--engine=x", "1"}, "what is given for --engine (Print it through");
  expect_usage({"import", "--format", "nativ", "f"}, "'nativ' is none of native, rfc8519");
  expect_usage({"name", "build", "service", "1", "--dir", "up"}, "'up' is none of in, out");
  expect_usage({"name", "build", "service", "1", "--type", "4294967296"}, "is no number from 0 to");
}

// Raw bytes of arguments could drive the terminal.
TEST(CommandLine, escapes_what_it_was_given) {
  const std::string wild = "\x1b[2J\xe2\x80\xae\xff";
  const std::string shown = "\\x1b[2J\\u{202e}\\xff";
  const std::vector<std::vector<std::string>> wrong = {{wild},
                                                       {"list", "--" + wild},
                                                       {"list", "--type", wild},
                                                       {"help", wild},
                                                       {"tree", "1", "--depth", wild},
                                                       {"show", "1", wild},
                                                       {"pinst", wild},
                                                       {"import", "--format", wild, "f"},
                                                       {"list", "-o", wild},
                                                       {"priv", "set", "1", wild}};
  for (const std::vector<std::string>& command : wrong) {
    const Outcome outcome = run_qimctl(command);
    EXPECT_EQ(outcome.code, qimctl::exit_usage);
    EXPECT_THAT(outcome.err, HasSubstr(shown));
    EXPECT_THAT(outcome.err, Not(HasSubstr("\x1b")));
  }
}

TEST(CommandLine, tells_its_versions) {
  const Outcome text = run_qimctl({"--version"});
  EXPECT_EQ(text.code, qimctl::exit_ok);
  EXPECT_THAT(text.out, testing::MatchesRegex(
                            "qimctl [0-9.]+\nlibrary interface [0-9]+\ndatabase format [0-9]+\n"));
  EXPECT_THAT(run_qimctl({"--version", "-o", "jsonl"}).out, HasSubstr("{\"tool\":\""));
}

TEST(CommandLine, complains_as_programs_like_it) {
  EXPECT_EQ(run_qimctl({"lst", "-o", "json"}).err,
            "{\"what\":\"there is no command 'lst'\",\"fix\":\"did you mean 'list'?\"}\n");
  EXPECT_EQ(run_qimctl({"lst", "--output=yaml"}).err, run_qimctl({"lst", "-ojson"}).err);
  EXPECT_EQ(run_qimctl({"import", "/nothing", "--json"}).err,
            "{\"file\":\"/nothing\",\"what\":\"cannot be opened: No such file or directory\"}\n");
  const tools_test::TempDir dir;
  tools_test::write_text(dir / "wrong",
                         "{\"format\": \"qim-policy\", \"version\": 1,\n\"nodes\": [7]}");
  const std::string err = run_qimctl({"import", dir / "wrong", "-o", "json"}).err;
  EXPECT_THAT(err, HasSubstr("\"line\":2,\"path\":\"/nodes/0\",\"what\":"));
  EXPECT_THAT(run_qimctl({"list", "--db", dir / "none", "--json"}).err,
              HasSubstr("\"status\":\"ROV_ERR_OPEN, 0x41170040\"}"));
}

TEST(CommandLine, refuses_what_is_no_node_identifier) {
  for (const char* wrong : {"0", "4294967296", "0x1ffffffff"}) {
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
        "\n  pinst ", "\n  name ", "\n  check ", "\n  dump ", "\n  backup ", "\n  compact "}) {
    const size_t at = help.out.find(command);
    EXPECT_NE(at, std::string::npos) << command;
    EXPECT_GT(at, last) << command;
    last = at;
  }
  EXPECT_THAT(help.err, IsEmpty());
  const Outcome import = run_qimctl({"import", "--help"});
  EXPECT_EQ(import.code, qimctl::exit_ok);
  EXPECT_EQ(run_qimctl({"help", "import"}).out, import.out);
  EXPECT_EQ(run_qimctl({"help"}).out, help.out);
  EXPECT_THAT(run_qimctl({"help", "priv", "set"}).out,
              HasSubstr("Usage: qimctl priv set [OPTION...]"));
  const std::string all = run_qimctl({"--help-all"}).out;
  for (const char* foreign : {"REQUIRED", "Excludes", "Needs", "TEXT", "Positionals", "SUBCOMMAND",
                              "Subcommands", "OPTIONS", "Print this help"})
    EXPECT_THAT(all, testing::Not(HasSubstr(foreign)));
  EXPECT_THAT(all, HasSubstr("What the kernel has counted of each entry; only with NAME\n"));
  EXPECT_THAT(all, HasSubstr(", and nothing else; not with --raw, --type\n"));
  EXPECT_THAT(all, HasSubstr(": svg, dot; else svg\n"));
  EXPECT_THAT(run_qimctl({"--help-all"}).out, HasSubstr("--depth"));
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
