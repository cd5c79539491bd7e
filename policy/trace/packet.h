// A packet as access lists ask about it: which headers it has, what their fields hold, and what of
// both is not known.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/criteria_codes.h"
#include "policy/trace/wide.h"

namespace qimctl {

enum class Truth : uint8_t { no, yes, unknown };

// The fields that hold numbers. Those that IPv4 and IPv6 have in common stand for both.
enum class Field : uint8_t {
  destination_mac,
  source_mac,
  ethertype,  // what follows the addresses: of a tagged frame that of the first tag
  dscp,
  ecn,
  length,    // IPv4: of the whole packet; IPv6: of what follows the header
  ttl,       // or hop limit
  protocol,  // of the payload, behind all IPv6 extension headers
  ihl,       // in units of 4 bytes
  ip_flags,  // reserved 4, don't fragment 2, more fragments 1
  offset,    // of a fragment, in units of 8 bytes
  identification,
  destination,
  source,
  flow_label,
  sequence,
  acknowledgement,
  data_offset,  // in units of 4 bytes
  reserved,
  tcp_flags,
  window,
  urgent,
  source_port,  // TCP or UDP
  destination_port,
  udp_length,
  icmp_type,
  icmp_code,
};
inline constexpr size_t field_count = static_cast<size_t>(Field::icmp_code) + 1;

class Packet {
 public:
  // The interfaces by which it comes and leaves, "" = not known.
  std::string ingress;
  std::string egress;
  // The identifiers of its Ethernet tags, the outermost first. No criterion asks for them.
  std::vector<uint16_t> vlans;
  // Nothing when not known.
  std::optional<std::vector<uint8_t>> tcp_options;
  std::optional<std::vector<uint8_t>> icmp_rest;  // what follows the checksum

  // Not known unless said. IPv4 and IPv6 exclude each other, so do TCP, UDP and ICMP.
  Truth has(Header header) const { return headers_[index(header)]; }
  void set_header(Header header, Truth truth) { headers_[index(header)] = truth; }
  // The packet has this one, and none that it excludes.
  void set_network(Header header);
  void set_transport(Header header);
  void set_no_network();  // and so no transport
  void set_no_transport();

  bool knows(Field field) const { return (known_ >> static_cast<uint32_t>(field) & 1) != 0; }
  const Wide& value(Field field) const { return values_[static_cast<size_t>(field)]; }
  uint64_t number(Field field) const { return value(field).low; }
  void set(Field field, Wide value) {
    values_[static_cast<size_t>(field)] = value;
    known_ |= 1u << static_cast<uint32_t>(field);
  }
  void set(Field field, uint64_t number) { set(field, Wide{0, number}); }

 private:
  static size_t index(Header header) { return (static_cast<uint32_t>(header) >> 8) - 1; }

  std::array<Truth, 7> headers_{Truth::unknown, Truth::unknown, Truth::unknown, Truth::unknown,
                                Truth::unknown, Truth::unknown, Truth::unknown};
  uint32_t known_ = 0;
  std::array<Wide, field_count> values_{};
};

// Numbers that the headers carry.
inline constexpr uint16_t ethertype_ipv4 = 0x0800;
inline constexpr uint16_t ethertype_arp = 0x0806;
inline constexpr uint16_t ethertype_vlan = 0x8100;
inline constexpr uint16_t ethertype_provider_vlan = 0x88a8;
inline constexpr uint16_t ethertype_ipv6 = 0x86dd;
inline constexpr uint8_t protocol_icmp = 1;
inline constexpr uint8_t protocol_tcp = 6;
inline constexpr uint8_t protocol_udp = 17;
inline constexpr uint8_t protocol_icmp6 = 58;
inline constexpr uint8_t ip_more_fragments = 1;
inline constexpr uint8_t ip_dont_fragment = 2;

// The header that a payload of this protocol begins with; nothing when none of the transports is it.
std::optional<Header> transport_of(Header network, uint64_t protocol);

// "192.0.2.1", "2001:db8::1", "00:00:5e:00:53:01"
std::string address_text(Header network, const Wide& address);
std::string mac_text(uint64_t mac);

}  // namespace qimctl
