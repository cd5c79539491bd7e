// Standard output, checked.
#include "tools/base/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace qimctl {

namespace {

[[noreturn]] void fail() {
  throw OutputError(std::string("cannot write the output: ") + strerror(errno) +
                    "; check the disk or the program that reads it");
}

}  // namespace

void print(const std::string& text) {
  if (fwrite(text.data(), 1, text.size(), stdout) != text.size()) fail();
}

void flush_output() {
  if (fflush(stdout) != 0) fail();
}

}  // namespace qimctl
