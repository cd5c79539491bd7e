// What is wrong with a document of the native format, in words.
#include "policy/formats/native/native_schema.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "policy/base/json_print.h"
#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/formats/native/schema_walk.h"
#include "policy/formats/native/validator.h"

namespace qimctl {

namespace {

struct NativeSchema {
  JsonDocument text = parse_json(native_schema_text, "the native format's schema");
  Validator whole{text.view()};
  Validator node{text.view(), "node"};
};

// What is wrong with a file of nothing but faults is known long before the last one.
constexpr size_t most_problems = 1000;

const NativeSchema& native_schema() {
  static const NativeSchema schema;
  return schema;
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
std::string quote(JsonView value) {
  constexpr size_t longest = 60;
  if (value.is_object() || value.is_array()) return value.kind();
  const std::string text = value.dump_ascii();
  return text.size() > longest ? text.substr(0, longest) + "..." : text;
}

// Turns the validator's terse findings into problems.
class Explainer {
 public:
  Explainer(JsonView document, const std::string& file)
      : walk_(native_schema().text.view(), document), file_(file) {}

  void add(const Violation& violation) {
    const std::vector<std::string>& path = violation.path;
    const std::string& text = violation.description;
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

  // Explains what a part of the document, the one at `path`, breaks. True when there is something.
  bool check(const Validator& validator, JsonView part, const std::vector<std::string>& path) {
    if (validator.accepts(part)) return false;
    for (Violation& violation : validator.violations(part)) {
      violation.path.insert(violation.path.begin(), path.begin(), path.end());
      add(violation);
    }
    return true;
  }

  void unexpected(const std::vector<std::string>& path) {
    std::vector<std::string> expected;
    for (const JsonView schema : walk_.at(path)) {
      if (schema.find("description")) add_once(expected, described(schema));
    }
    const JsonView value = walk_.value(path);
    const std::string is = value ? "is " + quote(value) : "is wrong";
    report(path, is + (expected.empty() ? "" : "; expected " + join(expected, ", or ")));
  }

  std::vector<Problem> take() { return std::move(problems_); }
  bool is_full() const { return problems_.size() >= most_problems; }

 private:
  void report(const std::vector<std::string>& path, const std::string& message) {
    std::string pointer;
    for (const std::string& step : path) pointer = pointer_to(pointer, step);
    if (is_full() || !said_.insert(pointer + ' ' + message).second) return;
    problems_.push_back({{file_, 0, pointer}, message});
  }

  void missing(const std::vector<std::string>& path) {
    const JsonView value = walk_.value(path);
    for (const JsonView schema : walk_.at(path)) {
      const JsonView required = schema.find("required");
      for (size_t i = 0; required && i < required.size(); i++) {
        if (value.find(required[i].text())) continue;
        report(path, "lacks the member " + required[i].dump() + "; add it");
      }
    }
  }

  void unknown(const std::vector<std::string>& path) {
    for (const JsonView schema : walk_.at(path)) {
      const JsonView closed = schema.find("additionalProperties");
      if (!closed || !closed.is_false()) continue;
      walk_.value(path).each([&](const std::string& name, JsonView) {
        if (member_schema(schema, name)) return;
        std::vector<std::string> inner = path;
        inner.push_back(name);
        report(inner, "is no member known here; " + known_members(schema));
      });
    }
  }

  static std::string known_members(JsonView schema) {
    if (schema.find("patternProperties")) return "expected " + described(schema);
    std::vector<std::string> names;
    schema.at("properties").each([&names](const std::string& name, JsonView) {
      names.push_back(name);
    });
    if (names.empty()) return "nothing may stand here; remove it";
    return "known are " + join(names, ", ");
  }

  void forbidden(const std::vector<std::string>& path) {
    for (const JsonView schema : walk_.at(path)) {
      if (schema.find("not") && !SchemaWalk::meets(schema, walk_.value(path))) {
        report(path, described(schema));
      }
    }
  }

  static std::string described(JsonView schema) {
    const JsonView description = schema.find("description");
    return description ? description.text() : "something else";
  }

  SchemaWalk walk_;
  const std::string& file_;
  std::vector<Problem> problems_;
  std::unordered_set<std::string> said_;
};

// The document without its nodes, which are looked at one by one.
std::string frame_of(JsonView document) {
  if (!document.is_object()) return document.is_array() ? "[]" : document.dump();
  std::string text = "{";
  for (const auto& [name, member] : document.members()) {
    text += (text.size() == 1 ? "" : ",") + json_string(name) + ":";
    text += name == "nodes" && member.is_array() ? "[]" : member.dump();
  }
  return text + "}";
}

// What the document breaks of everything but the encoding of its texts.
std::vector<Problem> broken_rules(JsonView document, const std::string& file) {
  Explainer explainer(document, file);
  const JsonDocument frame = parse_json(frame_of(document), file);
  bool broken = explainer.check(native_schema().whole, frame.view(), {});
  const JsonView nodes = document.find("nodes");
  const size_t count = nodes && nodes.is_array() ? nodes.size() : 0;
  size_t at = 0;
  for (; at < count && !explainer.is_full(); at++)
    broken |= explainer.check(native_schema().node, nodes[at], {"nodes", std::to_string(at)});
  std::vector<Problem> problems = explainer.take();
  if (broken && problems.empty())
    problems.push_back({{file, 0, ""}, "does not follow the native format's schema"});
  if (at < count)
    problems.push_back({{file, 0, pointer_to("/nodes", at)},
                        "and " + counted(count - at, "node") +
                            " from here on were not looked at, after so many problems"});
  return problems;
}

// Texts that should be bytes in base 16 (RFC 4648) and are not. The validator leaves this to its
// user. A pattern could say it as well, but matching one takes stack in proportion to the text.
std::vector<Problem> broken_encodings(JsonView document, const std::string& file) {
  Explainer explainer(document, file);
  SchemaWalk(native_schema().text.view(), document)
      .each_text([&explainer](const std::vector<std::string>& path, const std::string& text,
                              JsonView schema) {
        const JsonView encoding = schema.find("contentEncoding");
        const bool is_encoded = encoding && encoding.is("base16");
        if (is_encoded && !bytes_from_hex(text)) explainer.unexpected(path);
      });
  return explainer.take();
}

}  // namespace

std::vector<Problem> check_native_schema(JsonView document, const std::string& file) {
  std::vector<Problem> problems = broken_rules(document, file);
  return problems.empty() ? broken_encodings(document, file) : problems;
}

}  // namespace qimctl
