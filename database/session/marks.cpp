// Marks lie among what clients keep, under an owner that no client has: the name is the number of a
// session of process 0, and the key.
#include "database/session/marks.h"

#include <cstring>

#include "database/base/error.h"
#include "database/session/client_data.h"

namespace rov {
namespace {

constexpr uint32_t kWordBytes = 4;

DataOwner owner_of(const MarkName& name) {
  return {0, 0, load_be32(name.bytes)};
}

uint32_t key_of(const MarkName& name) {
  return load_be32(name.bytes + kWordBytes);
}

bool is_plain(char byte) {
  return byte > ' ' && byte <= '~';
}

}  // namespace

uint32_t mark_name(const char* text, MarkName* name) {
  const size_t len = strnlen(text, ROV_MARK_NAME);
  bool good = len != 0 && len <= kMarkNameBytes;
  for (size_t i = 0; i < len && good; ++i) good = is_plain(text[i]);
  if (!good) {
    return fail_text(ROV_ERR_INVALID, "the name of a mark has 1 to %u printable ASCII characters",
                     kMarkNameBytes);
  }
  memcpy(name->bytes, text, len);
  return ROV_OK;
}

uint32_t mark_get(View& view, const MarkName& name, Bytes* data) {
  const uint32_t status = client_data_get(view, owner_of(name), key_of(name), data);
  if (status != ROV_ERR_NO_VALUE) return status;
  return fail_text(status, "the database has no mark %s", name.bytes);
}

uint32_t mark_put(View& view, const MarkName& name, Bytes data) {
  if (data.len != 0) return client_data_put(view, owner_of(name), key_of(name), data);
  const uint32_t status = client_data_del(view, owner_of(name), key_of(name));
  return status == ROV_ERR_NO_VALUE ? uint32_t{ROV_OK} : status;
}

uint32_t mark_next(View& view, const MarkName& after, MarkName* name) {
  // What a client of number 0 keeps on the database comes before all marks.
  const Key from = after.bytes[0] == '\0'
                       ? client_key({0, 0, 1, 0})
                       : client_key({0, 0, load_be32(after.bytes), key_of(after) + 1});
  Record record;
  const uint32_t status = view_ge(view, Table::kClients, from, &record);
  if (status != ROV_OK && status != ROV_ERR_NO_ITEM) return status;
  const uint8_t* key = record.key.data;
  if (status != ROV_OK || (load_be32(key) | load_be32(key + kWordBytes)) != 0) {
    return fail_text(ROV_ERR_NO_VALUE, "no mark follows");
  }
  if (record.key.len != kClientKeyBytes) return fail(ROV_ERR_CORRUPT, Note::kBadClient);
  memcpy(name->bytes, key + 2 * size_t{kWordBytes}, kMarkNameBytes);
  return ROV_OK;
}

}  // namespace rov
