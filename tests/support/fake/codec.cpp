// tlvo_*: a codec that walks descriptor tables and nothing else.

#include "codec.h"

#include <algorithm>

#include "mem.h"
#include "recorder.h"
#include "rov.h"
#include "tlv.h"
#include "tlvo.h"

namespace fake::detail {
namespace {

const tlvo_field_t* fields_of(const tlvo_table_t& table) {
  return reinterpret_cast<const tlvo_field_t*>(&table + 1);
}

const tlvo_field_t* field_of(const tlvo_table_t& table, std::uint32_t id) {
  const tlvo_field_t* field = fields_of(table);
  while (field->position != TLVO_FIELD_END && field->id != id) ++field;
  return field->position == TLVO_FIELD_END ? nullptr : field;
}

void store_int(std::uint8_t* at, std::uint64_t value, std::uint32_t width) {
  if (width == 8) {
    std::memcpy(at, &value, sizeof value);
  } else {
    const auto narrow = static_cast<std::uint32_t>(value);
    std::memcpy(at, &narrow, sizeof narrow);
  }
}

std::uint64_t load_int(const std::uint8_t* at, std::uint32_t width) {
  if (width == 8) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
  }
  std::uint32_t narrow;
  std::memcpy(&narrow, at, sizeof narrow);
  return narrow;
}

std::uint32_t decode_field(const tlvo_field_t& field, std::uint8_t* record,
                           const std::uint8_t* value, std::uint32_t len, void** iter) {
  switch (field.kind) {
    case TLVO_KIND_INT:
      if ((field.width != 4 && field.width != 8) || len != field.width) return ROV_ERR_TLV_WIDTH;
      store_int(record + field.position, read_big(value, len), len);
      return ROV_OK;
    case TLVO_KIND_RECORD:
      return decode(*field.record, record + field.position, value, len);
    case TLVO_KIND_VALUE:
    case TLVO_KIND_LIST:
      return field.decode(record, value, len, iter);
    default:
      return ROV_ERR_TLV_TABLE;
  }
}

std::uint32_t value_size(const tlvo_field_t& field, const std::uint8_t* record) {
  switch (field.kind) {
    case TLVO_KIND_INT:
      return field.width;
    case TLVO_KIND_RECORD:
      return encoded_size(*field.record, record + field.position);
    default:
      return field.size(record);
  }
}

std::uint32_t encode_value(const tlvo_field_t& field, const std::uint8_t* record, Output& out,
                           void** iter, std::uint32_t* done) {
  if (field.kind == TLVO_KIND_RECORD) return encode(*field.record, record + field.position, out);
  if (field.kind == TLVO_KIND_INT) {
    if (out.room() < field.width) return ROV_ERR_TLV_ROOM;
    write_big(out.at, load_int(record + field.position, field.width), field.width);
    out.at += field.width;
    return ROV_OK;
  }
  std::uint32_t len = out.room();
  const std::uint32_t status = field.encode(record, iter, out.at, &len, done);
  if (status == ROV_OK) out.at += len;
  return status;
}

std::uint32_t encode_attribute(const tlvo_table_t& table, const tlvo_field_t& field,
                               const std::uint8_t* record, Output& out, void** iter,
                               std::uint32_t* done) {
  if (out.room() < kTlvHead) return ROV_ERR_TLV_ROOM;
  std::uint8_t* const head = out.at;
  out.at += kTlvHead;
  const std::uint32_t status = encode_value(field, record, out, iter, done);
  if (status != ROV_OK) return status;
  write_big(head, table.struct_id, 2);
  write_big(head + 2, field.id, 2);
  write_big(head + 4, static_cast<std::uint64_t>(out.at - head - kTlvHead), 4);
  ++out.attributes;
  return ROV_OK;
}

// A list has an attribute for each element, a byte string of no bytes has none.
std::uint32_t attributes_of(const tlvo_field_t& field, const std::uint8_t* record) {
  if (field.kind == TLVO_KIND_LIST) return field.count(record);
  if (field.kind == TLVO_KIND_VALUE) return field.size(record) == 0 ? 0 : 1;
  return 1;
}

}  // namespace

std::uint32_t decode(const tlvo_table_t& table, void* record, const std::uint8_t* at,
                     std::uint32_t len) {
  void* iters[32] = {};
  const std::uint8_t* const end = at + len;
  while (at != end) {
    if (end - at < static_cast<std::ptrdiff_t>(kTlvHead)) return ROV_ERR_TLV_TRUNCATED;
    const auto record_id = static_cast<std::uint32_t>(read_big(at, 2));
    const auto field_id = static_cast<std::uint32_t>(read_big(at + 2, 2));
    const auto value_len = static_cast<std::uint32_t>(read_big(at + 4, 4));
    at += kTlvHead;
    if (static_cast<std::size_t>(end - at) < value_len) return ROV_ERR_TLV_TRUNCATED;
    const tlvo_field_t* const field =
        record_id == table.struct_id && field_id < 32 ? field_of(table, field_id) : nullptr;
    if (field != nullptr) {
      const std::uint32_t status =
          decode_field(*field, static_cast<std::uint8_t*>(record), at, value_len, &iters[field_id]);
      if (status != ROV_OK) return status;
    }
    at += value_len;
  }
  return ROV_OK;
}

std::uint32_t encode(const tlvo_table_t& table, const void* record, Output& out) {
  const auto* const bytes = static_cast<const std::uint8_t*>(record);
  out.attributes = 0;
  std::uint32_t attributes = 0;
  for (const tlvo_field_t* f = fields_of(table); f->position != TLVO_FIELD_END; ++f) {
    void* iter = nullptr;
    std::uint32_t done = 0;
    const std::uint32_t total = attributes_of(*f, bytes);
    for (std::uint32_t i = 0; i < total; ++i) {
      const std::uint32_t status = encode_attribute(table, *f, bytes, out, &iter, &done);
      if (status != ROV_OK) return status;
      ++attributes;
    }
  }
  out.attributes = attributes;
  return ROV_OK;
}

std::uint32_t encoded_size(const tlvo_table_t& table, const void* record) {
  const auto* const bytes = static_cast<const std::uint8_t*>(record);
  std::uint32_t total = 0;
  for (const tlvo_field_t* f = fields_of(table); f->position != TLVO_FIELD_END; ++f) {
    if (f->kind == TLVO_KIND_LIST && f->count(bytes) == 0) continue;
    const std::uint32_t size = value_size(*f, bytes);
    if (size == TLVO_SIZE_FAILED) return size;
    if (f->kind == TLVO_KIND_VALUE && size == 0) continue;
    total += size + (f->kind == TLVO_KIND_LIST ? 0 : kTlvHead);
  }
  return total;
}

}  // namespace fake::detail

using fake::detail::enter;
using fake::detail::enter_with;

extern "C" {

// Keeps a copy of the array.
uint32_t tlvo_dec_tlva_to_struct(void** record, const void* tlva, uint32_t len,
                                 const tlvo_table_t* table, uint32_t flags) {
  if (const auto status =
          enter_with(tlva, len, "tlvo_dec_tlva_to_struct", record, tlva, len, table, flags)) {
    return *status;
  }
  if ((flags & TLVO_DEC_IN_PLACE) == 0) *record = fake::allocate(table->record_size, nullptr);
  return fake::detail::decode(*table, *record, static_cast<const std::uint8_t*>(tlva), len);
}

uint32_t tlvo_dec_tlva_to_struct_size(uint32_t* size, const void* tlva, uint32_t len,
                                      const tlvo_table_t* table) {
  fake::Call made = fake::call("tlvo_dec_tlva_to_struct_size", size, tlva, len, table);
  made.bytes.assign(reinterpret_cast<uint8_t*>(size), reinterpret_cast<uint8_t*>(size + 1));
  if (const auto status = enter(std::move(made))) return *status;
  *size += table->record_size;
  return ROV_OK;
}

uint32_t tlvo_enc_struct_to_tlva(void* tlva, uint32_t room, const tlvo_table_t* table,
                                 const void* record, uint32_t* len, uint32_t* count,
                                 uint32_t flags) {
  if (const auto status =
          enter("tlvo_enc_struct_to_tlva", tlva, room, table, record, len, count, flags)) {
    return *status;
  }
  auto* const start = static_cast<std::uint8_t*>(tlva);
  fake::detail::Output out{start, start + room};
  const uint32_t status = fake::detail::encode(*table, record, out);
  if (len != nullptr) *len = status == ROV_OK ? static_cast<uint32_t>(out.at - start) : 0;
  if (count != nullptr) *count = status == ROV_OK ? out.attributes : 0;
  return status;
}

uint32_t tlvo_enc_struct_to_tlva_size(const tlvo_table_t* table, const void* record) {
  if (const auto status = enter("tlvo_enc_struct_to_tlva_size", table, record)) return *status;
  return fake::detail::encoded_size(*table, record);
}

}  // extern "C"
