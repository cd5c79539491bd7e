// What tests of the command-line tool share: places, files, and running the tool itself.
#pragma once

#include <gtest/gtest.h>

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "policy/base/policy.h"

namespace tools_test {

std::filesystem::path source_dir();
std::string read_text(const std::filesystem::path& file);
void write_text(const std::filesystem::path& file, const std::string& text);

// An empty directory that goes away with the object.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// The problems that `read` throws; a test failure when it throws none.
std::vector<qimctl::Problem> problems_of(const std::function<void()>& read);

// "4 /nodes/0/id: message"
std::string brief(const qimctl::Problem& problem);
std::vector<std::string> brief(const std::vector<qimctl::Problem>& problems);

struct Outcome {
  int code = -1;  // exit code; 128 + signal when a signal ended it
  std::string out;
  std::string err;
};

// The built tool as a process, under the emulator where there is one, without ROV_DB in its
// environment unless `environment` ("NAME=value") gives it, and with its standard output into
// `output` if that is not empty. Ends with the object at the latest.
class Process {
 public:
  explicit Process(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment = {},
                   const std::string& output = "");
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Waits until its standard output holds `text`. Fails the test when that takes a minute.
  void wait_for(const std::string& text) const;
  // As Ctrl-C does.
  void interrupt() const;
  // Waits for its end.
  Outcome finish();

 private:
  TempDir dir_;
  std::string output_;
  pid_t child_ = -1;
};

// Runs the tool to its end.
Outcome run_qimctl(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment = {},
                   const std::string& output = "");

}  // namespace tools_test
