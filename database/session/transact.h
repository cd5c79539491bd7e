// Work that a call does in a session of its own.
#ifndef DATABASE_SESSION_TRANSACT_H
#define DATABASE_SESSION_TRANSACT_H

#include "database/session/session.h"

namespace rov {

// Runs `work` on the newest commit of a database.
template <class Work>
uint32_t with_newest(uint32_t db, Work work) {
  uint32_t ses = 0;
  uint32_t status = session_open(db, false, &ses);
  if (status != ROV_OK) return status;
  {
    Access access(ses);
    status = access.failed() ? access.status() : work(access.view());
  }
  session_close(ses);
  return status;
}

// Runs `work` in a write session of its own and commits it.
template <class Work>
uint32_t with_writer(uint32_t db, Work work) {
  uint32_t ses = 0;
  uint32_t status = session_open(db, true, &ses);
  if (status != ROV_OK) return status;
  {
    Access access(ses);
    status = access.failed() ? access.status() : work(access.view());
  }
  if (status == ROV_OK) return session_commit(ses, nullptr);
  session_close(ses);
  return status;
}

}  // namespace rov

#endif
