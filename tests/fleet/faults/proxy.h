// Stands between agents and a member of the store: passes bytes on, cuts the line, or lies.
#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace fleet_test {

class Proxy {
 public:
  // Listens on a port of loopback, and connects to that one ("127.0.0.1:2379").
  explicit Proxy(const std::string& target);
  ~Proxy();
  Proxy(const Proxy&) = delete;
  Proxy& operator=(const Proxy&) = delete;

  std::string endpoint() const { return "127.0.0.1:" + std::to_string(port_); }
  void cut(bool is) { cut_ = is; }   // every line ends, and no other one begins
  void lie(bool is) { lies_ = is; }  // now and then a byte on its way to the agent is another one
  uint64_t lies() const { return told_; }

 private:
  struct Line;
  void run();

  int target_port_ = 0;
  int port_ = 0;
  int listener_ = -1;
  std::atomic<bool> over_{false};
  std::atomic<bool> cut_{false};
  std::atomic<bool> lies_{false};
  std::atomic<uint64_t> told_{0};
  std::thread thread_;
};

}  // namespace fleet_test
