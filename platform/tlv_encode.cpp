#include <cinttypes>
#include <cstddef>

#include "platform/error.h"
#include "platform/tlv_codec.h"

namespace tlv {
namespace {

// The part of the output buffer that is left.
class Writer {
 public:
  Writer(void* tlva, uint32_t room) : at_(static_cast<uint8_t*>(tlva)), left_(room) {}

  uint32_t room_for_value() const { return left_ < kHeadBytes ? 0 : left_ - kHeadBytes; }
  bool has_room(uint32_t len) const { return kHeadBytes + padded(len) <= left_; }
  uint8_t* value() const { return at_ + kHeadBytes; }

  // Puts a head before the `len` bytes that were written at value(), and padding after them. False
  // without room.
  bool finish(uint32_t tag, uint32_t len) {
    if (!has_room(len)) return false;
    rov::store_be32(at_, tag);
    rov::store_be32(at_ + 4, len);
    const auto whole = static_cast<uint32_t>(kHeadBytes + padded(len));
    for (uint32_t i = kHeadBytes + len; i < whole; ++i) at_[i] = 0;
    at_ += whole;
    left_ -= whole;
    ++count_;
    return true;
  }

  // Puts a whole attribute, for which there must be room.
  template <typename Int>
  void put_int(uint32_t tag, const void* from) {
    rov::store(at_, swap_be(uint64_t{tag} << 32 | sizeof(Int)));
    copy_int<Int>(at_ + kHeadBytes, from);
    at_ += kHeadBytes + sizeof(Int);
    left_ -= uint32_t{kHeadBytes + sizeof(Int)};
    ++count_;
  }

  uint32_t left() const { return left_; }
  uint32_t count() const { return count_; }

 private:
  uint8_t* at_;
  uint32_t left_;
  uint32_t count_ = 0;
};

class Encoder {
 public:
  Encoder(Writer* out, const tlvo_table_t& table, const void* record)
      : out_(*out),
        table_(table),
        fields_(fields_of(&table)),
        record_(static_cast<const uint8_t*>(record)) {}

  uint32_t run() {
    const tlvo_field_t* field = put_integers(fields_);
    while (!is_end(*field)) {
      if (field - fields_ >= ptrdiff_t{kMaxFields} || !is_sound(*field, table_)) {
        return refuse(ROV_ERR_TLV_TABLE, *field);
      }
      const uint32_t status = put(*field);
      if (status != ROV_OK) return status;
      field = put_integers(field + 1);
    }
    return ROV_OK;
  }

 private:
  // Puts fields for as long as they are integers of the common widths, sound and with room; returns
  // the first that is not.
  const tlvo_field_t* put_integers(const tlvo_field_t* field) {
    Writer out = out_;
    const tlvo_field_t* const end = fields_ + kMaxFields;
    for (; field != end && field->kind == TLVO_KIND_INT && has_place(*field, table_); ++field) {
      const uint32_t tag = tag_of(table_.struct_id, field->id);
      const uint8_t* from = record_ + field->position;
      if (field->width == 4 && out.has_room(4)) {
        out.put_int<uint32_t>(tag, from);
      } else if (field->width == 8 && out.has_room(8)) {
        out.put_int<uint64_t>(tag, from);
      } else {
        break;
      }
    }
    out_ = out;
    return field;
  }

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
  Writer out(tlva, room);
  const uint32_t status = Encoder(&out, *table, record).run();
  if (status != ROV_OK) return status;
  *len = room - out.left();
  *count = out.count();
  return ROV_OK;
}

}  // namespace tlv
