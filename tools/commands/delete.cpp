// `qimctl delete`, `detach` and `gc`.
#include "tools/commands/delete.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/change/apply.h"
#include "policy/change/garbage.h"
#include "policy/change/referrers.h"
#include "policy/model/words.h"
#include "policy/store/node_edits.h"
#include "rov.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

// A transaction on what the database holds now.
class Removal {
 public:
  explicit Removal(const DeleteOptions& options)
      : options_(options),
        database_(options.database, OpenMode::change),
        session_(database_),
        stored_(read_stored_model(session_.handle())) {}

  uint32_t session() const { return session_.handle(); }
  StoredModel& stored() { return stored_; }

  // True when it goes on all the same.
  bool refuse(const std::string& what) const {
    if (options_.force) return true;
    complain(what + ", or repeat with --force");
    return false;
  }

  // Says `what`, or to programs `value` and whether it is done now.
  void finish(const std::string& what, JsonValue value) {
    if (!options_.dry_run) session_.commit();
    if (is_text(options_.form)) return print((options_.dry_run ? "would have " : "") + what + "\n");
    value.set("done", !options_.dry_run);
    print_value(value, options_.form);
  }

 private:
  const DeleteOptions& options_;
  Database database_;
  WriteSession session_;
  StoredModel stored_;
};

// The nodes of a list, one that can't be read included.
const std::vector<uint32_t>& members_of(const StoredModel& stored, const std::string& name) {
  if (const StoredList* list = find_stored(stored, name)) return list->members;
  const auto found =
      std::find_if(stored.unreadable.begin(), stored.unreadable.end(),
                   [&](const Unreadable& one) { return one.name == name && !name.empty(); });
  if (found == stored.unreadable.end())
    no_list(stored, name, "find the access list " + quoted(name));
  return found->members;
}

std::string places_of(const Model& model, const std::string& name) {
  std::string places;
  for (const Attachment& at : model.attachments) {
    if (at.list == name) places += (places.empty() ? "" : ", ") + attachment_text(at);
  }
  return places;
}

// The list that a node belongs to, "" = none.
std::string owner_of(const StoredModel& stored, uint32_t id) {
  for (size_t i = 0; i < stored.lists.size(); i++) {
    const std::vector<uint32_t>& members = stored.lists[i].members;
    if (std::binary_search(members.begin(), members.end(), id)) return stored.model.lists[i].name;
  }
  return "";
}

}  // namespace

ExitCode delete_list(const DeleteOptions& options, const std::string& name) {
  Removal removal(options);
  const std::vector<uint32_t>& members = members_of(removal.stored(), name);
  const std::string what = "the access list " + quoted(name);
  const std::string places = places_of(removal.stored().model, name);
  if (!places.empty() && !removal.refuse(what + " is attached to " + places + "; detach it first"))
    return exit_refused;
  const std::string by = outside_referrer(removal.session(), members);
  if (!by.empty() && !removal.refuse(what + " is referred to by " + by + "; delete that first"))
    return exit_refused;
  for (const uint32_t id : members) delete_node(removal.session(), id);
  JsonValue value;
  value.set("list", name);
  value.set("nodes", members.size());
  removal.finish("deleted " + what + ": " + counted(members.size(), "node"), std::move(value));
  return exit_ok;
}

ExitCode delete_node_command(const DeleteOptions& options, uint32_t id) {
  Removal removal(options);
  const std::string what = "node " + node_id_text(id);
  if (!is_stored(removal.session(), id))
    throw DatabaseError(ROV_ERR_NO_ITEM, "delete " + what,
                        "it is not in the database; 'qimctl list' names the nodes that are");
  const std::string owner = owner_of(removal.stored(), id);
  if (!owner.empty() && !removal.refuse(what + " belongs to the access list " + quoted(owner) +
                                        "; change or delete the list"))
    return exit_refused;
  const std::string by = outside_referrer(removal.session(), {id});
  if (!by.empty() && !removal.refuse(what + " is referred to by " + by + "; delete that first"))
    return exit_refused;
  delete_node(removal.session(), id);
  JsonValue value;
  value.set("node", node_id_text(id));
  removal.finish("deleted " + what, std::move(value));
  return exit_ok;
}

ExitCode detach_list(const DeleteOptions& options, const std::string& name,
                     const std::string& place) {
  Removal removal(options);
  const Model& model = removal.stored().model;
  const AccessList* list = find_list(model, name);
  if (list == nullptr) no_list(removal.stored(), name, "detach the access list " + quoted(name));
  Model wanted;
  wanted.lists.push_back(*list);
  wanted.policers = model.policers;
  bool found = false;
  for (const Attachment& at : model.attachments) {
    if (at.list != name) continue;
    const bool gone = attachment_text(at) == place;
    if (!gone) wanted.attachments.push_back(at);
    found = found || gone;
  }
  if (!found) {
    const std::string places = places_of(model, name);
    throw DatabaseError(
        ROV_ERR_NO_ITEM, "detach the access list " + quoted(name),
        places.empty() ? "it is attached nowhere" : "it is attached to " + places + " only");
  }
  Editor editor(removal.session(), removal.stored(), {});
  editor.write_lists(difference(model, std::move(wanted), {}));
  JsonValue value;
  value.set("list", name);
  value.set("place", place);
  removal.finish("detached " + name_word(name) + " from " + place, std::move(value));
  return exit_ok;
}

ExitCode collect_garbage(const DeleteOptions& options) {
  Removal removal(options);
  const std::vector<uint32_t> garbage = garbage_of(removal.session(), removal.stored());
  if (garbage.empty() && is_text(options.form)) {
    print("nothing to remove\n");
    return exit_ok;
  }
  JsonValue nodes = JsonValue::array();
  for (const uint32_t id : garbage) {
    delete_node(removal.session(), id);
    nodes.add(node_id_text(id));
  }
  JsonValue value;
  value.set("nodes", std::move(nodes));
  removal.finish("removed " + counted(garbage.size(), "node"), std::move(value));
  return exit_ok;
}

}  // namespace qimctl
