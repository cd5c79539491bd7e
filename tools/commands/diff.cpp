// `qimctl diff`: what differs between access lists here and there.
#include "tools/commands/diff.h"

#include <algorithm>
#include <cctype>

#include "policy/base/names.h"
#include "policy/change/words.h"
#include "policy/store/history.h"
#include "policy/store/snapshots.h"
#include "policy/store/stored_model.h"
#include "rov.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"
#include "tools/base/usage.h"
#include "tools/commands/semantic_diff.h"

namespace qimctl {

namespace {

Model model_of(const std::string& directory, const std::string& snapshot) {
  const Database database(directory, OpenMode::read, snapshot);
  StoredModel stored = read_stored_model(ReadSession(database));
  for (const Unreadable& list : stored.unreadable) {
    const std::string what = list.name.empty() ? "node " + node_id_text(list.node) : list.name;
    complain(what + " " + unreadable_text(list) + "; it is not compared");
  }
  return std::move(stored.model);
}

bool is_number(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

bool is_of_revision(const Database& database, const std::string& path,
                    const std::string& revision) {
  try {
    return std::to_string(Snapshot(database, path).verify().revision) == revision;
  } catch (const DatabaseError&) {
    return false;  // one that can't be read does not hide the others
  }
}

// Where a database keeps a revision: a snapshot, or "" for its newest state.
std::string place_of(const std::string& directory, const std::string& revision) {
  const Database database(directory, OpenMode::read);
  if (std::to_string(newest_revision(database)) == revision) return "";
  for (const std::string& path : snapshot_paths(database))
    if (is_of_revision(database, path, revision)) return path;
  throw DatabaseError(ROV_ERR_NO_ITEM, "compare with revision " + revision,
                      "it is gone: a database keeps its newest state, and others as snapshots "
                      "only; 'qimctl snapshot list' names them");
}

// What the database was.
Model earlier_model(const DiffOptions& options) {
  const std::string& directory = options.databases.front();
  try {
    return model_of(directory, options.from);
  } catch (const DatabaseError& error) {
    if (error.status() != ROV_ERR_NO_ITEM || !is_number(options.from)) throw;
  }
  return model_of(directory, place_of(directory, options.from));
}

void print_lines(const std::vector<DifferenceLine>& lines, OutputForm form) {
  Rows rows(form, {});
  for (const DifferenceLine& line : lines) {
    if (rows.is_text()) {
      print(std::string(1, line.sign) + " " + line.name + "  " + line.what + "\n");
      continue;
    }
    JsonValue item;
    item.set("sign", std::string(1, line.sign));
    item.set("name", line.name);
    item.set("what", line.what);
    rows.add(item);
  }
  rows.finish();
}

}  // namespace

ExitCode diff(const DiffOptions& options) {
  const bool two = options.databases.size() == 2;
  const bool files_given = !options.input.files.empty();
  const bool from = !options.from.empty();
  if (options.databases.size() > 2 || (two && (files_given || from || !options.at.empty())))
    throw UsageError(
        "two databases are compared with each other alone; leave out what else is given");
  if (!two && !files_given && !from)
    throw UsageError("there is nothing to compare with; give a FILE, a second --db or --from");
  if (files_given && from && !options.at.empty())
    throw UsageError("--from and --at both say what the FILE is compared with; leave one out");

  const Model before =
      from ? earlier_model(options) : model_of(options.databases.front(), options.at);
  Model after;
  if (files_given) {
    PolicyFiles files = read_files(options.input);
    say_losses(files);
    if (!files.nodes.empty())
      complain(
          "files in the native format hold nodes and are not compared; 'qimctl apply --dry-run' "
          "says what they would change");
    after = std::move(files.model);
  } else {
    after = model_of(options.databases.back(), options.at);
  }
  if (options.semantic) {
    if (files_given) after = with_lists_of(before, std::move(after));
    const bool differs = print_semantic_difference(before, after, options.form);
    return differs ? exit_differs : exit_ok;
  }
  const std::vector<DifferenceLine> lines =
      difference_lines(difference(before, std::move(after), {.prune = !files_given}));
  print_lines(lines, options.form);
  return lines.empty() ? exit_ok : exit_differs;
}

}  // namespace qimctl
