// Codes, numbers and bytes as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qimctl {

// "Filter", "Dset"; "type 77" for a code of no name.
std::string node_type_name(uint32_t code);
// From a name in any case, or a number ("1", "0x1"). Nothing for what names no node type.
std::optional<uint32_t> node_type_code(const std::string& text);
// "Filter, Action, ..."
std::string node_type_list();

// "True"; NULL for a code of no name.
const char* link_kind_name(uint32_t code);
std::optional<uint32_t> link_kind_code(const std::string& name);

// A whole string as a number, decimal or with 0x hexadecimal. Nothing for anything else or more
// than 64 bits.
std::optional<uint64_t> parse_number(const std::string& text);

// "0x0081": at least `digits` digits.
std::string hex_number(uint64_t value, int digits);
// A node identifier: "0x00300001".
std::string node_id_text(uint32_t id);
// A link field code: "ln_081" for a code that fits three digits, else "0x8001".
std::string slot_name(uint16_t field);
// The code in "ln_081" or "0x8001".
std::optional<uint16_t> link_field(const std::string& name);

// "0a0b0c" and back. An odd or foreign digit gives nothing.
std::string hex_bytes(const void* bytes, size_t count);
std::string hex_bytes(const std::vector<uint8_t>& bytes);
std::optional<std::vector<uint8_t>> bytes_from_hex(const std::string& text);

// "1 node", "2 nodes".
std::string counted(uint64_t count, const std::string& noun);

}  // namespace qimctl
