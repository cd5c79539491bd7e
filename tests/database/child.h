// Another process on a database.
#ifndef TESTS_DATABASE_CHILD_H
#define TESTS_DATABASE_CHILD_H

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/database/database_fixture.h"

namespace testing_rov {

// A child that runs `work` with a database of its own and reports numbers through a pipe.
class Child {
 public:
  template <typename Work>
  Child(const std::string& path, Work work) {
    int ends[2];
    if (pipe(ends) != 0) abort();
    pid_ = fork();
    if (pid_ < 0) abort();
    if (pid_ != 0) {
      ::close(ends[1]);
      pipe_ = ends[0];
      return;
    }
    ::close(ends[0]);
    uint32_t db = 0;
    const bool good = open_database(path, 0, 7, &db) == ROV_OK && work(db, ends[1]);
    _exit(good ? 0 : 1);
  }
  ~Child() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (pipe_ >= 0) ::close(pipe_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  // The next number; false at the end.
  bool next(uint32_t* value) const { return ::read(pipe_, value, sizeof *value) == sizeof *value; }
  // How it ended, as from waitpid.
  int kill() {
    ::kill(pid_, SIGKILL);
    return wait();
  }
  bool ended() const { return pid_ < 0; }
  int wait() {
    int result = -1;
    waitpid(pid_, &result, 0);
    pid_ = -1;
    return result;
  }

 private:
  pid_t pid_ = -1;
  int pipe_ = -1;
};

inline void say(int pipe, uint32_t value) {
  if (write(pipe, &value, sizeof value) != sizeof value) _exit(3);
}

}  // namespace testing_rov

#endif
