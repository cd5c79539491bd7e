// Walking a tree of the data file, checking everything that the engine relies on.
#pragma once

#include "database/file/pages.h"
#include "database/file/search.h"

namespace rov {

// Where an entry was found.
struct Place {
  Word page;
  uint32_t index;
};

class EntryVisitor {
 public:
  // What an entry's flags must be, apart from kOnOverflow.
  virtual uint16_t flags() const { return 0; }
  // One entry of a leaf, in key order. Its bytes are good during the call.
  [[nodiscard]] virtual uint32_t visit(const Place& place, Bytes key, Bytes value) = 0;

 protected:
  ~EntryVisitor() = default;
};

class TreeWalk {
 public:
  // name: for messages ("table nodes").
  TreeWalk(Pages& pages, const char* name, KeyOrder order, EntryVisitor& visitor)
      : pages_(pages), name_(name), order_(order), visitor_(visitor) {}
  ~TreeWalk();
  TreeWalk(const TreeWalk&) = delete;
  TreeWalk& operator=(const TreeWalk&) = delete;

  // Checks the whole tree. `from`: the page that describes it.
  [[nodiscard]] uint32_t run(const Tree& tree, Word from);

 private:
  // The keys below a page are not below `lower` and below `upper`, where there are such bounds.
  struct Bounds {
    Bytes lower;
    Bytes upper;
  };

  [[nodiscard]] uint32_t check_empty(Word from) const;
  [[nodiscard]] uint32_t check_counts(Word from) const;
  [[nodiscard]] uint32_t walk(Word page, Word from, uint32_t level, const Bounds& bounds);
  [[nodiscard]] uint32_t walk_branch(Word page, const uint8_t* bytes, uint32_t count,
                                     uint32_t level, const Bounds& bounds);
  [[nodiscard]] uint32_t walk_leaf(Word page, const uint8_t* bytes, uint32_t count,
                                   const Bounds& bounds);
  [[nodiscard]] uint32_t visit_entry(const Place& place, const Entry& entry);
  [[nodiscard]] uint32_t read_overflow(const Place& place, const Entry& entry, Bytes* value);
  [[nodiscard]] uint32_t check_head(Word page, const uint8_t* bytes, uint32_t level,
                                    uint32_t* count) const;
  [[nodiscard]] uint32_t check_entries(Word page, const uint8_t* bytes, uint32_t count) const;
  [[nodiscard]] uint32_t check_order(const Place& place, Bytes before, Bytes key,
                                     bool may_be_equal) const;
  bool is_key(Bytes key) const;

  Pages& pages_;
  const char* name_;
  KeyOrder order_;
  EntryVisitor& visitor_;
  Tree tree_;                 // as described
  Tree found_;                // as counted
  uint8_t* path_ = nullptr;   // a page for each level
  uint8_t* value_ = nullptr;  // of an entry on overflow pages
  size_t value_room_ = 0;
};

}  // namespace rov
