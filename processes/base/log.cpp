// Writing lines whole.
#include "processes/base/log.h"

#include <unistd.h>

#include "policy/base/text.h"

namespace process {

void say(const char* process, Level level, const std::string& text) {
  std::string line;
  if (isatty(STDERR_FILENO) == 0) line = '<' + std::to_string(static_cast<int>(level)) + '>';
  line += process;
  line += ": " + qimctl::harmless(text) + '\n';
  size_t written = 0;
  while (written < line.size()) {
    const ssize_t count = write(STDERR_FILENO, line.data() + written, line.size() - written);
    if (count <= 0) return;
    written += static_cast<size_t>(count);
  }
}

}  // namespace process
