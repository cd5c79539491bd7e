// Lines, datagrams and metrics.
#include "processes/qimd/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "policy/base/text.h"

namespace qimd {

using qim::fleet::LogLevel;

void say(LogLevel level, const std::string& text) {
  std::string line;
  if (isatty(STDERR_FILENO) == 0) line = '<' + std::to_string(static_cast<int>(level)) + '>';
  line += "qimd: " + qimctl::harmless(text) + '\n';
  size_t written = 0;
  while (written < line.size()) {
    const ssize_t count = write(STDERR_FILENO, line.data() + written, line.size() - written);
    if (count <= 0) return;
    written += static_cast<size_t>(count);
  }
}

void notify(const std::string& state) {
  const char* path = getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const size_t length = path == nullptr ? 0 : strlen(path);
  if (length < 2 || length >= sizeof address.sun_path) return;
  memcpy(address.sun_path, path, length);
  // A name of the abstract kind is written with an '@'.
  if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  // Nobody may be listening any more.
  static_cast<void>(sendto(socket, state.data(), state.size(), MSG_NOSIGNAL,
                           reinterpret_cast<const sockaddr*>(&address), size));
  close(socket);
}

std::chrono::milliseconds watchdog_time() {
  const char* text = getenv("WATCHDOG_USEC");
  return std::chrono::milliseconds(text == nullptr ? 0 : strtoll(text, nullptr, 10) / 1000);
}

std::string metrics_text(const qim::fleet::Machine& machine,
                         const qim::fleet::AgentCounts& counts) {
  std::string text;
  const auto add = [&text](const char* name, const char* type, const char* help, uint64_t value) {
    const std::string full = std::string("qimd_") + name;
    text += "# HELP " + full + " " + help + "\n# TYPE " + full + " " + type + "\n" + full + " " +
            std::to_string(value) + "\n";
  };
  add("revision", "gauge", "Revision that the database holds.", machine.held().number);
  add("wanted_revision", "gauge", "Revision that it should hold.", machine.wanted());
  add("refused_revision", "gauge", "Revision that was refused last, 0 = none.",
      machine.memory().refused.number);
  add("in_contact", "gauge", "Whether the store can be reached.", machine.in_contact() ? 1 : 0);
  add("drifted", "gauge", "Whether somebody else changed the database.",
      machine.drift().empty() ? 0 : 1);
  add("taken_total", "counter", "Revisions that were taken.", counts.taken);
  add("refused_total", "counter", "Revisions that were refused.", counts.refused);
  add("store_failures_total", "counter", "Calls of the store that failed.", counts.failures);
  add("forged_total", "counter", "Answers that were damaged or forged.", counts.forged);
  add("reports_total", "counter", "Reports that the store took.", counts.reports);
  return text;
}

}  // namespace qimd
