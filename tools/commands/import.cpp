// `qimctl import`: policy files into a database.
#include "tools/commands/import.h"

#include <utility>
#include <vector>

#include "policy/base/names.h"
#include "policy/change/apply.h"
#include "tools/base/output.h"
#include "tools/base/progress.h"
#include "tools/commands/apply.h"
#include "tools/nodes/write.h"

namespace qimctl {

namespace {

void print_report(const ImportOptions& options, const PolicyFiles& files,
                  const EditCounts* stored) {
  if (!is_text(options.form)) {
    const EditCounts counts = stored == nullptr ? EditCounts() : *stored;
    JsonValue value;
    value.set("imported", stored != nullptr);
    value.set("nodes", counts.nodes);
    value.set("links", counts.links);
    value.set("replaced", counts.edits == 0 ? 0 : counts.replaced);
    value.set("edits", counts.edits);
    value.set("findings", files.json());
    return print_value(value, options.form);
  }
  print(files.text(options.verbose));
  if (stored == nullptr) return;
  const bool unchanged = stored->edits == 0;
  std::string line = (unchanged ? "unchanged: " : "imported ") + counted(stored->nodes, "node") +
                     " and " + counted(stored->links, "link") + " from " +
                     counted(options.input.files.size(), "file");
  if (stored->replaced != 0 && !unchanged)
    line += ", " + std::to_string(stored->replaced) + " replaced";
  if (!files.findings.empty()) line += ": " + files.tally();
  print(line + "\n");
}

void refuse_known(const Model& known, const Model& wanted) {
  std::vector<Problem> problems;
  for (const AccessList& list : wanted.lists) {
    if (find_list(known, list.name) == nullptr) continue;
    problems.push_back(
        {list.place, "the access list \"" + list.name +
                         "\" is in the database already; use 'qimctl apply' to change it"});
  }
  if (!problems.empty()) throw InputError(std::move(problems));
}

EditCounts store(const ImportOptions& options, PolicyFiles& files, const FilePrints& prints) {
  Interrupts interrupts;
  NewDatabase made(options.database);
  const Database database(options.database, OpenMode::create, "", options.group);
  WriteSession session(database);
  StoredModel stored = read_stored_model(session.handle());
  if (!options.replace) refuse_known(stored.model, files.model);
  Progress progress("storing nodes", node_count(files), progress_wanted());
  Editor editor(session.handle(), stored, [&progress] { progress.step(); });
  editor.write_nodes(files.nodes, {.must_be_new = !options.replace});
  const Change change = difference(stored.model, std::move(files.model), {});
  editor.write_lists(change);
  interrupts.check_last();
  if (editor.counts().edits != 0) {
    remember(session, database, files, prints, change.named, false);
    session.commit();
  }
  made.keep();
  return editor.counts();
}

}  // namespace

bool import_files(const ImportOptions& options) {
  std::vector<Source> sources = read_sources(options.input);
  FilePrints prints(options.input, sources, random_key());
  prints.release();
  PolicyFiles files = read_files(options.input, std::move(sources));
  if ((files.has_losses() && !options.lossy) || !files.emptied.empty()) {
    print_report(options, files, nullptr);
    accept_losses(files, options.lossy, "imported");
    return false;
  }
  try {
    const EditCounts counts = store(options, files, prints);
    print_report(options, files, &counts);
  } catch (const InputError& error) {
    files.refuse(error);
  }
  return true;
}

}  // namespace qimctl
