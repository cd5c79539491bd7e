// What is wrong with a command line.
#include "tools/options/usage.h"

#include "tools/base/suggest.h"
#include "tools/base/usage.h"

namespace qimctl {

namespace {

std::vector<std::string> command_names(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

// Those of a command and of what stands above it.
std::vector<std::string> option_names(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* level = &command; level != nullptr; level = level->get_parent()) {
    for (const CLI::Option* option : level->get_options()) {
      for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
  }
  return names;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// The name of the whole tool.
std::string tool_name(const CLI::App& command) {
  const CLI::App* top = &command;
  while (top->get_parent() != nullptr) top = top->get_parent();
  return top->get_name();
}

// "see 'qimctl help list'"
std::string hint(const CLI::App& command) {
  const std::string name = command_name(command);
  return "see '" + tool_name(command) + " help" + (name.empty() ? "" : " " + name) + "'";
}

// What to do instead of what is unknown.
std::string instead(const std::string& word, const std::vector<std::string>& known,
                    const CLI::App& command) {
  const std::string suggestion = did_you_mean(word, known);
  return suggestion.empty() ? "; " + hint(command) : suggestion;
}

std::string unknown_command(const CLI::App& above, const std::string& word) {
  const std::string name = command_name(above);
  return "there is no command '" + (name.empty() ? "" : name + " ") + word + "'" +
         instead(word, command_names(above), above);
}

std::string surplus_text(const CLI::App& command, const std::string& word) {
  if (word.starts_with("-") && word != "-") {
    const std::string name = word.substr(0, word.find('='));
    return "there is no option '" + name + "'" + instead(name, option_names(command), command);
  }
  if (!command_names(command).empty()) return unknown_command(command, word);
  return "'" + word + "' is one argument too many; " + hint(command);
}

std::string missing_text(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_required() || option->count() != 0) continue;
    return option->get_name() + " is required; " + hint(command);
  }
  return "a command is required: one of " + joined(command_names(command)) + "; " + hint(command);
}

// What the parser writes names the option somewhere. Checks of our own say what they do behind it,
// beginning with the value in quotes.
std::string value_text(const CLI::App& command, const std::string& said) {
  const size_t colon = said.find(": '");
  if (colon != said.npos) return said.substr(colon + 2);
  for (const CLI::App* level = &command; level != nullptr; level = level->get_parent()) {
    for (const CLI::Option* option : level->get_options()) {
      const std::string name = option->get_name();
      if (said.find(name) == said.npos) continue;
      return "what is given for " + name + " (" + option->get_description() +
             ") is no value for it; " + hint(command);
    }
  }
  return "the command line is not understood; " + hint(command);
}

std::string mismatch_text(const CLI::App& command, const std::string& said) {
  const std::string name = said.substr(0, said.find(':'));
  const bool repeated = said.find("received") != said.npos;
  return name + (repeated ? " is given more than once; " : " needs a value; ") + hint(command);
}

// "--engine excludes --json"
std::string relation_text(const CLI::App& command, const std::string& said, const char* verb,
                          const char* words) {
  const size_t at = said.find(verb);
  if (at == said.npos) return "these options do not go together; " + hint(command);
  const std::string first = said.substr(0, at);
  return first + words + said.substr(at + std::string(verb).size()) + "; " + hint(command);
}

}  // namespace

const CLI::App& named_command(const CLI::App& app) {
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return *command;
}

std::string command_name(const CLI::App& command) {
  if (command.get_parent() == nullptr) return "";
  const std::string above = command_name(*command.get_parent());
  return above + (above.empty() ? "" : " ") + command.get_name();
}

std::string help_of(const CLI::App& command) {
  const std::string name = command_name(command);
  // The parser's own call answers for the command that was named.
  const std::string text = command.get_formatter()->make_help(
      &command, tool_name(command) + (name.empty() ? "" : " " + name), CLI::AppFormatMode::Normal);
  return text.ends_with("\n") ? text : text + "\n";
}

std::string usage_text(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = named_command(app);
  const std::string said = error.what();
  const std::vector<std::string> surplus = app.remaining(true);
  const bool missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  const bool misspelt = missing && !surplus.empty() && !command_names(command).empty();
  if (misspelt || dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return surplus_text(command, surplus.front());
  }
  if (missing) return missing_text(command);
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    return mismatch_text(command, said);
  }
  if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) {
    return relation_text(command, said, " excludes ", " can't be given with ");
  }
  if (dynamic_cast<const CLI::RequiresError*>(&error) != nullptr) {
    return relation_text(command, said, " requires ", " needs ");
  }
  return value_text(command, said);
}

std::string help_text(const CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App* command = &app;
  for (const std::string& word : words) {
    const CLI::App* next = nullptr;
    for (const CLI::App* below : command->get_subcommands({})) {
      if (below->get_name() == word) next = below;
    }
    if (next == nullptr) throw UsageError(unknown_command(*command, word));
    command = next;
  }
  return help_of(*command);
}

}  // namespace qimctl
