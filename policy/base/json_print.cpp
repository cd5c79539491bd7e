// JSON written value by value.
#include "policy/base/json_print.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "policy/base/eight_bytes.h"
#include "policy/base/text.h"

namespace qimctl {

namespace {

constexpr std::string_view digits = "0123456789abcdef";

constexpr size_t whole_piece = 1 << 20;
constexpr size_t longest_line = 4096;  // that is common

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

// Where the first character from `at` on stands that may need an escape, or the end.
size_t skip_plain(std::string_view text, size_t at) {
  for (; at + EightBytes::size <= text.size(); at += EightBytes::size) {
    const EightBytes bytes(text.data() + at);
    if (bytes.may_have_below(0x20) || bytes.may_have('"') || bytes.may_have('\\')) break;
  }
  return at;
}

}  // namespace

void append_json_string(std::string& to, std::string_view text) {
  to += '"';
  size_t done = 0;
  for (size_t i = skip_plain(text, 0); i < text.size(); i++) {
    const char c = text[i];
    const bool control = static_cast<unsigned char>(c) < 0x20;
    if (!control && c != '"' && c != '\\') continue;
    to.append(text, done, i - done);
    done = i + 1;
    to += '\\';
    if (const char escape = short_escape(c)) {
      to += escape;
    } else {
      to += "u00";
      to += digits[static_cast<unsigned char>(c) >> 4];
      to += digits[static_cast<unsigned char>(c) & 15];
    }
  }
  to.append(text, done, text.size() - done);
  to += '"';
}

std::string json_string(std::string_view text) {
  std::string json;
  append_json_string(json, text);
  return json;
}

JsonPrinter& JsonPrinter::open(char bracket) {
  begin();
  text_ += bracket;
  closing_ += bracket == '{' ? '}' : ']';
  empty_ = true;
  return *this;
}

JsonPrinter& JsonPrinter::close() {
  const char bracket = closing_.back();
  closing_.pop_back();
  if (!std::exchange(empty_, false)) next_line();
  text_ += bracket;
  return *this;
}

JsonPrinter& JsonPrinter::text(std::string_view value) {
  begin();
  append_json_string(text_, value);
  return *this;
}

JsonPrinter& JsonPrinter::number(uint64_t value) {
  return json(std::to_string(value));
}

JsonPrinter& JsonPrinter::json(std::string_view value) {
  begin();
  text_ += value;
  return *this;
}

JsonPrinter& JsonPrinter::member(std::string_view name) {
  text(name);
  text_ += ": ";
  named_ = true;
  return *this;
}

JsonPrinter JsonPrinter::part(size_t levels) const {
  JsonPrinter part;
  part.closing_.assign(closing_.size() + levels, ']');
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

void JsonPrinter::begin() {
  if (std::exchange(named_, false) || closing_.empty()) return;
  if (!std::exchange(empty_, false)) text_ += ',';
  next_line();
}

void JsonPrinter::next_line() {
  if (text_.size() >= whole_piece) {
    before_.push_back(std::move(text_));
    text_ = std::string();
    text_.reserve(whole_piece + longest_line);
  }
  text_ += '\n';
  text_.append(2 * closing_.size(), ' ');
}

}  // namespace qimctl
