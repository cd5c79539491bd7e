#include "database/graph/datasets.h"

#include "database/base/error.h"
#include "database/graph/edit.h"
#include "database/graph/referrers.h"
#include "rov.h"

namespace rov {
namespace {

uint32_t no_item(uint32_t status, Note note, uint32_t a = 0, uint32_t b = 0) {
  return status == ROV_ERR_NO_ITEM ? fail(status, note, a, b) : status;
}

bool good_key(Bytes key) {
  return key.len == (key.data[0] == 0 ? kUnnamedKeyBytes : kNamedKeyBytes);
}

// Moves the place to the first data set whose key is not below `from`.
uint32_t place_at(View& view, Bytes from, uint32_t selector) {
  DataSetPlace& place = view.data_set;
  Record record;
  const uint32_t status = view_ge(view, Table::kDataSets, from, &record);
  if (status != ROV_OK) return status;
  if (record.key.len == 0 || !good_key(record.key)) {
    return fail(ROV_ERR_CORRUPT, Note::kBadDataSet);
  }
  memcpy(place.key.bytes, record.key.data, record.key.len);
  place.key.len = record.key.len;
  place.selector = selector;
  place.epoch = view.snapshot->epoch;
  return ROV_OK;
}

uint32_t place_node(const DataSetPlace& place) {
  return load_be32(place.key.bytes + place.key.len - 4);
}

bool same_entry(const NodeView& a, const NodeView& b) {
  if (a.is_dset() != b.is_dset() || a.dset_len != b.dset_len) return false;
  return a.dset_len == 0 || memcmp(a.dset, b.dset, a.dset_len) == 0;
}

}  // namespace

uint32_t datasets_count(View& view, uint32_t* count) {
  uint32_t stored = 0;
  const uint32_t status = snapshot_count(view.snapshot, Table::kDataSets, &stored);
  if (status == ROV_OK) *count = stored + static_cast<uint32_t>(view.dset_change);
  return status;
}

uint32_t dataset_at(View& view, uint32_t selector, uint32_t* node) {
  DataSetPlace& place = view.data_set;
  uint32_t status = ROV_OK;
  if (place.epoch != view.snapshot->epoch || selector < place.selector) {
    constexpr uint8_t kLowest[1] = {0};
    status = place_at(view, {kLowest, sizeof kLowest}, 0);
  }
  while (status == ROV_OK && place.selector < selector) {
    Key next;
    key_after(Table::kDataSets, place.key, &next);
    status = place_at(view, next, place.selector + 1);
  }
  if (status != ROV_OK) return no_item(status, Note::kNoDataSet, selector);
  *node = place_node(place);
  return ROV_OK;
}

uint32_t dataset_named(View& view, const uint8_t* name, uint32_t* node) {
  const Key lowest = dset_key(name, 0);
  Record record;
  const uint32_t status = view_ge(view, Table::kDataSets, lowest, &record);
  if (status != ROV_OK) return no_item(status, Note::kNoDataSetName);
  if (record.key.len != lowest.len || memcmp(record.key.data, lowest.bytes, lowest.len - 4) != 0) {
    return fail(ROV_ERR_NO_ITEM, Note::kNoDataSetName);
  }
  *node = load_be32(record.key.data + lowest.len - 4);
  return ROV_OK;
}

uint32_t dataset_of_node(View& view, uint32_t node, uint32_t selector, uint32_t* found) {
  uint32_t status = find_settled_node(view, node);
  if (status != ROV_OK) return status;
  uint32_t left = selector;
  *found = node;
  if (view.node.is_dset() && left-- == 0) return ROV_OK;
  for (uint32_t index = 0;; ++index) {
    Referrer referrer;
    status = referrer_at(view, node, index, &referrer);
    if (status != ROV_OK) return no_item(status, Note::kNoDataSetOf, node, selector);
    status = view_find_node(view, referrer.node);
    if (status != ROV_OK) return status;
    *found = referrer.node;
    if (view.node.is_dset() && left-- == 0) return ROV_OK;
  }
}

uint32_t dataset_index(View& view, const NodeView* before, const NodeView* after) {
  const bool was = before != nullptr && before->is_dset();
  const bool is = after != nullptr && after->is_dset();
  if (was && is && same_entry(*before, *after)) return ROV_OK;
  if (was) {
    const Key key = dset_key(before->name(), before->node);
    const uint32_t status = view_erase(view, Table::kDataSets, key);
    if (status != ROV_OK) return status;
    --view.dset_change;
  }
  if (is) {
    const Key key = dset_key(after->name(), after->node);
    if (view_put(view, Table::kDataSets, key, 4, 4) == nullptr) return ROV_ERR_NO_MEM;
    ++view.dset_change;
  }
  return ROV_OK;
}

}  // namespace rov
