// Text put together piece by piece in a fixed buffer; what does not fit is cut.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

namespace qim::dbg {

class Text {
 public:
  // `room` bytes at `buffer`, the terminator included.
  Text(char* buffer, size_t room) : at_(buffer), room_(room) {}

  __attribute__((format(printf, 2, 3))) void add(const char* format, ...) {
    va_list args;
    va_start(args, format);
    advance(vsnprintf(at_, room_, format, args));
    va_end(args);
  }

  // Where the next piece goes, how much of it fits, and how long it wanted to be.
  char* at() const { return at_; }
  size_t room() const { return room_; }
  void advance(int produced) {
    if (produced <= 0) return;
    const size_t wanted = static_cast<size_t>(produced);
    const size_t taken =
        wanted < room_ ? wanted : room_ - 1;  // a cut piece leaves room for its terminator
    at_ += taken;
    room_ -= taken;
  }

 private:
  char* at_;
  size_t room_;
};

}  // namespace qim::dbg
