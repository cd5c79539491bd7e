// `qimctl backup`: a copy of the database, made while it is in use.
#include "tools/commands/backup.h"

#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "rov_edit.h"
#include "tools/base/output.h"

namespace qimctl {

void back_up(const Database& database, const std::string& directory, bool replace,
             OutputForm form) {
  rov_verify_t made;
  require(rov_edit_backup(database.read_handle(), directory.c_str(),
                          replace ? uint32_t{ROV_BACKUP_REPLACE} : 0, &made),
          "back up the database in " + database.directory() + " to " + directory);
  if (!is_text(form)) {
    JsonValue value;
    value.set("backup", directory);
    value.set("revision", made.revision);
    value.set("nodes", made.nodes);
    value.set("bytes", made.bytes);
    return print_value(value, form);
  }
  print("backed up revision " + std::to_string(made.revision) + ", " + counted(made.nodes, "node") +
        ", to " + printable(directory) + "\n");
}

}  // namespace qimctl
