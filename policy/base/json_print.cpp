// JSON written value by value.
#include "policy/base/json_print.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "policy/base/eight_bytes.h"
#include "policy/base/text.h"

namespace qimctl {

namespace {

constexpr std::string_view digits = "0123456789abcdef";

constexpr size_t whole_piece = 1 << 20;
constexpr size_t longest_line = 4096;  // that is common
constexpr std::string_view indent = "  ";

// Behind a backslash; NUL for what needs none.
char short_escape(char c) {
  switch (c) {
    case '"':
    case '\\':
      return c;
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return '\0';
  }
}

constexpr bool needs_escape(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\';
}

// Nearly all texts are plain.
bool is_plain(std::string_view text) {
  size_t at = 0;
  for (; at + EightBytes::size <= text.size(); at += EightBytes::size) {
    const EightBytes bytes(text.data() + at);
    if (bytes.may_have_below(0x20) || bytes.may_have('"') || bytes.may_have('\\')) break;
  }
  return std::none_of(text.begin() + at, text.end(), [](char c) { return needs_escape(c); });
}

void append_escaped(std::string& to, char c) {
  to += '\\';
  if (const char escape = short_escape(c)) {
    to += escape;
    return;
  }
  to += "u00";
  to += digits[static_cast<unsigned char>(c) >> 4];
  to += digits[static_cast<unsigned char>(c) & 15];
}

// A plain text in quotes, between what stands around it, in one go where it is short: most are, and a
// document has very many.
void append_plain(std::string& to, std::string_view before, std::string_view text,
                  std::string_view behind) {
  std::array<char, 128> room;
  const size_t size = before.size() + text.size() + 2 + behind.size();
  if (size > room.size()) {
    to.append(before).append(1, '"').append(text).append(1, '"').append(behind);
    return;
  }
  char* end = std::copy(before.begin(), before.end(), room.data());
  *end++ = '"';
  end = std::copy(text.begin(), text.end(), end);
  *end++ = '"';
  std::copy(behind.begin(), behind.end(), end);
  to.append(room.data(), size);
}

void append_string(std::string& to, std::string_view before, std::string_view text,
                   std::string_view behind) {
  if (is_plain(text)) return append_plain(to, before, text, behind);
  to.append(before).append(1, '"');
  size_t done = 0;
  for (size_t i = 0; i < text.size(); i++) {
    if (!needs_escape(text[i])) continue;
    to.append(text, done, i - done);
    append_escaped(to, text[i]);
    done = i + 1;
  }
  to.append(text, done).append(1, '"').append(behind);
}

}  // namespace

void append_json_string(std::string& to, std::string_view text) {
  append_string(to, "", text, "");
}

std::string json_string(std::string_view text) {
  std::string json;
  append_json_string(json, text);
  return json;
}

JsonPrinter& JsonPrinter::open(char bracket) {
  text_ += begin();
  text_ += bracket;
  closing_ += bracket == '{' ? '}' : ']';
  line_start_ += indent;
  empty_ = true;
  return *this;
}

JsonPrinter& JsonPrinter::close() {
  const char bracket = closing_.back();
  closing_.pop_back();
  line_start_.resize(line_start_.size() - indent.size());
  if (!std::exchange(empty_, false)) text_.append(line_start_, 1);
  text_ += bracket;
  return *this;
}

JsonPrinter& JsonPrinter::text(std::string_view value) {
  append_string(text_, begin(), value, "");
  return *this;
}

JsonPrinter& JsonPrinter::number(uint64_t value) {
  return json(std::to_string(value));
}

JsonPrinter& JsonPrinter::json(std::string_view value) {
  text_ += begin();
  text_ += value;
  return *this;
}

JsonPrinter& JsonPrinter::member(std::string_view name) {
  append_string(text_, begin(), name, ": ");
  named_ = true;
  return *this;
}

JsonPrinter JsonPrinter::part(size_t levels) const {
  JsonPrinter part;
  part.closing_.assign(closing_.size() + levels, ']');
  for (size_t i = 0; i < part.closing_.size(); i++) part.line_start_ += indent;
  return part;
}

JsonPrinter& JsonPrinter::elements(JsonPrinter&& part) {
  if (part.before_.empty()) {
    text_ += part.text_;
  } else {
    before_.push_back(std::move(text_));
    std::move(part.before_.begin(), part.before_.end(), std::back_inserter(before_));
    text_ = std::move(part.text_);
  }
  empty_ = part.empty_;
  return *this;
}

std::string JsonPrinter::take() {
  return joined(take_pieces());
}

std::vector<std::string> JsonPrinter::take_pieces() {
  text_ += '\n';
  before_.push_back(std::move(text_));
  return std::move(before_);
}

std::string_view JsonPrinter::begin() {
  if (std::exchange(named_, false) || closing_.empty()) return {};
  const std::string_view line_start = line_start_;
  if (std::exchange(empty_, false)) return line_start.substr(1);
  if (text_.size() >= whole_piece) {
    before_.push_back(std::move(text_));
    text_ = std::string();
    text_.reserve(whole_piece + longest_line);
  }
  return line_start;
}

}  // namespace qimctl
