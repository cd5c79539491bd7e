// Memory that may stay allocated for good: what is taken while one of these lives is not reported.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define QIM_LEAKS_ARE_REPORTED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QIM_LEAKS_ARE_REPORTED
#endif
#endif

#ifdef QIM_LEAKS_ARE_REPORTED
#include <sanitizer/lsan_interface.h>
#endif

namespace e2e {

class LeaksAllowed {
 public:
#ifdef QIM_LEAKS_ARE_REPORTED
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
