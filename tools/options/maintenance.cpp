// Commands for the database as a whole.
#include "tools/commands/check.h"
#include "tools/commands/compact.h"
#include "tools/commands/dump.h"
#include "tools/options/commands.h"

namespace qimctl {

void add_maintenance(Commands& commands) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* check = commands.add(
      "check", "Verify the database's file and look for defects and oddities of the policy");
  check->add_flag("--strict", options->strict, "Entries that do nothing are defects, too");
  check->add_flag("-v,--verbose", options->verbose, "List entries that are in conflict, too");
  commands.on(check, [&commands, options] {
    const Database database(commands.database(), OpenMode::read);
    options->json = commands.json();
    return check_database(database, *options) ? exit_ok : exit_defects;
  });
  CLI::App* dump = commands.add("dump", "Print the whole database in the native format");
  commands.ask(dump, [](const Database&, const ReadSession& session) { dump_database(session); });
  CLI::App* compact = commands.add("compact", "Make the database's file as small as it can be");
  commands.on(compact, [&commands] {
    compact_database(commands.database(), commands.form());
    return exit_ok;
  });
}

}  // namespace qimctl
