// `qimctl apply`: policy files into a database that may hold them already.
#include "tools/commands/apply.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/change/apply.h"
#include "policy/change/words.h"
#include "policy/model/words.h"
#include "policy/store/history.h"
#include "rov.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"
#include "tools/base/progress.h"
#include "tools/commands/remembered.h"
#include "tools/nodes/write.h"

namespace qimctl {

namespace {

const char* fate_name(ListFate fate) {
  switch (fate) {
    case ListFate::added:
      return "added";
    case ListFate::removed:
      return "deleted";
    case ListFate::changed:
      return "changed";
    case ListFate::unchanged:
      break;
  }
  return "unchanged";
}

// Nothing was done, for what the findings tell.
void print_refused(const ApplyOptions& options, const PolicyFiles& files) {
  if (is_text(options.form)) return print(files.text(options.verbose));
  JsonValue value;
  value.set("applied", false);
  value.set("lists", JsonValue::array());
  value.set("edits", 0u);
  value.set("findings", files.json());
  print_value(value, options.form);
}

std::string last_line(const Database& database, size_t edits, bool dry_run) {
  std::string revision = "revision " + std::to_string(newest_revision(database)) + "\n";
  if (edits == 0) return "nothing to do, " + revision;
  if (dry_run) return "nothing was done, " + revision;
  return revision;
}

std::string list_line(const std::string& name, const std::string& summary) {
  return name_word(name) + "  " + summary + "\n";
}

class Application {
 public:
  explicit Application(const ApplyOptions& options)
      : options_(options),
        made_(options.database),
        database_(options.database, options.dry_run ? OpenMode::change : OpenMode::create, "",
                  options.group) {}

  void run(PolicyFiles& files, const FilePrints& prints) {
    WriteSession session(database_);
    StoredModel stored = read_stored_model(session.handle());
    std::optional<Progress> progress(std::in_place, "storing nodes", node_count(files),
                                     progress_wanted());
    Editor editor(session.handle(), stored, [&progress] { progress->step(); });
    editor.write_nodes(files.nodes, {});
    const size_t node_edits = editor.counts().edits;
    Change change = difference(stored.model, std::move(files.model), {.prune = options_.prune});
    check_pruned(session.handle(), stored, change);
    editor.write_lists(change);
    const size_t edits = editor.counts().edits;
    // Wiped out before anything is printed on the same terminal.
    progress.reset();
    interrupts_.check_last();
    if (edits != 0 && !options_.dry_run) {
      remember(session, database_, files, prints, change.named, options_.prune);
      session.commit();
    }
    made_.keep();
    print_result(files, change, node_edits, edits);
  }

 private:
  void print_result(const PolicyFiles& files, const Change& change, size_t node_edits,
                    size_t edits) const {
    if (!is_text(options_.form)) return print_document(files, change, edits);
    print(files.text(options_.verbose));
    for (const ListChange& list : change.lists) print(list_line(list.name(), change_summary(list)));
    if (!files.nodes.empty()) print(nodes_text(files, node_edits));
    print(last_line(database_, edits, options_.dry_run));
  }

  static std::string nodes_text(const PolicyFiles& files, size_t edits) {
    size_t count = 0;
    for (const Policy& policy : files.nodes) count += policy.nodes.size();
    return counted(count, "node") + "  " + (edits == 0 ? "unchanged" : counted(edits, "edit")) +
           "\n";
  }

  void print_document(const PolicyFiles& files, const Change& change, size_t edits) const {
    JsonValue lists = JsonValue::array();
    for (const ListChange& list : change.lists) {
      JsonValue item;
      item.set("list", list.name());
      item.set("fate", fate_name(list.fate));
      item.set("what", change_summary(list));
      lists.add(std::move(item));
    }
    JsonValue value;
    value.set("applied", !options_.dry_run);
    value.set("lists", std::move(lists));
    value.set("edits", edits);
    value.set("revision", newest_revision(database_));
    value.set("findings", files.json());
    print_value(value, options_.form);
  }

  const ApplyOptions& options_;
  Interrupts interrupts_;
  NewDatabase made_;
  Database database_;
};

// Applies files of which little has changed. What they hold besides is not told, nor where it is.
class Repetition {
 public:
  Repetition(const ApplyOptions& options, const std::vector<Source>& sources,
             std::optional<FilePrints>& prints)
      : options_(options), sources_(sources), prints_(prints) {}

  // False when the files are to be read whole; whatever failed fails then, too, and is told.
  bool run() {
    if (options_.verbose || options_.dry_run || !is_text(options_.form)) return false;
    try {
      const Database database(options_.database, OpenMode::change);
      if (!read_applied(ReadSession(database).handle(), newest_revision(database))) return false;
      const std::optional<AppliedAgain> again = apply(database);
      if (!again) return false;
      for (const auto& [name, summary] : again->lists) print(list_line(name, summary));
      print(last_line(database, again->edits, false));
      return true;
    } catch (const DatabaseError&) {
      if (committed_) throw;
      return false;
    }
  }

 private:
  std::optional<AppliedAgain> apply(const Database& database) {
    const Interrupts interrupts;
    WriteSession session(database);
    const std::optional<Applied> applied =
        read_applied(session.handle(), newest_revision(database));
    if (!applied) return {};
    prints_.emplace(options_.input, sources_, applied->key);
    if (prints_->is_same(*applied) && (applied->pruned || !options_.prune)) {
      AppliedAgain same;
      for (const std::string& name : applied->names) same.lists.emplace_back(name, "unchanged");
      return same;
    }
    std::optional<AppliedAgain> again =
        apply_spans(session.handle(), options_.input, *prints_, *applied, options_.prune);
    if (!again || again->edits == 0) return again;
    write_applied(session.handle(), again->remembered);
    interrupts.check();
    session.commit();
    committed_ = true;
    return again;
  }

  const ApplyOptions& options_;
  const std::vector<Source>& sources_;
  std::optional<FilePrints>& prints_;
  bool committed_ = false;
};

}  // namespace

size_t node_count(const PolicyFiles& files) {
  size_t count = 0;
  for (const Policy& policy : files.nodes) count += policy.nodes.size();
  for (const AccessList& list : files.model.lists) count += list.entries.size();
  return count;
}

bool accept_losses(const PolicyFiles& files, bool lossy, const char* done) {
  if (files.has_losses() && !lossy) {
    complain(std::string("nothing was ") + done +
             ", for not everything above can be carried as it is; "
             "repeat with --lossy to accept that");
    return false;
  }
  for (const Problem& problem : files.emptied) complain(problem);
  return files.emptied.empty();
}

void remember(const WriteSession& session, const Database& database, const PolicyFiles& files,
              const FilePrints& prints, const std::vector<AccessList>& lists, bool pruned) {
  if (files.has_losses() || !files.nodes.empty()) return;
  write_applied(session.handle(), prints.remember(newest_revision(database) + 1, lists, pruned));
}

ExitCode apply_files(const ApplyOptions& options) {
  std::vector<Source> sources = read_sources(options.input);
  std::optional<FilePrints> prints;
  if (Repetition(options, sources, prints).run()) return exit_ok;
  if (!prints) prints.emplace(options.input, sources, random_key());
  prints->release();
  PolicyFiles files = read_files(options.input, std::move(sources));
  if ((files.has_losses() && !options.lossy) || !files.emptied.empty()) {
    print_refused(options, files);
    accept_losses(files, options.lossy, "applied");
    return exit_lossy;
  }
  try {
    Application(options).run(files, *prints);
  } catch (const InputError& error) {
    files.refuse(error);
  }
  return exit_ok;
}

}  // namespace qimctl
