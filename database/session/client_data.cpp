// What clients keep on the database and on their sessions: records of one table, by owner and key.
#include "database/session/client_data.h"

#include <unistd.h>

#include "database/base/error.h"
#include "database/base/process.h"
#include "database/handle/handle.h"
#include "database/session/transact.h"
#include "database/store/store.h"

namespace rov {
namespace {

constexpr uint32_t kStampAt = 4;
constexpr uint32_t kStartAt = 12;
constexpr uint32_t kHead = 20;

// One record of the table, taken apart.
struct ClientEntry {
  ClientKey key;
  uint64_t stamp;
  uint64_t start;
  Bytes data;
};

uint32_t parse(const Record& record, ClientEntry* entry) {
  const uint8_t* key = record.key.data;
  if (record.key.len != kClientKeyBytes || record.value.len < kHead) {
    return fail(ROV_ERR_CORRUPT, Note::kBadClient);
  }
  entry->key = {load_be32(key), load_be32(key + 4), load_be32(key + 8), load_be32(key + 12)};
  entry->stamp = load<uint64_t>(record.value.data + kStampAt);
  entry->start = load<uint64_t>(record.value.data + kStartAt);
  entry->data = {record.value.data + kHead, record.value.len - kHead};
  return ROV_OK;
}

// The first entry not below `from`. ROV_ERR_NO_ITEM, not noted, when the client has none there.
uint32_t entry_from(View& view, const ClientKey& from, ClientEntry* entry) {
  Record record;
  uint32_t status = view_ge(view, Table::kClients, client_key(from), &record);
  if (status == ROV_OK) status = parse(record, entry);
  // NOLINTNEXTLINE(clang-analyzer-core.*): set on success, which the analyser does not follow
  if (status == ROV_OK && entry->key.client != from.client) return ROV_ERR_NO_ITEM;
  return status;
}

// Moves to the key behind that one. False when there can be none.
bool step(ClientKey* key) {
  if (++key->key != 0) return true;
  if (++key->session != 0) return true;
  return ++key->process != 0;
}

bool same_owner(const ClientKey& key, const DataOwner& owner) {
  return key.client == owner.client && key.process == owner.process && key.session == owner.session;
}

// Whether the session that keeps the entry is still there.
bool is_alive(const ClientEntry& entry) {
  const uint32_t process = entry.key.process;
  if (process != static_cast<uint32_t>(getpid())) return !process_is_gone(process, entry.start);
  return entry.start == process_start(process) && handle_owner(entry.key.session) != 0;
}

// Visits what dead sessions of the client left; `visit` answers whether to go on.
template <class Visit>
uint32_t each_left(View& view, uint32_t client, Visit visit) {
  ClientKey at = {client, 1, 0, 0};  // process 0 is the database
  for (;;) {
    ClientEntry entry;
    const uint32_t status = entry_from(view, at, &entry);
    if (status == ROV_ERR_NO_ITEM) return ROV_OK;
    if (status != ROV_OK) return status;
    at = entry.key;
    if (!is_alive(entry)) {
      const uint32_t visited = visit(entry);
      if (visited != ROV_OK) return visited;
    }
    if (!step(&at)) return ROV_OK;
  }
}

Key key_of(const DataOwner& owner, uint32_t key) {
  return client_key({owner.client, owner.process, owner.session, key});
}

uint32_t no_value(uint32_t key) {
  return fail(ROV_ERR_NO_VALUE, Note::kNoPrivate, key);
}

Bytes bytes_of(const rov_priv_t& priv) {
  return {static_cast<const uint8_t*>(priv.data), priv.len};
}

// Copies data into the caller's room; the length is told in any case.
uint32_t give(Bytes data, rov_priv_t* priv) {
  const uint32_t room = priv->len;
  priv->len = data.len;
  if (room < data.len) return fail(ROV_ERR_LENGTH, Note::kBuffer, room, data.len);
  if (data.len != 0) memcpy(priv->data, data.data, data.len);
  return ROV_OK;
}

// Hands out what dead sessions left under the first key above `after`.
uint32_t take_over(View& view, const DataOwner& to, uint32_t after, bool keep, rov_priv_t* priv) {
  DataOwner from = {};
  uint32_t key = 0;
  Bytes data;
  uint32_t status = client_data_left(view, to.client, after, &from, &key);
  if (status == ROV_OK) status = client_data_get(view, from, key, &data);
  if (status != ROV_OK) return status;
  priv->key = key;
  status = give(data, priv);
  if (status != ROV_OK || keep) return status;
  status = client_data_put(view, to, key, bytes_of(*priv));
  return status == ROV_OK ? client_data_del_left(view, to.client, key) : status;
}

}  // namespace

DataOwner session_owner(uint32_t client, uint32_t session) {
  return {client, static_cast<uint32_t>(getpid()), session};
}

uint32_t client_data_get(View& view, const DataOwner& owner, uint32_t key, Bytes* data) {
  Record record;
  ClientEntry entry;
  const Key where = key_of(owner, key);  // the record's key lies in it
  uint32_t status = view_get(view, Table::kClients, where, &record);
  if (status == ROV_ERR_NO_ITEM) return no_value(key);
  if (status == ROV_OK) status = parse(record, &entry);
  if (status == ROV_OK) *data = entry.data;
  return status;
}

uint32_t client_data_put(View& view, const DataOwner& owner, uint32_t key, Bytes data) {
  const uint32_t len = kHead + data.len;
  uint8_t* value = view_replace(view, Table::kClients, key_of(owner, key), len, len);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  write_value(value + kStampAt, view.snapshot->revision);
  write_value(value + kStartAt, owner.process == 0 ? uint64_t{0} : process_start(owner.process));
  if (data.len != 0) memcpy(value + kHead, data.data, data.len);
  return ROV_OK;
}

uint32_t client_data_del(View& view, const DataOwner& owner, uint32_t key) {
  Bytes data;
  const uint32_t status = client_data_get(view, owner, key, &data);
  return status == ROV_OK ? view_erase(view, Table::kClients, key_of(owner, key)) : status;
}

uint32_t client_data_del_all(View& view, const DataOwner& owner) {
  uint32_t key = 0;
  uint32_t status = client_data_next(view, owner, 0, &key);
  while (status == ROV_OK) {
    status = view_erase(view, Table::kClients, key_of(owner, key));
    if (status == ROV_OK) status = client_data_next(view, owner, key, &key);
  }
  return status == ROV_ERR_NO_VALUE ? uint32_t{ROV_OK} : status;
}

uint32_t client_data_next(View& view, const DataOwner& owner, uint32_t after, uint32_t* key) {
  ClientKey at = {owner.client, owner.process, owner.session, after};
  if (!step(&at) || !same_owner(at, owner)) return no_value(after);
  ClientEntry entry;
  const uint32_t status = entry_from(view, at, &entry);
  if (status == ROV_ERR_NO_ITEM) return no_value(after);
  if (status != ROV_OK) return status;
  if (!same_owner(entry.key, owner)) return no_value(after);
  *key = entry.key.key;
  return ROV_OK;
}

uint32_t client_data_left(View& view, uint32_t client, uint32_t after, DataOwner* owner,
                          uint32_t* key) {
  bool found = false;
  uint64_t stamp = 0;
  const uint32_t status = each_left(view, client, [&](const ClientEntry& entry) {
    const uint32_t number = entry.key.key;
    const bool better = !found || number < *key || (number == *key && entry.stamp > stamp);
    if (number > after && better) {
      found = true;
      stamp = entry.stamp;
      *key = number;
      *owner = {client, entry.key.process, entry.key.session};
    }
    return uint32_t{ROV_OK};
  });
  if (status != ROV_OK) return status;
  return found ? uint32_t{ROV_OK} : no_value(after);
}

uint32_t client_data_del_left(View& view, uint32_t client, uint32_t key) {
  return each_left(view, client, [&](const ClientEntry& entry) {
    if (entry.key.key != key) return uint32_t{ROV_OK};
    return view_erase(view, Table::kClients, client_key(entry.key));
  });
}

uint32_t data_place_of_database(uint32_t db, DataPlace* place) {
  const DatabasePin pin(db);
  if (pin.status() != ROV_OK) return pin.status();
  *place = {db, {pin->client, 0, 0}};
  return ROV_OK;
}

uint32_t data_place_of_session(uint32_t ses, DataPlace* place) {
  Access access(ses);
  if (access.failed()) return access.status();
  const Session& session = access.session();
  *place = {session.db->handle, session_owner(access.view().client, session.handle)};
  return ROV_OK;
}

uint32_t data_write(const DataPlace& place, const rov_priv_t& priv) {
  return with_writer(place.db, [&](View& view) {
    return client_data_put(view, place.owner, priv.key, bytes_of(priv));
  });
}

uint32_t data_read(const DataPlace& place, rov_priv_t* priv) {
  return with_newest(place.db, [&](View& view) {
    Bytes data;
    const uint32_t status = client_data_get(view, place.owner, priv->key, &data);
    return status == ROV_OK ? give(data, priv) : status;
  });
}

uint32_t data_delete(const DataPlace& place, uint32_t key) {
  return with_writer(place.db, [&](View& view) { return client_data_del(view, place.owner, key); });
}

uint32_t data_delete_all(const DataPlace& place) {
  return with_writer(place.db, [&](View& view) { return client_data_del_all(view, place.owner); });
}

uint32_t data_read_next(const DataPlace& place, uint32_t after, rov_priv_t* priv) {
  return with_newest(place.db, [&](View& view) {
    uint32_t key = 0;
    Bytes data;
    uint32_t status = client_data_next(view, place.owner, after, &key);
    if (status == ROV_OK) status = client_data_get(view, place.owner, key, &data);
    if (status != ROV_OK) return status;
    priv->key = key;
    return give(data, priv);
  });
}

uint32_t data_recover(const DataPlace& place, uint32_t after, bool keep, rov_priv_t* priv) {
  const auto work = [&](View& view) { return take_over(view, place.owner, after, keep, priv); };
  return keep ? with_newest(place.db, work) : with_writer(place.db, work);
}

}  // namespace rov
