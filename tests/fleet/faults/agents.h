// An agent as a process, what can befall it, and a look at its database.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "fleet/agent/agent.h"
#include "fleet/agent/device.h"
#include "tests/fleet/support/cluster.h"

namespace fleet_test {

// What a checker saw of a database: everything in one session.
struct Seen {
  qim::fleet::Held held;
  qim::fleet::State state;
};

class Checked {
 public:
  explicit Checked(const std::string& directory);
  ~Checked();
  Checked(const Checked&) = delete;
  Checked& operator=(const Checked&) = delete;

  Seen look() const;

 private:
  uint32_t handle_ = 0;
};

// How an agent reaches the store.
struct Way {
  std::vector<std::string> endpoints;
  std::string certificates;  // the folder with the authority's and its own; "" = it has none
};

class FaultAgent {
 public:
  // In a folder of its own below that one. `flaw` is how it is broken on purpose, "" = it is not.
  FaultAgent(const std::filesystem::path& directory, const std::string& name,
             const std::string& flaw, const std::string& settings, const Way& way);

  const std::string& name() const { return name_; }
  const std::string& flaw() const { return flaw_; }
  Seen look() const { return database_->look(); }

  // Anew, if need be by the end of the one that runs.
  void start();
  // The same where no file can be written beyond so many blocks of 512 bytes.
  void start_on_full_disk(uint64_t blocks);
  void hold();
  void go_on();
  bool is_held() const { return held_; }
  bool is_short_of_disk() const { return short_of_disk_; }
  // It is that much later, or earlier, to it than it is.
  void set_clock(int64_t seconds) const;
  // Somebody asks it for something, see Request.
  void ask(qim::fleet::Request request) const;
  void forget_requests() const;

  // The checker's: the highest revision that it was seen with, and what it must not go beyond.
  uint64_t highest = 0;
  uint64_t most = UINT64_MAX;

 private:
  void run(const std::vector<std::string>& command);

  std::filesystem::path directory_;
  std::string name_;
  std::string flaw_;
  std::vector<std::string> command_;
  std::unique_ptr<Checked> database_;
  Program process_;
  bool held_ = false;
  bool short_of_disk_ = false;
};

}  // namespace fleet_test
