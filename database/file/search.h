// Finding records in a data file that is mapped, without the engine, which follows whatever stands there.
//
// Each page is looked at when it is used for the first time in a commit (commit.h): its kind, its
// bounds, its entries, their order, and whether they lie in what its parent says. Beyond that nothing is
// followed that leads out of its page or the file, and before an entry is said to be missing the pages on
// the way to it are looked at once more: whatever becomes of a page while it is in use, what is found is
// an entry of its table.
#pragma once

#include "database/file/commit.h"

namespace rov {

enum class Finding : uint8_t {
  kFound,
  kNone,
  kDamaged,  // the page named by Damage is not what it was
  kBadEntry  // an entry's key is none
};

// Searches in one tree of a commit.
class Search {
 public:
  Search(const Commit& commit, const Tree& tree, KeyOrder order)
      : commit_(commit), tree_(tree), order_(order) {}

  // The entry of that key, the first one not below it, the last one not above it. Its data lie where
  // the entry says, which may be beyond the page, but begin within the file.
  [[nodiscard]] Finding get(Bytes key, Entry* out);
  // *leaf: where something was found before in this commit, or NULL; the search begins there.
  [[nodiscard]] Finding first_from(Bytes key, const uint8_t** leaf, Entry* out);
  [[nodiscard]] Finding last_to(Bytes key, Entry* out);
  // Looks, in any case, at the pages on the way to that key, at those that it has beside it and at the
  // value that it has: at what the engine uses when it writes there. `leaf`: to which it looked before.
  [[nodiscard]] Finding look_around(Bytes key, const uint8_t* leaf);

  // Whether the last search ended behind the last key of all.
  [[nodiscard]] bool is_behind_all() const;
  // The leaf on which it ended.
  [[nodiscard]] const uint8_t* leaf() const { return steps_[tree_.depth - 1U].page; }

  const PageDamage& damage() const { return damage_; }

 private:
  // A page on the way.
  struct Step {
    const uint8_t* page;
    uint32_t index;
    uint32_t count;
  };

  bool is_leaf(uint32_t level) const { return level + 1 == tree_.depth; }
  Finding damaged(Word page, const char* what);
  [[nodiscard]] Finding enter(Word page, uint32_t level);
  [[nodiscard]] Finding enter_child(uint32_t level);
  [[nodiscard]] Finding look_at(Word page, uint32_t level);
  [[nodiscard]] Finding look_again();
  [[nodiscard]] Finding descend(Bytes key, bool* equal);
  [[nodiscard]] Finding find_on_leaf(Bytes key, bool* equal);
  [[nodiscard]] Finding move(bool forward);
  [[nodiscard]] Finding missing();
  [[nodiscard]] Finding take(uint32_t index, Entry* out);
  [[nodiscard]] Finding value_of(const Entry& entry, const uint8_t** value);
  [[nodiscard]] Finding look_beside(uint32_t level);
  // Whether the leaf has keys on both sides of the key, or that key.
  bool is_around(const uint8_t* leaf, Bytes key) const;
  Step& leaf_step() { return steps_[tree_.depth - 1U]; }

  const Commit& commit_;
  const Tree& tree_;
  KeyOrder order_;
  bool always_ = false;  // look at pages that were good, too
  PageDamage damage_;
  Step steps_[kMaxDepth];
};

}  // namespace rov
