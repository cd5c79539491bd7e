// Lines for the journal, or for a terminal.
#pragma once

#include <string>

namespace process {

enum class Level { error = 3, warning = 4, notice = 5, info = 6 };

// Writes a line of a process to standard error. Where that is no terminal the level stands in front, as the
// journal takes it. The text is made harmless.
void say(const char* process, Level level, const std::string& text);

}  // namespace process
