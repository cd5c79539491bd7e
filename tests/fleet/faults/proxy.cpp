#include "tests/fleet/faults/proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fleet_test {

namespace {

constexpr int longest_wait = 20;  // milliseconds
constexpr size_t most_bytes = 65536;
// Of so many pieces that are long enough to carry values one is changed.
constexpr uint32_t honest_pieces = 4;
constexpr ssize_t least_lie = 200;

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool send_all(int to, const char* bytes, ssize_t count) {
  while (count > 0) {
    const ssize_t sent = send(to, bytes, static_cast<size_t>(count), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    count -= sent;
  }
  return true;
}

int port_in(const std::string& address) {
  const size_t colon = address.rfind(':');
  return colon == std::string::npos ? 0 : std::stoi(address.substr(colon + 1), nullptr, 16);
}

// What /proc/<pid>/fd calls the end of a connection that has port `from`; "" when there is none.
std::string socket_name(int from, int to) {
  std::ifstream table("/proc/net/tcp");
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::string number, local, remote, skipped, inode;
    words >> number >> local >> remote;
    if (port_in(local) != from || port_in(remote) != to) continue;
    for (int n = 0; n < 6; n++) words >> skipped;
    words >> inode;
    return "socket:[" + inode + "]";
  }
  return "";
}

bool has_open(pid_t pid, const std::string& name) {
  namespace fs = std::filesystem;
  std::error_code gone;
  for (const auto& file : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", gone)) {
    if (fs::read_symlink(file.path(), gone) == name) return true;
  }
  return false;
}

void send_at_once(int socket) {
  const int is = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &is, sizeof is);
}

}  // namespace

struct Proxy::Line {
  int caller = -1;
  int target = -1;
  int from = 0;           // the caller's port
  uint64_t looked = 0;    // when it was looked at who that is
  bool is_apart = false;  // of those who are parted
};

Proxy::Proxy(const std::string& target)
    : target_port_(std::stoi(target.substr(target.rfind(':') + 1))), bytes_(most_bytes) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(listener_, 256) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("cannot listen");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { run(); });
}

Proxy::~Proxy() {
  over_ = true;
  thread_.join();
  close(listener_);
}

void Proxy::part(const std::vector<pid_t>& callers, bool silently) {
  const std::lock_guard lock(mutex_);
  parted_ = {callers, silently, parted_.count + 1};
}

Proxy::Parted Proxy::parted() const {
  const std::lock_guard lock(mutex_);
  return parted_;
}

bool Proxy::pass(const Line& line, int from, bool may_lie) {
  const ssize_t count = recv(from, bytes_.data(), bytes_.size(), 0);
  if (count <= 0) return false;
  if (may_lie && lies_ && count >= least_lie && ++pieces_ % honest_pieces == 0) {
    char& byte = bytes_[static_cast<size_t>(count) - 60];
    byte = static_cast<char>(byte ^ 4);
    told_++;
  }
  return send_all(from == line.caller ? line.target : line.caller, bytes_.data(), count);
}

// Does the line go on?
bool Proxy::serve(Line& line, const Parted& parted, short caller, short target) {
  if (cut_) return false;
  if (line.looked != parted.count) {
    line.looked = parted.count;
    const std::string name = parted.callers.empty() ? "" : socket_name(line.from, port_);
    line.is_apart = !name.empty() && std::any_of(parted.callers.begin(), parted.callers.end(),
                                                 [&](pid_t pid) { return has_open(pid, name); });
  }
  if (line.is_apart) return parted.silently;
  return (caller == 0 || pass(line, line.caller, false)) &&
         (target == 0 || pass(line, line.target, true));
}

void Proxy::take_in(std::vector<Line>& lines) const {
  Line line;
  sockaddr_in caller{};
  socklen_t length = sizeof caller;
  line.caller = accept4(listener_, reinterpret_cast<sockaddr*>(&caller), &length, SOCK_CLOEXEC);
  line.target = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  line.from = ntohs(caller.sin_port);
  send_at_once(line.caller);
  send_at_once(line.target);
  const sockaddr_in address = loopback(target_port_);
  if (!cut_ &&
      connect(line.target, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    lines.push_back(line);
    return;
  }
  close(line.caller);
  close(line.target);
}

void Proxy::run() {
  std::vector<Line> lines;
  while (!over_) {
    const Parted before = parted();
    std::vector<pollfd> waiting{{listener_, POLLIN, 0}};
    for (const Line& line : lines) {
      // What nobody reads now would be there at once each time.
      const bool waits = line.is_apart && line.looked == before.count;
      waiting.push_back({waits ? -1 : line.caller, POLLIN, 0});
      waiting.push_back({waits ? -1 : line.target, POLLIN, 0});
    }
    poll(waiting.data(), waiting.size(), longest_wait);
    const Parted now = parted();
    std::vector<Line> kept;
    for (size_t n = 0; n < lines.size(); n++) {
      if (serve(lines[n], now, waiting[2 * n + 1].revents, waiting[2 * n + 2].revents)) {
        kept.push_back(lines[n]);
        continue;
      }
      close(lines[n].caller);
      close(lines[n].target);
    }
    lines = std::move(kept);
    if (waiting[0].revents != 0) take_in(lines);
  }
  for (const Line& line : lines) {
    close(line.caller);
    close(line.target);
  }
}

}  // namespace fleet_test
