// Stands between two ends on loopback: passes bytes on, cuts the line, keeps silent, or lies.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fleet_test {

class Proxy {
 public:
  // Listens on a port of loopback, and connects to that one ("127.0.0.1:2379").
  explicit Proxy(const std::string& target);
  ~Proxy();
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;

  int port() const { return port_; }
  std::string endpoint() const { return "127.0.0.1:" + std::to_string(port_); }
  void cut(bool is) { cut_ = is; }   // every line ends, and no other one begins
  void lie(bool is) { lies_ = is; }  // now and then a byte on its way to the caller is another one
  uint64_t lies() const { return told_; }
  // The lines of these processes end, or nothing passes on them; of none from here on when there are none.
  void part(const std::vector<pid_t>& callers, bool silently);

 private:
  struct Line;
  struct Parted {
    std::vector<pid_t> callers;
    bool silently = false;
    uint64_t count = 0;  // of what was asked for
  };
  void run();
  Parted parted() const;
  bool pass(const Line& line, int from, bool may_lie);
  bool serve(Line& line, const Parted& parted, short caller, short target);
  void take_in(std::vector<Line>& lines) const;

  int target_port_ = 0;
  int port_ = 0;
  int listener_ = -1;
  std::vector<char> bytes_;
  uint32_t pieces_ = 0;
  std::atomic<bool> over_{false};
  std::atomic<bool> cut_{false};
  std::atomic<bool> lies_{false};
  std::atomic<uint64_t> told_{0};
  mutable std::mutex mutex_;  // of who is parted
  Parted parted_;
  std::thread thread_;
};

}  // namespace fleet_test
