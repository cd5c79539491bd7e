// The validator of JSON Schemas, and the regular expressions that schemas are written with. No other
// source sees either.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "policy/base/json.h"

namespace qimctl {

// One thing that breaks a schema, in the validator's words.
struct Violation {
  std::vector<std::string> path;  // member names and indices from the root down
  std::string description;
};

class Validator {
 public:
  // Of all that follows `schema`, or only of what follows one of its definitions.
  explicit Validator(JsonView schema, const std::string& definition = "");
  ~Validator();
  Validator(const Validator&) = delete;
  Validator& operator=(const Validator&) = delete;

  bool accepts(JsonView document) const;
  // What it refuses a document for. A document costs memory many times its size here: validate it
  // by its parts.
  std::vector<Violation> violations(JsonView document) const;

 private:
  struct Compiled;
  std::unique_ptr<Compiled> compiled_;
};

// Is there something in `text` that the expression matches?
bool matches_pattern(const std::string& text, const std::string& pattern);

}  // namespace qimctl
