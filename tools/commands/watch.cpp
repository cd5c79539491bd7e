// `qimctl watch`: following the changes of a database.
#include "tools/commands/watch.h"

#include <poll.h>

#include <cerrno>
#include <cstring>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
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

uint64_t joined(const uint32_t (&words)[2]) {
  return uint64_t{words[0]} << 32 | words[1];
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

std::string change_json(const rov_change_t& change) {
  JsonValue value;
  value.set("revision", joined(change.revision));
  value.set("kind", kind_name(change.kind));
  if (change.kind == ROV_CHANGE_PRIV_POST) value.set("key", change.field);
  const uint32_t node = qim_from_rov_node_id(&change.node);
  if (node != 0) value.set("node", node_id_text(node));
  if (is_of_link(change)) value.set("field", slot_name(static_cast<uint16_t>(change.field)));
  if (change.dset_len != 0) value.set("dset", hex_bytes(change.dset, change.dset_len));
  value.set("user", hex_number(joined(change.user), 16));
  return value.dump() + "\n";
}

// False when nothing came in time.
bool wait_for(int fd, const std::optional<uint32_t>& seconds) {
  pollfd waiting = {fd, POLLIN, 0};
  const int milliseconds = seconds ? static_cast<int>(*seconds) * 1000 : -1;
  int ready = poll(&waiting, 1, milliseconds);
  while (ready < 0 && errno == EINTR) ready = poll(&waiting, 1, milliseconds);
  return ready > 0;
}

// The next message, or nothing when there is none now.
std::optional<rov_change_t> next_change(const Database& database) {
  rov_change_t change;
  uint32_t length = 0;
  const uint32_t status = qim_process_msg(database.handle(), &change, sizeof change, &length);
  if (status == ROV_ERR_NO_VALUE) return std::nullopt;
  require(status, "read the changes of " + database.directory());
  return change;
}

}  // namespace

void watch_changes(const Database& database, const WatchOptions& options) {
  rov_ntf_t registration{};
  registration.kinds = UINT32_MAX;
  registration.revision[0] = static_cast<uint32_t>(options.from >> 32);
  registration.revision[1] = static_cast<uint32_t>(options.from);
  const std::string attempt = "follow the changes of " + database.directory();
  const uint32_t status = qim_db_ntf(database.handle(), &registration);
  if (status == ROV_ERR_INVALID && options.from != 0) {
    throw DatabaseError(status, attempt,
                        "there is no revision " + std::to_string(options.from) +
                            " yet; without --from, changes from now on are printed");
  }
  require(status, attempt);
  uint64_t seen = 0;
  while (!options.count || seen < *options.count) {
    const std::optional<rov_change_t> change = next_change(database);
    if (change) {
      seen++;
      print(options.json ? change_json(*change) : change_text(database, *change));
      continue;
    }
    flush_output();
    if (!wait_for(registration.fd, options.seconds)) return;
  }
}

}  // namespace qimctl
