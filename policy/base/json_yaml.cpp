// JSON values as YAML.
#include "policy/base/json_yaml.h"

#include <nlohmann/json.hpp>

#include "policy/base/text.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// Words that some version of YAML takes for a value that is no text.
bool is_reserved(std::string word) {
  for (char& c : word) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  for (const char* other : {"true", "false", "null", "yes", "no", "on", "off", "y", "n"}) {
    if (word == other) return true;
  }
  return false;
}

bool is_plain(const std::string& text) {
  if (text.empty() || !is_letter(text[0]) || is_reserved(text)) return false;
  for (const char c : text) {
    if (!is_letter(c) && !(c >= '0' && c <= '9') && c != '-' && c != '.' && c != '/') return false;
  }
  return true;
}

std::string quoted_or_plain(const ordered_json& value) {
  if (value.is_string() && is_plain(value.get_ref<const std::string&>())) {
    return value.get<std::string>();
  }
  return with_escapes(value.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
}

bool is_block(const ordered_json& value) {
  return value.is_structured() && !value.empty();
}

void write(const ordered_json& value, size_t indent, std::string& text);

void write_element(const ordered_json& value, size_t indent, std::string& text) {
  if (!is_block(value)) {
    text += std::string(indent, ' ') + "- " + quoted_or_plain(value) + "\n";
    return;
  }
  const size_t begin = text.size();
  write(value, indent + 2, text);
  text[begin + indent] = '-';
}

void write(const ordered_json& value, size_t indent, std::string& text) {
  if (!is_block(value)) {
    text += quoted_or_plain(value) + "\n";
    return;
  }
  if (value.is_array()) {
    for (const ordered_json& element : value) write_element(element, indent, text);
    return;
  }
  for (const auto& [name, member] : value.items()) {
    text += std::string(indent, ' ') + quoted_or_plain(ordered_json(name)) + ":";
    text += is_block(member) ? "\n" : " ";
    write(member, indent + 2, text);
  }
}

}  // namespace

std::string to_yaml(const JsonValue& value) {
  std::string text;
  write(value.get(), 0, text);
  return text;
}

std::string to_yaml_element(const JsonValue& value) {
  std::string text;
  write_element(value.get(), 0, text);
  return text;
}

}  // namespace qimctl
