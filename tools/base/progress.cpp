// A progress line on a terminal's standard error; nothing anywhere else.
#include "tools/base/progress.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace qimctl {

namespace {

constexpr auto redraw_interval = std::chrono::milliseconds(100);
constexpr size_t bar_width = 30;
constexpr const char* erase_line = "\r\033[K";

volatile sig_atomic_t interrupted = 0;

void note_interrupt(int) {
  interrupted = 1;
}

}  // namespace

bool progress_wanted() {
  const char* terminal = getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && terminal != nullptr && strcmp(terminal, "dumb") != 0;
}

std::string progress_bar(size_t done, size_t total, size_t width) {
  const size_t filled = total == 0 ? width : done * width / total;
  std::string bar = "[" + std::string(filled, '=');
  if (filled < width) bar += ">" + std::string(width - filled - 1, ' ');
  return bar + "]";
}

Progress::Progress(std::string what, size_t total, bool visible)
    : what_(std::move(what)),
      total_(total),
      visible_(visible),
      before_(signal(SIGINT, note_interrupt)),
      due_(std::chrono::steady_clock::now() + redraw_interval) {
  // Whoever ignores interrupts in the background goes on doing so.
  if (before_ == SIG_IGN) signal(SIGINT, SIG_IGN);
}

Progress::~Progress() {
  if (before_ != SIG_ERR) signal(SIGINT, before_);
  if (visible_) fputs(erase_line, stderr);
}

void Progress::step() {
  done_++;
  if (interrupted != 0) throw Interrupted();
  if (!visible_ || std::chrono::steady_clock::now() < due_) return;
  due_ = std::chrono::steady_clock::now() + redraw_interval;
  draw();
}

Phase::Phase(const std::string& what, bool visible) : visible_(visible) {
  if (!visible_) return;
  fprintf(stderr, "%s%s", erase_line, what.c_str());
  fflush(stderr);
}

Phase::~Phase() {
  if (visible_) fputs(erase_line, stderr);
}

void Progress::draw() const {
  fprintf(stderr, "%s%s %s %zu of %zu", erase_line, what_.c_str(),
          progress_bar(done_, total_, bar_width).c_str(), done_, total_);
  fflush(stderr);
}

}  // namespace qimctl
