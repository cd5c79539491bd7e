#include "policy/base/text.h"

#include <algorithm>
#include <utility>

#include "policy/base/names.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

constexpr const char* gap = "  ";

void pad(std::string& text, size_t from, size_t to) {
  if (from < to) text.append(to - from, ' ');
}

std::string scalar_text(const ordered_json& value) {
  if (value.is_string()) {
    const std::string text = printable(value.get<std::string>());
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

// How many bytes the character that begins here takes; 0 when it is not sound UTF-8 (RFC 3629).
size_t character_length(const std::string& text, size_t at) {
  const auto byte = [&text](size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
  };
  const auto follows = [&byte](size_t i) { return (byte(i) & 0xc0u) == 0x80u; };
  const unsigned first = byte(at);
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first < 0xe0 && follows(at + 1)) return 2;
  if ((first & 0xf0u) == 0xe0u && follows(at + 1) && follows(at + 2)) {
    const bool too_long = first == 0xe0 && byte(at + 1) < 0xa0;
    const bool surrogate = first == 0xed && byte(at + 1) >= 0xa0;
    return too_long || surrogate ? 0 : 3;
  }
  const bool in_plane = (first == 0xf0 && byte(at + 1) >= 0x90) || (first > 0xf0 && first < 0xf4) ||
                        (first == 0xf4 && byte(at + 1) < 0x90);
  return in_plane && follows(at + 1) && follows(at + 2) && follows(at + 3) ? 4 : 0;
}

// C0 and C1 controls, DEL, and the escape character itself.
bool is_plain(const std::string& text, size_t at, size_t length) {
  const auto first = static_cast<unsigned char>(text[at]);
  if (length == 1) return first >= 0x20 && first != 0x7f && first != '\\';
  return !(length == 2 && first == 0xc2 && static_cast<unsigned char>(text[at + 1]) < 0xa0);
}

}  // namespace

TextTable::TextTable(std::vector<std::string> head) {
  add(std::move(head));
}

void TextTable::add(std::vector<std::string> row) {
  rows_.push_back(std::move(row));
}

std::string TextTable::text() const {
  std::vector<size_t> widths(rows_.front().size());
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); i++) widths[i] = std::max(widths[i], width_of(row[i]));
  }
  std::string text;
  for (const auto& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); i++) {
      line += (i == 0 ? "" : gap) + row[i];
      if (i + 1 < row.size()) pad(line, width_of(row[i]), widths[i]);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

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
      pad(text, name.size(), widest);
      text += gap + scalar_text(value) + hex_note(value) + "\n";
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

std::string printable(const std::string& text) {
  std::string clean;
  for (size_t at = 0; at < text.size();) {
    const size_t length = character_length(text, at);
    if (length != 0 && is_plain(text, at, length)) {
      clean.append(text, at, length);
      at += length;
    } else {
      clean += "\\x" + hex_bytes(&text[at], 1);
      at++;
    }
  }
  return clean;
}

size_t width_of(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0u) != 0x80u;
  }));
}

}  // namespace qimctl
