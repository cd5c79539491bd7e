// The nodes that refer to a node.
#ifndef DATABASE_GRAPH_REFERRERS_H
#define DATABASE_GRAPH_REFERRERS_H

#include "database/graph/view.h"
#include "database/record/referrer_chunk.h"

namespace rov {

// The referrer number `index` of `node`, in ascending order. ROV_ERR_NO_ITEM, without a note, past
// the last. Asking for one after the other costs one step each.
uint32_t referrer_at(View& view, uint32_t node, uint32_t index, Referrer* out);

// Writes the first `count` referrers as identifiers; *filled of them, when there are fewer.
uint32_t referrers_all(View& view, uint32_t node, rov_node_id_t* out, uint32_t count,
                       uint32_t* filled);

// Number of referrers, counted from the records themselves.
uint32_t referrers_count(View& view, uint32_t node, uint32_t* count);

// Notes the references of [from, to), which are to one node, sorted and distinct, beside what is
// noted of it already. *added: how many of the owners were no referrers before.
uint32_t referrers_add(View& view, const Reference* from, const Reference* to, uint32_t* added);

// Sets the field of a referrer, whatever it was.
uint32_t referrer_set_field(View& view, uint32_t node, Referrer referrer);

// *removed: it was a referrer before.
uint32_t referrer_remove(View& view, uint32_t node, uint32_t referrer, bool* removed);

}  // namespace rov

#endif
