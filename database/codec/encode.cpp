#include <cinttypes>
#include <cstddef>
#include <cstring>

#include "database/base/error.h"
#include "database/codec/codec.h"
#include "database/codec/plan.h"

namespace tlv {
namespace {

// The part of the output buffer that is left.
struct Writer {
  uint8_t* at;
  const uint8_t* end;

  size_t left() const { return bytes_between(at, end); }
  uint32_t room_for_value() const {
    return left() < kHeadBytes ? 0 : static_cast<uint32_t>(left() - kHeadBytes);
  }
  bool has_room(uint32_t len) const { return kHeadBytes + padded(len) <= left(); }
  uint8_t* value() const { return at + kHeadBytes; }

  // Puts a head before the `len` bytes that were written at value(), and padding after them. False
  // without room.
  bool finish(uint32_t tag, uint32_t len) {
    if (!has_room(len)) return false;
    rov::store(at, head_of(tag, len));
    uint8_t* const next = at + kHeadBytes + padded(len);
    for (uint8_t* pad = at + kHeadBytes + len; pad != next; ++pad) *pad = 0;
    at = next;
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
  return field;
}

// Says which field can't be encoded.
[[gnu::cold, gnu::noinline]] uint32_t refuse(uint32_t status, const tlvo_table_t& table,
                                             const tlvo_field_t& field) {
  return rov::fail_text(status, "TLV data of %s, field %" PRIu32 ": %s", name_of(table), field.id,
                        rov_status_text(status));
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
    const Encoded inner =
        encode_record(out_.value(), out_.end, field.record, record_ + field.position);
    if (inner.status != ROV_OK) return static_cast<uint32_t>(inner.status);
    return finish(field, static_cast<uint32_t>(inner.end - out_.value()));
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

  uint32_t refuse(uint32_t status, const tlvo_field_t& field) const {
    return tlv::refuse(status, table_, field);
  }

  Writer& out_;
  const tlvo_table_t& table_;
  const tlvo_field_t* const fields_;
  const uint8_t* record_;
};

// Puts the fields from `field` on, each as its descriptor says.
[[gnu::noinline]] Encoded encode_fields(Writer out, const tlvo_table_t& table,
                                        const tlvo_field_t* field, const uint8_t* record) {
  const Level level;
  const tlvo_field_t* const stop = fields_of(&table) + kMaxFields;
  while (true) {
    field = put_integers(&out, table, field, stop, record);
    if (is_end(*field)) return {out.at, ROV_OK};
    const uint32_t status = Encoder(&out, table, record).take(*field);
    if (status != ROV_OK) return {out.at, status};
    ++field;
  }
}

// Puts the integers that the plan has next. The caller has made sure of the room.
inline uint8_t* put_run(const Step** step, uint8_t* at, const uint8_t* record) {
  const Step* next = *step;
  for (Follow follow = next->follow; is_integer(follow); follow = (++next)->follow) {
    rov::store(at, next->head);
    if (follow == Follow::kInt4) [[likely]] {
      copy_int<uint32_t>(at + kHeadBytes, record + next->position);
      at += kHeadBytes + 4;
    } else {
      copy_int<uint64_t>(at + kHeadBytes, record + next->position);
      at += kHeadBytes + 8;
    }
  }
  *step = next;
  return at;
}

// What a callback is asked for a value, and what it answers.
struct Value {
  void* iter = nullptr;
  uint32_t len = 0;
  uint32_t done = 0;
};

// Has a callback put the value of the attribute at `at`, which has room for a head.
inline uint32_t put_value(uint8_t* at, const uint8_t* end, const Step* step, const uint8_t* record,
                          Value* value) {
  value->len = static_cast<uint32_t>(bytes_between(at, end)) - kHeadBytes;
  return step->field->encode(record, &value->iter, at + kHeadBytes, &value->len, &value->done);
}

// Puts the head of the attribute at `at`, whose value is there, and padding; returns the end of it,
// nullptr without the room.
inline uint8_t* close(uint8_t* at, const uint8_t* end, const Step* step, uint32_t len) {
  if (padded(len) > bytes_between(at, end) - kHeadBytes) [[unlikely]]
    return nullptr;
  rov::store(at, step->head | swap_be(uint64_t{len}));
  at += kHeadBytes + len;
  if (len % 4 != 0) [[unlikely]] {
    for (; len % 4 != 0; ++len) *at++ = 0;
  }
  return at;
}

// Of a value that its callback says to be longer than there was room for it, or for its padding.
[[gnu::cold, gnu::noinline]] Encoded refuse_value(uint8_t* at, const uint8_t* end, const Step* step,
                                                  uint32_t len) {
  const bool beyond = len > bytes_between(at, end) - kHeadBytes;
  const uint32_t status = beyond ? ROV_ERR_TLV_TABLE : ROV_ERR_TLV_ROOM;
  return {at, refuse(status, *step->table, *step->field)};
}

// Puts the elements of a list.
[[gnu::noinline]] Encoded put_list(uint8_t* at, const uint8_t* end, const Step* step,
                                   const uint8_t* record) {
  const Level level;
  if (step->field->count(record) == 0) return {at, ROV_OK};
  Value value;
  do {
    if (bytes_between(at, end) < kHeadBytes) [[unlikely]] {
      return {at, refuse(ROV_ERR_TLV_ROOM, *step->table, *step->field)};
    }
    const uint32_t status = put_value(at, end, step, record, &value);
    if (status != ROV_OK) [[unlikely]]
      return {at, status};
    uint8_t* const next = close(at, end, step, value.len);
    if (next == nullptr) [[unlikely]]
      return refuse_value(at, end, step, value.len);
    at = next;
  } while (value.done == 0);
  return {at, ROV_OK};
}

// Puts an embedded record, for which there is room for a head.
inline Encoded put_record(uint8_t* at, const uint8_t* end, const Step* step,
                          const uint8_t* record) {
  const Level level;
  const Encoded inner =
      encode_record(at + kHeadBytes, end, step->field->record, record + step->position);
  if (inner.status != ROV_OK) [[unlikely]]
    return inner;
  const auto len = static_cast<uint32_t>(inner.end - at) - kHeadBytes;
  uint8_t* const next = close(at, end, step, len);
  if (next == nullptr) [[unlikely]]
    return refuse_value(at, end, step, len);
  return {next, ROV_OK};
}

// Puts a value, for which there is room for a head.
inline Encoded put_single(uint8_t* at, const uint8_t* end, const Step* step,
                          const uint8_t* record) {
  const Level level;
  Value value;
  const uint32_t status = put_value(at, end, step, record, &value);
  if (status != ROV_OK) [[unlikely]]
    return {at, status};
  // A value of no bytes has no attribute: decoding nothing gives the same record.
  if (value.len == 0) [[unlikely]]
    return {at, ROV_OK};
  uint8_t* const next = close(at, end, step, value.len);
  if (next == nullptr) [[unlikely]]
    return refuse_value(at, end, step, value.len);
  return {next, ROV_OK};
}

// Puts the fields that the plan has from `step` on.
[[gnu::noinline]] Encoded encode_steps(uint8_t* at, const uint8_t* end, const Step* step,
                                       const uint8_t* record) {
  for (;; ++step) {
    if (bytes_between(at, end) < step->run) [[unlikely]]
      break;
    at = put_run(&step, at, record);
    if (step->follow == Follow::kEnd) return {at, ROV_OK};
    if (!is_called(step->follow) || bytes_between(at, end) < kHeadBytes) [[unlikely]]
      break;
    Encoded field{};
    if (step->follow == Follow::kRecord) {
      field = put_record(at, end, step, record);
    } else if (step->follow == Follow::kList) {
      field = put_list(at, end, step, record);
    } else {
      field = put_single(at, end, step, record);
    }
    if (field.status != ROV_OK) [[unlikely]]
      return field;
    at = field.end;
  }
  return encode_fields({at, end}, *step->table, step->field, record);
}

}  // namespace

// Most plans are integers, then a value.
Encoded encode_planned(uint8_t* at, const uint8_t* end, const Step* step, const void* record) {
  const auto* const from = static_cast<const uint8_t*>(record);
  if (bytes_between(at, end) < step->run) [[unlikely]] {
    return encode_fields({at, end}, *step->table, step->field, from);
  }
  at = put_run(&step, at, from);
  if (step->follow != Follow::kValue || bytes_between(at, end) < kHeadBytes) [[unlikely]] {
    return encode_steps(at, end, step, from);
  }
  const Encoded field = put_single(at, end, step, from);
  if (field.status != ROV_OK) [[unlikely]]
    return field;
  ++step;
  if (step->follow == Follow::kEnd) [[likely]]
    return field;
  return encode_steps(field.end, end, step, from);
}

Encoded encode_unplanned(uint8_t* at, const uint8_t* end, const tlvo_table_t* table,
                         const void* record) {
  if (Level::is_last() || table == nullptr) return {at, refuse_record(table)};
  const Step* step = make_plan(table);
  if (step != nullptr) return encode_planned(at, end, step, record);
  return encode_fields({at, end}, *table, fields_of(table), static_cast<const uint8_t*>(record));
}

Encoded encode_run(uint8_t* at, const Step* step, const void* record) {
  return {put_run(&step, at, static_cast<const uint8_t*>(record)), ROV_OK};
}

}  // namespace tlv
