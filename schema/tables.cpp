// The descriptor tables that the codec walks, made from the rows. Their layout is an interface
// format: the head, the field descriptors immediately behind it, a terminator.
#include <utility>

#include "rov.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qim::schema {

// What the codec calls for a field that it cannot code alone; `count` for lists only.
struct Callbacks {
  tlvo_count_fn count = nullptr;
  tlvo_encode_fn encode = nullptr;
  tlvo_decode_fn decode = nullptr;
  tlvo_size_fn size = nullptr;
};

// A whole table. Not file-local, as a type of exported data must not be.
template <size_t N>
struct Table {
  tlvo_table_t head;
  tlvo_field_t fields[N + 1];
};

template <uint32_t at, uint32_t length>
constexpr Callbacks args_callbacks = {nullptr, args_encode<at, length>, args_decode<at, length>,
                                      args_size<at, length>};

namespace {

// ---- A filter's criteria ----

// Elements come zeroed from the context's pool; the list routines' other two arguments do not
// matter for that.
uint32_t criterion_alloc(void*, void** out, void*, uint32_t* size) {
  return qim_tlv_struct_alloc(sizeof(qim_criterion_t), out, size);
}

void* criteria_head(void* record) {
  return &static_cast<qim_filter_t*>(record)->crit;
}
void* criteria_aux(void* record) {
  return &static_cast<qim_filter_t*>(record)->crit_aux;
}

// The next pointer is a criterion's first member, so the element is the address of its link.
void* criterion_next(void* element) {
  return element;
}
static_assert(offsetof(qim_criterion_t, next) == 0);

constexpr tlvo_list_t criterion_link = {criterion_next, criterion_alloc, &qim_criterion_tbl,
                                        nullptr, nullptr};
constexpr tlvo_list_t criteria_list = {criteria_head, criterion_alloc, &qim_criterion_tbl,
                                       &criterion_link, criteria_aux};

uint32_t criteria_encode(const void* record, void** iter, void* out, uint32_t* len,
                         uint32_t* done) {
  return rov_tlv_from_listel(&criteria_list, record, iter, out, len, done);
}

uint32_t criteria_decode(void* record, const void* value, uint32_t len, void** iter) {
  return rov_tlv_to_listel(&criteria_list, record, value, len, iter);
}

uint32_t criteria_size(const void* record) {
  return rov_tlv_listel_tlvsize(&criteria_list, record);
}

uint32_t criteria_count(const void* record) {
  return rov_tlv_listptr_nels(&criteria_list, record);
}

constexpr Callbacks criteria_callbacks = {criteria_count, criteria_encode, criteria_decode,
                                          criteria_size};

// ---- A node's body ----

struct BodyMembers {
  tlvo_union_t entry[TLVO_UNION_MEMBERS];
};

// By number: some compilers accept no comparison of addresses in a constant expression.
constexpr bool is(const Record& record, const Record& other) {
  return record.struct_id == other.struct_id;
}

// The codec's view of a record is its exported table.
constexpr const tlvo_table_t* table_of(const Record& record) {
#define QIM_TABLE_OF(K)    \
  if (is(record, K)) {     \
    return &qim_##K##_tbl; \
  }
  QIM_CODEC_KINDS(QIM_TABLE_OF)
#undef QIM_TABLE_OF
  return nullptr;
}

consteval BodyMembers make_body_members() {
  BodyMembers members = {};
  size_t i = 0;
  for (const NodeType& type : tlv_types) members.entry[i++] = {type.code, table_of(*type.body), 0};
  return members;
}
constexpr BodyMembers body_members = make_body_members();

// The codec learns that a body is complete whatever became of it: a body is one value.
uint32_t body_encode(const void* record, void**, void* out, uint32_t* len, uint32_t* done) {
  const auto* rec = static_cast<const qim_node_t*>(record);
  *done = 0;
  const uint32_t status = rov_tlva_from_union(rec->type, body_members.entry, &rec->body, len, out);
  *done = 1;
  return status;
}

uint32_t body_decode(void* record, const void* value, uint32_t len, void**) {
  auto* rec = static_cast<qim_node_t*>(record);
  return rov_tlva_to_union(len, value, body_members.entry, &rec->type, &rec->body);
}

uint32_t body_size(const void* record) {
  const auto* rec = static_cast<const qim_node_t*>(record);
  return rov_tlva_union_siz(rec->type, body_members.entry, &rec->body);
}

constexpr Callbacks body_callbacks = {nullptr, body_encode, body_decode, body_size};

// ---- The tables ----

template <const Record& record, size_t i>
consteval Callbacks callbacks_of() {
  constexpr Row row = record.rows[i];
  if constexpr (row.coding == Coding::args) {
    return args_callbacks<row.position, row.length_at>;
  } else if constexpr (row.coding == Coding::list) {
    static_assert(is(record, filter), "a list other than a filter's criteria needs callbacks");
    return criteria_callbacks;
  } else if constexpr (row.coding == Coding::body) {
    return body_callbacks;
  } else {
    return {};
  }
}

constexpr uint32_t tlvo_kind(Coding coding) {
  switch (coding) {
    case Coding::integer:
      return TLVO_KIND_INT;
    case Coding::record:
      return TLVO_KIND_RECORD;
    case Coding::list:
      return TLVO_KIND_LIST;
    default:
      return TLVO_KIND_VALUE;
  }
}

consteval size_t coded_rows(const Record& record) {
  size_t count = 0;
  for (const Row& row : record) count += row.coding != Coding::none ? 1 : 0;
  return count;
}

consteval tlvo_field_t make_field(const Row& row, const Callbacks& callbacks) {
  const bool is_list = row.coding == Coding::list;
  tlvo_field_t field = {};
  field.id = row.tlv_id;
  field.width = is_list ? 0 : row.width;
  field.position = is_list ? 0 : row.position;
  field.kind = tlvo_kind(row.coding);
  if (row.coding == Coding::record) field.record = table_of(*row.record);
  field.count = callbacks.count;
  field.encode = callbacks.encode;
  field.decode = callbacks.decode;
  field.size = callbacks.size;
  return field;
}

template <const Record& record>
consteval auto make_table(const char* name) {
  Table<coded_rows(record)> table = {};
  table.head.record_size = record.size;
  table.head.name = name;
  table.head.struct_id = record.struct_id;
  size_t count = 0;
  [&]<size_t... I>(std::index_sequence<I...>) {
    ((record.rows[I].coding != Coding::none
          ? void(table.fields[count++] = make_field(record.rows[I], callbacks_of<record, I>()))
          : void()),
     ...);
  }
  (std::make_index_sequence<record.row_count>());
  table.fields[count].position = TLVO_FIELD_END;
  return table;
}

}  // namespace

// The header knows a table by its head alone; here is the whole of it, under the same symbol.
#define QIM_DEFINE_TABLE(K)                                             \
  extern const Table<coded_rows(K)> K##_table __asm__("qim_" #K "_tbl") \
      __attribute__((visibility("default")));                           \
  constinit const Table<coded_rows(K)> K##_table = make_table<K>("qim_" #K "_tbl");
QIM_CODEC_KINDS(QIM_DEFINE_TABLE)
#undef QIM_DEFINE_TABLE

}  // namespace qim::schema
