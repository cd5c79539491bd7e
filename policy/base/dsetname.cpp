// Data-set names as JSON and as text.
#include "policy/base/dsetname.h"

#include <cstring>
#include <optional>

#include "policy/base/criteria_codes.h"
#include "policy/base/json_value.h"
#include "policy/base/names.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::At;

// The members of a destination format, in the order of its record.
struct Format {
  uint8_t code;
  const char* name;
  At members[6];
  size_t count;
};

constexpr Format formats[] = {
    {QIM_DEST_IF,
     "interface",
     {QIM_AT(qim_dest_if_t, ifix), QIM_AT(qim_dest_if_t, vrf), QIM_AT(qim_dest_if_t, vlan),
      QIM_AT(qim_dest_if_t, vdc)},
     4},
    {QIM_DEST_SRV,
     "service",
     {QIM_AT(qim_dest_srv_t, srv_id), QIM_AT(qim_dest_srv_t, srv_def),
      QIM_AT(qim_dest_srv_t, srv_vdc)},
     3},
    {QIM_DEST_GEN,
     "generic",
     {QIM_AT(qim_dest_gen_t, vdc), QIM_AT(qim_dest_gen_t, v8), QIM_AT(qim_dest_gen_t, v16a),
      QIM_AT(qim_dest_gen_t, v16b), QIM_AT(qim_dest_gen_t, v32a), QIM_AT(qim_dest_gen_t, v32b)},
     6},
};

const Format* format_of(uint8_t code) {
  for (const Format& format : formats) {
    if (format.code == code) return &format;
  }
  return nullptr;
}

const Format& format_of(JsonView value) {
  for (const Format& format : formats) {
    if (value.is(format.name) || value.is(format.code)) return format;
  }
  throw std::logic_error("a destination format that the schema let pass");
}

qim_pinst_fields_t decode(const qim_dsetname_t& name) {
  qim_dsetname_t copy = name;
  qim_pinst_fields_t fields{};
  qim_pinst_from_dsetname(&fields, &copy);
  return fields;
}

qim_dsetname_t encode(const qim_pinst_fields_t& fields) {
  qim_dsetname_t name{};
  qim_pinst_to_dsetname(&fields, &name);
  return name;
}

JsonValue direction_to_json(uint8_t dir) {
  if (dir == QIM_DIR_IN || dir == dir_out) return direction_name(dir);
  return dir;
}

uint8_t direction_from_json(JsonView value) {
  if (value.is(direction_name(QIM_DIR_IN))) return QIM_DIR_IN;
  if (value.is(direction_name(dir_out))) return dir_out;
  return static_cast<uint8_t>(number_from_json(value));
}

}  // namespace

const char* direction_name(uint8_t dir) {
  return dir == QIM_DIR_IN ? "in" : "out";
}

JsonValue dset_to_json(const qim_dsetname_t& name) {
  const qim_pinst_fields_t fields = decode(name);
  const Format* format = format_of(fields.dest.fmt);
  const qim_dsetname_t again = encode(fields);
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): packed, so every byte counts
  if (format == nullptr || memcmp(&again, &name, sizeof(name)) != 0) {
    return hex_bytes(&name, sizeof(name));
  }
  JsonValue dest;
  dest.set("fmt", format->name);
  for (size_t i = 0; i < format->count; i++) {
    const At& member = format->members[i];
    dest.set(member.name, load(fields.dest.bytes, member.position, member.width));
  }
  JsonValue value;
  value.set("dest", std::move(dest));
  value.set("type", fields.type);
  value.set("dir", direction_to_json(fields.dir));
  return value;
}

qim_dsetname_t dset_from_json(JsonView value) {
  qim_dsetname_t name{};
  if (value.is_string()) {
    const std::vector<uint8_t> bytes = bytes_from_json(value);
    memcpy(&name, bytes.data(), std::min(bytes.size(), sizeof(name)));
    return name;
  }
  const JsonView dest = value.at("dest");
  const Format& format = format_of(dest.at("fmt"));
  qim_pinst_fields_t fields{};
  fields.dest.fmt = format.code;
  for (size_t i = 0; i < format.count; i++) {
    const At& member = format.members[i];
    const JsonView number = dest.find(member.name);
    if (!number) continue;
    store(fields.dest.bytes, member.position, member.width, number_from_json(number));
  }
  if (const JsonView type = value.find("type")) {
    fields.type = static_cast<uint32_t>(number_from_json(type));
  }
  if (const JsonView dir = value.find("dir")) fields.dir = direction_from_json(dir);
  return encode(fields);
}

std::optional<qim_dsetname_t> dset_from_hex(const std::string& text) {
  const std::optional<std::vector<uint8_t>> bytes = bytes_from_hex(text);
  qim_dsetname_t name;
  if (!bytes || bytes->size() != sizeof(name)) return std::nullopt;
  memcpy(&name, bytes->data(), sizeof(name));
  return name;
}

namespace {

std::string dest_text(const qim_policy_dest_t& dest, bool zeros) {
  const Format* format = format_of(dest.fmt);
  if (format == nullptr) return "format " + std::to_string(dest.fmt);
  std::string text = format->name;
  for (size_t i = 0; i < format->count; i++) {
    const At& member = format->members[i];
    const uint64_t number = load(dest.bytes, member.position, member.width);
    // What an interface or service is known by needs no name.
    const bool key = i == 0 && format->code != QIM_DEST_GEN;
    if (number == 0 && !key && !zeros) continue;
    text += (key ? "" : std::string(" ") + member.name) + " " + std::to_string(number);
  }
  return text;
}

}  // namespace

std::string dset_text(const qim_pinst_fields_t& fields) {
  return dest_text(fields.dest, true) + ", type " + std::to_string(fields.type) + ", " +
         direction_name(fields.dir);
}

std::string policy_type_words(uint32_t type) {
  if ((type & ~policy_type_stages) == policy_type_access_list)
    return "access list in stage " + std::to_string(type & policy_type_stages);
  return type == 0 ? "" : "type " + std::to_string(type);
}

std::string dset_words(const qim_pinst_fields_t& fields) {
  const std::string type = policy_type_words(fields.type);
  return dest_text(fields.dest, false) + (type.empty() ? "" : ", " + type) + ", " +
         direction_name(fields.dir);
}

namespace {

const At* find_member(const Format& format, const std::string& name) {
  for (size_t i = 0; i < format.count; i++) {
    if (name == format.members[i].name) return &format.members[i];
  }
  return nullptr;
}

// Stores a number into a member unless it is too large for it.
bool store_number(qim_policy_dest_t& dest, const At& member, const std::string& text) {
  const std::optional<uint64_t> number = parse_number(text);
  if (!number || (member.width < 8 && *number >> (8 * member.width) != 0)) return false;
  store(dest.bytes, member.position, member.width, *number);
  return true;
}

}  // namespace

std::optional<qim_policy_dest_t> dest_from_words(const std::vector<std::string>& words) {
  const Format* format = nullptr;
  for (const Format& known : formats) {
    if (!words.empty() && words[0] == known.name) format = &known;
  }
  if (format == nullptr) return std::nullopt;
  qim_policy_dest_t dest{};
  dest.fmt = format->code;
  size_t at = 1;
  if (format->code != QIM_DEST_GEN) {
    if (words.size() < 2 || !store_number(dest, format->members[0], words[1])) return std::nullopt;
    at = 2;
  }
  for (; at + 1 < words.size(); at += 2) {
    const At* member = find_member(*format, words[at]);
    if (member == nullptr || !store_number(dest, *member, words[at + 1])) return std::nullopt;
  }
  return at == words.size() ? std::optional(dest) : std::nullopt;
}

}  // namespace qimctl
