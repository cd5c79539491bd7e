// The helpers of callbacks that code a union: its discriminator, then the member's attributes.
#include <cinttypes>

#include "database/base/error.h"
#include "database/codec/codec.h"

using tlv::kDiscriminatorBytes;
using tlv::missing;

namespace {

// nullptr when the union has no member of that type.
const tlvo_union_t* find_member(const tlvo_union_t* members, uint32_t type) {
  for (uint32_t i = 0; i < TLVO_UNION_MEMBERS; ++i) {
    if (members[i].type == type) return &members[i];
  }
  return nullptr;
}

uint32_t refuse_type(uint32_t type) {
  return rov::fail_text(ROV_ERR_TLV_UNION, "a union has no member of type %" PRIu32 ": %s", type,
                        rov_status_text(ROV_ERR_TLV_UNION));
}

}  // namespace

extern "C" uint32_t rov_tlva_from_union(uint32_t type, const tlvo_union_t* members,
                                        const void* body, uint32_t* len, void* out) {
  if (members == nullptr) return missing(2);
  if (body == nullptr) return missing(3);
  if (len == nullptr) return missing(4);
  if (out == nullptr) return missing(5);
  const tlvo_union_t* member = find_member(members, type);
  if (member == nullptr) return refuse_type(type);
  if (*len < kDiscriminatorBytes) {
    return rov::fail(ROV_ERR_TLV_ROOM, rov::Note::kBuffer, *len, kDiscriminatorBytes);
  }
  rov::store_be32(out, type);
  auto* const begin = static_cast<uint8_t*>(out);
  const tlv::Encoded written =
      tlv::encode_record(begin + kDiscriminatorBytes, begin + *len, member->table, body);
  if (written.status == ROV_OK) *len = static_cast<uint32_t>(written.end - begin);
  return static_cast<uint32_t>(written.status);
}

extern "C" uint32_t rov_tlva_to_union(uint32_t len, const void* value, const tlvo_union_t* members,
                                      uint32_t* type, void* body) {
  if (value == nullptr && len > 0) return missing(2);
  if (members == nullptr) return missing(3);
  if (type == nullptr) return missing(4);
  if (body == nullptr) return missing(5);
  if (len < kDiscriminatorBytes) {
    return rov::fail_text(ROV_ERR_TLV_TRUNCATED,
                          "a union's value of %" PRIu32 " bytes has no whole discriminator: %s",
                          len, rov_status_text(ROV_ERR_TLV_TRUNCATED));
  }
  const uint32_t read = rov::load_be32(value);
  const tlvo_union_t* member = find_member(members, read);
  if (member == nullptr) return refuse_type(read);
  *type = read;
  return tlv::decode_record(body, static_cast<const uint8_t*>(value) + kDiscriminatorBytes,
                            len - kDiscriminatorBytes, member->table);
}

extern "C" uint32_t rov_tlva_union_siz(uint32_t type, const tlvo_union_t* members,
                                       const void* body) {
  if (members == nullptr || body == nullptr) return TLVO_SIZE_FAILED;
  const tlvo_union_t* member = find_member(members, type);
  if (member == nullptr) return TLVO_SIZE_FAILED;
  const uint32_t size = tlv::encoded_size(member->table, body);
  if (size >= TLVO_SIZE_FAILED - kDiscriminatorBytes) return TLVO_SIZE_FAILED;
  return kDiscriminatorBytes + size;
}
