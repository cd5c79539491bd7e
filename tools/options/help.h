// Help in this tool's words: the parser's own are never shown.
#pragma once

#include <CLI/CLI.hpp>

namespace qimctl {

// To be called before options and commands are added, which inherit it.
void use_own_words(CLI::App& app);

}  // namespace qimctl
