// The commands that ask about single nodes and data sets, and the one that follows changes.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "tools/commands/watch.h"
#include "tools/nodes/queries.h"

namespace qimctl {

class Verbs {
 public:
  // `database`: the directory given on the command line, read when a command runs; `action`:
  // receives what the command that was given does.
  Verbs(CLI::App& app, const std::string& database, std::function<int()>& action);
  Verbs(const Verbs&) = delete;
  Verbs& operator=(const Verbs&) = delete;

  // Adds the commands to `app`, behind those that it has.
  void add();

 private:
  using Query = std::function<void(const ReadSession&, uint32_t id)>;

  void add_node_query(const char* name, const char* help, Query query);
  void add_edest();
  void add_pinst();
  void add_name();
  void add_priv();
  void add_watch();
  void add_node_option(CLI::App* command, const char* name);
  void add_json_option(CLI::App* command);
  void add_dest_option(CLI::App* command, bool required);

  // Runs a question on the newest state of the database.
  int ask(const std::function<void(const Database&, const ReadSession&)>& question);
  uint32_t node() const;
  qim_policy_dest_t dest() const;

  CLI::App& app_;
  const std::string& database_;
  std::function<int()>& action_;
  std::string node_;
  std::vector<std::string> dest_;
  std::string name_;
  std::string data_;
  uint32_t type_ = 0;
  std::string dir_ = "in";
  bool text_ = false;
  bool json_ = false;
  WatchOptions watch_;
};

// Complaints about a command line, "" when it is well-formed.
std::string check_node(const std::string& text);

}  // namespace qimctl
