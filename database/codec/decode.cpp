#include <cinttypes>
#include <cstddef>
#include <cstring>

#include "database/base/error.h"
#include "database/codec/codec.h"
#include "database/codec/plan.h"

namespace tlv {
namespace {

// A table with more list fields than this can't be followed: the decoder keeps a word for each.
constexpr uint32_t kMaxLists = 8;

struct Attribute {
  const uint8_t* head;
  uint32_t tag;
  uint32_t len;

  const uint8_t* value() const { return head + kHeadBytes; }
};

// How far the array is decoded, and the field that is expected next: one beyond every field seen.
struct Place {
  const uint8_t* at;
  const tlvo_field_t* next;
};

// Takes attributes for as long as they are the integers that the table has next: most are, and
// comparing the whole head with the one expected is all the checking they need.
[[gnu::always_inline]] inline Place take_integers(Place place, const uint8_t* end, uint8_t* record,
                                                  const tlvo_table_t& table) {
  const uint64_t struct_tag = uint64_t{table.struct_id} << 48;
  for (; place.next->kind == TLVO_KIND_INT && end - place.at >= 12; ++place.next) {
    const uint64_t width = place.next->width;
    const uint64_t expected = struct_tag | uint64_t{place.next->id} << 32 | width;
    if (swap_be(rov::load<uint64_t>(place.at)) != expected) break;
    if (!has_place(*place.next, table)) break;
    uint8_t* field = record + place.next->position;
    if (width == 4) {
      copy_int<uint32_t>(field, place.at + kHeadBytes);
      place.at += 12;
    } else if (width == 8 && end - place.at >= 16) {
      copy_int<uint64_t>(field, place.at + kHeadBytes);
      place.at += 16;
    } else {
      break;
    }
  }
  return place;
}

// A list that is being decoded, and where its callback keeps its tail.
struct List {
  const tlvo_field_t* field;
  void* iter;
};

// Whether the attribute at `at` is one of that field's, whole and without padding.
inline bool is_whole(const uint8_t* at, const uint8_t* end, const tlvo_table_t& table,
                     const tlvo_field_t& field) {
  const auto left = bytes_between(at, end);
  if (left < kHeadBytes) return false;
  const uint32_t len = rov::load_be32(at + 4);
  return rov::load_be32(at) == tag_of(table.struct_id, field.id) && len % 4 == 0 &&
         len <= left - kHeadBytes;
}

// Whether the attribute at the place is the embedded record or value that the table has next, whole
// and without padding.
inline bool is_expected(Place place, const uint8_t* end, const tlvo_table_t& table) {
  const tlvo_field_t& field = *place.next;
  return (field.kind == TLVO_KIND_RECORD || field.kind == TLVO_KIND_VALUE) &&
         is_whole(place.at, end, table, field) && is_sound(field, table);
}

// Decodes the elements of a list for as long as they come.
inline uint32_t take_elements(Place* place, const uint8_t* end, void* record,
                              const tlvo_table_t& table, List* list) {
  do {
    const uint32_t len = rov::load_be32(place->at + 4);
    const Level level;
    const uint32_t status = list->field->decode(record, place->at + kHeadBytes, len, &list->iter);
    if (status != ROV_OK) return status;
    place->at += kHeadBytes + len;
  } while (is_whole(place->at, end, table, *list->field));
  ++place->next;
  return ROV_OK;
}
// Decodes an embedded record or a value.
inline uint32_t take_nested(const tlvo_field_t& field, uint8_t* record, const uint8_t* value,
                            uint32_t len) {
  const Level level;
  if (field.kind == TLVO_KIND_RECORD) {
    return decode_record(record + field.position, value, len, field.record);
  }
  void* iter = nullptr;
  return field.decode(record, value, len, &iter);
}

bool is_zero(const uint8_t* from, const uint8_t* to) {
  for (; from < to; ++from) {
    if (*from != 0) return false;
  }
  return true;
}

class Decoder {
 public:
  // `list`: one that was begun before.
  Decoder(void* record, const uint8_t* begin, const uint8_t* end, const tlvo_table_t& table,
          const List& list)
      : record_(static_cast<uint8_t*>(record)),
        begin_(begin),
        end_(end),
        table_(table),
        fields_(fields_of(&table)),
        place_{begin, fields_},
        lists_(list.field != nullptr ? 1 : 0) {
    list_[0] = list;
  }

  // Decodes what follows the fields that were taken up to `place`.
  uint32_t run(Place place) {
    Attribute attribute{begin_, 0, 0};
    while (true) {
      if (!advance(place)) return refuse(ROV_ERR_TLV_TABLE, attribute);
      if (place_.at == end_) return ROV_OK;
      uint32_t status = read(&attribute);
      if (status != ROV_OK) return refuse(status, attribute);
      status = take(attribute);
      if (status != ROV_OK) return status;
      place = place_;
      if (place.next->kind == TLVO_KIND_INT) {
        place = take_integers(place, end_, record_, table_);
      }
    }
  }

 private:
  // The bits of the first `count` fields.
  static uint64_t below(uint32_t count) {
    return count < kMaxFields ? (uint64_t{1} << count) - 1 : ~uint64_t{0};
  }

  // Moves on to `place`; the fields on the way have been seen. False when the table has too many.
  bool advance(Place place) {
    if (place.next != place_.next) {
      const uint32_t index = index_of(place.next);
      if (index > kMaxFields) return false;
      seen_ |= below(index) & ~below(index_of(place_.next));
    }
    place_ = place;
    return true;
  }

  // Reads the attribute at the place, and steps over it.
  uint32_t read(Attribute* attribute) {
    const uint8_t* at = place_.at;
    *attribute = Attribute{at, 0, 0};
    const auto left = static_cast<uint32_t>(end_ - at);
    if (left < kHeadBytes) return at == begin_ ? ROV_ERR_TLV_TRUNCATED : ROV_ERR_TLV_OVERLONG;
    attribute->tag = rov::load_be32(at);
    attribute->len = rov::load_be32(at + 4);
    const uint64_t whole = kHeadBytes + padded(attribute->len);
    if (whole > left) return ROV_ERR_TLV_TRUNCATED;
    place_.at = at + whole;
    if (!is_zero(attribute->value() + attribute->len, place_.at)) return ROV_ERR_TLV_PADDING;
    return ROV_OK;
  }

  uint32_t take(const Attribute& attribute) {
    if (attribute.tag >> 16 != table_.struct_id) return ROV_OK;
    const tlvo_field_t* field = place_.next;
    if (field->id != (attribute.tag & 0xffff) || is_end(*field)) {
      if (!find(attribute.tag & 0xffff, &field)) return refuse(ROV_ERR_TLV_TABLE, attribute);
      if (field == nullptr) return ROV_OK;
    }
    if (!is_sound(*field, table_)) return refuse(ROV_ERR_TLV_TABLE, attribute);
    if (field->kind == TLVO_KIND_LIST) return take_element(*field, attribute);
    const uint32_t index = index_of(field);
    if (index >= kMaxFields) return refuse(ROV_ERR_TLV_TABLE, attribute);
    if ((seen_ >> index & 1) != 0) return refuse(ROV_ERR_TLV_DUPLICATE, attribute);
    seen_ |= uint64_t{1} << index;
    if (field >= place_.next) place_.next = field + 1;
    return take_single(*field, attribute);
  }

  // *field is nullptr when the table does not have the field. False when the table does not end.
  bool find(uint32_t id, const tlvo_field_t** field) const {
    *field = nullptr;
    for (uint32_t i = 0; i <= kMaxFields; ++i) {
      if (is_end(fields_[i])) return true;
      if (fields_[i].id != id) continue;
      *field = &fields_[i];
      return true;
    }
    return false;
  }

  uint32_t take_single(const tlvo_field_t& field, const Attribute& attribute) {
    if (field.kind != TLVO_KIND_INT) {
      return take_nested(field, record_, attribute.value(), attribute.len);
    }
    if (attribute.len != field.width) return refuse(ROV_ERR_TLV_WIDTH, attribute);
    copy_int(record_ + field.position, attribute.value(), field.width);
    return ROV_OK;
  }

  uint32_t take_element(const tlvo_field_t& field, const Attribute& attribute) {
    uint32_t list = 0;
    while (list < lists_ && list_[list].field != &field) ++list;
    if (list == kMaxLists) return refuse(ROV_ERR_TLV_TABLE, attribute);
    if (list == lists_) list_[lists_++] = List{&field, nullptr};
    const Level level;
    return field.decode(record_, attribute.value(), attribute.len, &list_[list].iter);
  }

  uint32_t index_of(const tlvo_field_t* field) const {
    return static_cast<uint32_t>(field - fields_);
  }

  // Says where the array is wrong.
  [[gnu::cold, gnu::noinline]] uint32_t refuse(uint32_t status, const Attribute& attribute) const {
    return rov::fail_text(status,
                          "TLV data of %s, attribute 0x%08" PRIx32 " of %" PRIu32
                          " bytes at byte %td of %td: %s",
                          name_of(table_), attribute.tag, attribute.len, attribute.head - begin_,
                          end_ - begin_, rov_status_text(status));
  }

  uint8_t* const record_;
  const uint8_t* const begin_;
  const uint8_t* const end_;
  const tlvo_table_t& table_;
  const tlvo_field_t* const fields_;
  Place place_;
  uint64_t seen_ = 0;  // a bit for each field but lists
  uint32_t lists_;
  List list_[kMaxLists];
};

// Decodes what follows the fields that were taken up to `place`: as mostly, the list that the table
// has next and nothing more, or anything.
uint32_t decode_rest(void* record, const uint8_t* begin, const uint8_t* end,
                     const tlvo_table_t& table, Place place) {
  List list{nullptr, nullptr};
  const tlvo_field_t& field = *place.next;
  if (field.kind == TLVO_KIND_LIST && is_whole(place.at, end, table, field) &&
      is_sound(field, table)) {
    list.field = &field;
    const uint32_t status = take_elements(&place, end, record, table, &list);
    if (status != ROV_OK || place.at == end) return status;
  }
  return Decoder(record, begin, end, table, list).run(place);
}

// Takes integers for as long as they are what the plan expects, up to *step; returns where it
// stopped.
inline const uint8_t* take_planned(const Step** step, const uint8_t* at, uint8_t* record) {
  const Step* next = *step;
  for (Follow follow = next->follow; is_integer(follow); follow = (++next)->follow) {
    if (rov::load<uint64_t>(at) != next->head) break;
    if (follow == Follow::kInt4) {
      copy_int<uint32_t>(record + next->position, at + kHeadBytes);
      at += kHeadBytes + 4;
    } else {
      copy_int<uint64_t>(record + next->position, at + kHeadBytes);
      at += kHeadBytes + 8;
    }
  }
  *step = next;
  return at;
}

// Decodes what follows the fields that were taken up to `place`, by a table without a plan or data
// that the plan does not expect.
[[gnu::noinline]] uint32_t decode_fields(void* record, const uint8_t* begin, const uint8_t* end,
                                         const tlvo_table_t& table, Place place) {
  auto* bytes = static_cast<uint8_t*>(record);
  while (true) {
    place = take_integers(place, end, bytes, table);
    if (place.at == end) return ROV_OK;
    if (!is_expected(place, end, table)) return decode_rest(record, begin, end, table, place);
    const uint32_t nested = rov::load_be32(place.at + 4);
    const uint32_t status = take_nested(*place.next, bytes, place.at + kHeadBytes, nested);
    if (status != ROV_OK) return status;
    place.at += kHeadBytes + nested;
    ++place.next;
  }
}

// Whether an attribute of the step's field lies at `at`, whole and without padding.
inline bool is_at(const uint8_t* at, const uint8_t* end, const Step* step) {
  const auto left = bytes_between(at, end);
  if (left < kHeadBytes || std::memcmp(at, &step->head, 4) != 0) return false;
  const uint32_t len = rov::load_be32(at + 4);
  return len % 4 == 0 && len <= left - kHeadBytes;
}

// Decodes what the data have beyond what the plan expects.
[[gnu::noinline]] uint32_t leave_plan(void* record, const uint8_t* begin, const uint8_t* end,
                                      const uint8_t* at, const Step* step) {
  return decode_fields(record, begin, end, *step->table, Place{at, step->field});
}

// Decodes the elements of the list that the plan has next, and what follows them: as mostly,
// nothing.
[[gnu::noinline]] uint32_t decode_list(void* record, const uint8_t* begin, const uint8_t* end,
                                       const uint8_t* at, const Step* step) {
  void* iter = nullptr;
  do {
    const uint8_t* const value = at + kHeadBytes;
    const uint32_t len = rov::load_be32(at + 4);
    at = value + len;
    const Level level;
    const uint32_t status = step->field->decode(record, value, len, &iter);
    if (status != ROV_OK || at == end) return status;
  } while (is_at(at, end, step));
  const List list{step->field, iter};
  return Decoder(record, begin, end, *step->table, list).run(Place{at, step->field + 1});
}

inline uint32_t decode_nested(void* record, const uint8_t* value, uint32_t len, const Step* step) {
  const Level level;
  if (step->follow == Follow::kRecord) {
    auto* const field = static_cast<uint8_t*>(record) + step->position;
    return decode_record(field, value, len, step->field->record);
  }
  void* iter = nullptr;
  return step->field->decode(record, value, len, &iter);
}

}  // namespace

// Decodes for as long as the data are what the plan expects, field by field in the table's order,
// and leaves the rest to those who take anything.
uint32_t decode_planned(void* record, const uint8_t* begin, const uint8_t* end, const Step* step) {
  const uint8_t* at = begin;
  while (true) {
    if (bytes_between(at, end) < step->run) break;
    at = take_planned(&step, at, static_cast<uint8_t*>(record));
    if (at == end) return ROV_OK;
    if (!is_called(step->follow) || !is_at(at, end, step)) break;
    if (step->follow == Follow::kList) return decode_list(record, begin, end, at, step);
    const uint8_t* const value = at + kHeadBytes;
    const uint32_t len = rov::load_be32(at + 4);
    at = value + len;
    const uint32_t status = decode_nested(record, value, len, step);
    if (status != ROV_OK || at == end) return status;
    ++step;
  }
  return leave_plan(record, begin, end, at, step);
}

uint32_t decode_unplanned(void* record, const uint8_t* begin, const uint8_t* end,
                          const tlvo_table_t* table) {
  if (Level::is_last() || table == nullptr) return refuse_record(table);
  const Step* step = make_plan(table);
  if (step != nullptr) return decode_planned(record, begin, end, step);
  return decode_fields(record, begin, end, *table, Place{begin, fields_of(table)});
}

uint32_t decode_run(void* record, const uint8_t* begin, const uint8_t* end, const Step* step) {
  const uint8_t* at = take_planned(&step, begin, static_cast<uint8_t*>(record));
  if (at == end) return ROV_OK;
  return leave_plan(record, begin, end, at, step);
}

}  // namespace tlv
