// The forms of output: what a terminal gets, a pager, and documents for programs.
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "policy/base/json_yaml.h"
#include "policy/base/text.h"
#include "policy/store/database.h"
#include "rov_edit.h"
#include "tests/tools/example_database.h"
#include "tools/base/complaint.h"
#include "tools/base/rows.h"
#include "tools/base/suggest.h"
#include "tools/base/table.h"
#include "tools/base/terminal.h"

namespace {

using namespace qimctl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(Cut, keeps_what_fits_and_marks_what_does_not) {
  EXPECT_EQ(cut("Zürich", 6), "Zürich");
  EXPECT_EQ(cut("Zürich", 5), "Züri…");
  EXPECT_EQ(cut("Zürich", 1), "…");
  EXPECT_EQ(cut("Zürich", 0), "Zürich");
  EXPECT_EQ(width_of("\033[1mZü\033[0m"), 2u);
  EXPECT_EQ(cut("\033[1mabcd\033[0m", 3), "\033[1mab\033[0m…");
  EXPECT_EQ(cut("\033[1ma\033[0mbcd", 3), "\033[1ma\033[0mb…");
}

TEST(TerminalText, is_as_wide_as_its_characters_wherever_these_stand) {
  for (size_t length = 0; length < 20; length++) {
    const std::string plain(length, 'a');
    EXPECT_EQ(width_of(plain), length);
    for (size_t at = 0; at <= length; at++) {
      EXPECT_EQ(width_of(std::string(plain).insert(at, "ü")), length + 1) << at;
      EXPECT_EQ(width_of(std::string(plain).insert(at, "\033[0m")), length) << at;
    }
  }
}

TEST(Cut, holds_for_each_line_of_a_table) {
  TextTable table({"A", "B"});
  table.add({"1", "long text"});
  EXPECT_EQ(table.text(6), "A  B\n1  lo…\n");
}

TEST(Quoted, shows_what_would_lie) {
  EXPECT_EQ(quoted("x\", type 9"), "\"x\\x22, type 9\"");
  EXPECT_EQ(printable("a\xe2\x80\xae"
                      "b\xe2\x80\x8b"
                      "c\xef\xbb\xbf"),
            "a\\u{202e}b\\u{200b}c\\u{feff}");
  EXPECT_EQ(printable("\xf3\xa0\x80\x81 \xc2\xad"), "\\u{e0001} \\u{00ad}");
  EXPECT_EQ(quoted("Zürich 😀"), "\"Zürich 😀\"");
  EXPECT_TRUE(reads_as_text("a\tb"));
  EXPECT_TRUE(reads_as_text("\\"));
  EXPECT_FALSE(reads_as_text(""));
  EXPECT_FALSE(reads_as_text("\x01\x02x"));
  EXPECT_FALSE(reads_as_text(std::string("a\0", 2)));
  EXPECT_FALSE(reads_as_text("a\xff"));
}

TEST(Suggestion, is_near_or_none) {
  const std::vector<std::string> known = {"list", "show", "tree", std::string(200, 'x')};
  EXPECT_EQ(did_you_mean("lsit", known), "; did you mean 'list'?");
  EXPECT_EQ(did_you_mean("tre", known), "; did you mean 'tree'?");
  EXPECT_EQ(did_you_mean("zzzz", known), "");
  EXPECT_EQ(did_you_mean(std::string(200, 'x'), known), "");
}

JsonValue sample() {
  JsonValue inner;
  inner.set("plain", "word-1.2/x");
  inner.set("odd", "no: text");
  JsonValue list = JsonValue::array();
  list.add(1u);
  list.add(std::move(inner));
  list.add(JsonValue::array());
  JsonValue value;
  value.set("yes", "Yes");
  value.set("id", "0x1");
  value.set("list", std::move(list));
  value.set("none", JsonValue::object());
  value.set("flag", true);
  value.set("text", "");
  return value;
}

TEST(Yaml, is_blocks_with_quotes_where_others_would_misread) {
  EXPECT_EQ(to_yaml(sample()),
            "\"yes\": \"Yes\"\nid: \"0x1\"\nlist:\n  - 1\n  - plain: word-1.2/x\n"
            "    odd: \"no: text\"\n  - []\nnone: {}\nflag: true\ntext: \"\"\n");
  EXPECT_EQ(to_yaml_element(JsonValue("a")), "- a\n");
}

std::string rows_text(OutputForm form, unsigned count) {
  testing::internal::CaptureStdout();
  Rows rows(form, {{"NAME"}, {"MORE", true}});
  for (unsigned i = 0; i < count; i++) {
    if (rows.is_text()) {
      rows.add({"n" + std::to_string(i), "m"});
    } else {
      JsonValue value;
      value.set("num", i);
      rows.add(value);
    }
  }
  rows.finish("thing");
  return testing::internal::GetCapturedStdout();
}

TEST(Rows, are_a_table_or_documents) {
  EXPECT_EQ(rows_text(OutputForm::table, 2), "NAME\nn0\nn1\n2 things\n");
  EXPECT_EQ(rows_text(OutputForm::wide, 1), "NAME  MORE\nn0    m\n1 thing\n");
  EXPECT_EQ(rows_text(OutputForm::table, 0), "0 things\n");
  EXPECT_EQ(rows_text(OutputForm::json, 2), "[\n{\"num\":0},\n{\"num\":1}\n]\n");
  EXPECT_EQ(rows_text(OutputForm::json, 0), "[]\n");
  EXPECT_EQ(rows_text(OutputForm::jsonl, 2), "{\"num\":0}\n{\"num\":1}\n");
  EXPECT_EQ(rows_text(OutputForm::jsonl, 0), "");
  EXPECT_EQ(rows_text(OutputForm::yaml, 1), "- num: 0\n");
  EXPECT_EQ(rows_text(OutputForm::yaml, 0), "[]\n");
}

std::string complaint(OutputForm form, const std::function<void()>& complain_now) {
  testing::internal::CaptureStderr();
  complain_as(form);
  complain_now();
  complain_as(OutputForm::table);
  return testing::internal::GetCapturedStderr();
}

TEST(Complaint, is_a_line_or_a_document) {
  const auto plain = [] { complain("no\x1b way; try another"); };
  EXPECT_EQ(complaint(OutputForm::table, plain), "qimctl: no\\x1b way; try another\n");
  EXPECT_EQ(complaint(OutputForm::json, plain),
            "{\"what\":\"no\\u001b way\",\"fix\":\"try another\"}\n");
  const auto status = [] { complain("gone (X, 0x1)", "X, 0x1"); };
  EXPECT_EQ(complaint(OutputForm::table, status), "qimctl: gone (X, 0x1)\n");
  EXPECT_EQ(complaint(OutputForm::yaml, status), "{\"what\":\"gone\",\"status\":\"X, 0x1\"}\n");
  EXPECT_EQ(complaint(OutputForm::json, [] { complain("gone", "X, 0x1"); }),
            "{\"what\":\"gone\"}\n");
  const auto placed = [] { complain(Problem{{"f", 0, ""}, "bad"}); };
  EXPECT_EQ(complaint(OutputForm::json, placed), "{\"file\":\"f\",\"what\":\"bad\"}\n");
  EXPECT_EQ(complaint(OutputForm::table, placed), "qimctl: f: bad\n");
}

// What the tool shows on a terminal of 50 columns, to its end.
std::string on_terminal(const std::vector<std::string>& arguments,
                        const std::vector<std::string>& environment) {
  int master = -1;
  winsize size{24, 50, 0, 0};
  const pid_t child = forkpty(&master, nullptr, nullptr, &size);
  if (child == 0) {
    const char* emulator = getenv("QIM_EMULATOR");
    std::string command = "exec " + std::string(emulator == nullptr ? "" : emulator) + " " +
                          getenv("QIM_BUILD_DIR") + "/bin/qimctl";
    for (const std::string& word : arguments) command += " " + word;
    for (const char* name : {"NO_COLOR", "PAGER", "LESS", "ROV_DB"}) unsetenv(name);
    setenv("TERM", "xterm", 1);
    for (const std::string& setting : environment) {
      const size_t equals = setting.find('=');
      setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
    }
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  std::string shown;
  char part[4096];
  ssize_t count = 0;
  while ((count = read(master, part, sizeof part)) > 0) {
    shown.append(part, static_cast<size_t>(count));
  }
  close(master);
  waitpid(child, nullptr, 0);
  return shown;
}

class OnTerminal : public tools_test::ExampleDatabase {
 protected:
  static std::string shown(const std::vector<std::string>& command,
                           const std::vector<std::string>& environment = {"PAGER="}) {
    std::vector<std::string> arguments = {"--db", database()};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return on_terminal(arguments, environment);
  }
};

TEST_F(OnTerminal, gets_lines_of_its_width_and_colours) {
  const std::string edest = shown({"edest", "0x04100080"});
  EXPECT_THAT(edest, StartsWith("\033[1mNODE\033[0m"));
  EXPECT_THAT(edest, HasSubstr("\r\n0x04100090  Edest  \"ge-0/0/0\", interface 28745402…\r\n"));
  EXPECT_THAT(shown({"edest", "0x04100080", "-o", "wide"}),
              HasSubstr("vlan 100 vdc 1, type 5, in"));
  EXPECT_THAT(shown({"edest", "0x04100080"}, {"PAGER=", "NO_COLOR=1"}), StartsWith("NODE "));
  EXPECT_THAT(shown({"edest", "0x04100080"}, {"PAGER=cat", "TERM=dumb"}), StartsWith("NODE "));
}

TEST_F(OnTerminal, is_served_by_a_pager) {
  const std::vector<std::string> pager = {"PAGER=sed s/^/paged:/"};
  EXPECT_THAT(shown({"refs", "0x04100080"}, pager), HasSubstr("paged:4 referrers"));
  EXPECT_THAT(shown({"refs", "0x04100080", "--no-pager"}, pager), Not(HasSubstr("paged:")));
  for (const char* missing : {"PAGER=no-such-pager -x", "PAGER=/no/such/pager"})
    EXPECT_THAT(shown({"refs", "0x04100080"}, {missing}), HasSubstr("4 referrers"));
  // A reader who leaves early has seen enough.
  EXPECT_THAT(shown({"list"}, {"PAGER=head -n 1"}), HasSubstr("NODE"));
  // Without one in PATH the terminal serves itself.
  EXPECT_THAT(shown({"refs", "0x04100080"}, {"PATH=/nowhere"}), HasSubstr("4 referrers"));
}

class AtSnapshot : public testing::Test {
 protected:
  AtSnapshot() {
    const auto example = tools_test::source_dir() / "examples" / "edge-all-types.json";
    EXPECT_EQ(tools_test::run_qimctl({"--db", db_, "import", example}).code, 0);
  }

  void snapshot(const char* uri, const char* name) {
    const Database opened(db_, OpenMode::change);
    uint32_t handle = 0;
    ASSERT_EQ(uri == nullptr ? qim_db_snapshot(opened.handle(), name, &handle)
                             : qim_db_uri_snapshot(opened.handle(), uri, name, &handle),
              uint32_t{ROV_OK});
  }

  void remove_node() {
    const Database opened(db_, OpenMode::change);
    WriteSession session(opened);
    ASSERT_EQ(rov_edit_node_del(session.handle(), database_id(0x04100071)), uint32_t{ROV_OK});
    session.commit();
  }

  tools_test::TempDir dir_;
  std::string db_ = dir_ / "db";
};

TEST_F(AtSnapshot, reads_what_was) {
  snapshot(nullptr, "before");
  snapshot("acme://edge/nightly", "monday");
  remove_node();
  const auto last = [this](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--db", db_, "list"});
    const std::string out = tools_test::run_qimctl(arguments).out;
    return out.substr(out.find_last_of('\n', out.size() - 2) + 1);
  };
  EXPECT_EQ(last({}), "22 nodes\n");
  EXPECT_EQ(last({"--at", "before"}), "23 nodes\n");
  EXPECT_EQ(last({"--at", "acme://edge/nightly/monday"}), "23 nodes\n");
}

TEST_F(AtSnapshot, names_those_that_there_are) {
  const auto missing = [this] {
    return tools_test::run_qimctl({"--db", db_, "show", "0x04100071", "--at", "befor\"e"});
  };
  const tools_test::Outcome none = missing();
  EXPECT_EQ(none.code, qimctl::exit_not_found);
  EXPECT_THAT(none.err, HasSubstr("\"befor\\x22e\" of " + db_ +
                                  ": there is none of that name; the database has no snapshots"));
  snapshot(nullptr, "before");
  EXPECT_THAT(missing().err, HasSubstr("there is none of that name; there are \"before\" ("));
  const Database opened(db_, OpenMode::change);
  EXPECT_THAT(snapshot_paths(opened), ElementsAre("before"));
}

}  // namespace
