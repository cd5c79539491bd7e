#include <cinttypes>
#include <cstddef>

#include "platform/error.h"
#include "platform/tlv_codec.h"

namespace tlv {
namespace {

// The part of the output buffer that is left.
struct Writer {
  uint8_t* at;
  uint8_t* const end;
  uint32_t count = 0;  // attributes written

  size_t left() const { return static_cast<size_t>(end - at); }
  uint32_t room_for_value() const {
    return left() < kHeadBytes ? 0 : static_cast<uint32_t>(left() - kHeadBytes);
  }
  bool has_room(uint32_t len) const { return kHeadBytes + padded(len) <= left(); }
  uint8_t* value() const { return at + kHeadBytes; }

  // Puts a head before the `len` bytes that were written at value(), and padding after them. False
  // without room.
  bool finish(uint32_t tag, uint32_t len) {
    if (!has_room(len)) return false;
    rov::store(at, swap_be(uint64_t{tag} << 32 | len));
    uint8_t* const next = at + kHeadBytes + padded(len);
    for (uint8_t* pad = at + kHeadBytes + len; pad != next; ++pad) *pad = 0;
    at = next;
    ++count;
    return true;
  }
};

// Puts fields for as long as they are integers of the common widths, sound and with room; returns
// the first that is not, or `stop`.
[[gnu::always_inline]] inline const tlvo_field_t* put_integers(Writer* out,
                                                               const tlvo_table_t& table,
                                                               const tlvo_field_t* field,
                                                               const tlvo_field_t* stop,
                                                               const uint8_t* record) {
  const tlvo_field_t* const first = field;
  const uint64_t struct_tag = uint64_t{table.struct_id} << 48;
  uint8_t* at = out->at;
  for (; field->kind == TLVO_KIND_INT && field != stop && has_place(*field, table); ++field) {
    const uint64_t head = struct_tag | uint64_t{field->id} << 32 | field->width;
    const auto left = static_cast<size_t>(out->end - at);
    if (field->width == 4 && left >= kHeadBytes + 4) {
      rov::store(at, swap_be(head));
      copy_int<uint32_t>(at + kHeadBytes, record + field->position);
      at += kHeadBytes + 4;
    } else if (field->width == 8 && left >= kHeadBytes + 8) {
      rov::store(at, swap_be(head));
      copy_int<uint64_t>(at + kHeadBytes, record + field->position);
      at += kHeadBytes + 8;
    } else {
      break;
    }
  }
  out->at = at;
  out->count += static_cast<uint32_t>(field - first);
  return field;
}

// Puts what is no common integer.
class Encoder {
 public:
  Encoder(Writer* out, const tlvo_table_t& table, const void* record)
      : out_(*out),
        table_(table),
        fields_(fields_of(&table)),
        record_(static_cast<const uint8_t*>(record)) {}

  // Puts the field, if the table is one that can be followed that far.
  uint32_t take(const tlvo_field_t& field) {
    if (&field - fields_ >= ptrdiff_t{kMaxFields} || !is_sound(field, table_)) {
      return refuse(ROV_ERR_TLV_TABLE, field);
    }
    return put(field);
  }

 private:
  uint32_t put(const tlvo_field_t& field) {
    switch (field.kind) {
      case TLVO_KIND_INT:
        return put_int(field);
      case TLVO_KIND_RECORD:
        return put_record(field);
      case TLVO_KIND_VALUE:
        return put_value(field);
      default:
        return put_list(field);
    }
  }

  uint32_t put_int(const tlvo_field_t& field) {
    if (!out_.has_room(field.width)) return refuse(ROV_ERR_TLV_ROOM, field);
    copy_int(out_.value(), record_ + field.position, field.width);
    return finish(field, field.width);
  }

  uint32_t put_record(const tlvo_field_t& field) {
    if (!out_.has_room(0)) return refuse(ROV_ERR_TLV_ROOM, field);
    uint32_t len = 0;
    uint32_t count = 0;
    const uint32_t status = encode_record(out_.value(), out_.room_for_value(), field.record,
                                          record_ + field.position, &len, &count);
    return status == ROV_OK ? finish(field, len) : status;
  }

  uint32_t put_value(const tlvo_field_t& field) {
    if (!out_.has_room(0)) return refuse_value(field);
    void* iter = nullptr;
    uint32_t len = 0;
    uint32_t done = 0;
    const uint32_t status = call(field, &iter, &len, &done);
    // A value of no bytes has no attribute: decoding nothing gives the same record.
    return status != ROV_OK || len == 0 ? status : finish(field, len);
  }

  // Without room for a head: a value of no bytes needs none.
  uint32_t refuse_value(const tlvo_field_t& field) const {
    if (field.size(record_) == 0) return ROV_OK;
    return refuse(ROV_ERR_TLV_ROOM, field);
  }

  uint32_t put_list(const tlvo_field_t& field) {
    if (field.count(record_) == 0) return ROV_OK;
    void* iter = nullptr;
    for (uint32_t done = 0; done == 0;) {
      if (!out_.has_room(0)) return refuse(ROV_ERR_TLV_ROOM, field);
      uint32_t len = 0;
      uint32_t status = call(field, &iter, &len, &done);
      if (status == ROV_OK) status = finish(field, len);
      if (status != ROV_OK) return status;
    }
    return ROV_OK;
  }

  uint32_t call(const tlvo_field_t& field, void** iter, uint32_t* len, uint32_t* done) {
    const uint32_t room = out_.room_for_value();
    *len = room;
    const uint32_t status = field.encode(record_, iter, out_.value(), len, done);
    if (status != ROV_OK) return status;
    if (*len > room) return refuse(ROV_ERR_TLV_TABLE, field);
    return ROV_OK;
  }

  uint32_t finish(const tlvo_field_t& field, uint32_t len) {
    if (!out_.finish(tag_of(table_.struct_id, field.id), len)) {
      return refuse(ROV_ERR_TLV_ROOM, field);
    }
    return ROV_OK;
  }

  // Says which field can't be encoded.
  [[gnu::cold, gnu::noinline]] uint32_t refuse(uint32_t status, const tlvo_field_t& field) const {
    return rov::fail_text(status, "TLV data of %s, field %" PRIu32 ": %s", name_of(table_),
                          field.id, rov_status_text(status));
  }

  Writer& out_;
  const tlvo_table_t& table_;
  const tlvo_field_t* const fields_;
  const uint8_t* record_;
};

}  // namespace

uint32_t encode_record(void* tlva, uint32_t room, const tlvo_table_t* table, const void* record,
                       uint32_t* len, uint32_t* count) {
  const Level level;
  if (level.too_deep() || table == nullptr) return refuse_record(table);
  auto* const begin = static_cast<uint8_t*>(tlva);
  Writer out{begin, begin + room};
  const auto* from = static_cast<const uint8_t*>(record);
  const tlvo_field_t* const stop = fields_of(table) + kMaxFields;
  const tlvo_field_t* field = fields_of(table);
  while (true) {
    field = put_integers(&out, *table, field, stop, from);
    if (is_end(*field)) break;
    const uint32_t status = Encoder(&out, *table, record).take(*field);
    if (status != ROV_OK) return status;
    ++field;
  }
  *len = static_cast<uint32_t>(out.at - begin);
  *count = out.count;
  return ROV_OK;
}

}  // namespace tlv
