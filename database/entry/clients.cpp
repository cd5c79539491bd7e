// C entries: private data of all clients, for tools that carry a whole database over.
#include "database/base/error.h"
#include "database/graph/private.h"
#include "database/session/session.h"
#include "rov_edit.h"

namespace {

using rov::Access;
using rov::fail;
using rov::Note;
using rov::View;

uint32_t bad_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

// A view through the eyes of another client.
class AsClient {
 public:
  AsClient(View& view, uint32_t client) : view_(view), own_(view.client) { view.client = client; }
  ~AsClient() { view_.client = own_; }
  AsClient(const AsClient&) = delete;
  AsClient& operator=(const AsClient&) = delete;

 private:
  View& view_;
  uint32_t own_;
};

uint32_t private_nth(View& view, uint32_t node, uint32_t n, rov::Record* record) {
  rov::Key key = rov::pair_key(node, 0);
  for (uint32_t i = 0;; ++i) {
    const uint32_t status = rov::view_ge(view, rov::Table::kPrivate, key, record);
    if (status != ROV_OK && status != ROV_ERR_NO_ITEM) return status;
    if (status != ROV_OK || rov::load_be32(record->key.data) != node) {
      return fail(ROV_ERR_NO_VALUE, Note::kNoPrivate, n);
    }
    if (i == n) return ROV_OK;
    if (!rov::key_after(rov::Table::kPrivate, record->key, &key)) {
      return fail(ROV_ERR_NO_VALUE, Note::kNoPrivate, n);
    }
  }
}

}  // namespace

uint32_t rov_edit_priv_nth(uint32_t ses, rov_node_id_t id, uint32_t n, uint32_t* client,
                           uint32_t room, void* data, uint32_t* len) {
  if (client == nullptr) return bad_argument(4);
  if (data == nullptr && room != 0) return bad_argument(6);
  if (len == nullptr) return bad_argument(7);
  Access access(ses);
  if (access.failed()) return access.status();
  const uint32_t node = rov::number_of(id);
  uint32_t status = rov::view_find_node(access.view(), node);
  rov::Record record;
  if (status == ROV_OK) status = private_nth(access.view(), node, n, &record);
  if (status != ROV_OK) return status;
  const rov::Bytes bytes = {record.value.data + 4, record.value.len - 4};
  *client = rov::load_be32(record.key.data + 4);
  *len = bytes.len;
  if (bytes.len > room) return fail(ROV_ERR_LENGTH, Note::kBuffer, room, bytes.len);
  if (bytes.len != 0) memcpy(data, bytes.data, bytes.len);
  return ROV_OK;
}

uint32_t rov_edit_priv_put(uint32_t ses, rov_node_id_t id, uint32_t client, const void* data,
                           uint32_t len) {
  if (data == nullptr && len != 0) return bad_argument(4);
  if (len > rov::kMaxPrivate) return fail(ROV_ERR_LENGTH, Note::kBuffer, rov::kMaxPrivate, len);
  Access access(ses);
  if (access.failed()) return access.status();
  if (!access.session().write || access.session().handle != ses) {
    return fail(ROV_ERR_READ_ONLY, Note::kReadOnly, ses);
  }
  const AsClient as(access.view(), client);
  const uint32_t status = rov::private_set(access.view(), rov::number_of(id), data, len);
  if (status == ROV_ERR_NO_MEM || status == ROV_ERR_CORRUPT) access.session().broken = status;
  return status;
}
