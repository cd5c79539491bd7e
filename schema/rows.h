// The one description of every record and link slot. A member is named in its record (qim.h) and in
// one row here; the codec's descriptor tables, the link slots, the copiers, the show table,
// printers and tests all walk these rows.
//
// The rows of a record are its members, each once; schema/row_checks.h refuses to compile anything
// else. The order of rows matters twice: fields stand in a descriptor table, and links are resolved,
// in the order of their rows.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "qim.h"

namespace qim::schema {

// How a member travels in TLV.
enum class Coding : uint8_t {
  none,     // not at all
  integer,  // by its width
  record,   // as an embedded record
  args,     // as a byte string: a pointer, whose length is the word before it
  list,     // as a list of records, hung on a pointer
  body      // as the union of bodies, together with the node's type
};

// Whether a member holds a link, and how much of it.
enum class Slot : uint8_t { none, single, full };

struct Record;

struct Row {
  const char* of;     // the record's type, "qim_filter_t"; NULL for a row without a member
  const char* name;   // the member's name
  uint32_t position;  // byte position in the record
  uint32_t width;     // bytes
  uint32_t align;     // bytes
  Coding coding = Coding::none;
  uint32_t tlv_id = 0;             // field id in TLV, where coding is not none
  const Record* record = nullptr;  // Coding::record and ::list: the record inside
  Slot slot = Slot::none;
  uint16_t link = 0;                // the slot's link field code
  bool copied = false;              // part of the copies that clients get
  uint32_t show_id = 0;             // field id in the show table, 0 = not in it
  const char* show_name = nullptr;  // its name there
  uint32_t show_kind = 0;           // ROV_SHOW_*
};

struct Record {
  const char* kind;       // "filter", as in qim_filter_t and qim_filter_tbl
  uint32_t struct_id;     // its number in TLV tags and link field codes
  uint32_t size;          // bytes
  const char* show_name;  // in the show table; NULL: not in it
  const Row* rows;
  size_t row_count;

  constexpr const Row* begin() const { return rows; }
  constexpr const Row* end() const { return rows + row_count; }
};

// Where a member stands. The macro is what the language leaves: no constant expression gives the
// position of a member pointer's member.
struct At {
  const char* of;
  const char* name;
  uint32_t position;
  uint32_t width;
  uint32_t align;
};
#define QIM_AT(T, member)                                                         \
  ::qim::schema::At {                                                             \
#T, #member, static_cast < uint32_t>(offsetof(T, member)),                    \
        static_cast < uint32_t>(sizeof(static_cast <const T*>(nullptr)->member)), \
        alignof(decltype(static_cast <const T*>(nullptr)->member))                \
  }

namespace make {

// "ln_2c1" -> 0x2c1: a slot's name is its link field code.
constexpr uint16_t link_code(const char* name) {
  uint32_t code = 0;
  for (const char* c = name + sizeof("ln_") - 1; *c != '\0'; c++) {
    const uint32_t digit = static_cast<uint32_t>(*c <= '9' ? *c - '0' : *c - 'a' + 10);
    code = code * 16 + digit;
  }
  return static_cast<uint16_t>(code);
}

constexpr Row plain(At at, bool copied) {
  return {.of = at.of,
          .name = at.name,
          .position = at.position,
          .width = at.width,
          .align = at.align,
          .copied = copied};
}

// A value that the library fills itself and clients get.
constexpr Row value(At at) {
  return plain(at, true);
}

// What stays with the open node: pointers, bookkeeping, gaps.
constexpr Row kept(At at) {
  return plain(at, false);
}

constexpr Row slot(At at, Slot form, bool copied) {
  Row row = plain(at, copied);
  row.slot = form;
  row.link = link_code(at.name);
  return row;
}

constexpr Row single(At at) {
  return slot(at, Slot::single, true);
}
constexpr Row full(At at) {
  return slot(at, Slot::full, true);
}

// A bare link that copies leave out, unlike every other type's; clients that need it ask the
// database.
constexpr Row single_uncopied(At at) {
  return slot(at, Slot::single, false);
}

constexpr Row coded(At at, uint32_t id, Coding coding, bool copied, uint32_t show_kind) {
  Row row = plain(at, copied);
  row.coding = coding;
  row.tlv_id = id;
  row.show_id = id;
  row.show_name = at.name;
  row.show_kind = show_kind;
  return row;
}

constexpr Row integer(At at, uint32_t id) {
  return coded(at, id, Coding::integer, true, ROV_SHOW_INT);
}

// An integer that names an outgoing branch.
constexpr Row link_kind(At at, uint32_t id) {
  return coded(at, id, Coding::integer, true, ROV_SHOW_ENUM);
}

constexpr Row args(At at, uint32_t id) {
  return coded(at, id, Coding::args, false, ROV_SHOW_RAW);
}

constexpr Row embedded(At at, uint32_t id, const Record& inner) {
  Row row = coded(at, id, Coding::record, true, ROV_SHOW_RECORD);
  row.record = &inner;
  return row;
}

constexpr Row list(At at, uint32_t id, const Record& element) {
  Row row = coded(at, id, Coding::list, false, ROV_SHOW_LIST);
  row.record = &element;
  return row;
}

// The body carries the node's type with it, and is shown as that.
constexpr Row body(At at, uint32_t id) {
  Row row = coded(at, id, Coding::body, false, ROV_SHOW_UNION);
  row.show_name = "type";
  return row;
}

// A member that no TLV carries, with an entry in the show table all the same.
constexpr Row value_shown(At at, uint32_t show_id) {
  Row row = value(at);
  row.show_id = show_id;
  row.show_name = at.name;
  row.show_kind = ROV_SHOW_INT;
  return row;
}

// A show entry without a member: databases may hold the field, records do not.
constexpr Row shown_only(const char* name, uint32_t show_id) {
  return {.of = nullptr,
          .name = name,
          .position = 0,
          .width = 0,
          .align = 1,
          .show_id = show_id,
          .show_name = name,
          .show_kind = ROV_SHOW_INT};
}

template <size_t N>
constexpr Record record(const char* kind, uint32_t struct_id, uint32_t size, const char* show_name,
                        const Row (&rows)[N]) {
  return {kind, struct_id, size, show_name, rows, N};
}

}  // namespace make

// ---- The records
// -------------------------------------------------------------------------------------------

inline constexpr Row criterion_rows[] = {
    make::kept(QIM_AT(qim_criterion_t, next)),
    make::integer(QIM_AT(qim_criterion_t, type), 1),
    make::value(QIM_AT(qim_criterion_t, args_len)),
    make::args(QIM_AT(qim_criterion_t, args), 2),
};
inline constexpr Record criterion =
    make::record("criterion", 3, sizeof(qim_criterion_t), "crit", criterion_rows);

inline constexpr Row filter_rows[] = {
    make::single(QIM_AT(qim_filter_t, ln_081)),
    make::integer(QIM_AT(qim_filter_t, flags), 3),
    make::link_kind(QIM_AT(qim_filter_t, match), 1),
    make::link_kind(QIM_AT(qim_filter_t, nomatch), 2),
    make::value(QIM_AT(qim_filter_t, crit_cnt)),
    make::value(QIM_AT(qim_filter_t, crit_bytes)),
    make::kept(QIM_AT(qim_filter_t, crit_aux)),
    make::kept(QIM_AT(qim_filter_t, reserved)),
    make::list(QIM_AT(qim_filter_t, crit), 4, criterion),
};
inline constexpr Record filter =
    make::record("filter", 2, sizeof(qim_filter_t), "fltr", filter_rows);

inline constexpr Row hfilter_rows[] = {
    make::single(QIM_AT(qim_hfilter_t, ln_081)),
    make::integer(QIM_AT(qim_hfilter_t, type), 1),
    make::link_kind(QIM_AT(qim_hfilter_t, true_act), 2),
    make::link_kind(QIM_AT(qim_hfilter_t, false_act), 3),
    make::link_kind(QIM_AT(qim_hfilter_t, nomatch_act), 4),
    make::full(QIM_AT(qim_hfilter_t, ln_102)),
};
inline constexpr Record hfilter =
    make::record("hfilter", 4, sizeof(qim_hfilter_t), "hfltr", hfilter_rows);

inline constexpr Row action_rows[] = {
    make::single(QIM_AT(qim_action_t, ln_141)),
    make::integer(QIM_AT(qim_action_t, type), 1),
    make::value(QIM_AT(qim_action_t, args_len)),
    make::args(QIM_AT(qim_action_t, args), 2),
};
inline constexpr Record action =
    make::record("action", 5, sizeof(qim_action_t), "act", action_rows);

inline constexpr Row haction_rows[] = {
    make::single(QIM_AT(qim_haction_t, ln_141)),
    make::integer(QIM_AT(qim_haction_t, type), 1),
    make::full(QIM_AT(qim_haction_t, ln_182)),
};
inline constexpr Record haction =
    make::record("haction", 6, sizeof(qim_haction_t), "hact", haction_rows);

inline constexpr Row action_bw_rows[] = {
    make::integer(QIM_AT(qim_action_bw_t, rate_units), 1),
    make::kept(QIM_AT(qim_action_bw_t, gap0)),
    make::integer(QIM_AT(qim_action_bw_t, rate), 2),
    make::integer(QIM_AT(qim_action_bw_t, burst_units), 3),
    make::kept(QIM_AT(qim_action_bw_t, gap1)),
    make::integer(QIM_AT(qim_action_bw_t, burst), 4),
};
inline constexpr Record action_bw =
    make::record("action_bw", 7, sizeof(qim_action_bw_t), "actbw", action_bw_rows);

inline constexpr Row police_rows[] = {
    make::single(QIM_AT(qim_police_t, ln_141)),
    make::full(QIM_AT(qim_police_t, ln_201)),
    make::full(QIM_AT(qim_police_t, ln_202)),
    make::full(QIM_AT(qim_police_t, ln_203)),
    make::kept(QIM_AT(qim_police_t, gap0)),
    make::embedded(QIM_AT(qim_police_t, comt_bw), 1, action_bw),
    make::embedded(QIM_AT(qim_police_t, peak_bw), 2, action_bw),
    make::value(QIM_AT(qim_police_t, reserved[0])),  // copies end after this word
    make::kept(QIM_AT(qim_police_t, reserved[1])),
    make::shown_only("id", 3),
};
inline constexpr Record police =
    make::record("police", 8, sizeof(qim_police_t), "police", police_rows);

inline constexpr Row ifelse_rows[] = {
    make::full(QIM_AT(qim_ifelse_t, ln_241)),
    make::full(QIM_AT(qim_ifelse_t, ln_242)),
    make::full(QIM_AT(qim_ifelse_t, ln_243)),
    make::full(QIM_AT(qim_ifelse_t, ln_244)),
};
inline constexpr Record ifelse =
    make::record("ifelse", 9, sizeof(qim_ifelse_t), nullptr, ifelse_rows);

inline constexpr Row def_rows[] = {
    make::single(QIM_AT(qim_def_t, ln_301)),   make::full(QIM_AT(qim_def_t, ln_302)),
    make::integer(QIM_AT(qim_def_t, type), 1), make::value(QIM_AT(qim_def_t, args_len)),
    make::args(QIM_AT(qim_def_t, args), 2),
};
inline constexpr Record def = make::record("def", 12, sizeof(qim_def_t), "def", def_rows);

inline constexpr Row group_rows[] = {
    make::single_uncopied(QIM_AT(qim_group_t, ln_282)),
    make::integer(QIM_AT(qim_group_t, type), 1),
    make::integer(QIM_AT(qim_group_t, subtype), 2),
    make::full(QIM_AT(qim_group_t, ln_281)),
};
inline constexpr Record group = make::record("group", 10, sizeof(qim_group_t), "group", group_rows);

inline constexpr Row pinst_rows[] = {
    make::value(QIM_AT(qim_pinst_t, fields.dest)),
    make::value(QIM_AT(qim_pinst_t, fields.dir)),
    make::kept(QIM_AT(qim_pinst_t, fields.reserved)),
    make::value(QIM_AT(qim_pinst_t, fields.type)),
    make::value(QIM_AT(qim_pinst_t, edests)),
    make::value_shown(QIM_AT(qim_pinst_t, nonedests), 1),
    make::full(QIM_AT(qim_pinst_t, ln_2c1)),
};
inline constexpr Record pinst = make::record("pinst", 11, sizeof(qim_pinst_t), "pinst", pinst_rows);

inline constexpr Row node_rows[] = {
    make::value(QIM_AT(qim_node_t, links_total)), make::value(QIM_AT(qim_node_t, links_unfixed)),
    make::value(QIM_AT(qim_node_t, refs)),        make::value(QIM_AT(qim_node_t, id)),
    make::integer(QIM_AT(qim_node_t, flags), 2),  make::integer(QIM_AT(qim_node_t, group), 1),
    make::value(QIM_AT(qim_node_t, type)),        make::value(QIM_AT(qim_node_t, priv_len)),
    make::kept(QIM_AT(qim_node_t, priv_buf)),     make::value(QIM_AT(qim_node_t, priv_ptr)),
    make::body(QIM_AT(qim_node_t, body), 3),
};
inline constexpr Record node = make::record("node", 1, sizeof(qim_node_t), "node", node_rows);

// Every record, in the order of the show table.
inline constexpr const Record* records[] = {&node,   &criterion, &filter,  &hfilter,
                                            &action, &def,       &haction, &action_bw,
                                            &police, &group,     &pinst,   &ifelse};

// ---- The node types
// ----------------------------------------------------------------------------------------

struct NodeType {
  uint32_t code;
  const char* name;      // NULL: never shown
  const Record* body;    // NULL: nothing but a header
  const char* resolver;  // the name under which resolving its links is reported
};

// The types that TLV carries, in the order of the body union. Pinst and Edest share a record.
inline constexpr NodeType tlv_types[] = {
    {QIM_NODE_FILTER, "Filter", &filter, "qim_filter_links_get"},
    {QIM_NODE_HFILTER, "Hfilter", &hfilter, "qim_hfilter_links_get"},
    {QIM_NODE_ACTION, "Action", &action, "qim_action_links_get"},
    {QIM_NODE_HACTION, "Haction", &haction, "qim_haction_links_get"},
    {QIM_NODE_POLICE, "Police", &police, "qim_police_links_get"},
    {QIM_NODE_IFELSE, "Ifelse", &ifelse, "qim_ifelse_links_get"},
    {QIM_NODE_DEF, "Def", &def, "qim_def_links_get"},
    {QIM_NODE_GROUP, "Group", &group, "qim_group_links_get"},
    {QIM_NODE_PINST, "Pinst", &pinst, "qim_pinst_dsetname_get"},
    {QIM_NODE_EDEST, "Edest", &pinst, "qim_pinst_dsetname_get"},
};
static_assert(sizeof(tlv_types) / sizeof(tlv_types[0]) == TLVO_UNION_MEMBERS);

// The types that node open gives to data-set nodes.
inline constexpr NodeType dset_types[] = {
    {QIM_NODE_DSET, nullptr, &pinst, "qim_pinst_dsetname_get"},
    {QIM_NODE_DSET_NONAME, nullptr, nullptr, nullptr},
};

// NULL for a code that is no node type.
constexpr const NodeType* node_type(uint32_t code) {
  for (const NodeType& type : tlv_types) {
    if (type.code == code) {
      return &type;
    }
  }
  for (const NodeType& type : dset_types) {
    if (type.code == code) {
      return &type;
    }
  }
  return nullptr;
}

}  // namespace qim::schema

#include "schema/row_checks.h"
