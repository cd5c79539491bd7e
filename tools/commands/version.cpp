// `qimctl --version`: what this is, and what it works with.
#include "tools/commands/version.h"

#include "rov.h"
#include "rov_edit.h"
#include "tools/base/output.h"

namespace qimctl {

const char* tool_version() {
  return QIM_TOOL_VERSION;
}

void print_version(OutputForm form) {
  if (is_text(form)) {
    std::string text = "qimctl " QIM_TOOL_VERSION "\nlibrary interface ";
    text += std::to_string(ROV_VERSION) + "\ndatabase format ";
    print(text + std::to_string(ROV_FORMAT) + "\n");
    return;
  }
  JsonValue value;
  value.set("tool", QIM_TOOL_VERSION);
  value.set("library_interface", uint32_t{ROV_VERSION});
  value.set("database_format", uint32_t{ROV_FORMAT});
  print_value(value, form);
}

}  // namespace qimctl
