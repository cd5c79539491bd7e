// Tests in a process of their own: for what lasts as long as a process (per-thread contexts, the
// one-time conversion at start-up), and for what ends one.
#ifndef TESTS_SUPPORT_FAKE_CHILD_H
#define TESTS_SUPPORT_FAKE_CHILD_H

#include <gtest/gtest.h>

#include <functional>

namespace fake {

// Runs `body` in a forked process. Its failures are printed there and make the calling test fail.
void in_child(const std::function<void()>& body);

// How a forked process that ran `body` ended.
struct Ending {
  bool returned;  // body came to its end
  bool failed;    // and had made its test fail
  int signal;     // that ended the process, 0 = none
};
Ending ending_of(const std::function<void()>& body);

}  // namespace fake

// A TEST whose body runs in a forked process.
#define CHILD_TEST(suite, name)            \
  static void suite##_##name##_body();     \
  TEST(suite, name) {                      \
    fake::in_child(suite##_##name##_body); \
  }                                        \
  static void suite##_##name##_body()

#endif
