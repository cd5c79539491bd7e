// Finding the parts of a JSON Schema that apply to a place in a document.
#include "policy/formats/native/schema_walk.h"

#include "policy/formats/native/validator.h"

namespace qimctl {

namespace {

JsonView child(JsonView value, const std::string& step) {
  if (value.is_object()) return value.find(step);
  if (!value.is_array() || step.empty() || step.find_first_not_of("0123456789") != step.npos) {
    return {};
  }
  const size_t index = std::stoul(step);
  return index < value.size() ? value[index] : JsonView();
}

bool has_all(JsonView names, JsonView value) {
  for (size_t i = 0; i < names.size(); i++) {
    if (!value.find(names[i].text())) return false;
  }
  return true;
}

bool among(JsonView choices, JsonView value) {
  for (size_t i = 0; i < choices.size(); i++) {
    if (choices[i] == value) return true;
  }
  return false;
}

bool properties_met(JsonView properties, JsonView value) {
  bool met = true;
  properties.each([&](const std::string& name, JsonView condition) {
    const JsonView member = child(value, name);
    if (member && !SchemaWalk::meets(condition, member)) met = false;
  });
  return met;
}

bool any_met(JsonView conditions, JsonView value) {
  for (size_t i = 0; i < conditions.size(); i++) {
    if (SchemaWalk::meets(conditions[i], value)) return true;
  }
  return false;
}

// What "#/definitions/name" stands for.
JsonView resolve(JsonView root, const std::string& reference) {
  JsonView part = root;
  for (size_t at = reference.find('/'); at != reference.npos;) {
    const size_t end = reference.find('/', at + 1);
    part = part.at(reference.substr(at + 1, end == reference.npos ? end : end - at - 1));
    at = end;
  }
  return part;
}

}  // namespace

JsonView member_schema(JsonView schema, const std::string& member) {
  const JsonView properties = schema.find("properties");
  JsonView found = properties ? properties.find(member) : JsonView();
  const JsonView patterns = schema.find("patternProperties");
  if (found || !patterns) return found;
  patterns.each([&](const std::string& pattern, JsonView inner) {
    if (!found && matches_pattern(member, pattern)) found = inner;
  });
  return found;
}

SchemaWalk::SchemaWalk(JsonView schema, JsonView document) : schema_(schema), document_(document) {}

bool SchemaWalk::meets(JsonView condition, JsonView value) {
  const JsonView choices = condition.find("enum");
  if (choices && !among(choices, value)) return false;
  const JsonView required = condition.find("required");
  if (required && !has_all(required, value)) return false;
  const JsonView properties = condition.find("properties");
  if (properties && !properties_met(properties, value)) return false;
  const JsonView forbidden = condition.find("not");
  if (forbidden && meets(forbidden, value)) return false;
  const JsonView any = condition.find("anyOf");
  return !any || any_met(any, value);
}

void SchemaWalk::add(JsonView schema, JsonView value, std::vector<JsonView>& found) const {
  if (const JsonView reference = schema.find("$ref")) {
    add(resolve(schema_, reference.text()), value, found);
    return;
  }
  found.push_back(schema);
  const JsonView all = schema.find("allOf");
  for (size_t i = 0; all && i < all.size(); i++) add(all[i], value, found);
  const JsonView condition = schema.find("if");
  const JsonView consequence = schema.find("then");
  if (condition && consequence && meets(condition, value)) add(consequence, value, found);
}

// The schemas of a part of a value that `schemas` apply to.
SchemaWalk::Schemas SchemaWalk::inside(const Schemas& schemas, JsonView value,
                                       const std::string& step, JsonView inner) const {
  Schemas found;
  for (const JsonView schema : schemas) {
    const JsonView items = value.is_array() ? schema.find("items") : JsonView();
    const JsonView part = items ? items : member_schema(schema, step);
    if (part) add(part, inner, found);
  }
  return found;
}

void SchemaWalk::each_text(const Visit& visit) const {
  Schemas found;
  add(schema_, document_, found);
  std::vector<std::string> path;
  each_text(found, document_, path, visit);
}

void SchemaWalk::each_text(const Schemas& schemas, JsonView value, std::vector<std::string>& path,
                           const Visit& visit) const {
  if (schemas.empty()) return;
  if (value.is_string()) {
    for (const JsonView schema : schemas) visit(path, value.text(), schema);
    return;
  }
  value.each([&](const std::string& step, JsonView inner) {
    if (!inner.is_object() && !inner.is_array() && !inner.is_string()) return;
    path.push_back(step);
    each_text(inside(schemas, value, step, inner), inner, path, visit);
    path.pop_back();
  });
}

std::vector<JsonView> SchemaWalk::at(const std::vector<std::string>& path) const {
  std::vector<JsonView> found;
  JsonView value = document_;
  add(schema_, value, found);
  for (const std::string& step : path) {
    const JsonView inner = child(value, step);
    if (!inner) return {};
    found = inside(found, value, step, inner);
    value = inner;
  }
  return found;
}

JsonView SchemaWalk::value(const std::vector<std::string>& path) const {
  JsonView value = document_;
  for (const std::string& step : path) {
    value = child(value, step);
    if (!value) return {};
  }
  return value;
}

}  // namespace qimctl
