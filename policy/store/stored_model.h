// Access lists as a database holds them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "policy/model/model.h"
#include "policy/store/database.h"
#include "policy/store/id_blocks.h"
#include "policy/store/list_nodes.h"

namespace qimctl {

// The nodes of a list.
struct StoredList {
  ListIds ids;
  std::vector<uint32_t> members;  // those that carry its Group's identifier as group number,
                                  // whatever they are, in ascending order
  bool regular = true;  // they are, to the byte, what ListNodes makes of the list, and no more
};

// What looks like an access list, or like a place that one is attached to, and is none.
struct Unreadable {
  uint32_t node = 0;              // a Group or an Edest
  std::string name;               // of the list, "" when it is not known
  std::string why;                // "entry 3, node 0x80000007, is not in the database"
  std::vector<uint32_t> members;  // of a Group: as in StoredList
};

struct StoredModel {
  Model model;                    // attachments in the order of interfaces, directions and stages
  std::vector<StoredList> lists;  // by list of the model
  std::vector<Unreadable> unreadable;
  IdBlocks ids;  // all that are in use
};

// Reads all access lists; what can't be read as one, damaged or made by hand in another way, is
// told and left out. Throws DatabaseError when the database fails. The second form takes a session
// of either kind.
StoredModel read_stored_model(const ReadSession& session);
StoredModel read_stored_model(uint32_t session);

// NULL when there is no such list.
const StoredList* find_stored(const StoredModel& stored, std::string_view name);

// "cannot be read as an access list: ..."
std::string unreadable_text(const Unreadable& unreadable);

}  // namespace qimctl
