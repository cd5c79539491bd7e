// `qimctl rollback`: going back to a snapshot.
#include <optional>

#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/change/list_news.h"
#include "policy/store/history.h"
#include "policy/store/rollback.h"
#include "policy/store/snapshots.h"
#include "policy/store/stored_model.h"
#include "rov.h"
#include "tools/base/output.h"
#include "tools/commands/snapshot.h"

namespace qimctl {

namespace {

struct RollbackOutcome {
  uint64_t snapshot_revision = 0;
  NodeEdits edits;
  std::vector<ListNews> news;
  uint64_t revision = 0;  // of the database in the end
};

// A copy can't know more commits than what it is a copy of.
void require_own(const std::string& name, uint64_t of_snapshot, uint64_t of_database) {
  if (of_snapshot <= of_database) return;
  throw DatabaseError(ROV_ERR_INVALID, "roll back to the snapshot " + quoted(name),
                      "it is of another database: it holds revision " +
                          std::to_string(of_snapshot) + ", and this one has only " +
                          std::to_string(of_database) + "; restore the right one from a dump");
}

std::string edits_text(const NodeEdits& edits) {
  return counted(edits.nodes_put, "node") + " put, " + std::to_string(edits.nodes_deleted) +
         " deleted, " + counted(edits.links, "link") + " and " + counted(edits.privates, "piece") +
         " of private data changed";
}

void print_text(const RollbackOptions& options, const RollbackOutcome& outcome) {
  constexpr size_t most = 20;
  const std::string to =
      quoted(options.snapshot) + " (revision " + std::to_string(outcome.snapshot_revision) + ")";
  if (outcome.edits.total() == 0) {
    print("unchanged: the database holds what the snapshot " + to + " holds\n");
    return;
  }
  for (const ListNews& news : outcome.news) print(to_string(news, most) + "\n");
  print((options.dry_run ? "rolling back to " : "rolled back to ") + to + ": " +
        edits_text(outcome.edits) + "\n");
  if (!options.dry_run) print("revision " + std::to_string(outcome.revision) + "\n");
}

JsonValue outcome_json(const RollbackOptions& options, const RollbackOutcome& outcome) {
  JsonValue value;
  value.set("snapshot", options.snapshot);
  value.set("snapshot_revision", outcome.snapshot_revision);
  value.set("dry_run", options.dry_run);
  value.set("revision", outcome.revision);
  value.set("nodes_put", outcome.edits.nodes_put);
  value.set("nodes_deleted", outcome.edits.nodes_deleted);
  value.set("links", outcome.edits.links);
  value.set("private_data", outcome.edits.privates);
  value.set("lists", news_json(outcome.news));
  return value;
}

}  // namespace

JsonValue news_json(const std::vector<ListNews>& all) {
  JsonValue lists = JsonValue::array();
  for (const ListNews& news : all) {
    JsonValue item;
    item.set("list", news.name);
    JsonValue changes = JsonValue::array();
    for (const std::string& what : news.what) changes.add(what);
    item.set("changes", std::move(changes));
    lists.add(std::move(item));
  }
  return lists;
}

void roll_back_to(const Database& database, const RollbackOptions& options) {
  require_snapshot(database, options.snapshot);
  const Snapshot snapshot(database, options.snapshot);
  RollbackOutcome outcome;
  outcome.snapshot_revision = snapshot.verify().revision;
  std::optional<WriteSession> writer;
  if (!options.dry_run) writer.emplace(database);
  outcome.revision = newest_revision(database);
  require_own(options.snapshot, outcome.snapshot_revision, outcome.revision);
  const ReadSession wanted(snapshot.handle(), "the snapshot " + quoted(options.snapshot));
  const ReadSession held(database);
  outcome.edits = roll_back(wanted, held, writer ? &*writer : nullptr);
  if (outcome.edits.total() != 0) {
    outcome.news = list_news(read_stored_model(held).model, read_stored_model(wanted).model);
    if (writer) writer->commit();
  }
  outcome.revision = newest_revision(database);
  if (is_text(options.form)) return print_text(options, outcome);
  print_value(outcome_json(options, outcome), options.form);
}

}  // namespace qimctl
