// The change log: one record for each change, pruned at every commit, and who committed.
#include "database/graph/changes.h"

#include <pwd.h>
#include <unistd.h>

#include <ctime>

#include "database/base/error.h"
#include "database/base/process.h"
#include "database/graph/edit.h"
#include "database/store/store.h"
#include "rov.h"

namespace rov {
namespace {

constexpr uint32_t kChangeHead = 32;
constexpr uint32_t kMetaBytes = 16;
// crc:4 uid:4 group:4 time:8 name:36 process:4 0:4 start:8 space:8 revision:8, the last of its commits
constexpr uint32_t kUserNameAt = 20;
constexpr uint32_t kUserNameBytes = sizeof(rov_usr_t::name);
constexpr uint32_t kUserProcessAt = kUserNameAt + kUserNameBytes;
constexpr uint32_t kUserStartAt = kUserProcessAt + 8;
constexpr uint32_t kUserSpaceAt = kUserStartAt + 8;
constexpr uint32_t kUserRevisionAt = kUserSpaceAt + 8;
constexpr uint32_t kUserBytes = kUserRevisionAt + 8;

// How much of the log there is.
struct LogHead {
  uint32_t count = 0;
  uint64_t pruned = 0;
};

uint32_t bad_change() {
  return fail(ROV_ERR_CORRUPT, Note::kBadChange);
}

uint32_t meta_get(View& view, LogHead* meta) {
  Record record;
  const uint32_t status = view_get(view, Table::kChanges, change_key(0, 0), &record);
  *meta = {};
  if (status == ROV_ERR_NO_ITEM) return ROV_OK;
  if (status != ROV_OK) return status;
  if (record.value.len != kMetaBytes) return bad_change();
  meta->count = load<uint32_t>(record.value.data + 4);
  meta->pruned = load<uint64_t>(record.value.data + 8);
  return ROV_OK;
}

uint32_t meta_put(View& view, const LogHead& meta) {
  uint8_t* value = view_put(view, Table::kChanges, change_key(0, 0), kMetaBytes, kMetaBytes);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  write_value(value + 4, meta.count);
  write_value(value + 8, meta.pruned);
  return ROV_OK;
}

uint32_t change_put(View& view, const Change& change) {
  const uint32_t len = kChangeHead + change.dset_len;
  const Key key = change_key(change.revision, change.number);
  uint8_t* value = view_replace(view, Table::kChanges, key, len, len);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  write_value(value + 4, change.kind);
  write_value(value + 8, change.field);
  write_value(value + 12, change.node);
  write_value(value + 16, change.user);
  write_value(value + 24, change.dset_len);
  write_value(value + 28, change.time);
  memcpy(value + kChangeHead, change.dset, change.dset_len);
  return ROV_OK;
}

uint32_t parse(const Record& record, Change* change) {
  const Bytes value = record.value;
  if (record.key.len != kChangeKeyBytes || value.len < kChangeHead) return bad_change();
  change->revision = load_be64(record.key.data);
  change->number = load_be32(record.key.data + 8);
  change->kind = load<uint32_t>(value.data + 4);
  change->field = load<uint32_t>(value.data + 8);
  change->node = load<uint32_t>(value.data + 12);
  change->user = load<uint64_t>(value.data + 16);
  change->dset_len = load<uint32_t>(value.data + 24);
  change->time = load<uint32_t>(value.data + 28);
  if (change->dset_len > kNameBytes || value.len != kChangeHead + change->dset_len) {
    return bad_change();
  }
  memcpy(change->dset, value.data + kChangeHead, change->dset_len);
  return ROV_OK;
}

// The number of the commit that a write session will make: nobody else commits while it is open.
uint64_t revision_of(const View& view) {
  return view.snapshot->revision + 1;
}

// ---- Users ----

// The record of a user. ROV_ERR_NO_ITEM, not noted.
uint32_t find_user(View& view, uint64_t user, Record* record) {
  const uint32_t status = view_get(view, Table::kUsers, user_key(user), record);
  if (status != ROV_OK) return status;
  return record->value.len == kUserBytes ? uint32_t{ROV_OK} : bad_change();
}

bool is_of(const Record& record, const ProcessStamp& stamp) {
  const uint8_t* value = record.value.data;
  return load<uint32_t>(value + kUserProcessAt) == static_cast<uint32_t>(getpid()) &&
         load<uint64_t>(value + kUserStartAt) == stamp.start &&
         load<uint64_t>(value + kUserSpaceAt) == stamp.space;
}

// A number that no process has, the same for a process at every time unless another one has it.
uint64_t stand_in(uint64_t user, const ProcessStamp& stamp, uint32_t attempt) {
  const uint64_t mixed = (stamp.start * 0x9e3779b97f4a7c15 ^ stamp.space) * 0xbf58476d1ce4e5b9;
  const auto low = static_cast<uint32_t>(mixed >> 32) + attempt;
  return (user & 0xffffffff00000000) | 0x80000000 | low;
}

// The number under which this process's client logs.
uint32_t name_user(View& view) {
  if (view.user != 0) return ROV_OK;
  const ProcessStamp stamp = own_stamp();
  uint64_t user = user_number(view.client);
  for (uint32_t attempt = 0;; ++attempt) {
    Record record;
    const uint32_t status = find_user(view, user, &record);
    if (status != ROV_OK && status != ROV_ERR_NO_ITEM) return status;
    if (status == ROV_ERR_NO_ITEM || is_of(record, stamp)) break;
    user = stand_in(user, stamp, attempt);
  }
  view.user = user;
  return ROV_OK;
}

// Forgets a user whose last commit that was.
uint32_t forget_user(View& view, uint64_t user, uint64_t revision) {
  Record record;
  const uint32_t status = find_user(view, user, &record);
  if (status == ROV_ERR_NO_ITEM) return ROV_OK;
  if (status != ROV_OK) return status;
  if (load<uint64_t>(record.value.data + kUserRevisionAt) != revision) return ROV_OK;
  return view_erase(view, Table::kUsers, user_key(user));
}

// ---- The log's length ----

// Puts one gap in the place of everything that was logged.
uint32_t fold_into_gap(View& view) {
  for (uint32_t number = 0; number < kMaxChangesPerCommit; ++number) {
    const uint32_t status =
        view_erase(view, Table::kChanges, change_key(revision_of(view), number));
    if (status != ROV_OK) return status;
  }
  Change gap;
  gap.revision = revision_of(view);
  gap.kind = ROV_CHANGE_GAP;
  gap.user = view.user;
  gap.time = static_cast<uint32_t>(time(nullptr));
  view.changes = 1;
  return change_put(view, gap);
}

// Drops a change, and who made it with the last one that is kept of them.
uint32_t drop_change(View& view, const Change& change, const Change& next) {
  const uint32_t status =
      view_erase(view, Table::kChanges, change_key(change.revision, change.number));
  if (status != ROV_OK || next.revision == change.revision) return status;
  return forget_user(view, change.user, change.revision);
}

// Drops the oldest changes until the log is as short as it may be.
uint32_t prune(View& view, LogHead* meta) {
  if (meta->count <= kMaxChanges) return ROV_OK;
  Change change;
  uint32_t status = change_after(view, 0, 0, &change);
  for (; status == ROV_OK && meta->count > kMaxChanges; --meta->count) {
    Change next;
    status = change_after(view, change.revision, change.number, &next);
    if (status == ROV_OK) status = drop_change(view, change, next);
    meta->pruned = change.revision;
    change = next;
  }
  return status == ROV_ERR_NO_ITEM ? bad_change() : status;
}

uint32_t user_put(View& view, const Author& author) {
  const Key key = user_key(view.user);
  uint8_t* value = view_replace(view, Table::kUsers, key, kUserBytes, kUserBytes);
  if (value == nullptr) return ROV_ERR_NO_MEM;
  memset(value, 0, kUserBytes);
  write_value(value + 4, static_cast<uint32_t>(getuid()));
  write_value(value + 8, author.group);
  write_value(value + 12, static_cast<uint64_t>(time(nullptr)));
  const ProcessStamp stamp = own_stamp();
  write_value(value + kUserProcessAt, static_cast<uint32_t>(getpid()));
  write_value(value + kUserStartAt, stamp.start);
  write_value(value + kUserSpaceAt, stamp.space);
  write_value(value + kUserRevisionAt, revision_of(view));
  passwd entry;
  passwd* found = nullptr;
  char names[1024];
  if (getpwuid_r(getuid(), &entry, names, sizeof names, &found) == 0 && found != nullptr) {
    memcpy(value + kUserNameAt, entry.pw_name, strnlen(entry.pw_name, kUserNameBytes - 1));
  }
  return ROV_OK;
}

// Takes a node's data-set name into a change, where the node is there and has one.
uint32_t change_name(View& view, uint32_t node, Change* change) {
  if (view.changes >= kMaxChangesPerCommit) return ROV_OK;  // it will not be logged by itself
  const uint32_t status = view_seek_node(view, node);
  if (status == ROV_ERR_NO_ITEM) return ROV_OK;
  if (status != ROV_OK) return status;
  change->dset_len = view.node.dset_len;
  memcpy(change->dset, view.node.dset, view.node.dset_len);
  return ROV_OK;
}

uint32_t log_link(View& view, uint32_t kind, uint32_t owner, uint32_t field) {
  Change change;
  change.kind = kind;
  change.node = owner;
  change.field = field;
  const uint32_t status = change_name(view, owner, &change);
  return status == ROV_OK ? change_log(view, change) : status;
}

}  // namespace

uint64_t user_number(uint32_t client) {
  return uint64_t{client} << 32 | static_cast<uint32_t>(getpid());
}

uint32_t is_own_user(View& view, uint64_t user, bool* own) {
  *own = false;
  if (user != user_number(static_cast<uint32_t>(user >> 32)) && !is_stand_in(user)) return ROV_OK;
  Record record;
  const uint32_t status = find_user(view, user, &record);
  if (status == ROV_OK) *own = is_of(record, own_stamp());
  return status == ROV_ERR_NO_ITEM ? uint32_t{ROV_OK} : status;
}

uint32_t change_log(View& view, Change change) {
  const uint32_t status = name_user(view);
  if (status != ROV_OK) return status;
  if (view.changes++ >= kMaxChangesPerCommit) return ROV_OK;
  change.revision = revision_of(view);
  change.number = view.changes - 1;
  change.user = view.user;
  change.time = static_cast<uint32_t>(time(nullptr));
  return change_put(view, change);
}

uint32_t logged_node_put(View& view, const rov_edit_node_t& node) {
  const uint32_t status = edit_node_put(view, node);
  if (status != ROV_OK) return status;
  Change change;
  change.kind = ROV_CHANGE_NODE_PUT;
  change.node = number_of(node.id);
  change.dset_len = node.dset_len;
  if (node.dset_len != 0) memcpy(change.dset, node.dset, node.dset_len);
  return change_log(view, change);
}

uint32_t logged_node_del(View& view, uint32_t node) {
  Change change;
  change.kind = ROV_CHANGE_NODE_DEL;
  change.node = node;
  uint32_t status = change_name(view, node, &change);  // as long as it has one
  if (status == ROV_OK) status = edit_node_del(view, node);
  return status == ROV_OK ? change_log(view, change) : status;
}

uint32_t logged_link_put(View& view, uint32_t owner, const Link& link) {
  const uint32_t status = edit_link_put(view, owner, link);
  return status == ROV_OK ? log_link(view, ROV_CHANGE_LINK_PUT, owner, link.field) : status;
}

uint32_t logged_link_del(View& view, uint32_t owner, uint32_t field) {
  const uint32_t status = edit_link_del(view, owner, field);
  return status == ROV_OK ? log_link(view, ROV_CHANGE_LINK_DEL, owner, field) : status;
}

uint32_t changes_seal(View& view, const Author& author) {
  if (view.changes == 0) return ROV_OK;
  LogHead meta;
  uint32_t status = ROV_OK;
  if (view.changes > kMaxChangesPerCommit) status = fold_into_gap(view);
  if (status == ROV_OK) status = meta_get(view, &meta);
  if (status != ROV_OK) return status;
  meta.count += view.changes;
  status = prune(view, &meta);
  if (status == ROV_OK) status = meta_put(view, meta);
  return status == ROV_OK ? user_put(view, author) : status;
}

uint32_t change_after(View& view, uint64_t revision, uint32_t number, Change* change) {
  if (++number == 0) ++revision;
  Record record;
  const uint32_t status = view_ge(view, Table::kChanges, change_key(revision, number), &record);
  return status == ROV_OK ? parse(record, change) : status;
}

uint32_t changes_pruned(View& view, uint64_t* revision) {
  LogHead meta;
  const uint32_t status = meta_get(view, &meta);
  *revision = meta.pruned;
  return status;
}

uint32_t user_get(View& view, uint64_t user, rov_usr_t* info) {
  Record record;
  const uint32_t status = find_user(view, user, &record);
  if (status != ROV_OK) return status;
  const uint8_t* value = record.value.data;
  const auto when = load<uint64_t>(value + 12);
  *info = {};
  info->uid = load<uint32_t>(value + 4);
  info->pid = load<uint32_t>(value + kUserProcessAt);
  info->client = static_cast<uint32_t>(user >> 32);
  info->group = load<uint32_t>(value + 8);
  info->time[0] = static_cast<uint32_t>(when >> 32);
  info->time[1] = static_cast<uint32_t>(when);
  memcpy(info->name, value + kUserNameAt, kUserNameBytes - 1);
  return ROV_OK;
}

}  // namespace rov
