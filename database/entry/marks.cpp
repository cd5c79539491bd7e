// C entries: marks.
#include "database/session/marks.h"

#include "database/base/error.h"
#include "database/session/transact.h"
#include "rov.h"
#include "rov_edit.h"

using rov::bad_argument;
using rov::MarkName;
using rov::View;

uint32_t rov_edit_mark_put(uint32_t ses, const char* name, const void* data, uint32_t len) {
  if (name == nullptr) return bad_argument(2);
  if (data == nullptr && len != 0) return bad_argument(3);
  MarkName mark;
  const uint32_t status = rov::mark_name(name, &mark);
  if (status != ROV_OK) return status;
  if (len > ROV_MARK_BYTES) {
    return rov::fail_text(ROV_ERR_LENGTH, "a mark has at most %u bytes, not %u",
                          unsigned{ROV_MARK_BYTES}, len);
  }
  const rov::Bytes bytes = {static_cast<const uint8_t*>(data), len};
  return rov::with_edits(ses, [&](View& view) { return rov::mark_put(view, mark, bytes); });
}

uint32_t rov_mark_get(uint32_t ses, const char* name, uint32_t room, void* data, uint32_t* len) {
  if (name == nullptr) return bad_argument(2);
  if (data == nullptr && room != 0) return bad_argument(4);
  if (len == nullptr) return bad_argument(5);
  MarkName mark;
  const uint32_t status = rov::mark_name(name, &mark);
  if (status != ROV_OK) return status;
  return rov::with_view(ses, [&](View& view) {
    rov::Bytes bytes;
    const uint32_t found = rov::mark_get(view, mark, &bytes);
    if (found != ROV_OK) return found;
    *len = bytes.len;
    return rov_data_cpy(room, data, bytes.len, bytes.data);
  });
}

uint32_t rov_mark_next(uint32_t ses, const char* after, char* name) {
  if (name == nullptr) return bad_argument(3);
  MarkName from;
  if (after != nullptr && *after != '\0') {
    const uint32_t status = rov::mark_name(after, &from);
    if (status != ROV_OK) return status;
  }
  MarkName next;
  const uint32_t status =
      rov::with_view(ses, [&](View& view) { return rov::mark_next(view, from, &next); });
  if (status == ROV_OK) memcpy(name, next.bytes, sizeof next.bytes);
  return status;
}
