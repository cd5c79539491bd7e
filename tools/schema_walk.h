// Finds the parts of a JSON Schema that apply to a place in a document, to say what was expected there.
//
// It follows what schemas checked in here are made of: $ref into the document, properties, patternProperties, items,
// allOf, and if/then whose condition is made of properties with enum, required, anyOf and not.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace qimctl {

class SchemaWalk {
 public:
  // Both must outlive the walk.
  SchemaWalk(const nlohmann::json& schema, const nlohmann::json& document);

  // The schemas that apply to the value at `path` (member names and indices from the root down).
  std::vector<const nlohmann::json*> at(const std::vector<std::string>& path) const;

  // The value at `path`; NULL when there is none.
  const nlohmann::json* value(const std::vector<std::string>& path) const;

  // Does `value` meet a condition as described above?
  static bool meets(const nlohmann::json& condition, const nlohmann::json& value);

 private:
  void add(const nlohmann::json& schema, const nlohmann::json& value,
           std::vector<const nlohmann::json*>& found) const;

  const nlohmann::json& schema_;
  const nlohmann::json& document_;
};

// Is `member` one that the schema names, outright or by a pattern?
const nlohmann::json* member_schema(const nlohmann::json& schema, const std::string& member);

}  // namespace qimctl
