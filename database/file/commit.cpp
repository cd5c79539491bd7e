// Looking at the pages of a mapped data file, and finding its tables.
#include "database/file/commit.h"

#include <sys/stat.h>

#include <cstring>

namespace rov {

// ---- Pages --------------------------------------------------------------------------------------

namespace {

template <class Int>
int compare_numbers(const uint8_t* a, const uint8_t* b) {
  const auto left = load<Int>(a);
  const auto right = load<Int>(b);
  return left < right ? -1 : (left == right ? 0 : 1);
}

bool is_key_length(KeyOrder order, uint32_t len) {
  if (order == KeyOrder::kAny) return true;
  if (order == KeyOrder::kBytes) return len != 0;
  return len == (order == KeyOrder::kInteger ? sizeof(uint32_t) : size_t{kWord});
}

// What is wrong with the head of a tree page.
const char* head_fault(const uint8_t* bytes, Word page, uint32_t page_size, bool leaf) {
  if (page_number(bytes) != page) return "it has another page's number";
  if (page_flags(bytes) != (leaf ? kLeafPage : kBranchPage)) return "it is of another kind";
  const uint32_t lower = page_lower(bytes);
  const uint32_t upper = page_upper(bytes);
  if (lower < kPageHead || lower % 2 != 0 || lower > upper || upper > page_size) {
    return "its bounds are in disorder";
  }
  return (lower - kPageHead) / 2 < (leaf ? 1U : 2U) ? "it has too few entries" : nullptr;
}

// What is wrong with the entries of a tree page, taken together. Of one by itself, whose key or length
// can't be, whoever comes to it can say more.
const char* entries_fault(const uint8_t* bytes, uint32_t page_size, bool leaf, KeyOrder order) {
  const uint32_t count = count_entries(bytes, page_size);
  uint64_t filled = 0;
  bool all_good = true;
  Bytes before;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t offset = entry_offset(bytes, i);
    if (offset < page_upper(bytes) || offset % 2 != 0 || offset > page_size - kEntryHead) {
      return "an entry lies outside of its entries";
    }
    const uint64_t size = entry_bytes(read_entry(bytes + offset), leaf);
    filled += size;
    Bytes key;
    // The first key of a branch page stands for everything below the second.
    const bool any_key = !leaf && i == 0;
    if (size > page_size - offset ||
        !key_at(bytes, page_size, i, any_key ? KeyOrder::kAny : order, &key)) {
      all_good = false;
    } else if (!any_key) {
      if (before.data != nullptr && compare_keys(order, before, key) >= 0) {
        return "its keys are out of order";
      }
      before = key;
    }
  }
  if (!all_good || filled == page_size - page_upper(bytes)) return nullptr;
  return "its entries do not fill it";
}

}  // namespace

int compare_keys(KeyOrder order, Bytes a, Bytes b) {
  if (order == KeyOrder::kBytes) return compare(a, b);
  return order == KeyOrder::kInteger ? compare_numbers<uint32_t>(a.data, b.data)
                                     : compare_numbers<Word>(a.data, b.data);
}

bool key_at(const uint8_t* page, uint32_t page_size, uint32_t index, KeyOrder order, Bytes* key) {
  const uint32_t offset = entry_offset(page, index);
  if (offset > page_size - kEntryHead) return false;
  const uint8_t* entry = page + offset;
  *key = {entry + kEntryHead, load<uint16_t>(entry + 6)};
  return key->len <= page_size - kEntryHead - offset && is_key_length(order, key->len);
}

const char* page_fault(const uint8_t* bytes, Word page, uint32_t page_size, bool leaf,
                       KeyOrder order) {
  const char* fault = head_fault(bytes, page, page_size, leaf);
  return fault != nullptr ? fault : entries_fault(bytes, page_size, leaf, order);
}

bool has_pages(const MappedFile& map, Word first, uint64_t count) {
  struct stat info;
  const bool known = fstat(map.file, &info) == 0;
  const auto pages = static_cast<uint64_t>(info.st_size) / map.page_size;
  return !known || (first < pages && count <= pages - first);
}

const char* layout_fault(const uint8_t* bytes, uint32_t page_size, bool leaf, KeyOrder order,
                         uint16_t flags) {
  const uint32_t count = count_entries(bytes, page_size);
  for (uint32_t i = 0; i < count; ++i) {
    Bytes key;
    const bool any_key = !leaf && i == 0;
    if (!key_at(bytes, page_size, i, any_key ? KeyOrder::kAny : order, &key)) {
      return "an entry has no key";
    }
    const uint32_t offset = entry_offset(bytes, i);
    const Entry entry = read_entry(bytes + offset);
    if (leaf && (entry.flags & ~kOnOverflow) != flags) return "an entry has unknown flags";
    if (entry_bytes(entry, leaf) > page_size - offset) return "an entry ends beyond it";
  }
  return nullptr;
}

// ---- Tables -------------------------------------------------------------------------------------

bool is_good_meta(const Commit& commit, const Meta& meta, PageDamage* damage) {
  const char* what = nullptr;
  // The few tables fit on one page.
  const bool one_leaf = meta.tables.depth == 1 && meta.tables.flags == 0;
  if (static_cast<uint32_t>(meta.revision) != commit.number) what = "it is of another commit";
  if (!one_leaf || !is_page(commit, meta.tables.root)) what = "it leads to no tables";
  if (commit.last_page >= commit.map->pages) what = "it counts more pages than there are";
  *damage = {meta.revision % kMetaPages, what};
  return what == nullptr;
}

namespace {

// The tables' page is looked at in every commit: it is what leads to everything else.
bool look_at_tables(const Commit& commit, const Meta& meta, PageDamage* damage) {
  if (!is_good_meta(commit, meta, damage)) return false;
  const Word page = meta.tables.root;
  const char* what = "the file ends before it";
  if (has_pages(*commit.map, page, 1)) {
    const uint32_t size = commit.map->page_size;
    what = page_fault(page_at(commit, page), page, size, true, KeyOrder::kBytes);
    if (what == nullptr) {
      what = layout_fault(page_at(commit, page), size, true, KeyOrder::kBytes, kIsTree);
    }
  }
  *damage = {page, what};
  return what == nullptr;
}

}  // namespace

bool find_tree(const Commit& commit, const Meta& meta, Table table, Tree* tree,
               PageDamage* damage) {
  if (!look_at_tables(commit, meta, damage)) return false;
  const TableRow& row = kTableRows[static_cast<uint32_t>(table)];
  const Bytes name = {reinterpret_cast<const uint8_t*>(row.name),
                      static_cast<uint32_t>(strlen(row.name))};
  const uint32_t size = commit.map->page_size;
  const uint8_t* page = page_at(commit, meta.tables.root);
  *damage = {meta.tables.root, "it lacks a table, or does not describe it"};
  for (uint32_t i = 0; i < count_entries(page, size); ++i) {
    Bytes key;
    if (!key_at(page, size, i, KeyOrder::kBytes, &key) || compare(key, name) != 0) continue;
    const Entry entry = read_entry(page + entry_offset(page, i));
    const auto room = static_cast<size_t>(page + size - entry.data);
    if (entry.flags != kIsTree || entry.size != kTreeBytes || room < kTreeBytes) return false;
    *tree = read_tree(entry.data);
    return tree->flags == (row.integer_keys ? kIntegerKeys : 0) && tree->depth <= kMaxDepth;
  }
  return false;
}

// ---- Free pages ---------------------------------------------------------------------------------

namespace {

class FreeLook {
 public:
  FreeLook(const Commit& commit, const Tree& list, PageDamage* damage)
      : commit_(commit), list_(list), damage_(damage) {}

  bool walk(Word page, uint32_t level) {
    if (!is_page(commit_, page)) return damaged(page, "there is no such page");
    if (walked_++ > commit_.last_page) return damaged(page, "the list of free pages has no end");
    const bool leaf = level + 1 == list_.depth;
    if (leaf && was_good(commit_, page)) return true;
    if (!has_pages(*commit_.map, page, 1)) return damaged(page, "the file ends before it");
    const uint32_t size = commit_.map->page_size;
    const uint8_t* bytes = page_at(commit_, page);
    const char* fault = page_fault(bytes, page, size, leaf, KeyOrder::kWordKey);
    if (fault != nullptr) return damaged(page, fault);
    for (uint32_t i = 0; i < count_entries(bytes, size); ++i) {
      const Entry entry = read_entry(bytes + entry_offset(bytes, i));
      if (!(leaf ? look_at_list(page, bytes, entry) : walk(entry.child, level + 1))) return false;
    }
    set_good(commit_, page);
    return true;
  }

 private:
  bool damaged(Word page, const char* what) {
    *damage_ = {page, what};
    return false;
  }

  // A word that counts, and the pages, the highest first.
  bool look_at_list(Word page, const uint8_t* bytes, const Entry& entry) {
    const uint32_t size = commit_.map->page_size;
    const size_t room = static_cast<size_t>(bytes + size - entry.key.data);
    const bool apart = (entry.flags & kOnOverflow) != 0;
    if (entry.key.len != kWord || entry.size % kWord != 0 || entry.size < kWord ||
        room < size_t{kWord} + (apart ? size_t{kWord} : size_t{entry.size})) {
      return damaged(page, "an entry of the list of free pages is none");
    }
    const uint8_t* list = entry.data;
    if (apart) {
      const auto first = load<Word>(list);
      const uint64_t count = pages_for(entry.size, size);
      if (!is_page(commit_, first) || count > uint64_t{commit_.last_page} - first + 1) {
        return damaged(page, "an entry of the list of free pages leads nowhere");
      }
      if (!has_pages(*commit_.map, first, count)) return damaged(first, "the file ends before it");
      list = page_at(commit_, first);
      if (page_number(list) != first || page_flags(list) != kOverflowPage) {
        return damaged(first, "it is no list of free pages");
      }
      set_good(commit_, first);
      list += kPageHead;
    }
    return look_at_pages(page, list, entry.size / kWord - 1);
  }

  bool look_at_pages(Word page, const uint8_t* list, Word most) {
    const auto count = load<Word>(list);
    if (count > most) return damaged(page, "a list of free pages contradicts itself");
    Word above = kNoPage;
    for (Word i = 1; i <= count; ++i) {
      const Word free = load<Word>(list + i * kWord);
      if (free >= above || !is_page(commit_, free)) {
        return damaged(page, "a list of free pages is out of order");
      }
      if (commit_.map->good_in[free].load(std::memory_order_relaxed) == commit_.number) {
        return damaged(page, "a list of free pages has one in use");
      }
      above = free;
    }
    return true;
  }

  const Commit& commit_;
  const Tree& list_;
  PageDamage* damage_;
  Word walked_ = 0;
};

}  // namespace

bool look_at_free_pages(const Commit& commit, const Tree& list, PageDamage* damage) {
  *damage = {list.root, "its tree is too deep"};
  if (list.depth == 0) return true;
  return list.depth <= kMaxDepth && FreeLook(commit, list, damage).walk(list.root, 0);
}

}  // namespace rov
