// References that a write session's links have made and that no referrers are noted of yet.
//
// Links of a policy that is imported lead anywhere: to note each one with its target at once means
// a search through everything for each. They are gathered here, sorted, and noted target by target.
#ifndef DATABASE_GRAPH_BACKLOG_H
#define DATABASE_GRAPH_BACKLOG_H

#include <cstdint>

#include "database/record/reference.h"

namespace rov {

class Backlog {
 public:
  Backlog() = default;
  ~Backlog();
  Backlog(const Backlog&) = delete;
  Backlog& operator=(const Backlog&) = delete;

  bool empty() const { return count_ == 0; }
  // False = no memory, nothing changed.
  bool add(const Reference& reference);
  // Takes what the other one has; this one is empty before, the other one afterwards.
  void take(Backlog& from);

  // Sorts by target, then owner, and keeps the lowest field of each of these pairs.
  void sort();
  const Reference* begin() const { return list_; }
  const Reference* end() const { return list_ + count_; }

  // Why what was taken from it could not be noted; 0 when nothing went wrong.
  uint32_t failure = 0;

 private:
  Reference* list_ = nullptr;
  uint32_t count_ = 0;
  uint32_t room_ = 0;
};

}  // namespace rov

#endif
