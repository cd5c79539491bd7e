// A pager for what is printed on a terminal.
#include "tools/base/pager.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "policy/base/text.h"
#include "tools/base/complaint.h"
#include "tools/base/terminal.h"

namespace qimctl {

namespace {

bool is_program(const std::string& name) {
  if (name.find('/') != std::string::npos) return access(name.c_str(), X_OK) == 0;
  const char* path = getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (access(folder.append("/").append(name).c_str(), X_OK) == 0) return true;
  }
  return false;
}

// Is it a program that is not there, by a plain name? Of what else a shell may be given it is not known.
bool is_missing(const std::string& command) {
  const std::string name = command.substr(0, command.find(' '));
  const bool plain = std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("_-./+").find(c) != std::string_view::npos;
  });
  return plain && !name.empty() && !is_program(name);
}

// What a shell is to run, "" for none.
std::string pager_command() {
  const char* wanted = getenv("PAGER");
  if (wanted == nullptr) return is_program("less") ? "less" : "";
  std::string command = wanted;
  if (command == "cat") return "";
  if (!is_missing(command)) return command;
  complain("the pager '" + printable(command) +
           "' is not there; set PAGER to one that is, or give --no-pager");
  return "";
}

[[noreturn]] void run_pager(const std::string& command, const int (&ends)[2]) {
  dup2(ends[0], STDIN_FILENO);
  close(ends[0]);
  close(ends[1]);
  // Leaves when all fits, passes styles on, keeps the text on the screen.
  setenv("LESS", "FRX", 0);
  setenv("LV", "-c", 0);
  execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
  _exit(127);
}

}  // namespace

Pager::Pager(bool wanted) {
  const std::string command = wanted && isatty(STDOUT_FILENO) == 1 ? pager_command() : "";
  int ends[2];
  if (command.empty() || (terminal(), pipe2(ends, O_CLOEXEC)) != 0) return;
  fflush(stdout);
  child_ = fork();
  if (child_ == 0) run_pager(command, ends);
  close(ends[0]);
  if (child_ > 0) {
    terminal_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(ends[1], STDOUT_FILENO);
    // An interrupt is for the pager, which decides what it means.
    signal(SIGINT, SIG_IGN);
  }
  close(ends[1]);
}

Pager::~Pager() {
  if (child_ <= 0) return;
  fflush(stdout);
  dup2(terminal_, STDOUT_FILENO);
  close(terminal_);
  while (waitpid(child_, nullptr, 0) < 0) {
  }
  signal(SIGINT, SIG_DFL);
}

}  // namespace qimctl
