// A view: a snapshot's records with a session's edits over them.
#include "database/graph/view.h"

#include "database/base/error.h"
#include "rov.h"

namespace rov {
namespace {

Key copy_key(Bytes bytes) {
  Key key;
  memcpy(key.bytes, bytes.data, bytes.len);
  key.len = bytes.len;
  return key;
}

// The key's number less one. False for the lowest key.
bool key_before(Bytes key, Key* before) {
  *before = copy_key(key);
  for (uint32_t at = key.len; at-- > 0;) {
    if (before->bytes[at]-- != 0) return true;
  }
  return false;
}

void use_edit(const Overlay::Edit* edit, Record* out) {
  out->key = edit->key();
  out->value = {edit->value, edit->len};
}

bool failed(uint32_t status) {
  return status != ROV_OK && status != ROV_ERR_NO_ITEM;
}

// What was remembered of the view may be wrong after an edit.
void forget(View& view) {
  view.node.node = 0;
  view.referrers.node = 0;
  view.data_set.epoch = 0;
}

uint8_t* edited(View& view, uint8_t* value, uint32_t len) {
  forget(view);
  if (value == nullptr) fail(ROV_ERR_NO_MEM, Note::kNoMemory, len);
  return value;
}

}  // namespace

void view_reset(View& view, Snapshot* snapshot, Edits* edits, uint32_t client) {
  view.snapshot = snapshot;
  view.edits = edits;
  view.client = client;
  view.dset_change = 0;
  view.user = 0;
  forget(view);
}

uint32_t view_get(View& view, Table table, Bytes key, Record* out) {
  if (view.edits != nullptr) {
    const Overlay::Edit* edit = view.edits->find(table, key);
    if (edit != nullptr && edit->value == nullptr) return ROV_ERR_NO_ITEM;
    if (edit != nullptr) {
      use_edit(edit, out);
      return ROV_OK;
    }
  }
  return snapshot_get(view.snapshot, table, key, out);
}

bool key_after(Table table, Bytes key, Key* after) {
  *after = copy_key(key);
  if (table != Table::kNodes) {
    after->bytes[after->len++] = 0;
    return true;
  }
  const uint32_t node = load_be32(key.data);
  write_be32(after->bytes, node + 1);
  return node != UINT32_MAX;
}

uint32_t view_ge(View& view, Table table, Bytes key, Record* out) {
  if (view.edits == nullptr) return snapshot_ge(view.snapshot, table, key, out);
  Key from = copy_key(key);
  for (;;) {
    const uint32_t status = snapshot_ge(view.snapshot, table, from, out);
    if (failed(status)) return status;
    const Overlay::Edit* edit = view.edits->ge(table, from);
    if (edit == nullptr) return status;
    if (status == ROV_OK && compare(out->key, edit->key()) < 0) return status;
    if (edit->value != nullptr) {
      use_edit(edit, out);
      return ROV_OK;
    }
    if (!key_after(table, edit->key(), &from)) return ROV_ERR_NO_ITEM;
  }
}

uint32_t view_le(View& view, Table table, Bytes key, Record* out) {
  if (view.edits == nullptr) return snapshot_le(view.snapshot, table, key, out);
  Key from = copy_key(key);
  for (;;) {
    const uint32_t status = snapshot_le(view.snapshot, table, from, out);
    if (failed(status)) return status;
    const Overlay::Edit* edit = view.edits->le(table, from);
    if (edit == nullptr) return status;
    if (status == ROV_OK && compare(out->key, edit->key()) > 0) return status;
    if (edit->value != nullptr) {
      use_edit(edit, out);
      return ROV_OK;
    }
    if (!key_before(edit->key(), &from)) return ROV_ERR_NO_ITEM;
  }
}

uint8_t* view_put(View& view, Table table, Bytes key, uint32_t len, uint32_t room) {
  return edited(view, view.edits->put(table, key, len, room), room);
}

uint8_t* view_replace(View& view, Table table, Bytes key, uint32_t len, uint32_t room) {
  return edited(view, view.edits->replace(table, key, len, room), room);
}

uint32_t view_erase(View& view, Table table, Bytes key) {
  forget(view);
  if (view.edits->erase(table, key)) return ROV_OK;
  return fail(ROV_ERR_NO_MEM, Note::kNoMemory, key.len);
}

uint32_t view_seek_node(View& view, uint32_t node) {
  view.node.node = 0;
  if (node == 0) return ROV_ERR_NO_ITEM;
  Record record;
  const uint32_t status = view_get(view, Table::kNodes, node_key(node), &record);
  if (status != ROV_OK) return status;
  view.node_epoch = view.snapshot->epoch;
  if (parse_node(node, record.value, &view.node)) return ROV_OK;
  return fail(ROV_ERR_CORRUPT, Note::kBadNode, node);
}

uint32_t view_find_slowly(View& view, uint32_t node) {
  const uint32_t status = view_seek_node(view, node);
  return status == ROV_ERR_NO_ITEM ? fail(status, Note::kNoNode, node) : status;
}

}  // namespace rov
