// Commands that change what the database holds.
#include "policy/base/names.h"
#include "tools/base/output.h"
#include "tools/base/usage.h"
#include "tools/commands/import.h"
#include "tools/commands/priv.h"
#include "tools/commands/restore.h"
#include "tools/nodes/node_names.h"
#include "tools/options/commands.h"
#include "tools/options/files.h"
#include "tools/options/values.h"

namespace qimctl {

namespace {

void add_import(Commands& commands) {
  const auto options = std::make_shared<ImportOptions>();
  CLI::App* command = commands.add("import", "Import policy files, all or nothing");
  add_file_options(command, options->input.format, options->input.reading);
  command->add_flag("--lossy", options->lossy,
                    "Import although something is approximated or skipped");
  command->add_flag("--replace", options->replace, "Replace nodes that are there already");
  command->add_flag("-v,--verbose", options->verbose, "List what was accepted, too");
  add_group(command, options->group);
  command->add_option("FILE", options->input.files, "Policy files")->required()->type_name("");
  commands.on(command, [&commands, options] {
    options->database = commands.database();
    options->form = commands.form();
    options->input.all_lines = options->verbose || !is_text(options->form);
    return import_files(*options) ? exit_ok : exit_lossy;
  });
}

void add_restore(Commands& commands) {
  struct Given {
    std::string file;
    uint32_t group = 0;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* command = commands.add("restore", "Make a database from a dump");
  add_group(command, given->group);
  command->add_option("FILE", given->file, "What 'dump' printed")->required()->type_name("");
  commands.on(command, [&commands, given] {
    const RestoreCounts counts = restore_database(commands.database(), given->file, given->group);
    print_restored(counts, commands.form());
    return exit_ok;
  });
}

struct PrivateData {
  std::string node;
  std::string data;
  bool is_text = false;
};

ExitCode run_priv_set(const Commands& commands, const PrivateData& given) {
  std::optional<std::vector<uint8_t>> bytes = bytes_from_hex(given.data);
  if (given.is_text) bytes.emplace(given.data.begin(), given.data.end());
  if (!bytes) {
    throw UsageError("'" + given.data + "' are no hexadecimal digits; for text give --text");
  }
  const Database database(commands.database(), OpenMode::change);
  const ReadSession session(database);
  set_private(session, find_node(session, given.node), *bytes, commands.form());
  return exit_ok;
}

void add_priv(Commands& commands) {
  CLI::App* command = commands.add("priv", "This tool's private data on a node");
  command->require_subcommand(1);
  const auto given = std::make_shared<PrivateData>();
  CLI::App* get = Commands::add(command, "get", "Show them");
  Commands::add_node(get, given->node);
  commands.ask(get, [&commands, given](const Database&, const ReadSession& session) {
    print_private(session, find_node(session, given->node), commands.form());
  });
  CLI::App* set = Commands::add(command, "set", "Replace them; no data takes them away");
  Commands::add_node(set, given->node);
  set->add_flag("--text", given->is_text, "DATA is text, not hexadecimal digits");
  set->add_option("DATA", given->data, "The data, as hexadecimal digits")->type_name("");
  commands.on(set, [&commands, given] { return run_priv_set(commands, *given); });
}

}  // namespace

void add_changing(Commands& commands) {
  add_import(commands);
  add_restore(commands);
  add_priv(commands);
}

}  // namespace qimctl
