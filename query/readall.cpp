// A whole node: its record with every variable part behind it in the caller's buffer.
#include "lib/export.h"
#include "lib/report.h"
#include "query/align.h"
#include "query/args.h"
#include "rov.h"
#include "schema/args_field.h"
#include "schema/rows.h"

namespace qim::query {
namespace {

constexpr const char* kReadAll = "qim_node_readall";

// One readall, and where in the caller's buffer it stands. What is left may be negative: the last
// part's alignment counts.
struct ReadAll {
  uint32_t ses;
  qim_node_id_t node_id;
  qim_node_t* out;
  int32_t left;
  uint8_t* cursor;
  qim_lib_ctx_t* ctx;
};

uint32_t fail(const ReadAll& all, uint32_t status, int32_t line) {
  report(status, kReadAll, line, all.ctx);
  return status;
}

// Room is compared as signed: after the private data's alignment less than nothing may be left.
bool fits(const ReadAll& all, uint32_t len) {
  return static_cast<int32_t>(len) <= all.left;
}

uint32_t read_private(ReadAll& all) {
  const uint32_t len = all.out->priv_len;
  all.out->priv_buf = nullptr;
  if (len == 0) return ROV_OK;
  if (!fits(all, len)) return fail(all, QIM_ERR_BUF_SMALL, 504);
  const uint32_t status = qim_node_priv_get(all.ses, all.out->id, len, all.cursor);
  if (status != ROV_OK) return fail(all, status, 508);
  all.out->priv_buf = all.cursor;
  const auto from = reinterpret_cast<uintptr_t>(all.cursor);
  const uintptr_t to = qim_align8(from + len);
  all.cursor = reinterpret_cast<uint8_t*>(to);
  // In 64 bits: a length that is negative as a signed number moves the cursor by more than 2^31.
  all.left = static_cast<int32_t>(all.left - static_cast<int64_t>(to - from));
  return ROV_OK;
}

// Fetches `len` bytes of the node's variable part behind the private data with `get`, and points
// `member` at them.
template <class T, class Get>
uint32_t read_part(const ReadAll& all, uint32_t len, T** member, const schema::PartLines& lines,
                   Get get) {
  *member = nullptr;
  if (len == 0) return ROV_OK;
  if (!fits(all, len)) return fail(all, QIM_ERR_BUF_SMALL, lines.room);
  const uint32_t status = get(static_cast<uint32_t>(all.left));
  if (status != ROV_OK) return fail(all, status, lines.get);
  *member = reinterpret_cast<T*>(all.cursor);
  return ROV_OK;
}

uint32_t read_variable(const ReadAll& all) {
  const schema::NodeType& type = *schema::node_type(all.out->type);  // a node that was read has one
  qim_node_body_t& body = all.out->body;
  if (schema::list_of(type) != nullptr) {
    return read_part(all, body.filter.crit_bytes, &body.filter.crit, type.lines,
                     [&all](uint32_t room) {
                       return qim_filter_criteria_get(all.ses, all.node_id, room, all.cursor);
                     });
  }
  const schema::Row* row = schema::args_of(type);
  if (row == nullptr) return ROV_OK;
  return read_part(all, *schema::length_at(&body, row->length_at),
                   schema::bytes_at(&body, row->position), type.lines, [&](uint32_t room) {
                     return args_get(all.ses, all.node_id, type.code, room, all.cursor);
                   });
}

}  // namespace
}  // namespace qim::query

QIM_API uint32_t qim_node_readall(uint32_t ses, qim_node_id_t node_id, int32_t type,
                                  qim_node_t* out, int32_t buf_len, void* buf) {
  qim::query::ReadAll all = {ses, node_id, out, buf_len, static_cast<uint8_t*>(buf), qim_lib_get()};
  uint32_t status = qim_node_read(ses, node_id, type, out);
  if (status != ROV_OK) return qim::query::fail(all, status, 495);
  status = qim::query::read_private(all);
  return status != ROV_OK ? status : qim::query::read_variable(all);
}
