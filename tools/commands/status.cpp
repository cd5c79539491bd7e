// `qimctl status`: what a database is, holds, and who uses it.
#include "tools/commands/status.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/store/history.h"
#include "policy/store/node_image.h"
#include "policy/store/stored_model.h"
#include "rov.h"
#include "rov_edit.h"
#include "tools/base/output.h"
#include "tools/base/processes.h"

namespace qimctl {

namespace {

// The readers of one process.
struct Readers {
  ProcessInfo process;
  uint64_t revision = 0;  // the oldest that it holds
  uint32_t behind = 0;    // seconds for which that has not been the newest
  size_t count = 0;
};

struct Status {
  std::string directory;
  std::string snapshot;  // "" for the newest state
  uint64_t revision = 0;
  std::optional<LastChange> last;
  size_t lists = 0;
  size_t entries = 0;
  size_t interfaces = 0;
  size_t unreadable = 0;
  uint64_t nodes = 0;
  uint64_t bytes = 0;
  std::optional<rov_verify_t> file;  // nothing while somebody writes
  std::vector<Readers> readers;
  std::vector<ProcessInfo> watchers;
  std::optional<ProcessInfo> writer;
};

void add_holder(std::map<uint32_t, Readers>& readers, const rov_holder_t& holder) {
  Readers& of = readers[holder.pid];
  of.revision = of.count == 0 ? holder.revision : std::min(of.revision, holder.revision);
  of.behind = std::max(of.behind, holder.seconds);
  of.count++;
}

// Pages that such a reader holds are not used again, and the file grows with every commit.
constexpr uint32_t long_reading = 60;  // seconds

// This process reads the database too, but only to tell of it.
void add_holders(const Database& database, Status& status) {
  std::vector<rov_holder_t> holders;
  require(rov_edit_holders(
              database.handle(),
              [](const rov_holder_t* holder, void* all) {
                static_cast<std::vector<rov_holder_t>*>(all)->push_back(*holder);
              },
              &holders),
          "look who uses the database in " + database.directory());
  std::map<uint32_t, Readers> readers;
  for (const rov_holder_t& holder : holders) {
    if (holder.what == ROV_HOLDER_WRITER) status.writer = process_info(holder.pid);
    if (holder.what != ROV_HOLDER_READER || holder.pid == static_cast<uint32_t>(getpid())) continue;
    add_holder(readers, holder);
  }
  for (auto& [pid, of] : readers) {
    of.process = process_info(pid);
    status.readers.push_back(of);
  }
}

void add_policy(const Database& database, Status& status) {
  const ReadSession session(database);
  const StoredModel stored = read_stored_model(session);
  status.lists = stored.model.lists.size();
  status.unreadable = stored.unreadable.size();
  for (const AccessList& list : stored.model.lists) status.entries += list.entries.size();
  std::set<std::string> interfaces;
  for (const Attachment& attachment : stored.model.attachments)
    interfaces.insert(attachment.interface);
  status.interfaces = interfaces.size();
  each_node(session.handle(), [&status](const rov_node_parms_t&) { status.nodes++; });
}

rov_verify_t verified(const Database& database) {
  rov_verify_t report;
  require(rov_edit_verify(database.read_handle(), &report),
          "verify the database in " + database.directory());
  return report;
}

// Looking at the pages waits for who writes, so it is left out then.
void add_file(const Database& database, Status& status) {
  struct stat file {};
  if (stat((database.directory() + "/data.mdb").c_str(), &file) == 0)
    status.bytes = static_cast<uint64_t>(file.st_size);
  if (!status.writer) status.file = verified(database);
}

// Of a snapshot nobody is told who made the commit and who reads it; nobody writes or watches one.
Status status_of(const Database& database, const std::string& snapshot) {
  Status status;
  status.directory = database.directory();
  status.snapshot = snapshot;
  if (!snapshot.empty()) {
    status.file = verified(database);
    status.revision = status.file->revision;
    status.bytes = status.file->bytes;
    add_policy(database, status);
    return status;
  }
  status.revision = newest_revision(database);
  status.last = last_change(database);
  add_holders(database, status);
  add_policy(database, status);
  add_file(database, status);
  for (const ProcessInfo& process : processes_watching(database.directory() + "/changes"))
    if (process.pid != static_cast<uint32_t>(getpid())) status.watchers.push_back(process);
  return status;
}

std::string behind_text(const Readers& reader, uint64_t newest) {
  if (reader.revision >= newest) return "the newest revision";
  std::string text = "revision " + std::to_string(reader.revision) + ", " +
                     std::to_string(newest - reader.revision) + " behind";
  if (reader.behind == 0) return text;
  text += " for " + std::to_string(reader.behind) + " s";
  return reader.behind < long_reading ? text
                                      : text + ": the file grows until it closes its session";
}

std::string file_text(const Status& status) {
  const std::string bytes = std::to_string(status.bytes) + " bytes";
  if (!status.file) return bytes + "; free pages are not counted while somebody writes";
  return bytes + ", " + counted(status.file->pages, "page") + " of " +
         std::to_string(status.file->page_size) + " bytes, " +
         std::to_string(status.file->free_pages) + " free";
}

std::string changed_text(const LastChange& last) {
  return "in revision " + std::to_string(last.revision) + ", " + time_text(last.author.seconds) +
         ", by " + last.author.name;
}

void print_line(const char* what, const std::string& text) {
  constexpr size_t column = 14;
  const std::string name = what;
  print(name + std::string(column - name.size(), ' ') + text + "\n");
}

void print_text(const Status& status) {
  print_line("database", printable(status.directory));
  if (!status.snapshot.empty()) print_line("snapshot", printable(status.snapshot));
  print_line("revision", std::to_string(status.revision));
  if (status.snapshot.empty())
    print_line("last change", status.last ? changed_text(*status.last) : "not known");
  print_line("policy",
             counted(status.lists, "access list") + ", " + std::to_string(status.entries) +
                 (status.entries == 1 ? " entry, " : " entries, ") +
                 counted(status.interfaces, "interface") + ", " + counted(status.nodes, "node"));
  if (status.unreadable != 0)
    print_line("", std::to_string(status.unreadable) +
                       " that cannot be read as access lists; 'qimctl acl' names them");
  print_line("file", file_text(status));
  if (!status.snapshot.empty()) return;
  print_line("writer", status.writer ? process_text(*status.writer) : "none");
  if (status.readers.empty()) print_line("readers", "none");
  for (const Readers& of : status.readers)
    print_line("reader", process_text(of.process) + ", " + behind_text(of, status.revision));
  if (status.watchers.empty()) print_line("watchers", "none that you may see");
  for (const ProcessInfo& process : status.watchers) print_line("watcher", process_text(process));
}

JsonValue process_json(const ProcessInfo& process) {
  JsonValue value;
  value.set("pid", process.pid);
  value.set("program", process.name);
  value.set("seconds", process.seconds);
  return value;
}

JsonValue changed_json(const LastChange& last) {
  JsonValue value;
  value.set("revision", last.revision);
  value.set("time", last.author.seconds);
  value.set("by", last.author.name);
  return value;
}

JsonValue status_json(const Status& status) {
  JsonValue value;
  value.set("database", status.directory);
  if (!status.snapshot.empty()) value.set("snapshot", status.snapshot);
  value.set("revision", status.revision);
  if (status.last) value.set("last_change", changed_json(*status.last));
  value.set("lists", status.lists);
  value.set("entries", status.entries);
  value.set("interfaces", status.interfaces);
  value.set("unreadable", status.unreadable);
  value.set("nodes", status.nodes);
  value.set("bytes", status.bytes);
  if (status.file) {
    value.set("pages", status.file->pages);
    value.set("free_pages", status.file->free_pages);
  }
  if (status.writer) value.set("writer", process_json(*status.writer));
  JsonValue readers = JsonValue::array();
  for (const Readers& of : status.readers) {
    JsonValue reader = process_json(of.process);
    reader.set("revision", of.revision);
    reader.set("sessions", of.count);
    reader.set("behind_seconds", of.behind);
    readers.add(std::move(reader));
  }
  value.set("readers", std::move(readers));
  JsonValue watchers = JsonValue::array();
  for (const ProcessInfo& process : status.watchers) watchers.add(process_json(process));
  value.set("watchers", std::move(watchers));
  return value;
}

}  // namespace

void print_status(const Database& database, const std::string& snapshot, OutputForm form) {
  const Status status = status_of(database, snapshot);
  if (is_text(form)) return print_text(status);
  print_value(status_json(status), form);
}

}  // namespace qimctl
