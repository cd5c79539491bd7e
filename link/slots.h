// Where node records hold links, by link field code; made from the rows.
#pragma once

#include "schema/rows.h"

namespace qim::link {

// A place in node bodies that holds one link.
struct Place {
  uint32_t position;  // byte position in the body
  schema::Slot form;  // none: no record holds that code
  uint64_t types;     // bit n: nodes of type n have it
};

// A link field code is a record's struct id times 64 plus a number.
inline constexpr uint32_t kCodesPerRecord = 64;

// One more than the largest number that `part` makes of a slot's code.
template <class Part>
consteval uint32_t slots_below(Part part) {
  uint32_t below = 0;
  for (const schema::Record* record : schema::records) {
    for (const schema::Row& row : *record) {
      const uint32_t number = part(row.link);
      below = number >= below ? number + 1 : below;
    }
  }
  return below;
}
inline constexpr uint32_t kRecords =
    slots_below([](uint32_t link) { return link / kCodesPerRecord; });
inline constexpr uint32_t kFields =
    slots_below([](uint32_t link) { return link % kCodesPerRecord; });

struct Places {
  Place at[kRecords][kFields];
};

// Never defined: a constant expression that comes to it does not compile.
void types_that_share_a_code_hold_it_in_different_places();

consteval void add_type(Places& places, const schema::NodeType& type) {
  for (const schema::Row& row : *type.body) {
    if (row.slot == schema::Slot::none) continue;
    Place& place = places.at[row.link / kCodesPerRecord][row.link % kCodesPerRecord];
    const bool fresh = place.form == schema::Slot::none;
    if (!fresh && (place.form != row.slot || place.position != row.position)) {
      types_that_share_a_code_hold_it_in_different_places();
    }
    place.form = row.slot;
    place.position = row.position;
    place.types |= uint64_t{1} << type.code;
  }
}

consteval Places make_places() {
  Places places = {};
  for (const schema::NodeType& type : schema::tlv_types) add_type(places, type);
  for (const schema::NodeType& type : schema::dset_types) add_type(places, type);
  return places;
}
inline constexpr Places places = make_places();

// NULL for a code that no record holds.
constexpr const Place* place_of(uint16_t field) {
  const uint32_t record = field / kCodesPerRecord;
  const uint32_t number = field % kCodesPerRecord;
  if (record >= kRecords || number >= kFields) return nullptr;
  const Place& place = places.at[record][number];
  return place.form == schema::Slot::none ? nullptr : &place;
}

constexpr bool has_type(const Place& place, uint32_t type) {
  return type < 64 && ((place.types >> type) & 1) != 0;
}

}  // namespace qim::link
