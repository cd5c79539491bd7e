#include "tools/commands/maintenance.h"

#include "policy/base/names.h"
#include "rov_edit.h"
#include "tools/base/exit_code.h"
#include "tools/base/output.h"
#include "tools/commands/check.h"
#include "tools/commands/dump.h"

namespace qimctl {

Maintenance::Maintenance(CLI::App& app, const std::string& database, std::function<int()>& action)
    : app_(app), database_(database), action_(action) {
  add_check();
  add_dump();
  add_restore();
  add_compact();
}

void Maintenance::add_check() {
  CLI::App* command =
      app_.add_subcommand("check", "Verify the database's file and look for defects of the policy");
  command->add_flag("--json", json_, "Print JSON");
  command->callback([this] {
    action_ = [this] {
      const Database database(database_, OpenMode::read);
      return check_database(database, json_) ? int{exit_ok} : int{exit_defects};
    };
  });
}

void Maintenance::add_dump() {
  CLI::App* command = app_.add_subcommand("dump", "Print the whole database in the native format");
  command->callback([this] {
    action_ = [this] {
      const Database database(database_, OpenMode::read);
      dump_database(ReadSession(database));
      return int{exit_ok};
    };
  });
}

void Maintenance::add_restore() {
  CLI::App* command = app_.add_subcommand("restore", "Make a database from a dump");
  command->add_option("FILE", file_, "What 'dump' printed")->required()->type_name("");
  command->callback([this] {
    action_ = [this] {
      const RestoreCounts counts = restore_database(database_, file_);
      print("restored " + counted(counts.nodes, "node") + " and " + counted(counts.links, "link") +
            "\n");
      return int{exit_ok};
    };
  });
}

void Maintenance::add_compact() {
  CLI::App* command =
      app_.add_subcommand("compact", "Make the database's file as small as it can be");
  command->callback([this] {
    action_ = [this] {
      const std::string directory = database_directory(database_);
      uint64_t before = 0;
      uint64_t after = 0;
      require(rov_edit_compact(directory.c_str(), &before, &after),
              "compact the database in " + directory);
      print("compacted " + std::to_string(before) + " to " + counted(after, "byte") + "\n");
      return int{exit_ok};
    };
  });
}

}  // namespace qimctl
