// `qimctl compact`: the database's file, made as small as it can be.
#include "tools/commands/compact.h"

#include "policy/base/names.h"
#include "policy/store/database.h"
#include "rov_edit.h"
#include "tools/base/output.h"

namespace qimctl {

void compact_database(const std::string& given, OutputForm form) {
  const std::string directory = database_directory(given);
  uint64_t before = 0;
  uint64_t after = 0;
  require(rov_edit_compact(directory.c_str(), &before, &after),
          "compact the database in " + directory);
  if (!is_text(form)) {
    JsonValue value;
    value.set("bytes_before", before);
    value.set("bytes", after);
    return print_value(value, form);
  }
  print("compacted " + std::to_string(before) + " to " + counted(after, "byte") + "\n");
}

}  // namespace qimctl
