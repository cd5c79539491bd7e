// Policy files as commands are given them: read all, so that what is wrong in any of them is said at
// once, and what became of what they hold.
#pragma once

#include <string>
#include <vector>

#include "policy/base/input_file.h"
#include "policy/base/json_value.h"
#include "policy/base/policy.h"
#include "policy/formats/any/any.h"

namespace qimctl {

struct FileOptions {
  std::vector<std::string> files;
  Format format = Format::guess;
  ReadOptions reading{};
  // Lines are looked for in one more pass over the text: for what is lost always, for what is
  // accepted only when it is to be told.
  bool all_lines = false;
};

struct PolicyFiles {
  std::vector<Source> sources;
  std::vector<Policy> nodes;  // of files in the native format
  Model model;                // of all others
  std::vector<Finding> findings;
  std::vector<Problem> emptied;  // lists that would come out empty

  // Throws what `error` tells, each problem with its line.
  [[noreturn]] void refuse(const InputError& error) const;
  size_t count(Fate fate) const;
  // Is anything carried otherwise than it is written, or not at all?
  bool has_losses() const;
  // A line for each finding; of what was accepted, too, if `verbose`.
  std::string text(bool verbose) const;
  JsonValue json() const;
  // "12 accepted, 0 approximated, 1 skipped"
  std::string tally() const;
};

// Complains of what can't be carried as it is, each with its place.
void say_losses(const PolicyFiles& files);

// Each throws InputError. The second form takes files that were opened already.
PolicyFiles read_files(const FileOptions& options);
PolicyFiles read_files(const FileOptions& options, std::vector<Source> sources);
std::vector<Source> read_sources(const FileOptions& options);

}  // namespace qimctl
