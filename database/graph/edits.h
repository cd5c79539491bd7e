// What a write session has edited, and what is still to be done about it.
#ifndef DATABASE_GRAPH_EDITS_H
#define DATABASE_GRAPH_EDITS_H

#include "database/graph/backlog.h"
#include "database/store/overlay.h"

namespace rov {

struct Edits : Overlay {
  // References of edited links that are to be noted with their targets yet; they are in no table.
  Backlog backlog;
};

}  // namespace rov

#endif
