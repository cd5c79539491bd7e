// Reading texts of a format in tests: what was found, and what was refused.
#pragma once

#include <string>
#include <vector>

#include "policy/model/model.h"
#include "policy/model/words.h"

namespace formats_test {

// "3: /acl: message" for each problem of what `read` throws; none when it throws nothing.
template <typename Read>
std::vector<std::string> problems_of(Read read) {
  std::vector<std::string> problems;
  try {
    read();
  } catch (const qimctl::InputError& error) {
    for (const qimctl::Problem& problem : error.problems())
      problems.push_back(std::to_string(problem.place.line) + ": " + problem.place.path + ": " +
                         problem.message);
  }
  return problems;
}

// Those of one fate, as problems are.
inline std::vector<std::string> findings_of(const qimctl::ModelInput& input, qimctl::Fate fate) {
  std::vector<std::string> findings;
  for (const qimctl::Finding& finding : input.findings)
    if (finding.fate == fate)
      findings.push_back(std::to_string(finding.place.line) + ": " + finding.place.path + ": " +
                         finding.what);
  return findings;
}

// "name: matches: action" of each entry of a list.
inline std::vector<std::string> entries_of(const qimctl::AccessList& list) {
  std::vector<std::string> entries;
  for (const qimctl::Entry& entry : list.entries)
    entries.push_back(entry.name + ": " + qimctl::criteria_words(entry) + ": " +
                      qimctl::action_words(entry));
  return entries;
}

}  // namespace formats_test
