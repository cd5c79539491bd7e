// The TLV helpers that the library's field callbacks delegate to: byte strings, lists, body unions.

#include "codec.h"
#include "recorder.h"
#include "rov.h"
#include "tlv.h"
#include "tlvo.h"

namespace {

using fake::detail::enter;
using fake::detail::enter_with;

const tlvo_union_t* member_of(const tlvo_union_t* members, uint32_t type) {
  for (const tlvo_union_t* m = members; m != members + TLVO_UNION_MEMBERS; ++m) {
    if (m->type == type) return m;
  }
  return nullptr;
}

// The descriptors' accessors take records that they may write; encoding only reads through them.
void* first_of(const tlvo_list_t& list, const void* record) {
  return *static_cast<void**>(list.head(const_cast<void*>(record)));
}

void* next_of(const tlvo_list_t& list, void* element) {
  return *static_cast<void**>(list.link->head(element));
}

}  // namespace

extern "C" {

uint32_t rov_cpy_fld_to_tlv(const void* field, uint32_t field_len, void* out, uint32_t* len,
                            uint32_t* done) {
  if (const auto status = enter("rov_cpy_fld_to_tlv", field, field_len, out, len, done)) {
    return *status;
  }
  if (*len < field_len) return ROV_ERR_TLV_ROOM;
  if (field_len != 0) std::memcpy(out, field, field_len);
  *len = field_len;
  *done = 1;
  return ROV_OK;
}

// Keeps a copy of the value.
uint32_t rov_tlv_to_bufptr(void** buf, uint32_t* buf_len, rov_mem_ctx_t* pool, const void* value,
                           uint32_t len) {
  if (const auto status =
          enter_with(value, len, "rov_tlv_to_bufptr", buf, buf_len, pool, value, len)) {
    return *status;
  }
  *buf = len == 0 ? nullptr : fake::allocate(len, pool);
  if (len != 0) std::memcpy(*buf, value, len);
  *buf_len = len;
  return ROV_OK;
}

uint32_t rov_tlv_from_listel(const tlvo_list_t* list, const void* record, void** iter, void* out,
                             uint32_t* len, uint32_t* done) {
  if (const auto status = enter("rov_tlv_from_listel", list, record, iter, out, len, done)) {
    return *status;
  }
  void* const element = *iter == nullptr ? first_of(*list, record) : *iter;
  if (element == nullptr) return ROV_ERR_TLV_TABLE;
  auto* const start = static_cast<std::uint8_t*>(out);
  fake::detail::Output output{start, start + *len};
  const uint32_t status = fake::detail::encode(*list->element, element, output);
  if (status != ROV_OK) return status;
  *len = static_cast<uint32_t>(output.at - start);
  *iter = next_of(*list, element);
  *done = *iter == nullptr ? 1 : 0;
  return ROV_OK;
}

// The bookkeeping word counts the elements.
uint32_t rov_tlv_to_listel(const tlvo_list_t* list, void* record, const void* value, uint32_t len,
                           void** iter) {
  if (const auto status = enter("rov_tlv_to_listel", list, record, value, len, iter)) {
    return *status;
  }
  void* element = nullptr;
  uint32_t size = 0;
  const uint32_t status = list->alloc(record, &element, nullptr, &size);
  if (status != ROV_OK) return status;
  void** const link =
      static_cast<void**>(*iter == nullptr ? list->head(record) : list->link->head(*iter));
  *link = element;
  *iter = element;
  ++*static_cast<uint32_t*>(list->aux(record));
  return fake::detail::decode(*list->element, element, static_cast<const uint8_t*>(value), len);
}

uint32_t rov_tlv_listel_tlvsize(const tlvo_list_t* list, const void* record) {
  if (const auto status = enter("rov_tlv_listel_tlvsize", list, record)) return *status;
  uint32_t total = 0;
  for (void* e = first_of(*list, record); e != nullptr; e = next_of(*list, e)) {
    const uint32_t size = fake::detail::encoded_size(*list->element, e);
    if (size == TLVO_SIZE_FAILED) return size;
    total += fake::kTlvHead + size;
  }
  return total;
}

uint32_t rov_tlv_listptr_nels(const tlvo_list_t* list, const void* record) {
  if (const auto status = enter("rov_tlv_listptr_nels", list, record)) return *status;
  uint32_t total = 0;
  for (void* e = first_of(*list, record); e != nullptr; e = next_of(*list, e)) ++total;
  return total;
}

uint32_t rov_tlva_from_union(uint32_t type, const tlvo_union_t* members, const void* body,
                             uint32_t* len, void* out) {
  if (const auto status = enter("rov_tlva_from_union", type, members, body, len, out)) {
    return *status;
  }
  const tlvo_union_t* const member = member_of(members, type);
  if (member == nullptr) return ROV_ERR_TLV_UNION;
  if (*len < 4) return ROV_ERR_TLV_ROOM;
  auto* const start = static_cast<std::uint8_t*>(out);
  fake::write_big(start, type, 4);
  fake::detail::Output output{start + 4, start + *len};
  const uint32_t status = fake::detail::encode(*member->table, body, output);
  if (status != ROV_OK) return status;
  *len = static_cast<uint32_t>(output.at - start);
  return ROV_OK;
}

// An unknown discriminator is stored and decodes nothing, so that what the library makes of such a
// type shows.
uint32_t rov_tlva_to_union(uint32_t len, const void* value, const tlvo_union_t* members,
                           uint32_t* type, void* body) {
  if (const auto status =
          enter_with(value, len, "rov_tlva_to_union", len, value, members, type, body)) {
    return *status;
  }
  if (len < 4) return ROV_ERR_TLV_TRUNCATED;
  const auto* const bytes = static_cast<const std::uint8_t*>(value);
  *type = static_cast<uint32_t>(fake::read_big(bytes, 4));
  const tlvo_union_t* const member = member_of(members, *type);
  if (member == nullptr) return ROV_OK;
  return fake::detail::decode(*member->table, body, bytes + 4, len - 4);
}

uint32_t rov_tlva_union_siz(uint32_t type, const tlvo_union_t* members, const void* body) {
  if (const auto status = enter("rov_tlva_union_siz", type, members, body)) return *status;
  const tlvo_union_t* const member = member_of(members, type);
  if (member == nullptr) return TLVO_SIZE_FAILED;
  const uint32_t size = fake::detail::encoded_size(*member->table, body);
  return size == TLVO_SIZE_FAILED ? size : 4 + size;
}

}  // extern "C"
