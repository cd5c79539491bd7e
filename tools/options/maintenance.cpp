// Commands for the database as a whole.
#include "tools/base/usage.h"
#include "tools/commands/backup.h"
#include "tools/commands/check.h"
#include "tools/commands/compact.h"
#include "tools/commands/dump.h"
#include "tools/commands/fleet.h"
#include "tools/options/commands.h"
#include "tools/options/files.h"

namespace qimctl {

namespace {

bool run_check(const Commands& commands, const std::string& snapshot, const FileOptions& files,
               const CheckOptions& options) {
  if (files.files.empty())
    return check_database(Database(commands.database(), OpenMode::read, snapshot), options);
  if (!snapshot.empty())
    throw UsageError("files are looked at alone, without the database; leave --at out");
  return check_files(files, options);
}

void add_check(Commands& commands) {
  struct Given {
    CheckOptions options;
    FileOptions files;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* check = commands.add(
      "check", "Verify the database's file and look for defects and oddities of the policy");
  check->add_flag("--strict", given->options.strict, "Entries that do nothing are defects, too");
  check->add_flag("-v,--verbose", given->options.verbose, "List entries that are in conflict, too");
  add_file_options(check, given->files.format, given->files.reading);
  check->add_option("FILE", given->files.files, "Look at these files' access lists alone")
      ->type_name("");
  commands.open(check, [&commands, given](const std::string& snapshot) {
    given->options.form = commands.form();
    const bool good = run_check(commands, snapshot, given->files, given->options);
    return good ? exit_ok : exit_defects;
  });
}

void add_backup(Commands& commands) {
  struct Given {
    std::string directory;
    bool replace = false;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* backup = commands.add(
      "backup", "Copy the database, verified, to another directory while it is in use");
  backup->add_flag("--force", given->replace, "Replace the database that is there");
  backup->add_option("DIR", given->directory, "The directory to make")->required()->type_name("");
  commands.ask(backup, [&commands, given](const Database& database, const ReadSession&) {
    back_up(database, given->directory, given->replace, commands.form());
  });
}

// What stands behind it is read by the program that it runs.
void add_fleet(Commands& commands) {
  CLI::App* fleet =
      commands.add("fleet", "Keep one policy on many devices: 'qimctl fleet --help' says more");
  fleet->prefix_command();
  fleet->fallthrough(false);
  fleet->set_help_flag();
  commands.on(fleet, [fleet] {
    run_fleet(fleet->remaining());
    return exit_ok;
  });
}

}  // namespace

void add_maintenance(Commands& commands) {
  add_check(commands);
  CLI::App* dump = commands.add("dump", "Print the whole database in the native format");
  commands.ask(dump, [&commands](const Database& database, const ReadSession&) {
    commands.require_file_form();
    dump_database(database);
  });
  add_backup(commands);
  CLI::App* compact = commands.add("compact", "Make the database's file as small as it can be");
  commands.on(compact, [&commands] {
    compact_database(commands.database(), commands.form());
    return exit_ok;
  });
  add_fleet(commands);
}

}  // namespace qimctl
