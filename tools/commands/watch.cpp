// `qimctl watch`: following the changes of a database, node by node.
#include "tools/commands/watch.h"

#include <poll.h>

#include <cerrno>
#include <cstring>
#include <unordered_map>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "policy/store/history.h"
#include "policy/store/node_image.h"
#include "rov.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

struct KindName {
  uint32_t kind;
  const char* name;
};

constexpr KindName kind_names[] = {
    {ROV_CHANGE_NODE_PUT, "node put"}, {ROV_CHANGE_NODE_DEL, "node deleted"},
    {ROV_CHANGE_LINK_PUT, "link put"}, {ROV_CHANGE_LINK_DEL, "link deleted"},
    {ROV_CHANGE_PRIV_POST, "posted"},  {ROV_CHANGE_GAP, "gap"},
};

std::string kind_name(uint32_t kind) {
  for (const KindName& known : kind_names) {
    if (known.kind == kind) return known.name;
  }
  return "kind " + std::to_string(kind);
}

bool is_of_link(const rov_change_t& change) {
  return change.kind == ROV_CHANGE_LINK_PUT || change.kind == ROV_CHANGE_LINK_DEL;
}

// Of a node that is gone, or not understood, only the name tells what it was.
std::string node_text(const ReadSession& session, uint32_t id) {
  qim_node_t record;
  const uint32_t status = qim_node_read(session.handle(), id, 0, &record);
  if (status == ROV_ERR_NO_ITEM || is_about_contents(status)) return node_id_text(id);
  require(status, "read node " + node_id_text(id));
  return node_id_text(id) + " " + node_type_name(record.type);
}

std::string name_text(const rov_change_t& change) {
  qim_dsetname_t name;
  memcpy(&name, change.dset, sizeof name);
  qim_pinst_fields_t fields{};
  qim_pinst_from_dsetname(&fields, &name);
  return dset_text(fields);
}

std::string change_text(const Database& database, const rov_change_t& change) {
  std::string text =
      "revision " + std::to_string(joined(change.revision)) + "  " + kind_name(change.kind);
  if (change.kind == ROV_CHANGE_GAP) {
    return text + "  changes were lost or too many to tell: read everything again\n";
  }
  if (change.kind == ROV_CHANGE_PRIV_POST) {
    return text + "  private data " + std::to_string(change.field) + "\n";
  }
  const ReadSession session(database);
  text += "  " + node_text(session, qim_from_rov_node_id(&change.node));
  if (is_of_link(change)) text += "  " + slot_name(static_cast<uint16_t>(change.field));
  if (change.dset_len != 0) text += "  " + name_text(change);
  return text + "\n";
}

JsonValue change_json(const rov_change_t& change) {
  JsonValue value;
  value.set("revision", joined(change.revision));
  value.set("kind", kind_name(change.kind));
  if (change.kind == ROV_CHANGE_PRIV_POST) value.set("key", change.field);
  const uint32_t node = qim_from_rov_node_id(&change.node);
  if (node != 0) value.set("node", node_id_text(node));
  if (is_of_link(change)) value.set("field", slot_name(static_cast<uint16_t>(change.field)));
  if (change.dset_len != 0) value.set("dset", hex_bytes(change.dset, change.dset_len));
  value.set("user", hex_number(joined(change.user), 16));
  return value;
}

// Of which type is the node of a change? That of a node that is gone is not known any more, unless it
// was when the watching began.
class Types {
 public:
  explicit Types(const Database& database) : database_(database) {
    const ReadSession session(database);
    each_node(session.handle(), [&](const rov_node_parms_t& parms) {
      look(session, qim_from_rov_node_id(&parms.id));
    });
  }
  bool is(const rov_change_t& change, uint32_t type) {
    const uint32_t id = qim_from_rov_node_id(&change.node);
    look(ReadSession(database_), id);
    const auto found = types_.find(id);
    return found != types_.end() && found->second == type;
  }

 private:
  void look(const ReadSession& session, uint32_t id) {
    qim_node_t record;
    if (id != 0 && qim_node_read(session.handle(), id, 0, &record) == ROV_OK)
      types_[id] = record.type;
  }

  const Database& database_;
  std::unordered_map<uint32_t, uint32_t> types_;
};

std::string line_of(const Database& database, const rov_change_t& change, OutputForm form) {
  return is_text(form) ? change_text(database, change) : line_text(change_json(change), form);
}

void watch_nodes(const Database& database, const WatchOptions& options) {
  const Following following(database, options.from);
  std::optional<Types> types;
  if (options.type) types.emplace(database);
  uint64_t seen = 0;
  while (!options.count || seen < *options.count) {
    const std::optional<rov_change_t> change = following.next();
    if (change) {
      const bool wanted =
          !types || change->kind == ROV_CHANGE_GAP || types->is(*change, *options.type);
      if (!wanted) continue;
      seen++;
      print(line_of(database, *change, options.form));
      continue;
    }
    flush_output();
    if (!wait_for(following.descriptor(), options.seconds)) return;
  }
}

}  // namespace

std::string line_text(const JsonValue& value, OutputForm form) {
  if (form == OutputForm::yaml) return "---\n" + to_text(value, form);
  return to_text(value, OutputForm::jsonl);
}

bool wait_for(int fd, const std::optional<uint32_t>& seconds) {
  if (fd < 0) {
    throw DatabaseError(ROV_ERR_READ_ONLY, "wait for changes",
                        "this process may not write to the database's lock.mdb, so it reads a copy "
                        "of the newest state, which stays as it is; get the right to write there");
  }
  pollfd waiting = {fd, POLLIN, 0};
  const int milliseconds = seconds ? static_cast<int>(*seconds) * 1000 : -1;
  int ready = poll(&waiting, 1, milliseconds);
  while (ready < 0 && errno == EINTR) ready = poll(&waiting, 1, milliseconds);
  return ready > 0;
}

void watch_changes(const Database& database, const WatchOptions& options) {
  const bool nodes = options.raw || options.type || (!is_text(options.form) && !options.acl);
  nodes ? watch_nodes(database, options) : watch_lists(database, options);
}

}  // namespace qimctl
