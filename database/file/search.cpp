// Finding records in a mapped data file, looking at each page that is used.
#include "database/file/search.h"

namespace rov {
namespace {

// The first entry from `low` on that is not below `key`, or that is above it. False when there is an
// entry without a key.
template <class IsBefore>
bool bisect(const uint8_t* page, uint32_t page_size, KeyOrder order, uint32_t* low, uint32_t high,
            IsBefore is_before) {
  while (*low < high) {
    const uint32_t middle = (*low + high) / 2;
    Bytes key;
    if (!key_at(page, page_size, middle, order, &key)) return false;
    if (is_before(key)) {
      *low = middle + 1;
    } else {
      high = middle;
    }
  }
  return true;
}

// The same of numbers of 4 bytes, which most searches are for.
template <class IsBefore>
bool bisect_numbers(const uint8_t* page, uint32_t page_size, uint32_t* low, uint32_t high,
                    IsBefore is_before) {
  const uint32_t last = page_size - kEntryHead - uint32_t{sizeof(uint32_t)};
  while (*low < high) {
    const uint32_t middle = (*low + high) / 2;
    const uint32_t offset = entry_offset(page, middle);
    if (offset > last || load<uint16_t>(page + offset + 6) != sizeof(uint32_t)) return false;
    if (is_before(load<uint32_t>(page + offset + kEntryHead))) {
      *low = middle + 1;
    } else {
      high = middle;
    }
  }
  return true;
}

}  // namespace

// ---- Pages on the way ---------------------------------------------------------------------------

Finding Search::damaged(Word page, const char* what) {
  damage_ = {page, what};
  return Finding::kDamaged;
}

Finding Search::enter(Word page, uint32_t level) {
  if (!is_page(commit_, page)) return damaged(page, "there is no such page");
  if (always_ || !was_good(commit_, page)) [[unlikely]] {
    const Finding looked = look_at(page, level);
    if (looked != Finding::kFound) return looked;
  }
  const uint8_t* bytes = page_at(commit_, page);
  if (page_flags(bytes) != (is_leaf(level) ? kLeafPage : kBranchPage)) {
    return damaged(page, "it is of another kind");
  }
  steps_[level] = {bytes, 0, count_entries(bytes, commit_.map->page_size)};
  return Finding::kFound;
}

Finding Search::enter_child(uint32_t level) {
  const Step& step = steps_[level];
  const uint32_t offset = entry_offset(step.page, step.index);
  if (offset > commit_.map->page_size - kEntryHead) return Finding::kBadEntry;
  return enter(read_entry(step.page + offset).child, level + 1);
}

// The page itself, and whether its keys are those that the pages above lead to it for.
Finding Search::look_at(Word page, uint32_t level) {
  const uint32_t size = commit_.map->page_size;
  if (!has_pages(*commit_.map, page, 1)) return damaged(page, "the file ends before it");
  const uint8_t* bytes = page_at(commit_, page);
  const bool leaf = is_leaf(level);
  const char* fault = page_fault(bytes, page, size, leaf, order_);
  if (fault == nullptr && always_) fault = layout_fault(bytes, size, leaf, order_, 0);
  if (fault != nullptr) return damaged(page, fault);
  Bytes first;
  Bytes last;
  if (key_at(bytes, size, leaf ? 0 : 1, order_, &first) &&
      key_at(bytes, size, count_entries(bytes, size) - 1, order_, &last)) {
    bool has_lower = false;
    bool has_upper = false;
    for (uint32_t above = level; above-- > 0;) {
      const Step& step = steps_[above];
      Bytes bound;
      if (!has_lower && step.index > 0) {
        has_lower = key_at(step.page, size, step.index, order_, &bound);
        if (has_lower && compare_keys(order_, bound, first) > 0) {
          return damaged(page, "its first key lies before what leads to it");
        }
      }
      if (!has_upper && step.index + 1 < step.count) {
        has_upper = key_at(step.page, size, step.index + 1, order_, &bound);
        if (has_upper && compare_keys(order_, last, bound) >= 0) {
          return damaged(page, "its last key lies behind what leads to it");
        }
      }
    }
  }
  set_good(commit_, page);
  return Finding::kFound;
}

// Of the pages on the way, in the order in which they were entered.
Finding Search::look_again() {
  for (uint32_t level = 0; level < tree_.depth; ++level) {
    Word page = tree_.root;
    if (level > 0) {
      const Step& above = steps_[level - 1];
      const uint32_t offset = entry_offset(above.page, above.index);
      if (offset > commit_.map->page_size - kEntryHead) return Finding::kBadEntry;
      page = read_entry(above.page + offset).child;
    }
    if (!is_page(commit_, page)) return damaged(page, "there is no such page");
    const Finding looked = look_at(page, level);
    if (looked != Finding::kFound) return looked;
  }
  return Finding::kFound;
}

// What to answer when nothing was found.
Finding Search::missing() {
  const Finding looked = look_again();
  return looked == Finding::kFound ? Finding::kNone : looked;
}

// ---- Searching ----------------------------------------------------------------------------------

Finding Search::find_on_leaf(Bytes key, bool* equal) {
  Step& step = leaf_step();
  const uint32_t size = commit_.map->page_size;
  step.index = 0;
  Bytes found;
  if (order_ == KeyOrder::kInteger) {
    const auto wanted = load<uint32_t>(key.data);
    if (!bisect_numbers(step.page, size, &step.index, step.count,
                        [=](uint32_t at) { return at < wanted; })) {
      return Finding::kBadEntry;
    }
  } else if (!bisect(step.page, size, order_, &step.index, step.count,
                     [=](Bytes at) { return compare(at, key) < 0; })) {
    return Finding::kBadEntry;
  }
  *equal = false;
  if (step.index == step.count) return Finding::kFound;
  if (!key_at(step.page, size, step.index, order_, &found)) return Finding::kBadEntry;
  *equal = compare_keys(order_, found, key) == 0;
  return Finding::kFound;
}

// To the first entry of the leaf for that key which is not below it.
Finding Search::descend(Bytes key, bool* equal) {
  if (tree_.depth > kMaxDepth) return damaged(tree_.root, "its tree is too deep");
  const uint32_t size = commit_.map->page_size;
  Finding finding = enter(tree_.root, 0);
  for (uint32_t level = 0; finding == Finding::kFound && !is_leaf(level); ++level) {
    Step& step = steps_[level];
    if (step.count == 0) return damaged(page_number(step.page), "it has too few entries");
    uint32_t index = 1;
    bool good = false;
    if (order_ == KeyOrder::kInteger) {
      const auto wanted = load<uint32_t>(key.data);
      good = bisect_numbers(step.page, size, &index, step.count,
                            [=](uint32_t at) { return at <= wanted; });
    } else {
      good = bisect(step.page, size, order_, &index, step.count,
                    [=](Bytes at) { return compare(at, key) <= 0; });
    }
    if (!good) return Finding::kBadEntry;
    step.index = index - 1;
    finding = enter_child(level);
  }
  return finding == Finding::kFound ? find_on_leaf(key, equal) : finding;
}

// To the first entry of the next leaf, or the last one of the leaf before. kNone when there is none.
Finding Search::move(bool forward) {
  uint32_t level = tree_.depth - 1U;
  for (;;) {
    if (level == 0) return Finding::kNone;
    const Step& step = steps_[--level];
    if (forward ? step.index + 1 < step.count : step.index > 0) break;
  }
  steps_[level].index += forward ? 1U : ~0U;
  for (; !is_leaf(level); ++level) {
    const Finding entered = enter_child(level);
    if (entered != Finding::kFound) return entered;
    Step& step = steps_[level + 1];
    if (step.count == 0) return damaged(page_number(step.page), "it has too few entries");
    step.index = forward ? 0 : step.count - 1;
  }
  return Finding::kFound;
}

// The value of an entry that lies on pages of its own.
Finding Search::value_of(const Entry& entry, const uint8_t** value) {
  const auto page = load<Word>(entry.data);
  const uint64_t count = pages_for(entry.size, commit_.map->page_size);
  // As long as it says what it can't be, it is the entry that is damaged.
  if (!is_page(commit_, page) || count > uint64_t{commit_.last_page} - page + 1) {
    return Finding::kBadEntry;
  }
  if (always_ || !was_good(commit_, page)) {
    if (!has_pages(*commit_.map, page, count)) return damaged(page, "the file ends before it");
    const uint8_t* head = page_at(commit_, page);
    if (page_number(head) != page || page_flags(head) != kOverflowPage) return Finding::kBadEntry;
    set_good(commit_, page);
  }
  *value = page_at(commit_, page) + kPageHead;
  return Finding::kFound;
}

Finding Search::take(uint32_t index, Entry* out) {
  const uint8_t* page = leaf_step().page;
  const uint32_t size = commit_.map->page_size;
  Bytes key;
  if (!key_at(page, size, index, order_, &key)) return Finding::kBadEntry;
  *out = read_entry(page + entry_offset(page, index));
  if ((out->flags & kOnOverflow) == 0) return Finding::kFound;
  if (static_cast<size_t>(page + size - out->data) < kWord) return Finding::kBadEntry;
  return value_of(*out, &out->data);
}

Finding Search::get(Bytes key, Entry* out) {
  if (tree_.depth == 0) return Finding::kNone;
  bool equal = false;
  const Finding finding = descend(key, &equal);
  if (finding != Finding::kFound) return finding;
  return equal ? take(leaf_step().index, out) : missing();
}

bool Search::is_around(const uint8_t* leaf, Bytes key) const {
  const uint32_t size = commit_.map->page_size;
  const uint32_t count = count_entries(leaf, size);
  Bytes first;
  Bytes last;
  return count != 0 && page_flags(leaf) == kLeafPage && key_at(leaf, size, 0, order_, &first) &&
         key_at(leaf, size, count - 1, order_, &last) && compare_keys(order_, first, key) <= 0 &&
         compare_keys(order_, key, last) <= 0;
}

Finding Search::first_from(Bytes key, const uint8_t** leaf, Entry* out) {
  if (tree_.depth == 0) return Finding::kNone;
  bool equal = false;
  Finding finding = Finding::kFound;
  if (tree_.depth <= kMaxDepth && *leaf != nullptr && is_around(*leaf, key)) {
    leaf_step() = {*leaf, 0, count_entries(*leaf, commit_.map->page_size)};
    finding = find_on_leaf(key, &equal);
  } else {
    finding = descend(key, &equal);
    if (finding == Finding::kFound && leaf_step().index == leaf_step().count) {
      finding = move(true);
      if (finding == Finding::kNone) return missing();
    }
  }
  if (finding != Finding::kFound) return finding;
  *leaf = leaf_step().page;
  finding = take(leaf_step().index, out);
  if (finding != Finding::kFound || compare_keys(order_, out->key, key) >= 0) return finding;
  return damaged(page_number(*leaf), "its keys are out of order");
}

Finding Search::last_to(Bytes key, Entry* out) {
  if (tree_.depth == 0) return Finding::kNone;
  bool equal = false;
  Finding finding = descend(key, &equal);
  if (finding != Finding::kFound) return finding;
  if (!equal) {
    if (leaf_step().index == 0) {
      finding = move(false);
      if (finding == Finding::kNone) return missing();
      if (finding != Finding::kFound) return finding;
    } else {
      --leaf_step().index;
    }
  }
  finding = take(leaf_step().index, out);
  if (finding != Finding::kFound || compare_keys(order_, out->key, key) <= 0) return finding;
  return damaged(page_number(leaf_step().page), "its keys are out of order");
}

bool Search::is_behind_all() const {
  for (uint32_t level = 0; level < tree_.depth; ++level) {
    const Step& step = steps_[level];
    if (step.index + (is_leaf(level) ? 0 : 1) < step.count) return false;
  }
  return true;
}

// ---- Looking before others write ----------------------------------------------------------------

// At the children before and behind the one that the way goes through.
Finding Search::look_beside(uint32_t level) {
  const Step own = steps_[level];
  const Step below = steps_[level + 1];
  Finding finding = Finding::kFound;
  for (const bool forward : {false, true}) {
    if (forward ? own.index + 1 >= own.count : own.index == 0) continue;
    steps_[level].index = forward ? own.index + 1 : own.index - 1;
    if (finding == Finding::kFound) finding = enter_child(level);
  }
  steps_[level] = own;
  steps_[level + 1] = below;
  return finding;
}

Finding Search::look_around(Bytes key, const uint8_t* leaf) {
  if (tree_.depth == 0) return Finding::kFound;
  always_ = true;
  bool equal = false;
  Finding finding = Finding::kFound;
  if (leaf != nullptr && is_around(leaf, key)) {
    finding = find_on_leaf(key, &equal);
  } else {
    finding = descend(key, &equal);
    for (uint32_t level = 0; finding == Finding::kFound && !is_leaf(level); ++level) {
      finding = look_beside(level);
    }
  }
  Entry entry;
  if (finding == Finding::kFound && equal) finding = take(leaf_step().index, &entry);
  always_ = false;
  return finding;
}

}  // namespace rov
