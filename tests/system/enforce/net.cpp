// Namespaces and raw sockets.
#include "tests/system/enforce/net.h"

#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tests/support/pace.h"

namespace net {

namespace {

// Nothing that the kernel would send by itself: no addresses, no neighbours.
constexpr const char* set_up =
    "set -e; sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1 || "
    "true; "
    "ip link add near mtu 9000 type veth peer name far mtu 9000; "
    "ip link set near arp off up; ip link set far arp off up; ip link set lo up";

uint16_t network_order(uint16_t number) {
  return static_cast<uint16_t>(number << 8 | number >> 8);
}

// A socket of an interface, for frames of that type.
int packet_socket(const std::string& interface, uint16_t type) {
  const int made = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  address.sll_protocol = network_order(type);
  if (address.sll_ifindex != 0 &&
      bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return made;
  close(made);
  return -1;
}

bool put_text(const char* file, const std::string& text) {
  const int descriptor = open(file, O_WRONLY | O_CLOEXEC);
  const ssize_t written = descriptor < 0 ? -1 : write(descriptor, text.data(), text.size());
  close(descriptor);
  return written == static_cast<ssize_t>(text.size());
}

// Who is not root may be that in a namespace of users of his own, where the system has any.
bool enter_as_own_root() {
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && put_text("/proc/self/setgroups", "deny") &&
         put_text("/proc/self/uid_map", "0 " + user + " 1") &&
         put_text("/proc/self/gid_map", "0 " + group + " 1");
}

}  // namespace

bool shell(const std::string& command) {
  return system(("{ " + command + "; } >/dev/null 2>&1").c_str()) == 0;
}

std::string enter() {
  if (unshare(CLONE_NEWNET) != 0 && !enter_as_own_root())
    return std::string("no network namespace can be made here: ") + strerror(errno);
  if (!shell("command -v ip && command -v nft")) return "ip or nft is missing";
  if (!shell(set_up)) return "no pair of interfaces can be made here";
  if (!shell("nft add table netdev probe && nft delete table netdev probe"))
    return "the packet filter can't be used here";
  return "";
}

const std::string& obstacle() {
  static const std::string found = enter();
  return found;
}

uint32_t times(uint32_t few, uint32_t all) {
  if (getenv("QIM_SOAK") != nullptr) return all;
  return pace::kSanitized || getenv("QIM_COUNTED") != nullptr ? few / 5 : few;
}

bool must_run() {
  return getenv("CI") != nullptr;
}

Sender::Sender(const std::string& interface) : socket_(packet_socket(interface, 0)) {}

Sender::~Sender() {
  if (socket_ >= 0) close(socket_);
}

bool Sender::send(std::span<const uint8_t> frame) const {
  const ssize_t sent = ::send(socket_, frame.data(), frame.size(), 0);
  // What the filter drops on its way out is reported as if there had been no room.
  return sent == static_cast<ssize_t>(frame.size()) || errno == ENOBUFS;
}

Receiver::Receiver(const std::string& interface) : socket_(packet_socket(interface, ETH_P_ALL)) {
  const timeval patience{static_cast<time_t>(pace::patience_ms() / 1000), 0};
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

Receiver::~Receiver() {
  if (socket_ >= 0) close(socket_);
}

std::vector<uint8_t> Receiver::next() const {
  for (;;) {
    std::vector<uint8_t> frame(2048);
    sockaddr_ll from{};
    socklen_t length = sizeof from;
    const ssize_t got = recvfrom(socket_, frame.data(), frame.size(), 0,
                                 reinterpret_cast<sockaddr*>(&from), &length);
    if (got < 0) return {};
    if (from.sll_pkttype == PACKET_OUTGOING) continue;
    frame.resize(static_cast<size_t>(got));
    return frame;
  }
}

}  // namespace net
