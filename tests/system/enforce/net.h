// A network of the test's own: a namespace with a pair of interfaces that are joined, and nothing
// outside it.
#ifndef TESTS_SYSTEM_ENFORCE_NET_H
#define TESTS_SYSTEM_ENFORCE_NET_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace net {

// Takes the calling thread into a namespace in which "near" and "far" are joined. The reason why that
// can't be, "" when it could.
std::string enter();

// Why this machine can't run such tests; "" when it can. Enters a namespace, once for the program.
const std::string& obstacle();
// Is that a failure, and not a reason to skip?
bool must_run();

// How often: `all` in a soak, else `few`, and a fifth where the program is checked or counted.
uint32_t times(uint32_t few, uint32_t all);

// Runs a command of the shell.
bool shell(const std::string& command);

// Sends frames as they are.
class Sender {
 public:
  explicit Sender(const std::string& interface);
  ~Sender();
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  bool send(std::span<const uint8_t> frame) const;

 private:
  int socket_;
};

// Takes what comes in at an interface.
class Receiver {
 public:
  explicit Receiver(const std::string& interface);
  ~Receiver();
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;
  std::vector<uint8_t> next() const;  // nothing when none came in time

 private:
  int socket_;
};

}  // namespace net

// In front of a test's body.
#define NEEDS_NET()                                                             \
  do {                                                                          \
    if (!net::obstacle().empty() && net::must_run()) FAIL() << net::obstacle(); \
    if (!net::obstacle().empty()) GTEST_SKIP() << net::obstacle();              \
  } while (false)

#endif
