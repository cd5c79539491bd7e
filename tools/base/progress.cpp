// A progress line on a terminal's standard error; nothing anywhere else.
#include "tools/base/progress.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "tools/base/complaint.h"
#include "tools/base/exit_code.h"

namespace qimctl {

namespace {

constexpr auto redraw_interval = std::chrono::milliseconds(100);
constexpr size_t bar_width = 30;
constexpr const char* erase_line = "\r\033[K";

volatile sig_atomic_t interrupted = 0;

void note_interrupt(int) {
  interrupted = 1;
}

// Put together before it is needed, for an interrupt may come anywhere.
char last_words[160];

void end_at_once(int) {
  // Nobody is left who could be told that it can't be said.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, last_words, strlen(last_words));
  _exit(exit_interrupted);
}

using Handler = void (*)(int);

// Whoever ignores interrupts in the background goes on doing so.
Handler handle_interrupts(Handler handler) {
  const Handler before = signal(SIGINT, handler);
  if (before == SIG_IGN) signal(SIGINT, SIG_IGN);
  return before;
}

void handle_again(Handler before) {
  if (before != SIG_ERR) signal(SIGINT, before);
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

Interrupts::Interrupts() : before_(handle_interrupts(note_interrupt)) {}

Interrupts::~Interrupts() {
  handle_again(before_);
}

void Interrupts::check() const {
  if (interrupted != 0) throw Interrupted();
}

void Interrupts::check_last() {
  check();
  before_ = SIG_ERR;
}

Abandoning::Abandoning() {
  const std::string text = complaint_text(interrupted_text);
  memcpy(last_words, text.c_str(), std::min(text.size() + 1, sizeof last_words - 1));
  before_ = handle_interrupts(end_at_once);
}

Abandoning::~Abandoning() {
  handle_again(before_);
}

Progress::Progress(std::string what, size_t total, bool visible)
    : what_(std::move(what)),
      total_(total),
      visible_(visible),
      due_(std::chrono::steady_clock::now() + redraw_interval) {}

Progress::~Progress() {
  if (visible_) fputs(erase_line, stderr);
}

void Progress::step() {
  done_++;
  interrupts_.check();
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
