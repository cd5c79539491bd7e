// Commands that change access lists, and say what a change would be.
#include "tools/commands/apply.h"
#include "tools/options/commands.h"
#include "tools/options/files.h"

namespace qimctl {

namespace {

void add_apply(Commands& commands) {
  const auto options = std::make_shared<ApplyOptions>();
  CLI::App* command =
      commands.add("apply", "Make the database hold what policy files say, all or nothing");
  add_file_options(command, options->input.format, options->input.reading);
  command->add_flag("--prune", options->prune, "Delete the access lists that no file names");
  command->add_flag("--dry-run", options->dry_run, "Say what would be done, and do nothing");
  command->add_flag("--lossy", options->lossy,
                    "Apply although something is approximated or skipped");
  command->add_flag("-v,--verbose", options->verbose, "List what was accepted, too");
  command->add_option("FILE", options->input.files, "Policy files")->required()->type_name("");
  commands.on(command, [&commands, options] {
    options->database = commands.database();
    options->json = commands.json();
    return apply_files(*options);
  });
}

}  // namespace

void add_lists(Commands& commands) {
  add_apply(commands);
}

}  // namespace qimctl
