// Files that are read and written whole.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace qim::fleet {

// A regular file of at most `most` bytes. Throws ConfigError.
std::string read_file(const std::string& file, size_t most);
// The same of one that holds a secret: nobody but its owner, and who runs this, may read it.
std::string read_secret_file(const std::string& file, size_t most);
// Is there anything of that name?
[[nodiscard]] bool file_exists(const std::string& file);

// Puts a file in the place of an older one at once: whoever reads it, also after a loss of power, finds
// one or the other whole. Throws Error.
void write_file(const std::string& file, std::string_view bytes, mode_t mode);

// The text's lines without their ends, and without blanks around them.
std::vector<std::string> lines_of(std::string_view text);

}  // namespace qim::fleet
