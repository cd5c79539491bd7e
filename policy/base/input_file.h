// Files that a command was given to read.
#pragma once

#include <string>
#include <vector>

#include "policy/base/json_text.h"
#include "policy/base/policy.h"

namespace qimctl {

struct Source {
  std::string file;
  std::string text;
};

// Reads a whole file, or standard input for the name "-". Throws InputError.
Source read_source(const std::string& name);

// Lines are looked for in every source, each knows its own places.
template <typename Items>
void fill_all_lines(const std::vector<Source>& sources, Items& items) {
  for (const Source& source : sources) fill_lines(source.text, source.file, items);
}

// Throws the problems, each with its line.
[[noreturn]] void refuse(const std::vector<Source>& sources, std::vector<Problem> problems);

}  // namespace qimctl
