// The validator of JSON Schemas, and the regular expressions that schemas are written with.
#include "policy/formats/native/validator.h"

#include <nlohmann/json.hpp>
#include <regex>
#include <unordered_map>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

namespace qimctl {

namespace {

using nlohmann::json;
using valijson::adapters::NlohmannJsonAdapter;

// Says of objects whose members are named by patterns the same in a way that the validator checks
// faster: it compiles the expressions of patternProperties for every object, that of a name once.
class FasterSchema {
 public:
  explicit FasterSchema(const json& schema) : schema_(schema) {
    visit(schema_);
    // The validator takes a schema of names that stands in its place for the object's own.
    schema_["definitions"].update(names_);
  }
  const json& get() const { return schema_; }

 private:
  void visit(json& part) {
    for (json& inner : part) {
      if (inner.is_structured()) visit(inner);
    }
    const bool closed = part.is_object() && part.value("additionalProperties", json()) == false;
    if (closed && part.contains("patternProperties") && !part.contains("properties")) {
      name_members(part);
    }
  }

  // Patterns that lead to different schemas stay.
  void name_members(json& part) {
    const json& patterns = part.at("patternProperties");
    const json inner = patterns.front();
    std::string pattern;
    for (const auto& [one, schema] : patterns.items()) {
      if (schema != inner) return;
      pattern += (pattern.empty() ? "(" : "|(") + one + ")";
    }
    const std::string name = "names-" + std::to_string(names_.size());
    names_[name] = {{"pattern", pattern}};
    part.erase("patternProperties");
    part["propertyNames"] = {{"$ref", "#/definitions/" + name}};
    part["additionalProperties"] = inner;
  }

  json schema_;
  json names_ = json::object();
};

// {"<root>", "[nodes]", "[3]"} -> {"nodes", "3"}
std::vector<std::string> steps_of(const std::vector<std::string>& context) {
  std::vector<std::string> steps;
  for (size_t i = 1; i < context.size(); i++) {
    steps.push_back(context[i].substr(1, context[i].size() - 2));
  }
  return steps;
}

// As the validator's library has it.
json to_library(JsonView value) {
  if (value.is_string()) return value.text();
  if (value.is_object()) {
    json object = json::object();
    for (const auto& [name, member] : value.members())
      object[std::string(name)] = to_library(member);
    return object;
  }
  if (value.is_array()) {
    json array = json::array();
    for (size_t i = 0; i < value.size(); i++) array.push_back(to_library(value[i]));
    return array;
  }
  return json::parse(value.spelled());
}

}  // namespace

struct Validator::Compiled {
  valijson::Schema exact;
  valijson::Schema fast;  // the same; what it finds fault with, only `exact` can explain
};

Validator::Validator(JsonView schema, const std::string& definition)
    : compiled_(std::make_unique<Compiled>()) {
  json exact = to_library(schema);
  if (!definition.empty())
    exact = {{"definitions", exact.at("definitions")},
             {"allOf", json::array({{{"$ref", "#/definitions/" + definition}}})}};
  valijson::SchemaParser().populateSchema(NlohmannJsonAdapter(exact), compiled_->exact);
  const FasterSchema faster(exact);
  valijson::SchemaParser().populateSchema(NlohmannJsonAdapter(faster.get()), compiled_->fast);
}

Validator::~Validator() = default;

bool Validator::accepts(JsonView document) const {
  const json value = to_library(document);
  return valijson::Validator().validate(compiled_->fast, NlohmannJsonAdapter(value), nullptr);
}

std::vector<Violation> Validator::violations(JsonView document) const {
  const json value = to_library(document);
  valijson::ValidationResults results;
  valijson::Validator().validate(compiled_->exact, NlohmannJsonAdapter(value), &results);
  std::vector<Violation> found;
  for (const auto& error : results) found.push_back({steps_of(error.context), error.description});
  return found;
}

bool matches_pattern(const std::string& text, const std::string& pattern) {
  // Compiling an expression costs a thousand times what a search with it does; a schema has few.
  static std::unordered_map<std::string, std::regex> all;
  auto at = all.find(pattern);
  if (at == all.end()) at = all.emplace(pattern, pattern).first;
  return std::regex_search(text, at->second);
}

}  // namespace qimctl
