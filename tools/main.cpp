// The program: sees to its standard streams and runs the command line.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "tools/cli.h"

namespace {

// A standard stream that is closed would be the first file that is opened, and what is printed would
// go there. What takes its place can't be used.
void keep_files_from_standard_streams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; stream++) {
    if (fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) _exit(126);
  }
}

}  // namespace

int main(int argc, char** argv) {
  keep_files_from_standard_streams();
  // A file that may not grow any more is a failure with a message.
  signal(SIGXFSZ, SIG_IGN);
  return qimctl::run(argc, argv);
}
