// Commands to the kernel's packet filter, and what it answers.
#include "processes/enforce/filter.h"

#include <nftables/libnftables.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "policy/base/text.h"

namespace enforce {

namespace {

constexpr size_t longest_message = 400;

// What the library says in several lines, as one.
std::string one_line(const std::string& text) {
  std::string line;
  for (const char c : text) {
    if (c != '\n') {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  return qimctl::harmless(line.substr(0, longest_message));
}

// In the process of its own: what went wrong goes to `answer`.
[[noreturn]] void run_and_end(const std::string& commands, int answer) {
  nft_ctx* context = nft_ctx_new(NFT_CTX_DEFAULT);
  if (context == nullptr) _exit(1);
  nft_ctx_output_set_flags(context, NFT_CTX_OUTPUT_JSON);
  nft_ctx_buffer_error(context);
  if (nft_run_cmd_from_buffer(context, commands.c_str()) == 0) _exit(0);
  const char* error = nft_ctx_get_error_buffer(context);
  const size_t length = std::min(strlen(error), longest_message);
  _exit(write(answer, error, length) >= 0 ? 1 : 2);
}

std::string read_all(int from) {
  std::string text;
  std::array<char, 1024> piece;
  ssize_t count = 0;
  while ((count = read(from, piece.data(), piece.size())) > 0 || (count < 0 && errno == EINTR))
    text.append(piece.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
  return text;
}

}  // namespace

void run_commands(const std::string& commands) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw FilterError(std::string("no pipe: ") + strerror(errno));
  const pid_t child = fork();
  if (child == 0) run_and_end(commands, ends[1]);
  const int error = errno;
  close(ends[1]);
  const std::string said = read_all(ends[0]);
  close(ends[0]);
  if (child < 0) throw FilterError(std::string("no process: ") + strerror(error));
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (WIFSIGNALED(status))
    throw FilterError("libnftables ended its process with signal " +
                      std::to_string(WTERMSIG(status)));
  if (WEXITSTATUS(status) != 0) throw FilterError(one_line(said));
}

}  // namespace enforce
