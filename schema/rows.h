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

// What nodes are to one another: the families that a link slot may lead to, as bits.
using Families = uint32_t;
namespace family {
inline constexpr Families filters = 0x01;       // elements of a list of filters
inline constexpr Families actions = 0x02;       // elements of a list of actions
inline constexpr Families defaults = 0x04;      // what becomes of a packet that nothing matches
inline constexpr Families branches = 0x08;      // what leads evaluation on to other nodes
inline constexpr Families instances = 0x10;     // policy instances
inline constexpr Families destinations = 0x20;  // where policy instances are enforced
inline constexpr Families data_sets = 0x40;     // nothing but the node of a data set

// What a policy is made of, in contrast to where it is applied.
inline constexpr Families policy = filters | actions | defaults | branches;
inline constexpr Families any = ~Families{0};
}  // namespace family

struct Record;

struct Row {
  const char* of;     // the record's type, "qim_filter_t"; NULL for a row without a member
  const char* name;   // the member's name
  uint32_t position;  // byte position in the record
  uint32_t width;     // bytes
  uint32_t align;     // bytes
  Coding coding = Coding::none;
  uint32_t tlv_id = 0;             // field id in TLV, where coding is not none
  uint32_t length_at = 0;          // Coding::args: byte position of the length
  const Record* record = nullptr;  // Coding::record and ::list: the record inside
  Slot slot = Slot::none;
  uint16_t link = 0;                // the slot's link field code
  Families leads_to = 0;            // what the slot's link may lead to
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

constexpr Row slot(At at, Slot form, Families leads_to, bool copied) {
  Row row = plain(at, copied);
  row.slot = form;
  row.link = link_code(at.name);
  row.leads_to = leads_to;
  return row;
}

constexpr Row single(At at, Families leads_to) {
  return slot(at, Slot::single, leads_to, true);
}
constexpr Row full(At at, Families leads_to) {
  return slot(at, Slot::full, leads_to, true);
}

// A bare link that copies leave out, unlike every other type's; clients that need it ask the
// database.
constexpr Row single_uncopied(At at, Families leads_to) {
  return slot(at, Slot::single, leads_to, false);
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

constexpr Row args(At at, At length, uint32_t id) {
  Row row = coded(at, id, Coding::args, false, ROV_SHOW_RAW);
  row.length_at = length.position;
  return row;
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
    make::args(QIM_AT(qim_criterion_t, args), QIM_AT(qim_criterion_t, args_len), 2),
};
inline constexpr Record criterion =
    make::record("criterion", 3, sizeof(qim_criterion_t), "crit", criterion_rows);

inline constexpr Row filter_rows[] = {
    make::single(QIM_AT(qim_filter_t, ln_081), family::filters),
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
    make::single(QIM_AT(qim_hfilter_t, ln_081), family::filters),
    make::integer(QIM_AT(qim_hfilter_t, type), 1),
    make::link_kind(QIM_AT(qim_hfilter_t, true_act), 2),
    make::link_kind(QIM_AT(qim_hfilter_t, false_act), 3),
    make::link_kind(QIM_AT(qim_hfilter_t, nomatch_act), 4),
    make::full(QIM_AT(qim_hfilter_t, ln_102), family::policy),
};
inline constexpr Record hfilter =
    make::record("hfilter", 4, sizeof(qim_hfilter_t), "hfltr", hfilter_rows);

inline constexpr Row action_rows[] = {
    make::single(QIM_AT(qim_action_t, ln_141), family::actions),
    make::integer(QIM_AT(qim_action_t, type), 1),
    make::value(QIM_AT(qim_action_t, args_len)),
    make::args(QIM_AT(qim_action_t, args), QIM_AT(qim_action_t, args_len), 2),
};
inline constexpr Record action =
    make::record("action", 5, sizeof(qim_action_t), "act", action_rows);

inline constexpr Row haction_rows[] = {
    make::single(QIM_AT(qim_haction_t, ln_141), family::actions),
    make::integer(QIM_AT(qim_haction_t, type), 1),
    make::full(QIM_AT(qim_haction_t, ln_182), family::policy),
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
    make::single(QIM_AT(qim_police_t, ln_141), family::actions),
    make::full(QIM_AT(qim_police_t, ln_201), family::policy),
    make::full(QIM_AT(qim_police_t, ln_202), family::policy),
    make::full(QIM_AT(qim_police_t, ln_203), family::policy),
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
    make::full(QIM_AT(qim_ifelse_t, ln_241), family::policy),
    make::full(QIM_AT(qim_ifelse_t, ln_242), family::policy),
    make::full(QIM_AT(qim_ifelse_t, ln_243), family::policy),
    make::full(QIM_AT(qim_ifelse_t, ln_244), family::policy),
};
inline constexpr Record ifelse =
    make::record("ifelse", 9, sizeof(qim_ifelse_t), nullptr, ifelse_rows);

inline constexpr Row def_rows[] = {
    make::single(QIM_AT(qim_def_t, ln_301), family::defaults),
    make::full(QIM_AT(qim_def_t, ln_302), family::policy),
    make::integer(QIM_AT(qim_def_t, type), 1),
    make::value(QIM_AT(qim_def_t, args_len)),
    make::args(QIM_AT(qim_def_t, args), QIM_AT(qim_def_t, args_len), 2),
};
inline constexpr Record def = make::record("def", 12, sizeof(qim_def_t), "def", def_rows);

inline constexpr Row group_rows[] = {
    make::single_uncopied(QIM_AT(qim_group_t, ln_282), family::defaults),
    make::integer(QIM_AT(qim_group_t, type), 1),
    make::integer(QIM_AT(qim_group_t, subtype), 2),
    make::full(QIM_AT(qim_group_t, ln_281), family::policy),
};
inline constexpr Record group = make::record("group", 10, sizeof(qim_group_t), "group", group_rows);

inline constexpr Row pinst_rows[] = {
    make::value(QIM_AT(qim_pinst_t, fields.dest)),
    make::value(QIM_AT(qim_pinst_t, fields.dir)),
    make::kept(QIM_AT(qim_pinst_t, fields.reserved)),
    make::value(QIM_AT(qim_pinst_t, fields.type)),
    make::value(QIM_AT(qim_pinst_t, edests)),
    make::value_shown(QIM_AT(qim_pinst_t, nonedests), 1),
    make::full(QIM_AT(qim_pinst_t, ln_2c1), family::policy | family::instances),
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

// May, should, must a node of the type have a data-set name?
enum class Naming : uint8_t { never, optional, expected, required };

// A node type's variable part is what hangs on a pointer of its record: criteria or arguments.
// These are the numbers under which failures to do with it are reported.
struct PartLines {
  int32_t free;  // a length without bytes, or the reverse; 5 more: they could not be freed
  int32_t room;  // a caller's buffer is too small
  int32_t get;   // they could not be read
};

struct NodeType {
  uint32_t code;
  const char* name;
  const Record* body;
  const char* resolver;  // the name under which resolving its links is reported
  Families family;       // one of them
  Naming naming = Naming::never;
  Families leads_to = family::any;  // narrows what the slots of a record that types share lead to
  PartLines lines = {};
};

// What has nothing but a header. A record, and not NULL: gcc does not compare pointers in constant
// expressions when it is asked to check pointers as the program runs.
inline constexpr Record no_body = {"", 0, 0, nullptr, nullptr, 0};

// The types that TLV carries, in the order of the body union. Pinst and Edest share a record.
inline constexpr NodeType tlv_types[] = {
    {.code = QIM_NODE_FILTER,
     .name = "Filter",
     .body = &filter,
     .resolver = "qim_filter_links_get",
     .family = family::filters,
     .lines = {655, 522, 526}},
    {.code = QIM_NODE_HFILTER,
     .name = "Hfilter",
     .body = &hfilter,
     .resolver = "qim_hfilter_links_get",
     .family = family::filters},
    {.code = QIM_NODE_ACTION,
     .name = "Action",
     .body = &action,
     .resolver = "qim_action_links_get",
     .family = family::actions,
     .lines = {625, 535, 538}},
    {.code = QIM_NODE_HACTION,
     .name = "Haction",
     .body = &haction,
     .resolver = "qim_haction_links_get",
     .family = family::actions},
    {.code = QIM_NODE_POLICE,
     .name = "Police",
     .body = &police,
     .resolver = "qim_police_links_get",
     .family = family::actions},
    {.code = QIM_NODE_IFELSE,
     .name = "Ifelse",
     .body = &ifelse,
     .resolver = "qim_ifelse_links_get",
     .family = family::branches},
    {.code = QIM_NODE_DEF,
     .name = "Def",
     .body = &def,
     .resolver = "qim_def_links_get",
     .family = family::defaults,
     .lines = {640, 547, 550}},
    {.code = QIM_NODE_GROUP,
     .name = "Group",
     .body = &group,
     .resolver = "qim_group_links_get",
     .family = family::branches},
    {.code = QIM_NODE_PINST,
     .name = "Pinst",
     .body = &pinst,
     .resolver = "qim_pinst_dsetname_get",
     .family = family::instances,
     .naming = Naming::optional,
     .leads_to = family::policy},
    {.code = QIM_NODE_EDEST,
     .name = "Edest",
     .body = &pinst,
     .resolver = "qim_pinst_dsetname_get",
     .family = family::destinations,
     .naming = Naming::expected,
     .leads_to = family::instances},
};
static_assert(sizeof(tlv_types) / sizeof(tlv_types[0]) == TLVO_UNION_MEMBERS);

// The types that node open gives to data-set nodes. TLV carries neither.
inline constexpr NodeType dset_types[] = {
    {.code = QIM_NODE_DSET,
     .name = "Dset",
     .body = &pinst,
     .resolver = "qim_pinst_dsetname_get",
     .family = family::data_sets,
     .naming = Naming::required,
     .leads_to = family::instances},
    {.code = QIM_NODE_DSET_NONAME,
     .name = "DsetNoname",
     .body = &no_body,
     .resolver = nullptr,
     .family = family::data_sets},
};

// Node types have codes below this one, so that a word can hold a set of them.
inline constexpr uint32_t kTypeCodes = 64;

struct TypesByCode {
  const NodeType* at[kTypeCodes];
};

consteval TypesByCode make_types_by_code() {
  TypesByCode types = {};
  for (const NodeType& type : tlv_types) types.at[type.code] = &type;
  for (const NodeType& type : dset_types) types.at[type.code] = &type;
  return types;
}
inline constexpr TypesByCode types_by_code = make_types_by_code();

// Is that the code of a node type?
constexpr bool is_type(uint32_t code) {
  bool found = false;
  for (const NodeType& type : tlv_types) found = found || type.code == code;
  for (const NodeType& type : dset_types) found = found || type.code == code;
  return found;
}

// NULL for a code that is no node type.
constexpr const NodeType* node_type(uint32_t code) {
  return code < kTypeCodes ? types_by_code.at[code] : nullptr;
}

// The same for a type that TLV carries; NULL for those of data-set nodes too.
constexpr const NodeType* tlv_type(uint32_t code) {
  const NodeType* type = node_type(code);
  return type == nullptr || type->family == family::data_sets ? nullptr : type;
}

// Is that a code of a type of one of these families?
constexpr bool is_of(uint32_t code, Families families) {
  const NodeType* type = node_type(code);
  return type != nullptr && (type->family & families) != 0;
}

// The slot that holds link `field` of nodes of this type; NULL when none does.
constexpr const Row* slot_of(const NodeType& type, uint32_t field) {
  for (const Row& row : *type.body) {
    if (row.slot != Slot::none && row.link == field) return &row;
  }
  return nullptr;
}

// The rows of a type's variable parts; NULL for those that it has not. Every read asks for them.
struct VariableParts {
  const Row* args;  // Coding::args
  const Row* list;  // Coding::list
};

struct PartsByCode {
  VariableParts at[kTypeCodes];
};

consteval VariableParts parts_of(const NodeType& type) {
  VariableParts parts = {};
  for (const Row& row : *type.body) {
    if (row.coding == Coding::args) parts.args = &row;
    if (row.coding == Coding::list) parts.list = &row;
  }
  return parts;
}

consteval PartsByCode make_parts_by_code() {
  PartsByCode parts = {};
  for (const NodeType& type : tlv_types) parts.at[type.code] = parts_of(type);
  for (const NodeType& type : dset_types) parts.at[type.code] = parts_of(type);
  return parts;
}
inline constexpr PartsByCode parts_by_code = make_parts_by_code();

constexpr const Row* args_of(const NodeType& type) {
  return parts_by_code.at[type.code].args;
}
constexpr const Row* list_of(const NodeType& type) {
  return parts_by_code.at[type.code].list;
}

}  // namespace qim::schema

#include "schema/row_checks.h"
