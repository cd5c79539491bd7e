#include "policy/formats/native/native_schema.h"

#include <algorithm>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/formats/native/schema_walk.h"

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

struct NativeSchema {
  json text = json::parse(native_schema_text);
  valijson::Schema compiled;
  valijson::Schema fast;  // the same; what it finds fault with, only `compiled` can explain

  NativeSchema() {
    valijson::SchemaParser().populateSchema(NlohmannJsonAdapter(text), compiled);
    const FasterSchema faster(text);
    valijson::SchemaParser().populateSchema(NlohmannJsonAdapter(faster.get()), fast);
  }
};

const NativeSchema& native_schema() {
  static const NativeSchema schema;
  return schema;
}

// {"<root>", "[nodes]", "[3]"} -> {"nodes", "3"}
std::vector<std::string> steps_of(const std::vector<std::string>& context) {
  std::vector<std::string> steps;
  for (size_t i = 1; i < context.size(); i++) {
    steps.push_back(context[i].substr(1, context[i].size() - 2));
  }
  return steps;
}

std::string join(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const std::string& part : parts) {
    if (!text.empty()) text += separator;
    text += part;
  }
  return text;
}

void add_once(std::vector<std::string>& parts, const std::string& part) {
  if (std::find(parts.begin(), parts.end(), part) == parts.end()) parts.push_back(part);
}

// A value as a message quotes it.
std::string quote(const json& value) {
  constexpr size_t longest = 60;
  std::string text = value.is_object()  ? "an object"
                     : value.is_array() ? "an array"
                                        : value.dump(-1, ' ', true, json::error_handler_t::replace);
  if (text.size() > longest) text = text.substr(0, longest) + "...";
  return text;
}

// Turns the validator's terse findings into problems.
class Explainer {
 public:
  Explainer(const json& document, const std::string& file)
      : walk_(native_schema().text, document), file_(file) {}

  void add(const valijson::ValidationResults::Error& error) {
    const std::vector<std::string> path = steps_of(error.context);
    const std::string& text = error.description;
    if (text.starts_with("Failed to validate")) return;  // says only that something inside is wrong
    if (text.starts_with("Missing required property")) {
      missing(path);
    } else if (text.starts_with("Object contains a property")) {
      unknown(path);
    } else if (text.starts_with("Target should not validate")) {
      forbidden(path);
    } else {
      unexpected(path);
    }
  }

  void unexpected(const std::vector<std::string>& path) {
    std::vector<std::string> expected;
    for (const json* schema : walk_.at(path)) {
      if (schema->contains("description")) add_once(expected, described(*schema));
    }
    const json* value = walk_.value(path);
    const std::string is = value == nullptr ? "is wrong" : "is " + quote(*value);
    report(path, is + (expected.empty() ? "" : "; expected " + join(expected, ", or ")));
  }

  std::vector<Problem> take() { return std::move(problems_); }

 private:
  void report(const std::vector<std::string>& path, const std::string& message) {
    std::string pointer;
    for (const std::string& step : path) pointer = pointer_to(pointer, step);
    for (const Problem& problem : problems_) {
      if (problem.place.path == pointer && problem.message == message) return;
    }
    problems_.push_back({{file_, 0, pointer}, message});
  }

  void missing(const std::vector<std::string>& path) {
    const json& value = *walk_.value(path);
    for (const json* schema : walk_.at(path)) {
      if (!schema->contains("required")) continue;
      for (const json& name : (*schema)["required"]) {
        if (!value.contains(name.get<std::string>())) {
          report(path, "lacks the member " + name.dump() + "; add it");
        }
      }
    }
  }

  void unknown(const std::vector<std::string>& path) {
    for (const json* schema : walk_.at(path)) {
      const auto closed = schema->find("additionalProperties");
      if (closed == schema->end() || *closed != false) continue;
      for (const auto& [name, member] : walk_.value(path)->items()) {
        if (member_schema(*schema, name) != nullptr) continue;
        std::vector<std::string> inner = path;
        inner.push_back(name);
        report(inner, "is no member known here; " + known_members(*schema));
      }
    }
  }

  static std::string known_members(const json& schema) {
    if (schema.contains("patternProperties")) return "expected " + described(schema);
    std::vector<std::string> names;
    for (const auto& [name, inner] : schema.at("properties").items()) names.push_back(name);
    if (names.empty()) return "nothing may stand here; remove it";
    return "known are " + join(names, ", ");
  }

  void forbidden(const std::vector<std::string>& path) {
    for (const json* schema : walk_.at(path)) {
      if (schema->contains("not") && !SchemaWalk::meets(*schema, *walk_.value(path))) {
        report(path, described(*schema));
      }
    }
  }

  static std::string described(const json& schema) {
    return schema.value("description", std::string("something else"));
  }

  SchemaWalk walk_;
  const std::string& file_;
  std::vector<Problem> problems_;
};

// What the document breaks of everything but the encoding of its texts.
std::vector<Problem> broken_rules(const json& document, const std::string& file) {
  valijson::Validator validator;
  const NlohmannJsonAdapter adapter(document);
  if (validator.validate(native_schema().fast, adapter, nullptr)) return {};

  valijson::ValidationResults results;
  validator.validate(native_schema().compiled, adapter, &results);
  Explainer explainer(document, file);
  for (const auto& error : results) explainer.add(error);
  std::vector<Problem> problems = explainer.take();
  if (problems.empty()) {
    problems.push_back({{file, 0, ""}, "does not follow the native format's schema"});
  }
  return problems;
}

// Texts that should be bytes in base 16 (RFC 4648) and are not. The validator leaves this to its
// user. A pattern could say it as well, but matching one takes stack in proportion to the text.
std::vector<Problem> broken_encodings(const json& document, const std::string& file) {
  Explainer explainer(document, file);
  SchemaWalk(native_schema().text, document)
      .each_text([&explainer](const std::vector<std::string>& path, const std::string& text,
                              const json& schema) {
        const bool is_encoded = schema.value("contentEncoding", "") == "base16";
        if (is_encoded && !bytes_from_hex(text)) explainer.unexpected(path);
      });
  return explainer.take();
}

}  // namespace

std::vector<Problem> check_native_schema(const json& document, const std::string& file) {
  std::vector<Problem> problems = broken_rules(document, file);
  return problems.empty() ? broken_encodings(document, file) : problems;
}

}  // namespace qimctl
