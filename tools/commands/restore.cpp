// `qimctl restore`: a database made from a dump.
#include "tools/commands/restore.h"

#include "policy/base/input_file.h"
#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/base/text.h"
#include "policy/formats/native/native.h"
#include "rov_edit.h"
#include "tools/base/output.h"
#include "tools/base/progress.h"
#include "tools/nodes/write.h"

namespace qimctl {

namespace {

Policy read_dump(const Source& source) {
  Policy policy = read_native(source.text, source.file);
  if (!policy.checked) {
    throw InputError({source.file, 0, ""},
                     "has no checksum, so it is no dump, or not a whole one; policy files are read "
                     "by 'qimctl import'");
  }
  std::vector<Problem> conflicts = check_policies({policy});
  if (!conflicts.empty()) refuse({source}, std::move(conflicts));
  return policy;
}

void require_empty(const Database& database, const WriteSession& session, const Source& source) {
  rov_node_parms_t parms;
  const uint32_t status = rov_node_next(session.handle(), rov_node_id_t{}, &parms);
  if (status == ROV_ERR_NO_ITEM) return;
  require(status, "look for nodes in the database in " + database.directory());
  throw InputError({source.file, 0, ""},
                   "can't be restored into " + database.directory() +
                       ", which has nodes already; give a directory that has no database, or "
                       "remove that one first");
}

}  // namespace

RestoreCounts restore_database(const std::string& directory, const std::string& file,
                               uint32_t group) {
  Source source;
  const Policy policy = [&source, &file] {
    const Abandoning abandoning;
    source = read_source(file);
    const Phase phase("reading " + printable(source.file), progress_wanted());
    return read_dump(source);
  }();
  Interrupts interrupts;
  NewDatabase made(directory);
  const Database database(directory, OpenMode::create, "", group);
  WriteSession session(database);
  require_empty(database, session, source);
  const StoreCounts counts = write_with_progress({policy}, session, {.dangling = true});
  interrupts.check_last();
  session.commit();
  made.keep();
  return {counts.nodes, counts.links};
}

void print_restored(const RestoreCounts& counts, OutputForm form) {
  if (is_text(form)) {
    return print("restored " + counted(counts.nodes, "node") + " and " +
                 counted(counts.links, "link") + "\n");
  }
  JsonValue value;
  value.set("nodes", counts.nodes);
  value.set("links", counts.links);
  print_value(value, form);
}

}  // namespace qimctl
