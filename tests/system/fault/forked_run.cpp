#include "tests/system/fault/forked_run.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/system/fault/scale.h"

namespace fault {
namespace {

const interpose::Plan* g_plan = nullptr;  // of this process

// Seen by both processes.
interpose::Counts* shared_counts() {
  static void* const page = mmap(nullptr, sizeof(interpose::Counts), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) abort();
  return static_cast<interpose::Counts*>(page);
}

// A file without a name for what the process prints.
int new_file() {
  const int file = memfd_create("output", MFD_CLOEXEC);
  if (file < 0) abort();
  return file;
}

std::string contents(int file) {
  std::string text;
  char part[4096];
  ssize_t size = 0;
  for (off_t at = 0; (size = pread(file, part, sizeof part, at)) > 0; at += size) {
    text.append(part, static_cast<size_t>(size));
  }
  close(file);
  return text;
}

[[noreturn]] void work_in_child(const std::function<int()>& work, const interpose::Plan* plan,
                                int out, int err, unsigned seconds) {
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  alarm(seconds);
  g_plan = plan;
  const int code = work();
  undisturb();
  fflush(nullptr);
  _exit(code);
}

}  // namespace

void disturb() {
  interpose::begin(shared_counts(), g_plan);
}

void undisturb() {
  interpose::end();
}

Run run_forked(const std::function<int()>& work, const interpose::Plan* plan) {
  interpose::Counts* counts = shared_counts();
  *counts = {};
  fflush(nullptr);
  const int out = new_file();
  const int err = new_file();
  const unsigned seconds = pace::patience_ms() / 1000;  // each process would measure it again
  const pid_t child = fork();
  if (child == 0) work_in_child(work, plan, out, err, seconds);
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child) abort();
  Run run;
  if (WIFEXITED(status)) run.code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
  run.counts = *counts;
  run.out = contents(out);
  run.err = contents(err);
  return run;
}

}  // namespace fault
