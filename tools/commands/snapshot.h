// `qimctl snapshot` and `qimctl rollback`: states of a database that are kept, and going back to one.
#pragma once

#include <string>
#include <vector>

#include "policy/base/json.h"
#include "policy/change/list_news.h"
#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

void make_snapshot_named(const Database& database, const std::string& name, OutputForm form);
// Opens the snapshots one after the other, so the database must not be open. False when one of them
// can't be read.
bool list_snapshots(const std::string& directory, OutputForm form);
void remove_snapshot_named(const Database& database, const std::string& name, OutputForm form);

struct RollbackOptions {
  std::string snapshot;
  bool dry_run = false;  // only say what would change
  OutputForm form = OutputForm::table;
};

// Makes the database hold what a snapshot holds, in one commit, and says what changes.
void roll_back_to(const Database& database, const RollbackOptions& options);

// What became of lists, as an array of objects.
JsonValue news_json(const std::vector<ListNews>& all);

}  // namespace qimctl
