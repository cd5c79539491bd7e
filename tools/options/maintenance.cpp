// Commands for the database as a whole.
#include "tools/commands/check.h"
#include "tools/commands/compact.h"
#include "tools/commands/dump.h"
#include "tools/options/commands.h"

namespace qimctl {

void add_maintenance(Commands& commands) {
  CLI::App* check =
      commands.add("check", "Verify the database's file and look for defects of the policy");
  commands.on(check, [&commands] {
    const Database database(commands.database(), OpenMode::read);
    return check_database(database, commands.json()) ? exit_ok : exit_defects;
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
