// JSON laid out for reading.
#include "policy/base/json_layout.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "policy/base/names.h"
#include "policy/base/text.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

constexpr const char* gap = "  ";

std::string scalar_text(const ordered_json& value) {
  if (value.is_string()) {
    const std::string text = harmless(value.get<std::string>());
    return text.empty() ? "-" : text;
  }
  return value.dump();
}

// Behind a number: the same in hexadecimal, which flags and codes are known by.
std::string hex_note(const ordered_json& value) {
  constexpr uint64_t plain = 9999;
  if (!value.is_number_unsigned() || value <= plain) return "";
  return " (" + hex_number(value.get<uint64_t>(), 1) + ")";
}

std::string list_text(const ordered_json& list, size_t indent) {
  std::string text;
  for (const ordered_json& element : list) {
    text += std::string(indent, ' ') + inline_text(element, gap) + "\n";
  }
  return text;
}

}  // namespace

std::string layout(const ordered_json& object, size_t indent) {
  size_t widest = 0;
  for (const auto& [name, value] : object.items()) {
    if (!value.is_structured()) widest = std::max(widest, name.size());
  }
  std::string text;
  for (const auto& [name, value] : object.items()) {
    text += std::string(indent, ' ') + name;
    if (value.is_object()) {
      text += "\n" + layout(value, indent + 2);
    } else if (value.is_array()) {
      text += value.empty() ? " -\n" : "\n" + list_text(value, indent + 2);
    } else {
      text += std::string(widest - name.size(), ' ') + gap + scalar_text(value) + hex_note(value) +
              "\n";
    }
  }
  return text;
}

std::string inline_text(const ordered_json& value, const char* separator) {
  if (!value.is_object()) return scalar_text(value);
  std::string text;
  for (const auto& [name, member] : value.items()) {
    if (!text.empty()) text += separator;
    text += name + " " + inline_text(member);
  }
  return text;
}

}  // namespace qimctl
