#include "policy/base/text.h"

#include <gmock/gmock.h>
#include <pty.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "policy/base/progress.h"

namespace {

using nlohmann::ordered_json;
using qimctl::layout;
using qimctl::printable;
using qimctl::TextTable;

TEST(TextTable, aligns_columns_by_characters) {
  TextTable table({"A", "NAME", "X"});
  table.add({"1", "Zürich", "x"});
  table.add({"22", "b", ""});
  EXPECT_EQ(table.text(), "A   NAME    X\n1   Zürich  x\n22  b\n");
}

TEST(Layout, aligns_values_and_indents_what_is_inside) {
  const auto value = ordered_json::parse(
      R"({"a": 1, "name": "x", "in": {"b": 2}, "list": [{"c": 1, "d": "y"}, 3], "none": []})");
  EXPECT_EQ(layout(value, 2),
            "  a     1\n  name  x\n  in\n    b  2\n  list\n    c 1  d y\n    3\n  none -\n");
}

TEST(Layout, shows_large_numbers_in_hexadecimal_too) {
  EXPECT_EQ(layout(ordered_json::parse(R"({"a": 9999, "b": 10000})"), 0),
            "a  9999\nb  10000 (0x2710)\n");
}

TEST(Layout, marks_empty_texts) {
  EXPECT_EQ(layout(ordered_json::parse(R"({"a": ""})"), 0), "a  -\n");
}

TEST(Printable, leaves_text_alone) {
  const std::string text = "ge-0/0/0 Zürich € 😀";
  EXPECT_EQ(printable(text), text);
}

TEST(Printable, escapes_what_could_drive_a_terminal) {
  EXPECT_EQ(printable("\x1b[2J\n\x7f\\"), "\\x1b[2J\\x0a\\x7f\\x5c");
  EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
  EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b");
}

TEST(Printable, escapes_what_is_no_utf8) {
  EXPECT_EQ(printable("\xff"), "\\xff");
  EXPECT_EQ(printable("\xc0\x80"), "\\xc0\\x80");
  EXPECT_EQ(printable("\xe0\x80\x80"), "\\xe0\\x80\\x80");
  EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(printable("a\xe2\x82"), "a\\xe2\\x82");
}

TEST(ProgressBar, fills_from_left_to_right) {
  EXPECT_EQ(qimctl::progress_bar(0, 4, 4), "[>   ]");
  EXPECT_EQ(qimctl::progress_bar(2, 4, 4), "[==> ]");
  EXPECT_EQ(qimctl::progress_bar(4, 4, 4), "[====]");
  EXPECT_EQ(qimctl::progress_bar(0, 0, 4), "[====]");
}

TEST(Progress, is_drawn_now_and_then_and_wiped_out_in_the_end) {
  using Clock = std::chrono::steady_clock;
  testing::internal::CaptureStderr();
  {
    const auto begin = Clock::now();
    qimctl::Progress progress("nodes", 2, true);
    progress.step();
    const std::string first = testing::internal::GetCapturedStderr();
    const bool early = Clock::now() - begin < std::chrono::milliseconds(100);
    EXPECT_TRUE(first.empty() || !early) << first;
    testing::internal::CaptureStderr();
    std::this_thread::sleep_for(std::chrono::milliseconds(110));
    progress.step();
  }
  const std::string drawn = testing::internal::GetCapturedStderr();
  EXPECT_THAT(drawn, testing::HasSubstr("nodes [==============================] 2 of 2"));
  EXPECT_THAT(drawn, testing::EndsWith("\r\033[K"));
}

TEST(Progress, shows_nothing_when_nobody_wants_it) {
  testing::internal::CaptureStderr();
  {
    qimctl::Progress progress("nodes", 1, false);
    std::this_thread::sleep_for(std::chrono::milliseconds(110));
    progress.step();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Standard error as a terminal, as long as the object lives.
class TerminalForErrors {
 public:
  TerminalForErrors() : before_(dup(STDERR_FILENO)) {
    EXPECT_EQ(openpty(&master_, &slave_, nullptr, nullptr, nullptr), 0);
    dup2(slave_, STDERR_FILENO);
  }
  ~TerminalForErrors() {
    dup2(before_, STDERR_FILENO);
    for (const int file : {before_, master_, slave_}) close(file);
  }
  TerminalForErrors(const TerminalForErrors&) = delete;
  TerminalForErrors& operator=(const TerminalForErrors&) = delete;

 private:
  int before_;
  int master_ = -1;
  int slave_ = -1;
};

TEST(Progress, is_for_terminals_that_can_wipe_out) {
  const char* const term = getenv("TERM");
  const std::string before = term == nullptr ? "" : term;
  setenv("TERM", "xterm", 1);
  bool wanted = false;
  {
    const TerminalForErrors terminal;
    wanted = qimctl::progress_wanted();
    setenv("TERM", "dumb", 1);
    EXPECT_FALSE(qimctl::progress_wanted());
    unsetenv("TERM");
    EXPECT_FALSE(qimctl::progress_wanted());
  }
  EXPECT_TRUE(wanted);
  if (term != nullptr) setenv("TERM", before.c_str(), 1);
}

}  // namespace
