// The attribute table by which the database's show routine prints any node TLV with names; made
// from the rows.
#include "dbg/show.h"
#include "lib/export.h"
#include "schema/names.h"
#include "schema/rows.h"

namespace qim::dbg {
namespace {

using schema::Record;
using schema::Row;

constexpr uint32_t kStructIdShift = 16;

// ---- Names of node types, by code ----

struct TypeNames {
  rov_name_t at[TLVO_UNION_MEMBERS + 1];  // {0, NULL} at the end
};

consteval TypeNames make_type_names() {
  TypeNames names = {};
  for (const schema::NodeType& type : schema::tlv_types) {
    names.at[type.code - 1] = {type.code, type.name};  // codes run from 1
  }
  return names;
}
constexpr TypeNames type_names = make_type_names();

// ---- The table: for each record a header, then its fields by id ----

// The row's number, row_count when there is none. By number: some compilers accept no comparison of
// addresses in a constant expression.
consteval size_t field(const Record& record, uint32_t show_id) {
  size_t i = 0;
  while (i < record.row_count && record.rows[i].show_id != show_id) i++;
  return i;
}

consteval size_t entries() {
  size_t count = 0;
  for (const Record* record : schema::records) {
    count += record->show_name != nullptr ? 1 : 0;
    for (const Row& row : *record) count += row.show_id != 0 ? 1 : 0;
  }
  return count;
}

struct AttrTable {
  rov_show_t at[entries() + 1];  // all zero at the end
};
extern const AttrTable attr_table;

constexpr rov_show_body_t body_aux = {type_names.at, attr_table.at};

consteval rov_show_t make_field(const Row& row) {
  rov_show_t entry = {};
  entry.attr_id = row.show_id;
  entry.name = row.show_name;
  entry.kind = row.show_kind;
  switch (row.show_kind) {
    case ROV_SHOW_ENUM:
      entry.aux.names = schema::link_kind_names;
      break;
    case ROV_SHOW_RECORD:
    case ROV_SHOW_LIST:
      entry.aux.table = attr_table.at;
      break;
    case ROV_SHOW_UNION:
      entry.aux.body = &body_aux;
      break;
    default:
      break;
  }
  return entry;
}

consteval AttrTable make_attr_table() {
  AttrTable table = {};
  size_t i = 0;
  for (const Record* record : schema::records) {
    if (record->show_name == nullptr) continue;
    table.at[i].attr_id = record->struct_id << kStructIdShift;
    table.at[i++].name = record->show_name;
    for (uint32_t id = 1; field(*record, id) != record->row_count; id++) {
      table.at[i++] = make_field(record->rows[field(*record, id)]);
    }
  }
  return table;
}
constinit const AttrTable attr_table = make_attr_table();

consteval rov_show_t make_tlva_handler() {
  rov_show_t show = {};
  show.selector = ROV_SHOW_SEL_TLVA;
  show.kind = ROV_SHOW_RECORD;
  show.aux.table = attr_table.at;
  return show;
}

consteval rov_show_t make_dsetname() {
  rov_show_t show = {};
  show.selector = ROV_SHOW_SEL_DSETNAME;
  show.kind = ROV_SHOW_PRINT;
  show.aux.print = qim_dbg_dsetname_tlv_show;
  return show;
}

}  // namespace
}  // namespace qim::dbg

// Constants are local to their file unless something says otherwise.
// NOLINTBEGIN(readability-redundant-declaration)
extern "C" QIM_API_DATA const rov_show_t qim_dbg_tlva_handler;
extern "C" QIM_API_DATA const rov_show_t qim_dbg_dsetname;
// NOLINTEND(readability-redundant-declaration)

const rov_show_t qim_dbg_tlva_handler = qim::dbg::make_tlva_handler();
const rov_show_t qim_dbg_dsetname = qim::dbg::make_dsetname();
