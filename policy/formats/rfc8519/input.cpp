// Reading one value of the model at a time.
#include "policy/formats/rfc8519/input.h"

#include <algorithm>
#include <tuple>
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

}  // namespace

Object::Object(Notes& notes, const Value& value, std::string_view what, Names known)
    : value_(value), what_(what) {
  if (!value.json.is_object()) {
    notes.problem(value_, what_ + " must be an object, not " + value.json.kind());
    return;
  }
  if (read_plain(known)) return;
  count_ = 0;
  read_all(notes, known);
}

// Members that are known, by their simple names. No other ones: those are told in the order of names.
bool Object::read_plain(Names known) {
  std::array<std::pair<std::string_view, JsonView>, std::tuple_size_v<decltype(few_)>> found;
  if (!value_.json.few_members(found)) return false;
  for (; count_ < value_.json.size(); count_++) {
    const auto& [name, json] = found[count_];
    const auto at = std::find(known.begin(), known.end(), name);
    if (at == known.end()) return false;
    few_[count_] = {name, static_cast<size_t>(at - known.begin()), {json}};
  }
  return true;
}

void Object::read_all(Notes& notes, Names known) {
  for (const auto& [spelled, json] : value_.json.members()) {
    std::string_view name = spelled;
    if (name.starts_with(own_prefix)) name.remove_prefix(own_prefix.size());
    const auto at = std::find(known.begin(), known.end(), name);
    if (name.starts_with('@')) {
      notes.finding(Fate::skipped, {json}, "annotation " + in_quotes(spelled) + " left out");
    } else if (name.find(':') != std::string::npos) {
      foreign_.push_back({std::string(spelled), {json}});
    } else if (at == known.end()) {
      notes.problem({json}, "unknown member " + in_quotes(spelled) + " of " + what_ +
                                "; it may have " + alternatives(known));
    } else if (find(name)) {
      notes.problem({json},
                    in_quotes(name) + " comes twice, with and without its prefix; remove one");
    } else {
      more_.push_back({name, static_cast<size_t>(at - known.begin()), {json}});
    }
  }
}

Value Object::find(std::string_view name) const {
  for (const Member& member : members())
    if (member.name == name) return member.value;
  return {};
}

Value Object::at(size_t known) const {
  for (const Member& member : members())
    if (member.known == known) return member.value;
  return {};
}

Value Object::require(Notes& notes, std::string_view name) const {
  Value value = find(name);
  if (!value) notes.problem(value_, what_ + " needs " + in_quotes(name) + ", which is missing");
  return value;
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

}  // namespace qimctl::rfc8519
