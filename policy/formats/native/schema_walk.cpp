#include "policy/formats/native/schema_walk.h"

#include <algorithm>
#include <regex>
#include <unordered_map>

namespace qimctl {

namespace {

using nlohmann::json;

const json* child(const json& value, const std::string& step) {
  if (value.is_object()) {
    const auto found = value.find(step);
    return found == value.end() ? nullptr : &*found;
  }
  if (!value.is_array() || step.empty() || step.find_first_not_of("0123456789") != step.npos) {
    return nullptr;
  }
  const size_t index = std::stoul(step);
  return index < value.size() ? &value[index] : nullptr;
}

bool has_all(const json& names, const json& value) {
  return std::all_of(names.begin(), names.end(), [&value](const json& name) {
    return value.is_object() && value.contains(name.get<std::string>());
  });
}

bool among(const json& choices, const json& value) {
  return std::find(choices.begin(), choices.end(), value) != choices.end();
}

bool properties_met(const json& properties, const json& value) {
  for (const auto& [name, condition] : properties.items()) {
    const json* member = child(value, name);
    if (member != nullptr && !SchemaWalk::meets(condition, *member)) return false;
  }
  return true;
}

// Compiling an expression costs a thousand times what a search with it does; a schema has few.
const std::regex& compiled(const std::string& pattern) {
  static std::unordered_map<std::string, std::regex> all;
  const auto at = all.find(pattern);
  return at != all.end() ? at->second : all.emplace(pattern, pattern).first->second;
}

}  // namespace

const json* member_schema(const json& schema, const std::string& member) {
  const auto properties = schema.find("properties");
  if (properties != schema.end() && properties->contains(member)) return &properties->at(member);
  const auto patterns = schema.find("patternProperties");
  if (patterns == schema.end()) return nullptr;
  for (const auto& [pattern, inner] : patterns->items()) {
    if (std::regex_search(member, compiled(pattern))) return &inner;
  }
  return nullptr;
}

SchemaWalk::SchemaWalk(const json& schema, const json& document)
    : schema_(schema), document_(document) {}

bool SchemaWalk::meets(const json& condition, const json& value) {
  if (condition.contains("enum") && !among(condition["enum"], value)) return false;
  if (condition.contains("required") && !has_all(condition["required"], value)) return false;
  if (condition.contains("properties") && !properties_met(condition["properties"], value)) {
    return false;
  }
  if (condition.contains("not") && meets(condition["not"], value)) return false;
  if (!condition.contains("anyOf")) return true;
  const json& any = condition["anyOf"];
  return std::any_of(any.begin(), any.end(),
                     [&value](const json& one) { return meets(one, value); });
}

void SchemaWalk::add(const json& schema, const json& value, std::vector<const json*>& found) const {
  if (schema.contains("$ref")) {
    const std::string target = schema["$ref"].get<std::string>().substr(1);
    add(schema_.at(json::json_pointer(target)), value, found);
    return;
  }
  found.push_back(&schema);
  if (schema.contains("allOf")) {
    for (const json& part : schema["allOf"]) add(part, value, found);
  }
  if (schema.contains("if") && schema.contains("then") && meets(schema["if"], value)) {
    add(schema["then"], value, found);
  }
}

// The schemas of a part of a value that `schemas` apply to.
SchemaWalk::Schemas SchemaWalk::inside(const Schemas& schemas, const json& value,
                                       const std::string& step, const json& inner) const {
  Schemas found;
  for (const json* schema : schemas) {
    const json* part = value.is_array() && schema->contains("items") ? &(*schema)["items"]
                                                                     : member_schema(*schema, step);
    if (part != nullptr) add(*part, inner, found);
  }
  return found;
}

void SchemaWalk::each_text(const Visit& visit) const {
  Schemas found;
  add(schema_, document_, found);
  std::vector<std::string> path;
  each_text(found, document_, path, visit);
}

void SchemaWalk::each_text(const Schemas& schemas, const json& value,
                           std::vector<std::string>& path, const Visit& visit) const {
  if (schemas.empty()) return;
  if (value.is_string()) {
    for (const json* schema : schemas) visit(path, value.get_ref<const std::string&>(), *schema);
    return;
  }
  for (const auto& [step, inner] : value.items()) {
    if (!inner.is_structured() && !inner.is_string()) continue;
    path.push_back(step);
    each_text(inside(schemas, value, step, inner), inner, path, visit);
    path.pop_back();
  }
}

std::vector<const json*> SchemaWalk::at(const std::vector<std::string>& path) const {
  std::vector<const json*> found;
  const json* value = &document_;
  add(schema_, *value, found);
  for (const std::string& step : path) {
    const json* inner = child(*value, step);
    if (inner == nullptr) return {};
    found = inside(found, *value, step, *inner);
    value = inner;
  }
  return found;
}

const json* SchemaWalk::value(const std::vector<std::string>& path) const {
  const json* value = &document_;
  for (const std::string& step : path) {
    value = child(*value, step);
    if (value == nullptr) return nullptr;
  }
  return value;
}

}  // namespace qimctl
