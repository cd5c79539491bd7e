// Criteria of values as many formats spell them, and what several of them come to together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/criteria_codes.h"
#include "policy/model/model.h"

namespace qimctl::formats {

inline constexpr uint32_t code_ingress_interface = QIM_CRIT_INGRESS_INTERFACE;
inline constexpr uint32_t code_egress_interface = QIM_CRIT_EGRESS_INTERFACE;
inline constexpr uint32_t code_eth_destination = QIM_CRIT_ETH_DESTINATION;
inline constexpr uint32_t code_eth_source = QIM_CRIT_ETH_SOURCE;
inline constexpr uint32_t code_ethertype = QIM_CRIT_ETH_ETHERTYPE;
inline constexpr uint32_t code_tcp_flags = QIM_CRIT_TCP_FLAGS;
inline constexpr uint32_t code_icmp_type = QIM_CRIT_ICMP_TYPE;
inline constexpr uint32_t code_icmp_code = QIM_CRIT_ICMP_CODE;

inline constexpr uint32_t protocol_icmp = 1;
inline constexpr uint32_t protocol_tcp = 6;
inline constexpr uint32_t protocol_udp = 17;
inline constexpr uint32_t protocol_icmp6 = 58;

// Types of criteria that IPv4 and IPv6 both have.
struct IpCodes {
  uint32_t header, dscp, length, ttl, protocol, destination, source;
};
inline constexpr IpCodes ipv4_codes{
    QIM_CRIT_IPV4,          QIM_CRIT_IPV4_DSCP,        QIM_CRIT_IPV4_LENGTH, QIM_CRIT_IPV4_TTL,
    QIM_CRIT_IPV4_PROTOCOL, QIM_CRIT_IPV4_DESTINATION, QIM_CRIT_IPV4_SOURCE};
inline constexpr IpCodes ipv6_codes{
    QIM_CRIT_IPV6,          QIM_CRIT_IPV6_DSCP,        QIM_CRIT_IPV6_LENGTH, QIM_CRIT_IPV6_TTL,
    QIM_CRIT_IPV6_PROTOCOL, QIM_CRIT_IPV6_DESTINATION, QIM_CRIT_IPV6_SOURCE};

// The same of TCP and UDP.
struct PortCodes {
  uint32_t source, destination;
};
inline constexpr PortCodes tcp_codes{QIM_CRIT_TCP_SOURCE, QIM_CRIT_TCP_DESTINATION};
inline constexpr PortCodes udp_codes{QIM_CRIT_UDP_SOURCE, QIM_CRIT_UDP_DESTINATION};

// A whole text in decimal or, behind 0x, hexadecimal digits, up to `max`.
std::optional<uint32_t> parse_value(std::string_view text, uint32_t max);
// The same in decimal digits alone.
std::optional<uint32_t> parse_decimal(std::string_view text, uint32_t max);

// "192.0.2.0/24", "2001:db8::1"; an address alone is a single one. Bits behind the length are
// cleared.
std::optional<std::vector<uint8_t>> parse_prefix(std::string_view text, bool is_ipv6);

// "00:00:5e:00:53:01" as 6 bytes.
std::optional<std::vector<uint8_t>> parse_mac(std::string_view text);

struct PortRange {
  uint32_t first = 0;
  uint32_t last = 0;
};
// "80", or two numbers with `separator` between them, the first not above the second.
std::optional<PortRange> parse_ports(std::string_view text, std::string_view separator);

Criterion number_criterion(uint32_t type, uint32_t value, size_t width);
Criterion ports_criterion(uint32_t type, const PortRange& ports);
// Address bits that the mask does not look at are cleared.
Criterion mac_criterion(uint32_t type, const std::vector<uint8_t>& address,
                        const std::vector<uint8_t>& mask);

// A match that only those decide who know the module, carried whole. Nothing when it has no room in a
// criterion.
std::optional<Criterion> whole_match(const std::string& module, const std::string& name,
                                     const std::string& canonical_json);
// What is said of it.
std::string carried_whole(const std::string& what, const std::string& module);

// What a packet must be like that meets several criteria.
enum class Meeting {
  some,  // there may be one
  none,  // there is none
  open   // can't be said in one criterion of each type
};
// Adds `also`, unless there can be no such packet or it can't be said. Criteria are in order
// afterwards.
Meeting meet(std::vector<Criterion>& criteria, const Criterion& also);

// An entry of each combination of alternatives: one of each choice, each beside what the entry asks
// for. Those that no packet meets are left out. Nothing when a combination can't be said, or there are
// more than `max_alternatives`.
using Choice = std::vector<std::vector<Criterion>>;
inline constexpr size_t max_alternatives = 1024;
std::optional<std::vector<Entry>> expand(const Entry& entry, const std::vector<Choice>& choices);

// A name that is not among `known`, and that every format can have: a longer one is cut, and a number
// put behind one that is taken. It is among them then.
inline constexpr size_t longest_name = 64;  // characters
std::string unique_name(const std::string& wanted, std::set<std::string>& known);

// AclType bits of the headers that entries match on.
uint32_t headers_of(const std::vector<Entry>& entries);
// The same as a type that a list can have: IPv4 beside IPv6 has one with Ethernet alone.
uint32_t type_with(uint32_t bits);

}  // namespace qimctl::formats
