// Finds the parts of a JSON Schema that apply to a place in a document, to say what was expected
// there.
//
// It follows what schemas checked in here are made of: $ref into the document, properties,
// patternProperties, items, allOf, and if/then whose condition is made of properties with enum,
// required, anyOf and not.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "policy/base/json.h"

namespace qimctl {

class SchemaWalk {
 public:
  // Both must outlive the walk.
  SchemaWalk(JsonView schema, JsonView document);

  // The schemas that apply to the value at `path` (member names and indices from the root down).
  std::vector<JsonView> at(const std::vector<std::string>& path) const;

  // Calls `visit` for every text of the document and every schema that applies to it.
  using Visit = std::function<void(const std::vector<std::string>& path, const std::string& text,
                                   JsonView schema)>;
  void each_text(const Visit& visit) const;

  // The value at `path`; none when there is none.
  JsonView value(const std::vector<std::string>& path) const;

  // Does `value` meet a condition as described above?
  static bool meets(JsonView condition, JsonView value);

 private:
  using Schemas = std::vector<JsonView>;

  Schemas inside(const Schemas& schemas, JsonView value, const std::string& step,
                 JsonView inner) const;
  void each_text(const Schemas& schemas, JsonView value, std::vector<std::string>& path,
                 const Visit& visit) const;
  void add(JsonView schema, JsonView value, std::vector<JsonView>& found) const;

  JsonView schema_;
  JsonView document_;
};

// Is `member` one that the schema names, outright or by a pattern?
JsonView member_schema(JsonView schema, const std::string& member);

}  // namespace qimctl
