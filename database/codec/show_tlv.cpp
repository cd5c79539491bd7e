// Shows TLV data by a registered attribute table. Works on the bytes alone, so that data which no
// decoder takes can be looked at, too.
#include <cinttypes>
#include <cstdio>

#include "database/codec/show.h"
#include "database/codec/wire.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kMaxDepth = 8;
constexpr uint32_t kStructIdMask = 0xffff0000;

// One attribute as it stands in the data.
struct Attribute {
  uint32_t tag;
  const uint8_t* value;
  uint32_t len;
};

// Where the walk is: the attribute's description is found below `table`.
struct Place {
  ShowText& out;
  const rov_show_t* table;
  uint32_t level;
  uint32_t depth;
};

uint32_t show_array(const Place& place, const uint8_t* tlv, uint32_t len);

bool is_end(const rov_show_t& entry) {
  return entry.attr_id == 0 && entry.name == nullptr;
}

bool is_header(const rov_show_t& entry) {
  return (entry.attr_id & kStructIdMask) != 0;
}

// The header of the record that the tag belongs to; NULL when the table has none.
const rov_show_t* find_record(const rov_show_t* table, uint32_t tag) {
  if (table == nullptr) return nullptr;
  for (; !is_end(*table); ++table) {
    if (is_header(*table) && table->attr_id == (tag & kStructIdMask)) return table;
  }
  return nullptr;
}

// The entry of the tag's field behind its record's header.
const rov_show_t* find_field(const rov_show_t* record, uint32_t tag) {
  for (++record; !is_end(*record) && !is_header(*record); ++record) {
    if (record->attr_id == (tag & ~kStructIdMask)) return record;
  }
  return nullptr;
}

const char* find_name(const rov_name_t* names, uint64_t code) {
  for (; names != nullptr && names->name != nullptr; ++names) {
    if (names->code == code) return names->name;
  }
  return nullptr;
}

uint64_t integer(const Attribute& attribute) {
  uint64_t value = 0;
  for (uint32_t i = 0; i < attribute.len; ++i) value = value << 8 | attribute.value[i];
  return value;
}

// Shows an integer, by name where it has one.
uint32_t show_integer(const Place& place, const rov_show_t& entry, const Attribute& attribute) {
  if (!tlv::is_int_width(attribute.len)) {
    place.out.bytes(place.level, entry.name, attribute.value, attribute.len);
    place.out.line(place.level, "!! %u bytes are no integer", attribute.len);
    return ROV_ERR_TLV_WIDTH;
  }
  const uint64_t value = integer(attribute);
  const char* name = entry.kind == ROV_SHOW_ENUM ? find_name(entry.aux.names, value) : nullptr;
  if (name != nullptr) {
    place.out.line(place.level, "%s %s (%" PRIu64 ")", entry.name, name, value);
  } else {
    place.out.line(place.level, "%s %" PRIu64 " (0x%" PRIx64 ")", entry.name, value, value);
  }
  return ROV_OK;
}

uint32_t show_nested(const Place& place, const rov_show_t* table, const uint8_t* value,
                     uint32_t len) {
  return show_array({place.out, table, place.level + 1, place.depth + 1}, value, len);
}

// A body: the discriminator by name, then the member's attributes.
uint32_t show_body(const Place& place, const rov_show_t& entry, const Attribute& attribute) {
  if (attribute.len < tlv::kDiscriminatorBytes) {
    place.out.bytes(place.level, entry.name, attribute.value, attribute.len);
    place.out.line(place.level, "!! the body ends within its discriminator");
    return ROV_ERR_TLV_TRUNCATED;
  }
  const Attribute type = {attribute.tag, attribute.value, tlv::kDiscriminatorBytes};
  const char* name = find_name(entry.aux.body->names, integer(type));
  place.out.line(place.level, "%s %s (%" PRIu64 ")", entry.name, name != nullptr ? name : "?",
                 integer(type));
  return show_nested(place, entry.aux.body->table, attribute.value + tlv::kDiscriminatorBytes,
                     attribute.len - tlv::kDiscriminatorBytes);
}

uint32_t show_field(const Place& place, const rov_show_t& entry, const Attribute& attribute) {
  switch (entry.kind) {
    case ROV_SHOW_INT:
    case ROV_SHOW_ENUM:
      return show_integer(place, entry, attribute);
    case ROV_SHOW_RECORD:
    case ROV_SHOW_LIST:
      place.out.line(place.level, "%s", entry.name);
      return show_nested(place, entry.aux.table, attribute.value, attribute.len);
    case ROV_SHOW_UNION:
      return show_body(place, entry, attribute);
    case ROV_SHOW_PRINT:
      place.out.text(entry.aux.print(attribute.tag, place.level, 0, attribute.len, attribute.value,
                                     place.out.prefix(), place.out.ses(), place.out.arg()));
      return ROV_OK;
    default:
      place.out.bytes(place.level, entry.name, attribute.value, attribute.len);
      return ROV_OK;
  }
}

uint32_t show_attribute(const Place& place, const Attribute& attribute, uint32_t* struct_id) {
  const rov_show_t* record = find_record(place.table, attribute.tag);
  const bool other = *struct_id != (attribute.tag & kStructIdMask);
  *struct_id = attribute.tag & kStructIdMask;
  if (record != nullptr && other) place.out.line(place.level, "%s:", record->name);
  const rov_show_t* entry = record == nullptr ? nullptr : find_field(record, attribute.tag);
  const Place inside = {place.out, place.table, place.level + (record == nullptr ? 0 : 1),
                        place.depth};
  if (entry != nullptr) return show_field(inside, *entry, attribute);
  char name[32];
  snprintf(name, sizeof name, "attribute 0x%08" PRIx32, attribute.tag);
  inside.out.bytes(inside.level, name, attribute.value, attribute.len);
  return ROV_OK;
}

uint32_t broken(const Place& place, uint32_t status, const char* what, uint32_t at) {
  place.out.line(place.level, "!! %s at byte %" PRIu32, what, at);
  return status;
}

// The first thing wrong is the status; the walk goes on behind an attribute whose own value is
// wrong.
uint32_t show_array(const Place& place, const uint8_t* tlv, uint32_t len) {
  if (place.depth > kMaxDepth) return broken(place, ROV_ERR_TLV_DEPTH, "nested too deep", 0);
  uint32_t status = ROV_OK;
  uint32_t struct_id = 0;
  uint64_t at = 0;
  while (at < len) {
    const auto here = static_cast<uint32_t>(at);
    if (len - at < tlv::kHeadBytes) {
      return broken(place, ROV_ERR_TLV_TRUNCATED, "the data ends within an attribute's head", here);
    }
    const Attribute attribute = {load_be32(tlv + at), tlv + at + tlv::kHeadBytes,
                                 load_be32(tlv + at + 4)};
    at += tlv::kHeadBytes + tlv::padded(attribute.len);
    if (at > len) {
      return broken(place, ROV_ERR_TLV_TRUNCATED, "the data ends within an attribute's value",
                    here);
    }
    const uint32_t shown = show_attribute(place, attribute, &struct_id);
    status = status != ROV_OK ? status : shown;
  }
  return status;
}

}  // namespace

uint32_t show_tlv(ShowText& out, const rov_show_t* table, uint32_t level, const uint8_t* tlv,
                  uint32_t len) {
  return show_array({out, table, level, 0}, tlv, len);
}

}  // namespace rov
