// What a session reads: a snapshot, with the session's own edits over it, and the places in it that
// were looked at last.
#pragma once

#include "database/graph/edits.h"
#include "database/record/keys.h"
#include "database/store/snapshot.h"

namespace rov {

// Where a walk over a node's referrers stands.
struct ReferrerPlace {
  uint32_t epoch = 0;
  uint32_t node = 0;
  uint32_t start = 0;  // number of the chunk's first referrer
  Chunk chunk;
};

// Where a walk over the data sets stands.
struct DataSetPlace {
  uint32_t epoch = 0;
  uint32_t selector = 0;
  Key key = {};
};

struct View {
  Snapshot* snapshot = nullptr;
  Edits* edits = nullptr;   // NULL: none
  uint32_t client = 0;      // whose private data are seen
  int32_t dset_change = 0;  // data sets that the edits add
  uint64_t user = 0;        // whose changes are logged; 0: not known yet
  uint32_t changes = 0;     // changes that were logged, or would have been
  // The node found last, so that reading all parts of a node costs one descent and one checksum.
  NodeView node;
  uint32_t node_epoch = 0;
  ReferrerPlace referrers;
  DataSetPlace data_set;
};

// Readies a view for another snapshot.
void view_reset(View& view, Snapshot* snapshot, Edits* edits, uint32_t client);

// A record as the view has it. ROV_ERR_NO_ITEM (without a note) when there is none. What comes back
// is good until the view's next edit, or the snapshot moves.
[[nodiscard]] uint32_t view_get(View& view, Table table, Bytes key, Record* out);
// The first record not below `key`. The last one not above it, for tables whose keys have one
// length.
[[nodiscard]] uint32_t view_ge(View& view, Table table, Bytes key, Record* out);
[[nodiscard]] uint32_t view_le(View& view, Table table, Bytes key, Record* out);
// The first key behind `key`. False when there can be none.
bool key_after(Table table, Bytes key, Key* after);

// Editing. The value to be written, as Overlay::put and ::replace give it; NULL = out of memory,
// noted.
uint8_t* view_put(View& view, Table table, Bytes key, uint32_t len, uint32_t room);
uint8_t* view_replace(View& view, Table table, Bytes key, uint32_t len, uint32_t room);
[[nodiscard]] uint32_t view_erase(View& view, Table table, Bytes key);

// Looks a node up, and remembers it. ROV_ERR_NO_ITEM without a note.
[[nodiscard]] uint32_t view_seek_node(View& view, uint32_t node);

// The node in view.node. ROV_ERR_NO_ITEM, noted, when there is none.
[[nodiscard]] uint32_t view_find_slowly(View& view, uint32_t node);
[[nodiscard]] inline uint32_t view_find_node(View& view, uint32_t node) {
  if (view.node.node == node && node != 0 && view.node_epoch == view.snapshot->epoch) [[likely]] {
    return 0;
  }
  return view_find_slowly(view, node);
}

}  // namespace rov
