// The edits that one changed access list takes.
#pragma once

#include <functional>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "policy/change/apply.h"

namespace qimctl {

class ListEditor {
 public:
  ListEditor(uint32_t session, StoredModel& stored, const Change& change, EditCounts& counts,
             const std::function<void()>& progress);

  void write(const ListChange& list);

 private:
  using Attached = std::vector<const Attachment*>;

  void write_new(const ListChange& list);
  void write_over(const ListChange& list, const StoredList& stored);
  void write_difference(const ListChange& list, const StoredList& stored);
  void write_filters(const ListChange& list, const ListNodes& nodes, const ListIds& old,
                     const ListIds& ids);
  void write_filter(const ListChange& list, size_t from, size_t to, const ListNodes& nodes,
                    const ListIds& old, const ListIds& ids);
  void remove(const StoredList& stored);

  // The identifiers of a stored list's nodes as it becomes: what stays keeps its own,
  // unless that is 0.
  ListIds keep_ids(const ListChange& list, const ListNodes& nodes, const ListIds& old);
  void put_filters(const ListNodes& nodes, const ListIds& ids);
  void put_whole(const Node& node);
  void put_changed(const Node& before, const Node& after);
  void link(uint32_t owner, const Link& link);
  void erase(uint32_t id);

  uint32_t session_;
  StoredModel& stored_;
  Model before_;  // policers alone
  Model after_;
  std::unordered_map<std::string_view, const StoredList*> lists_;
  std::map<std::string_view, Attached> attached_before_;
  std::map<std::string_view, Attached> attached_after_;
  EditCounts& counts_;
  const std::function<void()>& progress_;
};

// Throws InputError for each wanted list in whose place there is one that can't be read.
void refuse_unreadable(const StoredModel& stored, const Change& change);

}  // namespace qimctl
