// Numbers, bytes and record members in the native format's JSON.
#include "policy/base/json_value.h"

#include <cstring>
#include <stdexcept>

#include "policy/base/names.h"

namespace qimctl {

namespace {

using qim::schema::Coding;
using qim::schema::Row;

template <typename Integer>
uint64_t load_as(const char* from) {
  Integer value;
  memcpy(&value, from, sizeof(value));
  return value;
}

template <typename Integer>
void store_as(char* to, uint64_t value) {
  const auto narrow = static_cast<Integer>(value);
  memcpy(to, &narrow, sizeof(narrow));
}

std::logic_error odd_width() {
  return std::logic_error("an integer of an odd width");
}

}  // namespace

JsonValue number_to_json(uint64_t value) {
  if (value <= max_json_number) return value;
  return hex_number(value, 16);
}

uint64_t number_from_json(JsonView value) {
  if (value.is_count() || value.is(0)) return value.number();  // -0 is signed
  if (value.is_string()) {
    const std::optional<uint64_t> number = parse_number(value.text());
    if (number) return *number;
  }
  throw std::logic_error("a number that the schema let pass: " + value.dump());
}

std::vector<uint8_t> bytes_from_json(JsonView value) {
  std::optional<std::vector<uint8_t>> bytes = bytes_from_hex(value.text());
  if (!bytes) throw std::logic_error("bytes that the schema let pass: " + value.dump());
  return *std::move(bytes);
}

uint64_t load(const void* record, uint32_t position, uint32_t width) {
  const char* from = static_cast<const char*>(record) + position;
  switch (width) {
    case 1:
      return load_as<uint8_t>(from);
    case 2:
      return load_as<uint16_t>(from);
    case 4:
      return load_as<uint32_t>(from);
    case 8:
      return load_as<uint64_t>(from);
    default:
      throw odd_width();
  }
}

void store(void* record, uint32_t position, uint32_t width, uint64_t value) {
  char* to = static_cast<char*>(record) + position;
  switch (width) {
    case 1:
      return store_as<uint8_t>(to, value);
    case 2:
      return store_as<uint16_t>(to, value);
    case 4:
      return store_as<uint32_t>(to, value);
    case 8:
      return store_as<uint64_t>(to, value);
    default:
      throw odd_width();
  }
}

bool is_input(const Row& row) {
  return row.coding == Coding::integer || row.coding == Coding::record;
}

JsonValue row_to_json(const Row& row, const void* record) {
  if (row.coding == Coding::record) {
    const char* inner = static_cast<const char*>(record) + row.position;
    JsonValue members = JsonValue::object();
    for (const Row& member : *row.record) {
      if (is_input(member)) members.set(member.name, row_to_json(member, inner));
    }
    return members;
  }
  const uint64_t value = load(record, row.position, row.width);
  const char* name =
      row.show_kind == ROV_SHOW_ENUM ? link_kind_name(static_cast<uint32_t>(value)) : nullptr;
  if (name != nullptr) return name;
  return number_to_json(value);
}

void row_from_json(const Row& row, JsonView value, void* record) {
  if (row.coding == Coding::record) {
    char* inner = static_cast<char*>(record) + row.position;
    for (const Row& member : *row.record) {
      const JsonView part = is_input(member) ? value.find(member.name) : JsonView();
      if (part) row_from_json(member, part, inner);
    }
    return;
  }
  std::optional<uint32_t> named;
  if (row.show_kind == ROV_SHOW_ENUM && value.is_string()) {
    named = link_kind_code(value.text());
  }
  store(record, row.position, row.width, named ? *named : number_from_json(value));
}

}  // namespace qimctl
