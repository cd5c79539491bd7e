// One commit of a data file that is mapped: its pages, and what is noted of them.
//
// Whoever follows a page looks at it when it is used for the first time in a commit. A page in use is not
// written to, so that is noted for each page with the commit. A page that was good in one commit and
// belongs to one of the next two is the same page still, for the engine gives none away sooner.
#pragma once

#include <atomic>

#include "database/base/tables.h"
#include "database/file/layout.h"

namespace rov {

// A data file in memory.
struct MappedFile {
  std::atomic<const uint8_t*> base{nullptr};
  int file = -1;
  uint32_t page_size = 0;
  Word pages = 0;                            // that there is room for
  std::atomic<uint32_t>* good_in = nullptr;  // for each page the last commit in which it was good
};

// What one commit of it says of itself.
struct Commit {
  const MappedFile* map = nullptr;
  uint32_t number = 0;  // its low 32 bits
  Word last_page = 0;
};

// What is wrong with a page.
struct PageDamage {
  Word page = 0;
  const char* what = nullptr;
};

// How a tree orders its keys: as byte strings, or as native integers of 4 bytes or of a word. kAny: not
// at all, as the first key of a branch page.
enum class KeyOrder : uint8_t { kBytes, kInteger, kWordKey, kAny };
int compare_keys(KeyOrder order, Bytes a, Bytes b);

// ---- Pages --------------------------------------------------------------------------------------

inline bool is_page(const Commit& commit, Word page) {
  return page >= kMetaPages && page <= commit.last_page;
}
inline const uint8_t* page_at(const Commit& commit, Word page) {
  return commit.map->base.load(std::memory_order_relaxed) + size_t{page} * commit.map->page_size;
}
// Whether so many pages are in the file, which can have been cut.
bool has_pages(const MappedFile& map, Word first, uint64_t count);

// Whether the page was good in this commit, or in one from which it came unchanged.
inline bool was_good(const Commit& commit, Word page) {
  constexpr uint32_t kUnchangedFor = 2;
  std::atomic<uint32_t>& mark = commit.map->good_in[page];
  const uint32_t good_in = mark.load(std::memory_order_relaxed);
  if (good_in == commit.number) return true;
  if (good_in == 0 || good_in + kUnchangedFor < commit.number) return false;
  if (good_in < commit.number) mark.store(commit.number, std::memory_order_relaxed);
  return true;
}
inline void set_good(const Commit& commit, Word page) {
  commit.map->good_in[page].store(commit.number, std::memory_order_relaxed);
}

// What is wrong with a tree page that should have that number, NULL: nothing. Its entries may be wrong.
const char* page_fault(const uint8_t* bytes, Word page, uint32_t page_size, bool leaf,
                       KeyOrder order);

// What is wrong with single entries of such a page, which have these flags beside kOnOverflow. For who
// writes to it, since the engine moves them about.
const char* layout_fault(const uint8_t* bytes, uint32_t page_size, bool leaf, KeyOrder order,
                         uint16_t flags);

// Entries that the page's head counts and that fit on it, whatever became of it since it was looked at.
inline uint32_t count_entries(const uint8_t* page, uint32_t page_size) {
  const uint32_t lower = page_lower(page);
  if (lower < kPageHead) return 0;
  return ((lower < page_size ? lower : page_size) - kPageHead) / 2;
}
// The key of an entry. False when it does not lie on the page, or can't be one.
bool key_at(const uint8_t* page, uint32_t page_size, uint32_t index, KeyOrder order, Bytes* key);

// ---- Tables and free pages ----------------------------------------------------------------------

// Whether a meta page describes a commit in which searches can begin.
[[nodiscard]] bool is_good_meta(const Commit& commit, const Meta& meta, PageDamage* damage);
// The tree of a table. False with what is wrong.
[[nodiscard]] bool find_tree(const Commit& commit, const Meta& meta, Table table, Tree* tree,
                             PageDamage* damage);
// Looks at the list of free pages, as far as it is new: whoever writes takes pages from it. False with
// what is wrong.
[[nodiscard]] bool look_at_free_pages(const Commit& commit, const Tree& list, PageDamage* damage);

}  // namespace rov
