// Another process, which does its steps when it is told to.
#ifndef TESTS_SYSTEM_E2E_PEER_H
#define TESTS_SYSTEM_E2E_PEER_H

#include <sys/types.h>

#include <functional>
#include <vector>

namespace e2e {

// Forks at once, so that it has to be made before the test's own process opens a database. What
// fails in a step is printed by the other process.
class Peer {
 public:
  explicit Peer(const std::vector<std::function<void()>>& steps);
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // Runs the next step and waits for its end. Makes the test fail when it failed there.
  void step();
  // Ends it with SIGKILL, in whatever state its last step left it. It has no more steps then.
  void kill();

  pid_t process() const { return process_; }

 private:
  pid_t process_ = -1;
  int to_ = -1;
  int from_ = -1;
  bool killed_ = false;
};

// Runs it in a process that ends with it.
void in_process(const std::function<void()>& body);

}  // namespace e2e

#endif
