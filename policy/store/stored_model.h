// Access lists as a database holds them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "policy/model/model.h"
#include "policy/store/database.h"
#include "policy/store/id_blocks.h"
#include "policy/store/list_nodes.h"

namespace qimctl {

// What an entry does.
struct Deed {
  ActionType forwarding = ActionType::drop;
  bool log = false;
  std::string policer;  // as in Entry
};

// The nodes of a list.
struct StoredList {
  uint32_t entries = 0;
  uint32_t first = 0;                        // the first entry's Filter, 0 = there is none
  std::unordered_map<uint32_t, Deed> deeds;  // what its entries do, by the Action that they lead to
  ListIds ids;
  std::vector<uint32_t> members;  // those that carry its Group's identifier as group number,
                                  // whatever they are, in ascending order
  std::vector<uint64_t> names;    // of a hollow model: entry_name_hash() of each
  bool regular = true;  // they are, to the byte, what ListNodes makes of the list, and no more
};

// What looks like an access list, or like a place that one is attached to, and is none.
struct Unreadable {
  uint32_t node = 0;              // a Group or an Edest
  std::string name;               // of the list, "" when it is not known
  std::string why;                // "entry 3, node 0x80000007, is not in the database"
  std::vector<uint32_t> members;  // of a Group: as in StoredList
  uint32_t at = 0;                // the node in which it lies, 0 = in none alone
  bool nameless = false;  // a Group that has no name: another client may mean something else by it
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

// The same for who writes it elsewhere: the file is verified first, and every node of it was read, or this
// throws.
StoredModel read_verified_model(ReadSession& session);

// The same without what takes room for each entry: lists have none, `ids` have no filters, and nothing
// is said of members and of `regular`.
StoredModel read_outline(const ReadSession& session);

// The same with entries that say what they do, but not what they are called or match: both are empty,
// until fill_entries() reads it for some, in the same session.
StoredModel read_hollow_model(uint32_t session);
void fill_entries(uint32_t session, StoredModel& stored, size_t list, size_t from, size_t end);

// Reads the entries of a list that was found sound in this session, in their order. The entry that
// `visit` is given is another one after it.
void each_stored_entry(const ReadSession& session, const StoredList& list,
                       const std::function<void(const Entry&)>& visit);

// NULL when there is no such list.
const StoredList* find_stored(const StoredModel& stored, std::string_view name);

// "cannot be read as an access list: ..."
std::string unreadable_text(const Unreadable& unreadable);
// The list's name in quotes, or where it has none, its node.
std::string unreadable_name(const Unreadable& unreadable);
// Throws DatabaseError: there is no list of that name, or none that can be read. `attempt` completes
// "cannot ...".
[[noreturn]] void no_list(const StoredModel& stored, const std::string& name,
                          const std::string& attempt);

}  // namespace qimctl
