// Columns, and the progress line.
#include <gmock/gmock.h>
#include <pty.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tools/base/progress.h"
#include "tools/base/table.h"

namespace {

using qimctl::TextTable;

TEST(TextTable, aligns_columns_by_characters) {
  TextTable table({"A", "NAME", "X"});
  table.add({"1", "Zürich", "x"});
  table.add({"22", "b", ""});
  EXPECT_EQ(table.text(), "A   NAME    X\n1   Zürich  x\n22  b\n");
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

TEST(Progress, ends_at_the_next_step_after_an_interrupt) {
  const auto before = signal(SIGINT, SIG_DFL);
  EXPECT_EXIT(
      {
        qimctl::Progress progress("nodes", 2, false);
        progress.step();
        raise(SIGINT);
        try {
          progress.step();
        } catch (const qimctl::Interrupted&) {
          exit(7);
        }
      },
      testing::ExitedWithCode(7), "");
  signal(SIGINT, SIG_IGN);
  {
    const qimctl::Progress progress("nodes", 2, false);
    raise(SIGINT);
  }
  EXPECT_EQ(signal(SIGINT, before), SIG_IGN);
}

TEST(Phase, is_shown_at_once_and_wiped_out) {
  testing::internal::CaptureStderr();
  { const qimctl::Phase phase("reading x", true); }
  { const qimctl::Phase phase("reading y", false); }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\r\033[Kreading x\r\033[K");
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
