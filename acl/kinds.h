// The table of criterion types: what every reader and writer of criteria goes by.
#pragma once

#include "qim_acl.h"

namespace qim::acl {

inline constexpr uint32_t kMaxU8 = 0xff;
inline constexpr uint32_t kMaxU16 = 0xffff;
inline constexpr uint32_t kMaxU32 = 0xffffffff;

// But for those of `entry`, the fields, their names and their bounds are those of RFC 8519, sections
// 4.1 and 4.2.
inline constexpr qim_crit_kind_t kKinds[] = {
    {QIM_CRIT_NAME, QIM_LAYOUT_TEXT, 0, 0, "entry.name"},
    {QIM_CRIT_OPAQUE, QIM_LAYOUT_MATCH, 0, 0, "entry.opaque"},

    {QIM_CRIT_INGRESS_INTERFACE, QIM_LAYOUT_INTERFACE, 0, 0, "interface.ingress-interface"},
    {QIM_CRIT_EGRESS_INTERFACE, QIM_LAYOUT_INTERFACE, 0, 0, "interface.egress-interface"},

    {QIM_CRIT_ETH, QIM_LAYOUT_NONE, 0, 0, "eth"},
    {QIM_CRIT_ETH_DESTINATION, QIM_LAYOUT_MAC, 0, 0, "eth.destination-mac-address"},
    {QIM_CRIT_ETH_SOURCE, QIM_LAYOUT_MAC, 0, 0, "eth.source-mac-address"},
    {QIM_CRIT_ETH_ETHERTYPE, QIM_LAYOUT_U16_HEX, 0, kMaxU16, "eth.ethertype"},

    {QIM_CRIT_IPV4, QIM_LAYOUT_NONE, 0, 0, "ipv4"},
    {QIM_CRIT_IPV4_DSCP, QIM_LAYOUT_U8, 0, 63, "ipv4.dscp"},
    {QIM_CRIT_IPV4_ECN, QIM_LAYOUT_U8, 0, 3, "ipv4.ecn"},
    {QIM_CRIT_IPV4_LENGTH, QIM_LAYOUT_U16, 0, kMaxU16, "ipv4.length"},
    {QIM_CRIT_IPV4_TTL, QIM_LAYOUT_U8, 0, kMaxU8, "ipv4.ttl"},
    {QIM_CRIT_IPV4_PROTOCOL, QIM_LAYOUT_U8, 0, kMaxU8, "ipv4.protocol"},
    {QIM_CRIT_IPV4_IHL, QIM_LAYOUT_U8, 5, 60, "ipv4.ihl"},
    {QIM_CRIT_IPV4_FLAGS, QIM_LAYOUT_IPV4_FLAGS, 0, 0, "ipv4.flags"},
    {QIM_CRIT_IPV4_OFFSET, QIM_LAYOUT_U16, 20, kMaxU16, "ipv4.offset"},
    {QIM_CRIT_IPV4_IDENTIFICATION, QIM_LAYOUT_U16, 0, kMaxU16, "ipv4.identification"},
    {QIM_CRIT_IPV4_DESTINATION, QIM_LAYOUT_IPV4_NETWORK, 0, 0, "ipv4.destination-ipv4-network"},
    {QIM_CRIT_IPV4_SOURCE, QIM_LAYOUT_IPV4_NETWORK, 0, 0, "ipv4.source-ipv4-network"},

    {QIM_CRIT_IPV6, QIM_LAYOUT_NONE, 0, 0, "ipv6"},
    {QIM_CRIT_IPV6_DSCP, QIM_LAYOUT_U8, 0, 63, "ipv6.dscp"},
    {QIM_CRIT_IPV6_ECN, QIM_LAYOUT_U8, 0, 3, "ipv6.ecn"},
    {QIM_CRIT_IPV6_LENGTH, QIM_LAYOUT_U16, 0, kMaxU16, "ipv6.length"},
    {QIM_CRIT_IPV6_TTL, QIM_LAYOUT_U8, 0, kMaxU8, "ipv6.ttl"},
    {QIM_CRIT_IPV6_PROTOCOL, QIM_LAYOUT_U8, 0, kMaxU8, "ipv6.protocol"},
    {QIM_CRIT_IPV6_DESTINATION, QIM_LAYOUT_IPV6_NETWORK, 0, 0, "ipv6.destination-ipv6-network"},
    {QIM_CRIT_IPV6_SOURCE, QIM_LAYOUT_IPV6_NETWORK, 0, 0, "ipv6.source-ipv6-network"},
    {QIM_CRIT_IPV6_FLOW_LABEL, QIM_LAYOUT_U32, 0, 0xfffff, "ipv6.flow-label"},

    {QIM_CRIT_TCP, QIM_LAYOUT_NONE, 0, 0, "tcp"},
    {QIM_CRIT_TCP_SEQUENCE, QIM_LAYOUT_U32, 0, kMaxU32, "tcp.sequence-number"},
    {QIM_CRIT_TCP_ACKNOWLEDGEMENT, QIM_LAYOUT_U32, 0, kMaxU32, "tcp.acknowledgement-number"},
    {QIM_CRIT_TCP_DATA_OFFSET, QIM_LAYOUT_U8, 5, 15, "tcp.data-offset"},
    {QIM_CRIT_TCP_RESERVED, QIM_LAYOUT_U8, 0, kMaxU8, "tcp.reserved"},
    {QIM_CRIT_TCP_FLAGS, QIM_LAYOUT_TCP_FLAGS, 0, 0, "tcp.flags"},
    {QIM_CRIT_TCP_WINDOW, QIM_LAYOUT_U16, 0, kMaxU16, "tcp.window-size"},
    {QIM_CRIT_TCP_URGENT, QIM_LAYOUT_U16, 0, kMaxU16, "tcp.urgent-pointer"},
    {QIM_CRIT_TCP_OPTIONS, QIM_LAYOUT_BYTES, 1, 40, "tcp.options"},
    {QIM_CRIT_TCP_SOURCE, QIM_LAYOUT_PORTS, 0, kMaxU16, "tcp.source-port"},
    {QIM_CRIT_TCP_DESTINATION, QIM_LAYOUT_PORTS, 0, kMaxU16, "tcp.destination-port"},

    {QIM_CRIT_UDP, QIM_LAYOUT_NONE, 0, 0, "udp"},
    {QIM_CRIT_UDP_LENGTH, QIM_LAYOUT_U16, 0, kMaxU16, "udp.length"},
    {QIM_CRIT_UDP_SOURCE, QIM_LAYOUT_PORTS, 0, kMaxU16, "udp.source-port"},
    {QIM_CRIT_UDP_DESTINATION, QIM_LAYOUT_PORTS, 0, kMaxU16, "udp.destination-port"},

    {QIM_CRIT_ICMP, QIM_LAYOUT_NONE, 0, 0, "icmp"},
    {QIM_CRIT_ICMP_TYPE, QIM_LAYOUT_U8, 0, kMaxU8, "icmp.type"},
    {QIM_CRIT_ICMP_CODE, QIM_LAYOUT_U8, 0, kMaxU8, "icmp.code"},
    {QIM_CRIT_ICMP_REST, QIM_LAYOUT_BYTES, 0, kMaxU32, "icmp.rest-of-header"},
};
inline constexpr uint32_t kKindCount = sizeof kKinds / sizeof kKinds[0];

// What arguments of a layout begin with, or are whole: bytes of it.
constexpr uint32_t fixed_bytes(uint32_t layout) {
  switch (layout) {
    case QIM_LAYOUT_U8:
    case QIM_LAYOUT_IPV4_FLAGS:
    case QIM_LAYOUT_TCP_FLAGS:
      return 1;
    case QIM_LAYOUT_U16:
    case QIM_LAYOUT_U16_HEX:
      return 2;
    case QIM_LAYOUT_U32:
    case QIM_LAYOUT_INTERFACE:
      return 4;
    case QIM_LAYOUT_MAC:
      return 12;
    case QIM_LAYOUT_IPV4_NETWORK:
    case QIM_LAYOUT_PORTS:
      return 5;
    case QIM_LAYOUT_IPV6_NETWORK:
      return 17;
    default:
      return 0;
  }
}

}  // namespace qim::acl
