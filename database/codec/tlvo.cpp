// C entries: decoding into records, encoding and sizes; what a decode allocated; and refusals.
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "database/base/error.h"
#include "database/codec/codec.h"
#include "mem.h"
#include "tlvo.h"

namespace tlv {

// ---- Journals -----------------------------------------------------------------------------------

namespace {

struct Entry {
  void* block;
  uint32_t size;
};

// All journals of a thread share them.
struct Entries {
  Entry* entry = nullptr;
  uint32_t count = 0;
  uint32_t room = 0;
};

constexpr uint32_t kFirstRoom = 16;
constexpr size_t kMostEntries =
    SIZE_MAX / 2 / sizeof(Entry) < UINT32_MAX / 2 ? SIZE_MAX / 2 / sizeof(Entry) : UINT32_MAX / 2;

constinit thread_local Entries entries;

}  // namespace

constinit thread_local uint32_t Journal::journals_ = 0;

Journal::Journal() : begin_(entries.count) {
  ++journals_;
}

Journal::~Journal() {
  if (--journals_ > 0) return;
  std::free(entries.entry);
  entries = Entries{};
}

void Journal::undo() {
  while (entries.count > begin_) mem_free(entries.entry[--entries.count].block, nullptr);
}

uint64_t Journal::bytes() const {
  uint64_t sum = 0;
  for (uint32_t i = begin_; i < entries.count; ++i) sum += entries.entry[i].size;
  return sum;
}

bool Journal::reserve_one() {
  if (entries.count < entries.room) return true;
  const size_t room = entries.room == 0 ? kFirstRoom : size_t{entries.room} * 2;
  if (room > kMostEntries) return false;
  void* grown = std::realloc(entries.entry, room * sizeof(Entry));
  if (grown == nullptr) return false;
  entries.entry = static_cast<Entry*>(grown);
  entries.room = static_cast<uint32_t>(room);
  return true;
}

void Journal::enter_one(void* block, uint32_t size) {
  entries.entry[entries.count++] = Entry{block, size};
}

// ---- Refusals -----------------------------------------------------------------------------------

constinit thread_local uint32_t Level::depth_ = 0;

uint32_t refuse_record(const tlvo_table_t* table) {
  if (table == nullptr) {
    return rov::fail_text(ROV_ERR_TLV_TABLE,
                          "a descriptor table is missing: give one for every record");
  }
  return rov::fail_text(ROV_ERR_TLV_DEPTH,
                        "a record of %s is nested deeper than %" PRIu32
                        " records: flatten the data",
                        name_of(*table), kMaxDepth);
}

}  // namespace tlv

// ---- Entries ------------------------------------------------------------------------------------

using rov::bad_argument;

namespace {

// Decodes into a record of the default pool's, which is entered into the thread's journal.
uint32_t decode_into_new(void** record, const void* tlva, uint32_t len, const tlvo_table_t& table) {
  if (table.record_size == 0) {
    return rov::fail_text(ROV_ERR_TLV_TABLE, "%s describes a record of no bytes: give it its size",
                          tlv::name_of(table));
  }
  const uint32_t status = tlv::Journal::reserve() ? mem_zalloc(table.record_size, nullptr, record)
                                                  : uint32_t{ROV_ERR_NO_MEM};
  if (status != ROV_OK) return rov::fail(status, rov::Note::kNoMemory, table.record_size);
  tlv::Journal::enter(*record, table.record_size);
  return tlv::decode_record(*record, tlva, len, &table);
}

uint32_t decode_new(void** record, const void* tlva, uint32_t len, const tlvo_table_t* table) {
  *record = nullptr;
  if (table == nullptr) return tlv::refuse_record(table);
  tlv::Journal journal;
  const uint32_t status = decode_into_new(record, tlva, len, *table);
  if (status == ROV_OK) return ROV_OK;
  journal.undo();
  *record = nullptr;
  return status;
}

// What a decoded record owns is known to the callbacks that allocate it and to nobody else: the
// array is decoded to find out.
uint32_t decoded_bytes(const void* tlva, uint32_t len, const tlvo_table_t& table, uint64_t* bytes) {
  tlv::Journal journal;
  void* record = nullptr;
  const uint32_t status = decode_into_new(&record, tlva, len, table);
  *bytes = journal.bytes();
  journal.undo();
  return status;
}

// Of whole attributes.
uint32_t count_attributes(const uint8_t* at, const uint8_t* end) {
  uint32_t count = 0;
  for (; at != end; ++count) at += tlv::kHeadBytes + tlv::padded(rov::load_be32(at + 4));
  return count;
}

}  // namespace

extern "C" uint32_t tlvo_dec_tlva_to_struct(void** record, const void* tlva, uint32_t len,
                                            const tlvo_table_t* table, uint32_t flags) {
  if (record == nullptr) return bad_argument(1);
  if (tlva == nullptr && len > 0) return bad_argument(2);
  if ((flags & ~uint32_t{TLVO_DEC_IN_PLACE}) != 0) return bad_argument(5);
  if ((flags & TLVO_DEC_IN_PLACE) == 0) return decode_new(record, tlva, len, table);
  if (*record == nullptr) return bad_argument(1);
  return tlv::decode_record(*record, tlva, len, table);
}

extern "C" uint32_t tlvo_dec_tlva_to_struct_size(uint32_t* size, const void* tlva, uint32_t len,
                                                 const tlvo_table_t* table) {
  if (size == nullptr) return bad_argument(1);
  if (tlva == nullptr && len > 0) return bad_argument(2);
  if (table == nullptr) return tlv::refuse_record(table);
  uint64_t bytes = table->record_size;
  if (len > 0) {
    const uint32_t status = decoded_bytes(tlva, len, *table, &bytes);
    if (status != ROV_OK) return status;
  }
  if (bytes >= uint64_t{TLVO_SIZE_FAILED} - *size) {
    return rov::fail_text(ROV_ERR_LENGTH, "the sizes add up to 4 GiB: start a new sum");
  }
  *size += static_cast<uint32_t>(bytes);
  return ROV_OK;
}

extern "C" uint32_t tlvo_enc_struct_to_tlva(void* tlva, uint32_t room, const tlvo_table_t* table,
                                            const void* record, uint32_t* len, uint32_t* count,
                                            uint32_t flags) {
  if (len != nullptr) *len = 0;
  if (count != nullptr) *count = 0;
  if (tlva == nullptr && room > 0) return bad_argument(1);
  if (record == nullptr) return bad_argument(4);
  if (flags != 0) return bad_argument(7);
  auto* const begin = static_cast<uint8_t*>(tlva);
  const tlv::Encoded written = tlv::encode_record(begin, begin + room, table, record);
  if (written.status != ROV_OK) return static_cast<uint32_t>(written.status);
  if (len != nullptr) *len = static_cast<uint32_t>(written.end - begin);
  if (count != nullptr) *count = count_attributes(begin, written.end);
  return ROV_OK;
}

extern "C" uint32_t tlvo_enc_struct_to_tlva_size(const tlvo_table_t* table, const void* record) {
  return record != nullptr ? tlv::encoded_size(table, record) : TLVO_SIZE_FAILED;
}
