// The helpers of field callbacks: values, unions, and singly linked lists with an attribute for each
// element.
#include <cinttypes>
#include <cstring>

#include "database/base/error.h"
#include "database/codec/codec.h"
#include "database/memory/pool.h"
#include "mem.h"
#include "rov.h"

// ---- Values -------------------------------------------------------------------------------------

using rov::bad_argument;

namespace {

constexpr uint32_t kFew = 16;

// Copies 1 to kFew bytes, by stores that may overlap: most values are few bytes, for which a call
// of memcpy takes longer than copying them.
inline void copy_few(void* to, const void* from, uint32_t len) {
  auto* const out = static_cast<uint8_t*>(to);
  const auto* const in = static_cast<const uint8_t*>(from);
  if (len >= 8) {
    const auto last = rov::load<uint64_t>(in + len - 8);
    rov::write_value(out, rov::load<uint64_t>(in));
    rov::write_value(out + len - 8, last);
  } else if (len >= 4) {
    const auto last = rov::load<uint32_t>(in + len - 4);
    rov::write_value(out, rov::load<uint32_t>(in));
    rov::write_value(out + len - 4, last);
  } else {
    const uint8_t middle = in[len / 2];
    const uint8_t last = in[len - 1];
    out[0] = in[0];
    out[len / 2] = middle;
    out[len - 1] = last;
  }
}

// A zero-filled block for a value, which the thread's journal knows if there is one; nullptr, and
// why in *status.
void* make_block(uint32_t len, rov_mem_ctx_t* pool, uint32_t* status) {
  void* block = nullptr;
  *status = tlv::Journal::reserve() ? mem_zalloc(len, pool, &block) : uint32_t{ROV_ERR_NO_MEM};
  if (block == nullptr) {
    rov::fail(*status, rov::Note::kNoMemory, len);
    return nullptr;
  }
  tlv::Journal::enter(block, len);
  return block;
}

[[gnu::noinline]] uint32_t copy_to_block(void** buf, uint32_t* buf_len, rov_mem_ctx_t* pool,
                                         const void* value, uint32_t len) {
  if (buf == nullptr) return bad_argument(1);
  if (buf_len == nullptr) return bad_argument(2);
  if (value == nullptr && len > 0) return bad_argument(4);
  void* block = nullptr;
  if (len > 0) {
    uint32_t status = ROV_OK;
    block = make_block(len, pool, &status);
    if (block == nullptr) return status;
    std::memcpy(block, value, len);
  }
  *buf = block;
  *buf_len = len;
  return ROV_OK;
}

[[gnu::noinline]] uint32_t copy_to_value(const void* field, uint32_t field_len, void* out,
                                         uint32_t* len, uint32_t* done) {
  if (field == nullptr && field_len > 0) return bad_argument(1);
  if (out == nullptr && field_len > 0) return bad_argument(3);
  if (len == nullptr) return bad_argument(4);
  if (done == nullptr) return bad_argument(5);
  if (field_len > *len) {
    return rov::fail(ROV_ERR_TLV_ROOM, rov::Note::kBuffer, *len, field_len);
  }
  if (field_len > 0) std::memcpy(out, field, field_len);
  *len = field_len;
  *done = 1;
  return ROV_OK;
}

}  // namespace

// Few bytes, nothing out of the ordinary: mostly so, and done without a call.

extern "C" uint32_t rov_cpy_fld_to_tlv(const void* field, uint32_t field_len, void* out,
                                       uint32_t* len, uint32_t* done) {
  const bool given = field != nullptr && out != nullptr && len != nullptr && done != nullptr;
  if (!given || field_len - 1 >= kFew || field_len > *len) {
    return copy_to_value(field, field_len, out, len, done);
  }
  copy_few(out, field, field_len);
  *len = field_len;
  *done = 1;
  return ROV_OK;
}

extern "C" uint32_t rov_tlv_to_bufptr(void** buf, uint32_t* buf_len, rov_mem_ctx_t* pool,
                                      const void* value, uint32_t len) {
  const bool given = buf != nullptr && buf_len != nullptr && value != nullptr;
  if (given && len - 1 < kFew && !tlv::Journal::is_kept()) {
    void* block = mem::take_at_hand(len, pool);
    if (block != nullptr) {
      copy_few(block, value, len);
      *buf = block;
      *buf_len = len;
      return ROV_OK;
    }
  }
  return copy_to_block(buf, buf_len, pool, value, len);
}

// ---- Unions -------------------------------------------------------------------------------------

using tlv::kDiscriminatorBytes;

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
  if (members == nullptr) return bad_argument(2);
  if (body == nullptr) return bad_argument(3);
  if (len == nullptr) return bad_argument(4);
  if (out == nullptr) return bad_argument(5);
  const tlvo_union_t* member = find_member(members, type);
  if (member == nullptr) return refuse_type(type);
  if (*len < kDiscriminatorBytes) {
    return rov::fail(ROV_ERR_TLV_ROOM, rov::Note::kBuffer, *len, kDiscriminatorBytes);
  }
  rov::write_be32(out, type);
  auto* const begin = static_cast<uint8_t*>(out);
  const tlv::Encoded written =
      tlv::encode_record(begin + kDiscriminatorBytes, begin + *len, member->table, body);
  if (written.status == ROV_OK) *len = static_cast<uint32_t>(written.end - begin);
  return static_cast<uint32_t>(written.status);
}

extern "C" uint32_t rov_tlva_to_union(uint32_t len, const void* value, const tlvo_union_t* members,
                                      uint32_t* type, void* body) {
  if (value == nullptr && len > 0) return bad_argument(2);
  if (members == nullptr) return bad_argument(3);
  if (type == nullptr) return bad_argument(4);
  if (body == nullptr) return bad_argument(5);
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

// ---- Lists --------------------------------------------------------------------------------------

namespace {

bool is_sound(const tlvo_list_t* list) {
  return list != nullptr && list->head != nullptr && list->element != nullptr &&
         list->link != nullptr && list->link->head != nullptr;
}

uint32_t refuse_list() {
  return rov::fail_text(
      ROV_ERR_TLV_TABLE,
      "a list descriptor lacks an accessor, its allocator or its element's table, "
      "or the allocator gave no element: correct the descriptor");
}

// The accessors take records that may be written, reading or not.
void* first_of(const tlvo_list_t& list, const void* record) {
  return tlv::load_pointer(list.head(const_cast<void*>(record)));
}

void* after(const tlvo_list_t& list, void* element) {
  return tlv::load_pointer(list.link->head(element));
}

// The last element of a list; nullptr when it is empty.
void* last_of(const tlvo_list_t& list, const void* record) {
  void* last = nullptr;
  for (void* at = first_of(list, record); at != nullptr; at = after(list, at)) last = at;
  return last;
}

// Appends `element` after `tail`, or as the first one, and counts it.
void append(const tlvo_list_t& list, void* record, void* tail, void* element) {
  tlv::store_pointer(tail != nullptr ? list.link->head(tail) : list.head(record), element);
  if (list.aux == nullptr) return;
  void* counter = list.aux(record);
  rov::write_value(counter, rov::load<uint32_t>(counter) + 1);
}

// An element in *element, which the thread's journal knows if there is one.
uint32_t make_element(const tlvo_list_t& list, void* record, void** element) {
  const bool entered = tlv::Journal::is_kept();
  if (entered && !tlv::Journal::reserve()) {
    return rov::fail(ROV_ERR_NO_MEM, rov::Note::kNoMemory, list.element->record_size);
  }
  uint32_t size = 0;
  const uint32_t status = list.alloc(record, element, const_cast<tlvo_list_t*>(&list), &size);
  if (status != ROV_OK) return status;
  if (*element == nullptr) return refuse_list();
  if (entered) tlv::Journal::enter(*element, size);
  return ROV_OK;
}

}  // namespace

extern "C" uint32_t rov_tlv_from_listel(const tlvo_list_t* list, const void* record, void** iter,
                                        void* out, uint32_t* len, uint32_t* done) {
  if (record == nullptr) return bad_argument(2);
  if (iter == nullptr) return bad_argument(3);
  if (out == nullptr) return bad_argument(4);
  if (len == nullptr) return bad_argument(5);
  if (done == nullptr) return bad_argument(6);
  if (!is_sound(list)) return refuse_list();
  void* element = *iter != nullptr ? *iter : first_of(*list, record);
  if (element == nullptr) {
    *len = 0;
    *done = 1;
    return ROV_OK;
  }
  auto* const begin = static_cast<uint8_t*>(out);
  const tlv::Encoded written = tlv::encode_record(begin, begin + *len, list->element, element);
  if (written.status != ROV_OK) return static_cast<uint32_t>(written.status);
  *len = static_cast<uint32_t>(written.end - begin);
  *iter = after(*list, element);
  *done = *iter == nullptr ? 1 : 0;
  return ROV_OK;
}

extern "C" uint32_t rov_tlv_to_listel(const tlvo_list_t* list, void* record, const void* value,
                                      uint32_t len, void** iter) {
  if (record == nullptr) return bad_argument(2);
  if (value == nullptr && len > 0) return bad_argument(3);
  if (iter == nullptr) return bad_argument(5);
  if (!is_sound(list) || list->alloc == nullptr) return refuse_list();
  void* tail = *iter != nullptr ? *iter : last_of(*list, record);
  void* element = nullptr;
  const uint32_t status = make_element(*list, record, &element);
  if (status != ROV_OK) return status;
  // Before it is decoded, so that the record owns it whatever comes.
  append(*list, record, tail, element);
  *iter = element;
  return tlv::decode_record(element, value, len, list->element);
}

extern "C" uint32_t rov_tlv_listel_tlvsize(const tlvo_list_t* list, const void* record) {
  if (record == nullptr || !is_sound(list)) return TLVO_SIZE_FAILED;
  uint64_t sum = 0;
  for (void* at = first_of(*list, record); at != nullptr; at = after(*list, at)) {
    const uint32_t size = tlv::encoded_size(list->element, at);
    if (size == TLVO_SIZE_FAILED) return TLVO_SIZE_FAILED;
    sum += tlv::kHeadBytes + tlv::padded(size);
    if (sum >= TLVO_SIZE_FAILED) return TLVO_SIZE_FAILED;
  }
  return static_cast<uint32_t>(sum);
}

extern "C" uint32_t rov_tlv_listptr_nels(const tlvo_list_t* list, const void* record) {
  if (record == nullptr || !is_sound(list)) return 0;
  uint32_t count = 0;
  for (void* at = first_of(*list, record); at != nullptr; at = after(*list, at)) ++count;
  return count;
}
