// qim-enforce as a process, and the policy that it follows.
#ifndef TESTS_SYSTEM_ENFORCE_PROCESS_H
#define TESTS_SYSTEM_ENFORCE_PROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace process {

// A folder of its own, with a database "db" in it.
class Place {
 public:
  Place();
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;
  std::string path(const std::string& name) const { return folder_ + "/" + name; }
  // Makes the database hold lists given as members of "acl", attached to far/in in this order.
  bool apply(const std::string& lists, const std::vector<std::string>& attached) const;

 private:
  std::string folder_;
};

// Runs qimctl on the place's database. Did it do what it should?
bool qimctl(const Place& place, const std::string& arguments);

// {"name", "type", "aces"}
std::string list(const std::string& name, const std::string& entries);
// An entry of UDP packets to a port.
std::string entry(const std::string& name, uint16_t port, const std::string& forwarding);

struct Ended {
  int code = -1;       // -1: by a signal
  std::string output;  // both streams
};
// Runs qim-enforce to its end.
Ended run(const Place& place, const std::string& options);

class Enforce {
 public:
  // With what stands in front of its environment.
  explicit Enforce(const Place& place, const std::vector<std::string>& options = {},
                   const std::string& notify_socket = "");
  ~Enforce();
  Enforce(const Enforce&) = delete;
  Enforce& operator=(const Enforce&) = delete;
  void signal(int number) const;
  int wait();  // its exit code, -1: by a signal
  std::string log() const;

 private:
  pid_t pid_ = 0;
  std::string log_file_;
};

// Waits until it holds; false when it did not in time.
bool eventually(const std::function<bool()>& holds);

// The revision that a metrics file names, 0 = none.
uint64_t metric(const std::string& file, const std::string& name);

}  // namespace process

#endif
