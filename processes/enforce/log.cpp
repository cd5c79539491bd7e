// Writing lines whole.
#include "processes/enforce/log.h"

#include <unistd.h>

#include "policy/base/text.h"

namespace enforce {

void say(Level level, const std::string& text) {
  const bool is_terminal = isatty(STDERR_FILENO) != 0;
  std::string line;
  if (!is_terminal) line = '<' + std::to_string(static_cast<int>(level)) + '>';
  line += "qim-enforce: " + qimctl::harmless(text) + '\n';
  size_t written = 0;
  while (written < line.size()) {
    const ssize_t count = write(STDERR_FILENO, line.data() + written, line.size() - written);
    if (count <= 0) return;
    written += static_cast<size_t>(count);
  }
}

}  // namespace enforce
