#include "tests/system/e2e/peer.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace e2e {
namespace {

constexpr char kPassed = 'y';
constexpr char kFailed = 'n';
constexpr unsigned kSeconds = 240;

bool get(int from, char* byte) {
  return read(from, byte, 1) == 1;
}

bool put(int to, char byte) {
  return write(to, &byte, 1) == 1;
}

// One step for each byte that comes in, until the test closes its end.
[[noreturn]] void serve(const std::vector<std::function<void()>>& steps, int from, int to) {
  alarm(kSeconds);
  std::size_t next = 0;
  char byte = 0;
  while (get(from, &byte) && next < steps.size()) {
    steps[next++]();
    std::fflush(nullptr);
    put(to, testing::Test::HasFailure() ? kFailed : kPassed);
  }
  _exit(0);
}

}  // namespace

Peer::Peer(const std::vector<std::function<void()>>& steps) {
  int there[2];
  int back[2];
  if (pipe(there) != 0 || pipe(back) != 0) std::abort();
  std::signal(SIGPIPE, SIG_IGN);  // a process that is gone is told by what write returns
  std::fflush(nullptr);
  process_ = fork();
  if (process_ == 0) {
    ::close(there[1]);
    ::close(back[0]);
    serve(steps, there[0], back[1]);
  }
  ::close(there[0]);
  ::close(back[1]);
  to_ = there[1];
  from_ = back[0];
  EXPECT_GT(process_, 0) << "no other process";
}

Peer::~Peer() {
  ::close(to_);
  ::close(from_);
  if (killed_) return;
  int status = -1;
  EXPECT_EQ(waitpid(process_, &status, 0), process_);
  EXPECT_TRUE(WIFEXITED(status)) << "the other process was ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

void Peer::step() {
  char answer = kFailed;
  EXPECT_TRUE(put(to_, '.') && get(from_, &answer)) << "the other process is gone";
  EXPECT_EQ(answer, kPassed) << "a step failed in the other process, see above";
}

void Peer::kill() {
  EXPECT_EQ(::kill(process_, SIGKILL), 0);
  EXPECT_EQ(waitpid(process_, nullptr, 0), process_);
  killed_ = true;
}

void in_process(const std::function<void()>& body) {
  Peer({body}).step();
}

}  // namespace e2e
