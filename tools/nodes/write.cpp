// Writing policies while a terminal shows how far it is.
#include "tools/nodes/write.h"

#include <filesystem>

#include "rov_edit.h"
#include "tools/base/progress.h"

namespace qimctl {

namespace {

bool has_no_nodes(const std::string& directory) {
  try {
    const Database database(directory, OpenMode::read);
    rov_node_parms_t parms;
    return rov_node_next(ReadSession(database).handle(), rov_node_id_t{}, &parms) ==
           ROV_ERR_NO_ITEM;
  } catch (const DatabaseError&) {
    return false;
  }
}

}  // namespace

NewDatabase::NewDatabase(const std::string& given)
    : directory_(database_directory(given)), kept_(std::filesystem::exists(directory_)) {}

NewDatabase::~NewDatabase() {
  std::error_code ignored;
  if (!kept_ && has_no_nodes(directory_)) std::filesystem::remove_all(directory_, ignored);
}

StoreCounts write_with_progress(const std::vector<Policy>& policies, const WriteSession& session,
                                StoreOptions options) {
  size_t total = 0;
  for (const Policy& policy : policies) total += policy.nodes.size();
  Progress progress("storing nodes", total, progress_wanted());
  options.stored = [&progress] { progress.step(); };
  return write_policies(policies, session, options);
}

}  // namespace qimctl
