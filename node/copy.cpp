// Copies of nodes for clients: every value and no pointer, so that a copy outlives its open node.
#include <string.h>

#include <utility>

#include "lib/export.h"
#include "lib/report.h"
#include "rov.h"
#include "schema/rows.h"

namespace qim::node {
namespace {

// A stretch of bytes that a copy takes over.
struct Run {
  uint32_t position;
  uint32_t width;
};

template <size_t N>
struct Runs {
  Run at[N];
  size_t count;
};

// The copied members of a record, in order of position, neighbours joined. By index: some compilers
// accept no comparison of addresses in a constant expression.
template <const schema::Record& record>
consteval auto copied_runs() {
  Runs<record.row_count> runs = {};
  uint32_t from = 0;
  while (true) {
    size_t next = record.row_count;
    for (size_t i = 0; i < record.row_count; i++) {
      const schema::Row& row = record.rows[i];
      if (row.copied && row.position >= from &&
          (next == record.row_count || row.position < record.rows[next].position)) {
        next = i;
      }
    }
    if (next == record.row_count) return runs;
    const schema::Row& row = record.rows[next];
    const bool joins = runs.count != 0 && row.position == from;
    from = row.position + row.width;
    if (joins) {
      runs.at[runs.count - 1].width += row.width;
    } else {
      runs.at[runs.count++] = {row.position, row.width};
    }
  }
}

// Copies between records at `src` and `dst`: moves of sizes known at compile time.
template <const schema::Record& record>
void copy_record(const void* src, void* dst) {
  static constexpr auto runs = copied_runs<record>();
  [&]<size_t... I>(std::index_sequence<I...>) {
    (memcpy(static_cast<char*>(dst) + runs.at[I].position,
            static_cast<const char*>(src) + runs.at[I].position, runs.at[I].width),
     ...);
  }
  (std::make_index_sequence<runs.count>());
}

// How a type's body is copied; NULL for a code that is no node type.
using Copier = void (*)(const void* src, void* dst);

struct Copiers {
  Copier of[schema::kTypeCodes];
};

void copy_nothing(const void*, void*) {}

template <uint32_t code>
consteval Copier copier_of() {
  if constexpr (!schema::is_type(code)) {
    return nullptr;
  } else if constexpr (schema::node_type(code)->body->row_count == 0) {
    return copy_nothing;
  } else {
    return copy_record<*schema::node_type(code)->body>;
  }
}

consteval Copiers make_copiers() {
  return []<uint32_t... code>(std::integer_sequence<uint32_t, code...>) {
    return Copiers{{copier_of<code>()...}};
  }
  (std::make_integer_sequence<uint32_t, schema::kTypeCodes>());
}
constexpr Copiers copiers = make_copiers();

uint32_t body_cp(const qim_node_t* src, qim_node_t* dst) {
  const Copier copy = src->type < schema::kTypeCodes ? copiers.of[src->type] : nullptr;
  if (copy == nullptr) {
    qim_dbg_errors(QIM_ERR_INTERNAL, "qim_node_cp", 1268, qim_lib_get());
    return QIM_ERR_NODE_TYPE;
  }
  copy(&src->body, &dst->body);
  return ROV_OK;
}

}  // namespace
}  // namespace qim::node

// The session plays no part: nothing of a copy comes from the database.
QIM_API uint32_t qim_node_cp(uint32_t, const qim_node_t* src, qim_node_t* dst) {
  qim_lib_ctx_t* ctx = qim_lib_get();
  qim::node::copy_record<qim::schema::node>(src, dst);
  const uint32_t status = qim::node::body_cp(src, dst);
  if (status != ROV_OK) qim::report(status, "qim_node_cp", 1275, ctx);
  return status;
}
