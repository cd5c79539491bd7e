// What rows.h must hold to, checked wherever it is included: rows that say something else than the
// records they describe do not compile. Only rows.h includes this.
#pragma once

#include "schema/rows.h"

namespace qim::schema::check {

constexpr bool same_text(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) {
    a++;
    b++;
  }
  return *a == *b;
}

// ---- Every member has a row ----

// Converts to whatever an initializer needs, so that a record takes as many of them as it has
// members.
struct Anything {
  template <class T>
  constexpr operator T() const;  // NOLINT(google-explicit-constructor): it stands for any value
};

template <class T, class... Values>
consteval size_t members() {
  if constexpr (requires { T{Values{}..., Anything{}}; }) {
    return members<T, Values..., Anything>();
  } else {
    return sizeof...(Values);
  }
}

// Do both names begin with the same member? "fields.dir" and "fields.type" are parts of one.
constexpr bool one_member(const char* a, const char* b) {
  while (*a != '\0' && *a != '.' && *a == *b) {
    a++;
    b++;
  }
  return (*a == '\0' || *a == '.') && (*b == '\0' || *b == '.');
}

// How many members the rows name.
constexpr size_t members_named(const Record& record) {
  size_t count = 0;
  for (size_t i = 0; i < record.row_count; i++) {
    bool fresh = record.rows[i].of != nullptr;
    for (size_t j = 0; j < i; j++) {
      fresh = fresh && !one_member(record.rows[i].name, record.rows[j].name);
    }
    count += fresh ? 1 : 0;
  }
  return count;
}

template <class T>
consteval bool every_member_has_a_row(const Record& record) {
  return members<T>() == members_named(record);
}

// ---- Rows and members agree ----

// Is `type` how the record's type is called?
constexpr bool names_record(const char* type, const Record& record) {
  constexpr const char* prefix = "qim_";
  for (const char* c = prefix; *c != '\0'; c++, type++) {
    if (*type != *c) return false;
  }
  for (const char* c = record.kind; *c != '\0'; c++, type++) {
    if (*type != *c) return false;
  }
  return same_text(type, "_t");
}

constexpr bool rows_are_of(const Record& record) {
  for (const Row& row : record) {
    if (row.of != nullptr && !names_record(row.of, record)) return false;
  }
  return true;
}

constexpr uint32_t aligned(uint32_t position, uint32_t align) {
  return (position + align - 1) / align * align;
}

// The number of the member that begins at or first behind `from`, row_count when there is none. By
// number: some compilers accept no comparison of addresses in a constant expression.
constexpr size_t next_member(const Record& record, uint32_t from) {
  size_t next = record.row_count;
  for (size_t i = 0; i < record.row_count; i++) {
    const Row& row = record.rows[i];
    if (row.of != nullptr && row.position >= from &&
        (next == record.row_count || row.position < record.rows[next].position)) {
      next = i;
    }
  }
  return next;
}

// Rows lie behind one another with no more room between them than alignment asks for. A compiler
// leaves such room before pointers that are wider than the device's.
constexpr bool rows_cover(const Record& record) {
  uint32_t end = 0;
  uint32_t align = 1;
  size_t seen = 0;
  for (size_t i = next_member(record, 0); i != record.row_count; i = next_member(record, end)) {
    const Row& row = record.rows[i];
    if (row.position != aligned(end, row.align)) return false;
    end = row.position + row.width;
    align = row.align > align ? row.align : align;
    seen++;
  }
  size_t with_member = 0;
  for (const Row& row : record) with_member += row.of != nullptr ? 1 : 0;
  return seen == with_member && aligned(end, align) == record.size;
}

constexpr uint32_t width_of(Slot form) {
  return form == Slot::single ? sizeof(qim_node_id_t) : sizeof(qim_link_t);
}

// A slot is as wide as its form, and a field as its coding asks for.
constexpr bool width_fits(const Row& row) {
  if (row.slot != Slot::none && row.width != width_of(row.slot)) return false;
  switch (row.coding) {
    case Coding::integer:
      return row.width == 4 || row.width == 8;
    case Coding::record:
      return row.width == row.record->size;
    case Coding::args:
    case Coding::list:
      return row.width == sizeof(void*);
    default:
      return true;
  }
}

constexpr bool widths_fit(const Record& record) {
  for (const Row& row : record) {
    if (!width_fits(row)) return false;
  }
  return true;
}

// The member that an args row names as its length is a value beside it, as wide as lengths are. Where
// pointers are as wide, only its being coded tells the arguments themselves from their length.
constexpr bool lengths_fit(const Record& record) {
  for (const Row& row : record) {
    bool found = row.coding != Coding::args;
    for (const Row& length : record) {
      found = found || (length.position == row.length_at && length.coding == Coding::none &&
                        length.width == sizeof(uint32_t));
    }
    if (!found) return false;
  }
  return true;
}

// ---- Numbers are given once ----

// Does no number but 0 stand twice in that column?
template <class Column>
constexpr bool unique(const Record& record, Column column) {
  for (size_t i = 0; i < record.row_count; i++) {
    for (size_t j = 0; j < i; j++) {
      if (record.rows[i].*column != 0 && record.rows[i].*column == record.rows[j].*column) {
        return false;
      }
    }
  }
  return true;
}

// The show table stops at the first number that is missing.
constexpr bool show_ids_run(const Record& record) {
  size_t count = 0;
  uint32_t last = 0;
  for (const Row& row : record) {
    count += row.show_id != 0 ? 1 : 0;
    last = row.show_id > last ? row.show_id : last;
  }
  return last == count;
}

#define QIM_CHECK_ROWS(K)                                                                       \
  static_assert(rows_are_of(K), "a row of " #K "_rows names a member of another record");       \
  static_assert(every_member_has_a_row<qim_##K##_t>(K), "a member of qim_" #K "_t has no row"); \
  static_assert(rows_cover(K), "the rows of qim_" #K "_t leave a gap, or overlap");             \
  static_assert(widths_fit(K), "a row of qim_" #K "_t does not fit the width of its member");   \
  static_assert(lengths_fit(K), "the arguments of qim_" #K "_t name no length");                \
  static_assert(unique(K, &Row::tlv_id), "two rows of qim_" #K "_t have one TLV id");           \
  static_assert(unique(K, &Row::show_id), "two rows of qim_" #K "_t have one show id");         \
  static_assert(show_ids_run(K), "the show ids of qim_" #K "_t do not count up from 1");
QIM_CODEC_KINDS(QIM_CHECK_ROWS)
#undef QIM_CHECK_ROWS

// ---- Records and node types ----

constexpr bool record_ids_differ() {
  for (const Record* record : records) {
    size_t same = 0;
    for (const Record* other : records) same += record->struct_id == other->struct_id ? 1 : 0;
    if (same != 1) return false;
  }
  return true;
}
static_assert(record_ids_differ(), "two records have one struct id");

#define QIM_KIND_NAME(K) #K,
inline constexpr const char* kinds[] = {QIM_CODEC_KINDS(QIM_KIND_NAME)};
#undef QIM_KIND_NAME
static_assert(sizeof(records) / sizeof(records[0]) == sizeof(kinds) / sizeof(kinds[0]),
              "a record is missing in the list of records");

// These look at codes and not at pointers to the types, which compilers that check pointers as the
// program runs don't compare before that.
struct Codes {
  bool seen[kTypeCodes] = {};
  bool differ = true;
};

template <size_t Count>
constexpr void see(const NodeType (&types)[Count], Codes* codes) {
  for (const NodeType& type : types) {
    codes->differ = codes->differ && !codes->seen[type.code];
    codes->seen[type.code] = true;
  }
}

constexpr bool type_codes_differ() {
  Codes codes;
  see(tlv_types, &codes);
  see(dset_types, &codes);
  return codes.differ;
}
static_assert(type_codes_differ(), "two node types have one code");

// The show table finds their names by position.
constexpr bool tlv_codes_run() {
  Codes codes;
  see(tlv_types, &codes);
  for (uint32_t i = 0; i < sizeof(tlv_types) / sizeof(NodeType); i++) {
    if (!codes.seen[i + 1]) return false;
  }
  return true;
}
static_assert(tlv_codes_run(), "the codes of the types that TLV carries do not count up from 1");

template <size_t Count>
constexpr bool have_one_family(const NodeType (&types)[Count]) {
  for (const NodeType& type : types) {
    if (type.family == 0 || (type.family & (type.family - 1)) != 0) return false;
  }
  return true;
}
static_assert(have_one_family(tlv_types) && have_one_family(dset_types),
              "a node type is of no family, or of several");

}  // namespace qim::schema::check
