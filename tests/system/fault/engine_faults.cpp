#include "tests/system/fault/engine_faults.h"

#include <lmdb.h>

#include <cerrno>

#include "rov.h"

namespace fault {

using namespace failing_engine;

const std::vector<EngineFault>& engine_faults() {
  static const std::vector<EngineFault> all = {
      {kEnvCreate, ENOMEM, true},
      {kSetMaxDbs, EINVAL, true},
      {kSetMaxReaders, EINVAL, true},
      {kSetMapSize, ENOMEM, true},
      {kEnvOpen, ENOMEM, true},
      {kEnvOpen, MDB_INVALID, true},
      {kEnvOpen, MDB_VERSION_MISMATCH, true},
      {kEnvSync, EIO, true},
      {kCopy, EIO, true},
      {kCopy, MDB_READERS_FULL, true},
      {kCopy, MDB_READERS_FULL, false},
      {kCopy, MDB_MAP_RESIZED, true},
      {kCopy, MDB_MAP_RESIZED, false},
      {kCompact, ENOSPC, true},
      {kListReaders, -1, true},
      {kTxnBegin, ENOMEM, true},
      {kTxnBegin, MDB_PANIC, true},
      {kTxnBegin, MDB_READERS_FULL, true},
      {kTxnBegin, MDB_MAP_RESIZED, false},
      {kTxnRenew, MDB_PANIC, true},
      {kTxnRenew, MDB_READERS_FULL, true},
      {kTxnRenew, MDB_MAP_RESIZED, true},
      {kTxnRenew, MDB_MAP_RESIZED, false},
      {kTxnCommit, EIO, true},
      {kTxnCommit, ENOSPC, true},
      {kTxnCommit, ENOMEM, false},
      {kDbiOpen, MDB_NOTFOUND, true},
      {kDbiOpen, MDB_DBS_FULL, false},
      {kDel, ENOMEM, true},
      {kDel, MDB_MAP_FULL, true},
      {kCursorOpen, ENOMEM, true},
      {kCursorGet, MDB_PAGE_NOTFOUND, true},
      {kCursorGet, MDB_CORRUPTED, false},
      {kCursorPut, ENOMEM, true},
      {kCursorPut, MDB_MAP_FULL, true},
      {kCursorPut, MDB_MAP_FULL, false},
      {kCursorPut, MDB_TXN_FULL, false},
      {kSearch, kNoRecord, true},
      {kSearch, kNoRecord, false},
      {kSearch, kFlipped, false},
      {kSearch, kHalf, false},
      {kSearch, kOnes, false},
      {kSearchInOrder, kNoRecord, true},
      {kSearchInOrder, kNoRecord, false},
      {kSearchInOrder, kFlipped, false},
      {kSearchInOrder, kHalf, false},
      {kSearchInOrder, kOnes, false},
  };
  return all;
}

bool is_sealed(int error) {
  return error == kHalf || error == kOnes;
}

std::string text_of(const Plan& plan) {
  return std::string("mdb_") + name_of(plan.call) + " " + std::to_string(plan.from) + " until " +
         std::to_string(plan.until) + ": " +
         (plan.error >= kFlipped ? "damage " + std::to_string(plan.error - kFlipped)
                                 : mdb_strerror(plan.error));
}

bool is_told(uint32_t status, const std::string& message, int error) {
  if (error == kFlipped || error == kNoRecord) return status == ROV_ERR_CORRUPT && !message.empty();
  if (is_sealed(error)) return !message.empty();
  // The database tells of these in its own words.
  if (error == MDB_MAP_FULL) return status == ROV_ERR_FULL;
  if (error == MDB_MAP_RESIZED) return status == ROV_ERR_BUSY;
  // A step may go on after an edit failed, and tell of its commit.
  if (message.find("failed before, half-way through an edit") != std::string::npos) return true;
  return message.find(mdb_strerror(error)) != std::string::npos;
}

}  // namespace fault
