// What a client keeps on the database or on its sessions, beside its private data on nodes.
#pragma once

#include "database/graph/view.h"
#include "rov.h"

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
[[nodiscard]] uint32_t client_data_get(View& view, const DataOwner& owner, uint32_t key,
                                       Bytes* data);
[[nodiscard]] uint32_t client_data_put(View& view, const DataOwner& owner, uint32_t key,
                                       Bytes data);
// ROV_ERR_NO_VALUE, noted, when there is nothing to take away.
[[nodiscard]] uint32_t client_data_del(View& view, const DataOwner& owner, uint32_t key);
[[nodiscard]] uint32_t client_data_del_all(View& view, const DataOwner& owner);

// The first key of the owner above `after`. ROV_ERR_NO_VALUE, noted, past the last.
[[nodiscard]] uint32_t client_data_next(View& view, const DataOwner& owner, uint32_t after,
                                        uint32_t* key);

// Among what sessions that are no more left: the lowest key above `after`, and of several sessions'
// data under it those written last.
[[nodiscard]] uint32_t client_data_left(View& view, uint32_t client, uint32_t after,
                                        DataOwner* owner, uint32_t* key);
// Takes away what such sessions left under the key.
[[nodiscard]] uint32_t client_data_del_left(View& view, uint32_t client, uint32_t key);

// ---- What calls do with them, each in a session of its own --------------------------------------

// Whose data a call means, and where they are.
struct DataPlace {
  uint32_t db = 0;
  DataOwner owner = {};
};

// Those on the database. Those of a session, whose base's handle means the session, too.
[[nodiscard]] uint32_t data_place_of_database(uint32_t db, DataPlace* place);
[[nodiscard]] uint32_t data_place_of_session(uint32_t ses, DataPlace* place);

// Each as the C entry of that name says; arguments have been checked.
[[nodiscard]] uint32_t data_write(const DataPlace& place, const rov_priv_t& priv);
[[nodiscard]] uint32_t data_read(const DataPlace& place, rov_priv_t* priv);
[[nodiscard]] uint32_t data_delete(const DataPlace& place, uint32_t key);
[[nodiscard]] uint32_t data_delete_all(const DataPlace& place);
// The data under the first key above `after`.
[[nodiscard]] uint32_t data_read_next(const DataPlace& place, uint32_t after, rov_priv_t* priv);
// Hands out what dead sessions left, and makes it the session's own unless it is to stay.
[[nodiscard]] uint32_t data_recover(const DataPlace& place, uint32_t after, bool keep,
                                    rov_priv_t* priv);

}  // namespace rov
