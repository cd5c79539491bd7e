// `qimctl apply`: policy files into a database that may hold them already.
#include "tools/commands/apply.h"

#include <algorithm>

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

class Application {
 public:
  explicit Application(const ApplyOptions& options)
      : options_(options),
        made_(options.database),
        database_(options.database, options.dry_run ? OpenMode::change : OpenMode::create, "",
                  options.group) {}

  void run(PolicyFiles& files) {
    WriteSession session(database_);
    StoredModel stored = read_stored_model(session.handle());
    Progress progress("storing nodes", node_count(files), progress_wanted());
    Editor editor(session.handle(), stored, [&progress] { progress.step(); });
    editor.write_nodes(files.nodes, {});
    const size_t node_edits = editor.counts().edits;
    Change change = difference(stored.model, std::move(files.model), {.prune = options_.prune});
    check_pruned(session.handle(), stored, change);
    editor.write_lists(change);
    const size_t edits = editor.counts().edits;
    interrupts_.check_last();
    if (edits != 0 && !options_.dry_run) session.commit();
    made_.keep();
    print_result(files, change, node_edits, edits);
  }

 private:
  void print_result(const PolicyFiles& files, const Change& change, size_t node_edits,
                    size_t edits) const {
    if (!is_text(options_.form)) return print_document(files, change, edits);
    print(files.text(options_.verbose));
    for (const ListChange& list : change.lists)
      print(name_word(list.name()) + "  " + change_summary(list) + "\n");
    if (!files.nodes.empty()) print(nodes_text(files, node_edits));
    print(last_line(edits));
  }

  static std::string nodes_text(const PolicyFiles& files, size_t edits) {
    size_t count = 0;
    for (const Policy& policy : files.nodes) count += policy.nodes.size();
    return counted(count, "node") + "  " + (edits == 0 ? "unchanged" : counted(edits, "edit")) +
           "\n";
  }

  std::string last_line(size_t edits) const {
    std::string revision = "revision " + std::to_string(newest_revision(database_)) + "\n";
    if (edits == 0) return "nothing to do, " + revision;
    if (options_.dry_run) return "nothing was done, " + revision;
    return revision;
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

ExitCode apply_files(const ApplyOptions& options) {
  PolicyFiles files = read_files(options.input);
  if ((files.has_losses() && !options.lossy) || !files.emptied.empty()) {
    print_refused(options, files);
    accept_losses(files, options.lossy, "applied");
    return exit_lossy;
  }
  try {
    Application(options).run(files);
  } catch (const InputError& error) {
    files.refuse(error);
  }
  return exit_ok;
}

}  // namespace qimctl
