// Carrying changes out: the fewest edits of nodes that make the database hold what is wanted.
#pragma once

#include <functional>
#include <vector>

#include "policy/base/policy.h"
#include "policy/change/change.h"
#include "policy/store/stored_model.h"

namespace qimctl {

struct EditCounts {
  size_t nodes = 0;     // that belong to what was written, and their links
  size_t links = 0;     //
  size_t replaced = 0;  // of the nodes: those that were there before
  size_t edits = 0;     // calls to the database; 0 = nothing is to be committed
};

struct NodeOptions {
  bool must_be_new = false;  // nodes that are there already are refused
};

// Works through a write session on the state that was read as `stored`, which is given to nobody
// else.
class Editor {
 public:
  // `progress`, if any, is called for each node and each entry that was seen to.
  Editor(uint32_t session, StoredModel& stored, std::function<void()> progress);

  // Makes the database hold nodes as they are given, links and private data included; what is the
  // same already is left alone. Nodes of access lists are refused if they are to change. Their
  // identifiers are kept from lists that are written later. Throws InputError.
  void write_nodes(const std::vector<Policy>& policies, const NodeOptions& options);

  // Carries out what `change` says, whose old model is that of `stored`. Throws InputError for a
  // wanted list in whose place there is one that can't be read.
  void write_lists(const Change& change);

  const EditCounts& counts() const { return counts_; }

 private:
  uint32_t session_;
  StoredModel& stored_;
  std::function<void()> progress_;
  EditCounts counts_;
};

// Lists that something else leads to are not pruned: throws InputError for each that is to go.
void check_pruned(uint32_t session, const StoredModel& stored, const Change& change);

}  // namespace qimctl
