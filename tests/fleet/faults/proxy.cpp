#include "tests/fleet/faults/proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

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

}  // namespace

struct Proxy::Line {
  int agent = -1;
  int member = -1;
};

Proxy::Proxy(const std::string& target)
    : target_port_(std::stoi(target.substr(target.rfind(':') + 1))) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      listen(listener_, 64) != 0 ||
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

void Proxy::run() {
  std::vector<Line> lines;
  std::vector<char> bytes(most_bytes);
  uint32_t pieces = 0;
  const auto end = [](const Line& line) {
    close(line.agent);
    close(line.member);
  };
  const auto pass = [&](int from, int to, bool may_lie) {
    const ssize_t count = recv(from, bytes.data(), bytes.size(), 0);
    if (count <= 0) return false;
    if (may_lie && lies_ && count >= least_lie && ++pieces % honest_pieces == 0) {
      char& byte = bytes[static_cast<size_t>(count) - 60];
      byte = static_cast<char>(byte ^ 4);
      told_++;
    }
    return send_all(to, bytes.data(), count);
  };
  while (!over_) {
    std::vector<pollfd> waiting{{listener_, POLLIN, 0}};
    for (const Line& line : lines) {
      waiting.push_back({line.agent, POLLIN, 0});
      waiting.push_back({line.member, POLLIN, 0});
    }
    poll(waiting.data(), waiting.size(), longest_wait);
    std::vector<Line> kept;
    for (size_t n = 0; n < lines.size(); n++) {
      const Line& line = lines[n];
      bool good = !cut_;
      if (good && waiting[2 * n + 1].revents != 0) good = pass(line.agent, line.member, false);
      if (good && waiting[2 * n + 2].revents != 0) good = pass(line.member, line.agent, true);
      if (good) kept.push_back(line);
      if (!good) end(line);
    }
    lines = std::move(kept);
    if (waiting[0].revents == 0) continue;
    Line line{accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC),
              socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in address = loopback(target_port_);
    const bool good = !cut_ && connect(line.member, reinterpret_cast<const sockaddr*>(&address),
                                       sizeof address) == 0;
    if (good) lines.push_back(line);
    if (!good) end(line);
  }
  for (const Line& line : lines) end(line);
}

}  // namespace fleet_test
