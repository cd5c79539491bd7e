// `qimctl export`: access lists of a database as a file.
#include "tools/commands/export.h"

#include <algorithm>
#include <utility>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/store/stored_model.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

bool is_wanted(const ExportOptions& options, const std::string& name) {
  return options.names.empty() ||
         std::find(options.names.begin(), options.names.end(), name) != options.names.end();
}

// What can't be read as a list can't be exported.
std::vector<Finding> unreadable_lists(const StoredModel& stored, const ExportOptions& options) {
  std::vector<Finding> findings;
  for (const Unreadable& list : stored.unreadable)
    if (is_wanted(options, list.name))
      findings.push_back({Fate::skipped, {unreadable_name(list), 0, ""}, unreadable_text(list)});
  return findings;
}

bool are_known(const StoredModel& stored, const ExportOptions& options) {
  bool known = true;
  for (const std::string& name : options.names) {
    const bool damaged = std::any_of(stored.unreadable.begin(), stored.unreadable.end(),
                                     [&name](const Unreadable& list) { return list.name == name; });
    if (damaged || find_list(stored.model, name) != nullptr) continue;
    complain("there is no access list " + quoted(name) +
             "; 'qimctl acl' names those that are there");
    known = false;
  }
  return known;
}

}  // namespace

Exported export_lists(ReadSession& session, const ExportOptions& options) {
  const StoredModel stored = read_verified_model(session);
  if (!are_known(stored, options)) return Exported::nothing_known;
  const ModelText written = write_model(stored.model, options.format, options.names);
  std::vector<Finding> losses = unreadable_lists(stored, options);
  for (Finding loss : written.findings) {
    loss.place.file = quoted(loss.place.file);
    losses.push_back(std::move(loss));
  }
  for (const Finding& loss : losses)
    complain((loss.fate == Fate::skipped ? "skipped  " : "approximated  ") + loss.place.file +
             ": " + loss.what);
  if (!losses.empty() && options.format == Format::nft) {
    complain("nothing was exported; a part of a policy would be another policy");
    return Exported::lossy;
  }
  if (!losses.empty() && !options.lossy) {
    complain("nothing was exported; repeat with --lossy to accept that");
    return Exported::lossy;
  }
  for (const std::string& piece : written.pieces) print(piece);
  return Exported::whole;
}

}  // namespace qimctl
