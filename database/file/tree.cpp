// Trees of the data file: a walk that checks every page, entry and count on its way.
#include "database/file/tree.h"

#include <cstdlib>

#include "database/base/error.h"
#include "rov.h"

namespace rov {
namespace {

using Number = unsigned long long;

}  // namespace

TreeWalk::~TreeWalk() {
  free(path_);
  free(value_);
}

uint32_t TreeWalk::run(const Tree& tree, Word from) {
  tree_ = tree;
  found_ = Tree();
  if (tree.root == kNoPage || tree.depth == 0) return check_empty(from);
  if (tree.depth > kMaxDepth) {
    return pages_.damaged(from, "the depth of %s is %u", name_, unsigned{tree.depth});
  }
  path_ = static_cast<uint8_t*>(malloc(size_t{tree.depth} * pages_.page_size()));
  if (path_ == nullptr) {
    return fail(ROV_ERR_NO_MEM, Note::kNoMemory, tree.depth * pages_.page_size());
  }
  const uint32_t status = walk(tree.root, from, 0, {});
  return status == ROV_OK ? check_counts(from) : status;
}

uint32_t TreeWalk::check_empty(Word from) const {
  const bool empty = tree_.root == kNoPage && tree_.depth == 0 && tree_.entries == 0 &&
                     tree_.branches == 0 && tree_.leaves == 0 && tree_.overflows == 0;
  if (empty) return ROV_OK;
  return pages_.damaged(from, "the description of %s contradicts itself", name_);
}

uint32_t TreeWalk::check_counts(Word from) const {
  if (tree_.entries != found_.entries) {
    return pages_.damaged(from, "%s has %llu entries instead of %llu", name_,
                          Number{found_.entries}, Number{tree_.entries});
  }
  if (tree_.branches != found_.branches || tree_.leaves != found_.leaves ||
      tree_.overflows != found_.overflows) {
    return pages_.damaged(from, "the pages of %s are not as many as it counts", name_);
  }
  return ROV_OK;
}

// At most kMaxDepth deep.
uint32_t TreeWalk::walk(Word page, Word from, uint32_t level, const Bounds& bounds) {
  uint32_t status = pages_.claim(page, 1, from, name_);
  if (status != ROV_OK) return status;
  uint8_t* bytes = path_ + size_t{level} * pages_.page_size();
  status = pages_.read(page, bytes);
  uint32_t count = 0;
  if (status == ROV_OK) status = check_head(page, bytes, level, &count);
  if (status == ROV_OK) status = check_entries(page, bytes, count);
  if (status != ROV_OK) return status;
  const bool leaf = level + 1 == tree_.depth;
  ++(leaf ? found_.leaves : found_.branches);
  return leaf ? walk_leaf(page, bytes, count, bounds)
              : walk_branch(page, bytes, count, level, bounds);
}

uint32_t TreeWalk::check_head(Word page, const uint8_t* bytes, uint32_t level,
                              uint32_t* count) const {
  const bool leaf = level + 1 == tree_.depth;
  if (page_number(bytes) != page) {
    return pages_.damaged(page, "it has the number %llu", Number{page_number(bytes)});
  }
  if (page_flags(bytes) != (leaf ? kLeafPage : kBranchPage)) {
    return pages_.damaged(page, "its type is 0x%x, where %s has a %s page",
                          unsigned{page_flags(bytes)}, name_, leaf ? "leaf" : "branch");
  }
  const uint32_t lower = page_lower(bytes);
  const uint32_t upper = page_upper(bytes);
  if (lower < kPageHead || lower % 2 != 0 || lower > upper || upper % 2 != 0 ||
      upper > pages_.page_size()) {
    return pages_.damaged(page, "its bounds are %u and %u", lower, upper);
  }
  *count = (lower - kPageHead) / 2;
  if (*count < (leaf ? 1U : 2U)) return pages_.damaged(page, "it has %u entries", *count);
  return ROV_OK;
}

// The entries fill the end of the page without gap or overlap.
uint32_t TreeWalk::check_entries(Word page, const uint8_t* bytes, uint32_t count) const {
  uint8_t starts[kLargestPage / 16] = {};  // a bit for every other byte of the page
  const uint32_t size = pages_.page_size();
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t offset = entry_offset(bytes, i);
    if (offset < page_upper(bytes) || offset % 2 != 0 || offset > size - kEntryHead) {
      return pages_.damaged(page, "its entry %u is at %u, outside of the page's entries", i,
                            offset);
    }
    const auto bit = static_cast<uint8_t>(1U << (offset / 2 % 8));
    if ((starts[offset / 16] & bit) != 0) {
      return pages_.damaged(page, "its entry %u is at %u, as another one", i, offset);
    }
    starts[offset / 16] |= bit;
  }
  const bool leaf = page_flags(bytes) == kLeafPage;
  uint64_t at = page_upper(bytes);
  for (uint32_t i = 0; i < count; ++i) {
    const bool starts_here = at < size && (starts[at / 16] >> (at / 2 % 8) & 1) != 0;
    if (!starts_here) return pages_.damaged(page, "no entry begins at %llu", Number{at});
    at += entry_bytes(read_entry(bytes + at), leaf);
  }
  if (at != size) return pages_.damaged(page, "its entries end at %llu", Number{at});
  return ROV_OK;
}

bool TreeWalk::is_key(Bytes key) const {
  switch (order_) {
    case KeyOrder::kInteger:
      return key.len == 4;
    case KeyOrder::kWordKey:
      return key.len == kWord;
    case KeyOrder::kBytes:
    case KeyOrder::kAny:
      break;
  }
  return key.len != 0;
}

// `before`: the key that comes before this one, or the lower bound; none when it has no data.
uint32_t TreeWalk::check_order(const Place& place, Bytes before, Bytes key,
                               bool may_be_equal) const {
  if (!is_key(key)) {
    return pages_.damaged(place.page, "the key of its entry %u has %u bytes", place.index, key.len);
  }
  if (before.data == nullptr) return ROV_OK;
  const int order = compare_keys(order_, before, key);
  if (order < 0 || (order == 0 && may_be_equal)) return ROV_OK;
  return pages_.damaged(place.page, "the key of its entry %u is out of order", place.index);
}

uint32_t TreeWalk::walk_branch(Word page, const uint8_t* bytes, uint32_t count, uint32_t level,
                               const Bounds& bounds) {
  // The first key stands for everything below the second; the engine never looks at it.
  Bytes lower = bounds.lower;
  for (uint32_t i = 0; i < count; ++i) {
    const Entry entry = read_entry(bytes + entry_offset(bytes, i));
    Bytes upper = bounds.upper;
    if (i + 1 < count) {
      upper = read_entry(bytes + entry_offset(bytes, i + 1)).key;
      const uint32_t status = check_order({page, i + 1}, lower, upper, false);
      if (status != ROV_OK) return status;
    } else if (upper.data != nullptr && compare_keys(order_, lower, upper) >= 0) {
      return pages_.damaged(page, "the key of its entry %u is out of order", i);
    }
    const uint32_t status = walk(entry.child, page, level + 1, {lower, upper});
    if (status != ROV_OK) return status;
    lower = upper;
  }
  return ROV_OK;
}

uint32_t TreeWalk::walk_leaf(Word page, const uint8_t* bytes, uint32_t count,
                             const Bounds& bounds) {
  Bytes before = bounds.lower;
  for (uint32_t i = 0; i < count; ++i) {
    const Entry entry = read_entry(bytes + entry_offset(bytes, i));
    uint32_t status = check_order({page, i}, before, entry.key, i == 0);
    if (status == ROV_OK) status = visit_entry({page, i}, entry);
    if (status != ROV_OK) return status;
    before = entry.key;
  }
  found_.entries += count;
  if (bounds.upper.data == nullptr || compare_keys(order_, before, bounds.upper) < 0) return ROV_OK;
  return pages_.damaged(page, "the key of its entry %u is out of order", count - 1);
}

uint32_t TreeWalk::visit_entry(const Place& place, const Entry& entry) {
  if ((entry.flags & ~kOnOverflow) != visitor_.flags()) {
    return pages_.damaged(place.page, "its entry %u has the flags 0x%x", place.index,
                          unsigned{entry.flags});
  }
  Bytes value = {entry.data, entry.size};
  if ((entry.flags & kOnOverflow) != 0) {
    const uint32_t status = read_overflow(place, entry, &value);
    if (status != ROV_OK) return status;
  }
  return visitor_.visit(place, entry.key, value);
}

uint32_t TreeWalk::read_overflow(const Place& place, const Entry& entry, Bytes* value) {
  const Word first = load<Word>(entry.data);
  const uint64_t needed = pages_for(entry.size, pages_.page_size());
  uint8_t head[kPageHead];
  uint32_t status = pages_.claim(first, needed, place.page, name_);
  const uint64_t offset = uint64_t{first} * pages_.page_size();
  if (status == ROV_OK) status = pages_.read_at(first, offset, head, sizeof head);
  if (status != ROV_OK) return status;
  if (page_number(head) != first || page_flags(head) != kOverflowPage) {
    return pages_.damaged(first, "it is no overflow page, as entry %u of page %llu has it",
                          place.index, Number{place.page});
  }
  const uint64_t count = overflow_pages(head);
  if (count < needed) {
    return pages_.damaged(first, "its value has %u bytes and %llu pages", entry.size,
                          Number{count});
  }
  if (count > needed) {
    const auto rest = static_cast<Word>(first + needed);  // what was claimed lies within the file
    status = pages_.claim(rest, count - needed, place.page, name_);
  }
  if (status != ROV_OK) return status;
  found_.overflows += static_cast<Word>(count);
  if (entry.size > value_room_) {
    free(value_);
    value_ = static_cast<uint8_t*>(malloc(entry.size));
    value_room_ = value_ == nullptr ? 0 : entry.size;
    if (value_ == nullptr) return fail(ROV_ERR_NO_MEM, Note::kNoMemory, entry.size);
  }
  *value = {value_, entry.size};
  return pages_.read_at(first, offset + kPageHead, value_, entry.size);
}

}  // namespace rov
