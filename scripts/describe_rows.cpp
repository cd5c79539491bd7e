// Prints the rows of schema/rows.h as JSON, for scripts/generate.
#include <stdio.h>

#include "schema/names.h"
#include "schema/rows.h"

namespace {

using qim::schema::Coding;
using qim::schema::Naming;
using qim::schema::NodeType;
using qim::schema::Record;
using qim::schema::Row;
using qim::schema::Slot;

const char* text_of(Coding coding) {
  switch (coding) {
    case Coding::integer:
      return "integer";
    case Coding::record:
      return "record";
    case Coding::args:
      return "args";
    case Coding::list:
      return "list";
    case Coding::body:
      return "body";
    case Coding::none:
      break;
  }
  return "none";
}

const char* text_of(Slot slot) {
  if (slot == Slot::none) return "none";
  return slot == Slot::single ? "single" : "full";
}

void print_row(const Row& row) {
  const bool named = row.show_kind == ROV_SHOW_ENUM;
  printf(R"({"name": "%s", "width": %u, "coding": "%s", "tlv_id": %u, "slot": "%s", )", row.name,
         row.width, text_of(row.coding), row.tlv_id, text_of(row.slot));
  printf(R"("link": %u, "link_kind": %s, "record": "%s", "copied": %s})", unsigned{row.link},
         named ? "true" : "false", row.record == nullptr ? "" : row.record->kind,
         row.copied ? "true" : "false");
}

void print_record(const Record& record) {
  printf(R"("%s": {"struct_id": %u, "rows": [)", record.kind, record.struct_id);
  const char* separator = "\n  ";
  for (const Row& row : record) {
    if (row.of == nullptr) continue;
    fputs(separator, stdout);
    print_row(row);
    separator = ",\n  ";
  }
  fputs("]}", stdout);
}

void print_type(const NodeType& type) {
  printf(R"({"code": %u, "name": "%s", "body": "%s", "tlv": %s, "named": %s, "required": %s})",
         type.code, type.name, type.body->kind,
         qim::schema::tlv_type(type.code) != nullptr ? "true" : "false",
         type.naming != Naming::never ? "true" : "false",
         type.naming == Naming::required ? "true" : "false");
}

}  // namespace

int main() {
  fputs("{\"records\": {\n", stdout);
  const char* separator = "";
  for (const Record* record : qim::schema::records) {
    fputs(separator, stdout);
    print_record(*record);
    separator = ",\n";
  }
  fputs("},\n\"types\": [\n", stdout);
  separator = "";
  for (const NodeType* type : qim::schema::types_by_code.at) {
    if (type == nullptr) continue;
    fputs(separator, stdout);
    print_type(*type);
    separator = ",\n";
  }
  fputs("],\n\"link_kinds\": [", stdout);
  separator = "";
  for (const rov_name_t* kind = qim::schema::link_kind_names; kind->name != nullptr; kind++) {
    printf("%s\"%s\"", separator, kind->name);
    separator = ", ";
  }
  fputs("]}\n", stdout);
  return 0;
}
