// The commands that take a whole database: check, dump, restore, compact.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace qimctl {

class Maintenance {
 public:
  // As Verbs does.
  Maintenance(CLI::App& app, const std::string& database, std::function<int()>& action);
  Maintenance(const Maintenance&) = delete;
  Maintenance& operator=(const Maintenance&) = delete;

 private:
  void add_check();
  void add_dump();
  void add_restore();
  void add_compact();

  CLI::App& app_;
  const std::string& database_;
  std::function<int()>& action_;
  std::string file_;
  bool json_ = false;
};

}  // namespace qimctl
