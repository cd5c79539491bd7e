// Reading one value of the model at a time.
#include "policy/formats/rfc8519/input.h"

#include <algorithm>
#include <utility>

#include "policy/base/json_text.h"
#include "policy/base/names.h"

namespace qimctl::rfc8519 {

namespace {

constexpr std::string_view own_prefix = "ietf-access-control-list:";

// The value of a base64 digit (RFC 4648 section 4), 64 for any other character.
uint32_t base64_digit(char c) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const size_t at = digits.find(c);
  return at == std::string_view::npos ? 64 : static_cast<uint32_t>(at);
}

// Padding is required, and the bits that it leaves over must be zero, so that every byte string has
// one spelling.
std::optional<std::vector<uint8_t>> decode_base64(std::string_view text) {
  std::vector<uint8_t> bytes;
  if (text.size() % 4 != 0) return {};
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    const size_t used = !last || text[i + 3] != '=' ? 4 : text[i + 2] != '=' ? 3 : 2;
    uint32_t bits = 0;
    for (size_t k = 0; k < 4; k++) {
      const uint32_t digit = k < used ? base64_digit(text[i + k]) : 0;
      if (digit == 64) return {};
      bits = bits << 6 | digit;
    }
    if ((bits & ((1u << (8 * (4 - used))) - 1)) != 0) return {};
    for (size_t k = 0; k + 1 < used; k++)
      bytes.push_back(static_cast<uint8_t>(bits >> (16 - 8 * k)));
  }
  return bytes;
}

std::string range_text(uint32_t min, uint32_t max) {
  return std::to_string(min) + " to " + std::to_string(max);
}

}  // namespace

size_t characters(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
  }));
}

bool is_forbidden(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

// A file of nothing but faults is known for one long before the last of them.
void Notes::problem(Place at, std::string message) {
  problems_.push_back({std::move(at), std::move(message)});
}

void Notes::problem(const Value& at, std::string message) {
  constexpr size_t most = 1000;
  if (problems_.size() >= most) {
    more_++;
  } else {
    problem(place(at), std::move(message));
  }
}

std::vector<Problem> Notes::take_problems() {
  if (more_ != 0)
    problems_.push_back({{file_, 0, ""}, "and " + counted(more_, "problem") + " more"});
  return std::move(problems_);
}

void Notes::finding(Fate fate, const Value& at, std::string what) {
  findings_.push_back({fate, place(at), std::move(what)});
}

Object::Object(Notes& notes, const Value& value, std::string_view what, Names known)
    : value_(value), what_(what) {
  if (!value.json.is_object()) {
    notes.problem(value_, what_ + " must be an object, not " + value.json.kind());
    return;
  }
  for (const auto& [spelled, json] : value.json.members()) {
    std::string_view name = spelled;
    if (name.starts_with(own_prefix)) name.remove_prefix(own_prefix.size());
    if (name.starts_with('@')) {
      notes.finding(Fate::skipped, {json}, "annotation " + in_quotes(spelled) + " left out");
    } else if (name.find(':') != std::string::npos) {
      foreign_.push_back({std::string(spelled), {json}});
    } else if (std::find(known.begin(), known.end(), name) == known.end()) {
      notes.problem({json}, "unknown member " + in_quotes(spelled) + " of " + what_ +
                                "; it may have " + alternatives(known));
    } else if (find(name)) {
      notes.problem({json},
                    in_quotes(name) + " comes twice, with and without its prefix; remove one");
    } else {
      members_.emplace_back(name, Value{json});
    }
  }
}

Value Object::find(std::string_view name) const {
  for (const auto& [member, value] : members_)
    if (member == name) return value;
  return {};
}

Value Object::require(Notes& notes, std::string_view name) const {
  Value value = find(name);
  if (!value) notes.problem(value_, what_ + " needs " + in_quotes(name) + ", which is missing");
  return value;
}

std::vector<Value> elements(Notes& notes, const Value& list) {
  std::vector<Value> found;
  if (!list) return found;
  if (!list.json.is_array()) {
    notes.problem(list, std::string("must be an array, not ") + list.json.kind());
    return found;
  }
  found.reserve(list.json.size());
  for (size_t i = 0; i < list.json.size(); i++) found.push_back({list.json[i]});
  return found;
}

std::optional<uint32_t> read_number(Notes& notes, const Value& leaf, uint32_t min, uint32_t max) {
  const JsonView json = leaf.json;
  if (json.is_count() && json.number() >= min && json.number() <= max)
    return static_cast<uint32_t>(json.number());
  const std::string wanted = "must be a whole number, " + range_text(min, max);
  if (!json.is_number()) {
    notes.problem(leaf, wanted + ", not " + json.kind());
    return {};
  }
  notes.problem(leaf, "is " + json.dump() + ", but " + wanted);
  return {};
}

std::optional<std::string> read_string(Notes& notes, const Value& leaf) {
  if (!leaf.json.is_string()) {
    notes.problem(leaf, std::string("must be a string, not ") + leaf.json.kind());
    return {};
  }
  std::string text = leaf.json.text();
  if (std::any_of(text.begin(), text.end(), is_forbidden)) {
    notes.problem(leaf, "holds a control character; remove it");
    return {};
  }
  return text;
}

std::optional<std::string> read_name(Notes& notes, const Value& leaf, size_t max) {
  std::optional<std::string> text = read_string(notes, leaf);
  if (!text) return {};
  if (text->empty()) {
    notes.problem(leaf, "must not be empty");
    return {};
  }
  const size_t length = characters(*text);
  if (length > max) {
    notes.problem(leaf, "is " + std::to_string(length) +
                            " characters long, but must not be "
                            "longer than " +
                            std::to_string(max));
    return {};
  }
  return text;
}

std::optional<std::vector<uint8_t>> read_binary(Notes& notes, const Value& leaf) {
  const std::optional<std::string> text = read_string(notes, leaf);
  if (!text) return {};
  std::optional<std::vector<uint8_t>> bytes = decode_base64(*text);
  if (!bytes) notes.problem(leaf, in_quotes(*text) + " is not base64, which it must be");
  return bytes;
}

std::optional<Identity> read_identity(Notes& notes, const Value& leaf) {
  const std::optional<std::string> text = read_string(notes, leaf);
  if (!text) return {};
  if (text->starts_with(own_prefix)) return Identity{text->substr(own_prefix.size()), false};
  return Identity{*text, text->find(':') != std::string::npos};
}

std::string alternatives(Names names) {
  std::string text;
  for (size_t i = 0; i < names.size(); i++) {
    if (i != 0) text += i + 1 == names.size() ? " or " : ", ";
    text += in_quotes(names[i]);
  }
  return text;
}

std::string in_quotes(std::string_view text) {
  constexpr size_t longest = 80;
  std::string shown(text.substr(0, longest));
  if (text.size() > longest) {
    while (!shown.empty() && (static_cast<unsigned char>(text[shown.size()]) & 0xc0) == 0x80) {
      shown.pop_back();
    }
    shown += "...";
  }
  return '"' + shown + '"';
}

}  // namespace qimctl::rfc8519
