#include "child.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "fake.h"
#include "faults.h"

namespace fake {
namespace {

constexpr int kPassed = 0;
constexpr int kFailed = 61;
constexpr unsigned kSeconds = 120;

// _exit: the child must not run the parent's exit handlers, leak check included; contexts of
// threads are never freed.
[[noreturn]] void run(const std::function<void()>& body) {
  const rlimit no_core{};
  setrlimit(RLIMIT_CORE, &no_core);
  alarm(kSeconds);
  body();
  std::fflush(nullptr);
  _exit(testing::Test::HasFailure() ? kFailed : kPassed);
}

int status_of(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) run(body);
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    ADD_FAILURE() << "no child process";
  }
  return status;
}

}  // namespace

void in_child(const std::function<void()>& body) {
  const int status = status_of([&] {
    reset();
    reset_system();
    body();
    EXPECT_EQ(bad_frees(), 0u) << "something was freed that is no block of that pool";
  });
  if (WIFEXITED(status) && WEXITSTATUS(status) == kPassed) return;
  if (WIFSIGNALED(status)) {
    ADD_FAILURE() << "the child process was ended by signal " << WTERMSIG(status);
  } else {
    ADD_FAILURE() << "failed in the child process, see above";
  }
}

Ending ending_of(const std::function<void()>& body) {
  const int status = status_of(body);
  const bool failed = WIFEXITED(status) && WEXITSTATUS(status) == kFailed;
  const bool passed = WIFEXITED(status) && WEXITSTATUS(status) == kPassed;
  return {passed || failed, failed, WIFSIGNALED(status) ? WTERMSIG(status) : 0};
}

}  // namespace fake
