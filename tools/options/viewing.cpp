// Commands that show policies as people think of them, and explain them.
#include "tools/commands/explain.h"
#include "tools/options/commands.h"

namespace qimctl {

namespace {

void add_explain(Commands& commands) {
  const auto word = std::make_shared<std::string>();
  CLI::App* command =
      commands.add("explain", "Say what a node type, field, link, criterion, action or status is");
  command->add_option("WORD", *word, "A name or a number")->required()->type_name("");
  commands.on(command, [&commands, word] {
    return explain_word(*word, commands.json()) ? exit_ok : exit_not_found;
  });
}

}  // namespace

void add_viewing(Commands& commands) {
  add_explain(commands);
}

}  // namespace qimctl
