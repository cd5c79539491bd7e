// What a packet's headers imply, and its addresses as text.
#include "policy/trace/packet.h"

#include <arpa/inet.h>

#include <algorithm>

#include "policy/base/names.h"

namespace qimctl {

namespace {

constexpr std::array networks{Header::ipv4, Header::ipv6};
constexpr std::array transports{Header::tcp, Header::udp, Header::icmp};

}  // namespace

void Packet::set_network(Header header) {
  for (const Header each : networks) set_header(each, each == header ? Truth::yes : Truth::no);
}

void Packet::set_transport(Header header) {
  for (const Header each : transports) set_header(each, each == header ? Truth::yes : Truth::no);
}

void Packet::set_no_network() {
  for (const Header each : networks) set_header(each, Truth::no);
  set_no_transport();
}

void Packet::set_no_transport() {
  for (const Header each : transports) set_header(each, Truth::no);
}

std::optional<Header> transport_of(Header network, uint64_t protocol) {
  if (protocol == protocol_tcp) return Header::tcp;
  if (protocol == protocol_udp) return Header::udp;
  if (protocol == (network == Header::ipv4 ? protocol_icmp : protocol_icmp6)) return Header::icmp;
  return {};
}

std::string address_text(Header network, const Wide& address) {
  std::array<uint8_t, 16> bytes{};
  for (size_t i = 0; i < 8; i++) {
    bytes[i] = static_cast<uint8_t>(address.high >> (56 - 8 * i));
    bytes[8 + i] = static_cast<uint8_t>(address.low >> (56 - 8 * i));
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  const bool is_ipv4 = network == Header::ipv4;
  inet_ntop(is_ipv4 ? AF_INET : AF_INET6, bytes.data() + (is_ipv4 ? 12 : 0), text.data(),
            text.size());
  return text.data();
}

std::string mac_text(uint64_t mac) {
  std::string text;
  for (uint32_t i = 0; i < 6; i++) {
    const auto byte = static_cast<uint8_t>(mac >> (40 - 8 * i));
    text += (i == 0 ? "" : ":") + hex_bytes(&byte, 1);
  }
  return text;
}

}  // namespace qimctl
