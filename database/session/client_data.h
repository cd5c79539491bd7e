// What a client keeps on the database or on its sessions, beside its private data on nodes.
#ifndef DATABASE_SESSION_CLIENT_DATA_H
#define DATABASE_SESSION_CLIENT_DATA_H

#include "database/graph/view.h"

namespace rov {

// Whose data: those on the database when process and session are 0.
struct DataOwner {
  uint32_t client;
  uint32_t process;
  uint32_t session;
};

// The owner that stands for a session of this process.
DataOwner session_owner(uint32_t client, uint32_t session);

// The bytes under a key. ROV_ERR_NO_VALUE, noted, when there are none.
uint32_t client_data_get(View& view, const DataOwner& owner, uint32_t key, Bytes* data);
uint32_t client_data_put(View& view, const DataOwner& owner, uint32_t key, Bytes data);
// ROV_ERR_NO_VALUE, noted, when there is nothing to take away.
uint32_t client_data_del(View& view, const DataOwner& owner, uint32_t key);
uint32_t client_data_del_all(View& view, const DataOwner& owner);

// The first key of the owner above `after`. ROV_ERR_NO_VALUE, noted, past the last.
uint32_t client_data_next(View& view, const DataOwner& owner, uint32_t after, uint32_t* key);

// Among what sessions that are no more left: the lowest key above `after`, and of several sessions'
// data under it those written last.
uint32_t client_data_left(View& view, uint32_t client, uint32_t after, DataOwner* owner,
                          uint32_t* key);
// Takes away what such sessions left under the key.
uint32_t client_data_del_left(View& view, uint32_t client, uint32_t key);

}  // namespace rov

#endif
