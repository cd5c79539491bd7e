// Commands that write policy files.
#include "tools/commands/export.h"
#include "tools/options/commands.h"
#include "tools/options/files.h"

namespace qimctl {

namespace {

ExitCode run_export(const Commands& commands, const std::string& snapshot,
                    const ExportOptions& options) {
  commands.require_file_form();
  const Database database(commands.database(), OpenMode::read, snapshot);
  ReadSession session(database);
  switch (export_lists(session, options)) {
    case Exported::nothing_known:
      return exit_not_found;
    case Exported::lossy:
      return exit_lossy;
    default:
      return exit_ok;
  }
}

}  // namespace

void add_exporting(Commands& commands) {
  const auto options = std::make_shared<ExportOptions>();
  CLI::App* command = commands.add("export", "Print access lists as a file that 'import' takes");
  add_written_format(command, options->format);
  command->add_flag("--lossy", options->lossy, "Print although the format can't say everything");
  command->add_option("NAME", options->names, "Access lists; all when none is given")
      ->type_name("");
  commands.open(command, [&commands, options](const std::string& snapshot) {
    return run_export(commands, snapshot, *options);
  });
}

}  // namespace qimctl
