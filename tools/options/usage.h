// What is wrong with a command line, in this tool's words: the parser's are never shown.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace qimctl {

// The command that a command line came to, the parser itself when it came to none.
const CLI::App& named_command(const CLI::App& app);
// "list", "priv get"; "" of the parser itself.
std::string command_name(const CLI::App& command);

// What `error` says of what `app` was given, and what to do.
std::string usage_text(const CLI::App& app, const CLI::ParseError& error);

// The help of a command.
std::string help_of(const CLI::App& command);
// That of the command of these words, that of the whole tool for none. Throws UsageError.
std::string help_text(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace qimctl
