// What differs between the access lists that there are and those that are wanted.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "policy/model/model.h"

namespace qimctl {

enum class EntryFate { added, removed, changed, moved };

// An entry of a changed list, by its indices in the lists; what does not apply is 0.
struct EntryChange {
  EntryFate fate = EntryFate::added;
  size_t from = 0;
  size_t to = 0;
  bool moved = false;  // of a changed one: it stands elsewhere, too
};

// What becomes of a list's entries, which are told apart by their names: in the order of `after`;
// those that are removed stand where they were.
std::vector<EntryChange> compare_entries(const AccessList& before, const AccessList& after);

// `renumbered`: in the same order as before, but at another stage, since others came or moved.
enum class PlaceFate { added, removed, moved, renumbered };

struct PlaceChange {
  PlaceFate fate = PlaceFate::added;
  Attachment place;  // as it becomes, or as it was when it is removed
};

enum class ListFate { unchanged, added, removed, changed };

struct ListChange {
  ListFate fate = ListFate::unchanged;
  const AccessList* before = nullptr;  // NULL when added
  const AccessList* after = nullptr;   // NULL when removed; the same as before if no file names it
  std::vector<EntryChange> entries;    // of a changed list
  std::vector<PlaceChange> places;
  std::vector<std::string> policers;  // that the list uses and that change
  bool type_changed = false;
  bool default_changed = false;

  const std::string& name() const { return after != nullptr ? after->name : before->name; }
};

struct Change {
  std::vector<AccessList> named;        // the lists that the files name
  std::vector<Attachment> attachments;  // all that there are to be, with the stages that they get
  std::vector<Policer> policers;        // all
  std::vector<ListChange> lists;        // those that the files name, in their order, and then what
                                        // else changes

  Change() = default;
  Change(Change&&) = default;
  Change& operator=(Change&&) = default;

  // Is there anything to do?
  bool any() const;
};

struct ChangeOptions {
  bool prune = false;  // lists that are not wanted go
};

// What makes `old` hold what `wanted` says. Lists that `wanted` has not keep their entries, and
// their attachments and stages, unless a wanted one takes the stage: then they move behind. Of
// stages only the order counts. `old` must live as long as the result. Throws InputError for what
// can't be: more lists at one place than there are stages, two interfaces of one index.
Change difference(const Model& old, Model wanted, const ChangeOptions& options);

// One model of several files. Throws InputError, one problem for each list or policer that two files
// define.
Model merge_models(std::vector<Model> models);

}  // namespace qimctl
