// Numbers, bytes and record members in the native format's JSON.
//
// The readers take values that follow the schema; anything else is a fault of the caller and throws
// std::logic_error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/base/json.h"
#include "schema/rows.h"

namespace qimctl {

// The largest integer that every JSON reader keeps exactly (RFC 7493 section 2.2); larger ones are
// written as "0x...".
inline constexpr uint64_t max_json_number = (uint64_t{1} << 53) - 1;

JsonValue number_to_json(uint64_t value);
// From a number, or a string that holds one.
uint64_t number_from_json(JsonView value);
std::vector<uint8_t> bytes_from_json(JsonView value);

// An integer member of 1, 2, 4 or 8 bytes, at any alignment, in host order.
uint64_t load(const void* record, uint32_t position, uint32_t width);
void store(void* record, uint32_t position, uint32_t width, uint64_t value);

// A row's value in the record at `record`: an integer, a link kind by its name, or an embedded
// record.
JsonValue row_to_json(const qim::schema::Row& row, const void* record);
void row_from_json(const qim::schema::Row& row, JsonView value, void* record);

// Does the native format write this row's value?
bool is_input(const qim::schema::Row& row);

}  // namespace qimctl
