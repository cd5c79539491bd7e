// Codes, numbers and bytes as people write them.
#include "policy/base/names.h"

#include <strings.h>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "qim.h"
#include "schema/names.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

// Calls visit(code, name) for every node type, in the order of their codes.
template <typename Visit>
void each_node_type(Visit visit) {
  for (const qim::schema::NodeType* type : qim::schema::types_by_code.at) {
    if (type != nullptr) visit(type->code, type->name);
  }
}

int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string node_type_name(uint32_t code) {
  std::string found = "type " + std::to_string(code);
  each_node_type([&found, code](uint32_t known, const char* name) {
    if (known == code) found = name;
  });
  return found;
}

std::optional<uint32_t> node_type_code(const std::string& text) {
  const std::optional<uint64_t> number = parse_number(text);
  std::optional<uint32_t> found;
  each_node_type([&](uint32_t code, const char* name) {
    if (number == code || strcasecmp(text.c_str(), name) == 0) found = code;
  });
  return found;
}

std::string node_type_list() {
  std::string list;
  each_node_type([&list](uint32_t, const char* name) {
    if (!list.empty()) list += ", ";
    list += name;
  });
  return list;
}

const char* link_kind_name(uint32_t code) {
  for (const rov_name_t* kind = qim::schema::link_kind_names; kind->name != nullptr; kind++) {
    if (kind->code == code) return kind->name;
  }
  return nullptr;
}

std::optional<uint32_t> link_kind_code(const std::string& name) {
  for (const rov_name_t* kind = qim::schema::link_kind_names; kind->name != nullptr; kind++) {
    if (name == kind->name) return kind->code;
  }
  return std::nullopt;
}

std::optional<uint64_t> parse_number(const std::string& text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const char* first = text.data() + (hexadecimal ? 2 : 0);
  const char* last = text.data() + text.size();
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(first, last, value, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != last) return std::nullopt;
  return value;
}

std::string hex_number(uint64_t value, int digits) {
  char text[24];
  snprintf(text, sizeof(text), "0x%0*" PRIx64, digits, value);
  return text;
}

std::string node_id_text(uint32_t id) {
  return hex_number(id, 8);
}

std::string slot_name(uint16_t field) {
  if (field > 0xfff) return hex_number(field, 4);
  char text[8];
  snprintf(text, sizeof(text), "ln_%03x", unsigned{field});
  return text;
}

std::optional<uint16_t> link_field(const std::string& name) {
  const bool slot = name.starts_with("ln_");
  const std::optional<uint64_t> code = parse_number(slot ? "0x" + name.substr(3) : name);
  if (!code || *code > UINT16_MAX) return std::nullopt;
  return static_cast<uint16_t>(*code);
}

std::string hex_bytes(const void* bytes, size_t count) {
  static constexpr char digits[] = "0123456789abcdef";
  const auto* from = static_cast<const uint8_t*>(bytes);
  std::string text;
  text.reserve(count * 2);
  for (size_t i = 0; i < count; i++) {
    text += digits[from[i] >> 4];
    text += digits[from[i] & 0xf];
  }
  return text;
}

std::string hex_bytes(const std::vector<uint8_t>& bytes) {
  return hex_bytes(bytes.data(), bytes.size());
}

std::optional<std::vector<uint8_t>> bytes_from_hex(const std::string& text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::vector<uint8_t> bytes;
  bytes.reserve(text.size() / 2);
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digit_value(text[i]);
    const int low = digit_value(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<uint8_t>(high * 16 + low));
  }
  return bytes;
}

std::string counted(uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace qimctl
