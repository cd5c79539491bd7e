// Memory that may stay allocated for good: what is taken while one of these lives is not reported.
#pragma once

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace e2e {

class LeaksAllowed {
 public:
#ifdef __SANITIZE_ADDRESS__
  LeaksAllowed() {
    __lsan_disable();
  }
  ~LeaksAllowed() {
    __lsan_enable();
  }
#else
  LeaksAllowed() {}
  ~LeaksAllowed() {}
#endif
  LeaksAllowed(const LeaksAllowed&) = delete;
  LeaksAllowed& operator=(const LeaksAllowed&) = delete;
};

}  // namespace e2e
