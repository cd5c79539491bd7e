// A pager for what is printed on a terminal.
#pragma once

#include <sys/types.h>

namespace qimctl {

// While it lives, standard output goes to a pager, where it is a terminal and there is one: the
// program that PAGER names, else `less`, which leaves at once when all fits on the screen. An empty
// PAGER, or `cat`, is none. Waits in the end until the reader has left.
class Pager {
 public:
  explicit Pager(bool wanted);
  ~Pager();
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

 private:
  pid_t child_ = -1;
  int terminal_ = -1;  // what standard output was
};

}  // namespace qimctl
