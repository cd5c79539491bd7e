// The helpers of callbacks that code a singly linked list: an attribute for each element.
#include "database/base/error.h"
#include "database/codec/codec.h"
#include "database/codec/journal.h"
#include "mem.h"

using tlv::missing;

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
  rov::store(counter, rov::load<uint32_t>(counter) + 1);
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
  if (record == nullptr) return missing(2);
  if (iter == nullptr) return missing(3);
  if (out == nullptr) return missing(4);
  if (len == nullptr) return missing(5);
  if (done == nullptr) return missing(6);
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
  if (record == nullptr) return missing(2);
  if (value == nullptr && len > 0) return missing(3);
  if (iter == nullptr) return missing(5);
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
