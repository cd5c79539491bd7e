// Finds the parts of a JSON Schema that apply to a place in a document, to say what was expected
// there.
//
// It follows what schemas checked in here are made of: $ref into the document, properties,
// patternProperties, items, allOf, and if/then whose condition is made of properties with enum,
// required, anyOf and not.
#pragma once

#include <functional>
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

  // Calls `visit` for every text of the document and every schema that applies to it.
  using Visit = std::function<void(const std::vector<std::string>& path, const std::string& text,
                                   const nlohmann::json& schema)>;
  void each_text(const Visit& visit) const;

  // The value at `path`; NULL when there is none.
  const nlohmann::json* value(const std::vector<std::string>& path) const;

  // Does `value` meet a condition as described above?
  static bool meets(const nlohmann::json& condition, const nlohmann::json& value);

 private:
  using Schemas = std::vector<const nlohmann::json*>;

  Schemas inside(const Schemas& schemas, const nlohmann::json& value, const std::string& step,
                 const nlohmann::json& inner) const;
  void each_text(const Schemas& schemas, const nlohmann::json& value,
                 std::vector<std::string>& path, const Visit& visit) const;
  void add(const nlohmann::json& schema, const nlohmann::json& value,
           std::vector<const nlohmann::json*>& found) const;

  const nlohmann::json& schema_;
  const nlohmann::json& document_;
};

// Is `member` one that the schema names, outright or by a pattern?
const nlohmann::json* member_schema(const nlohmann::json& schema, const std::string& member);

}  // namespace qimctl
