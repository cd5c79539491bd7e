// The words that packets are described with.
#include "policy/trace/vocabulary.h"

namespace qimctl {

namespace {

constexpr uint32_t most_u32 = UINT32_MAX;
constexpr Header no_transport = Header::interface;

constexpr std::array numbers{
    NumberWord{"protocol", "", Field::protocol, true, true, no_transport, 0, 255},
    NumberWord{"dscp", "", Field::dscp, true, true, no_transport, 0, 63},
    NumberWord{"ecn", "", Field::ecn, true, true, no_transport, 0, 3},
    NumberWord{"length", "len", Field::length, true, true, no_transport, 0, 65535},
    NumberWord{"ttl", "hop-limit", Field::ttl, true, true, no_transport, 0, 255},
    NumberWord{"ihl", "", Field::ihl, true, false, no_transport, 5, 15},
    NumberWord{"offset", "", Field::offset, true, false, no_transport, 0, 8191},
    NumberWord{"identification", "id", Field::identification, true, false, no_transport, 0, 65535},
    NumberWord{"flow-label", "flow", Field::flow_label, false, true, no_transport, 0, 0xfffff},
    NumberWord{"sequence-number", "seq", Field::sequence, true, true, Header::tcp, 0, most_u32},
    NumberWord{"acknowledgement-number", "", Field::acknowledgement, true, true, Header::tcp, 0,
               most_u32},
    NumberWord{"data-offset", "", Field::data_offset, true, true, Header::tcp, 0, 15},
    NumberWord{"reserved", "", Field::reserved, true, true, Header::tcp, 0, 15},
    NumberWord{"window-size", "window", Field::window, true, true, Header::tcp, 0, 65535},
    NumberWord{"urgent-pointer", "", Field::urgent, true, true, Header::tcp, 0, 65535},
    NumberWord{"udp-length", "", Field::udp_length, true, true, Header::udp, 0, 65535},
    NumberWord{"code", "", Field::icmp_code, true, true, Header::icmp, 0, 255},
};

constexpr uint32_t none = 256;
constexpr std::array icmp_types{
    IcmpName{"echo-request", 8, 128},
    IcmpName{"echo-reply", 0, 129},
    IcmpName{"unreachable", 3, 1},
    IcmpName{"too-big", none, 2},
    IcmpName{"time-exceeded", 11, 3},
    IcmpName{"parameter-problem", 12, 4},
    IcmpName{"redirect", 5, 137},
    IcmpName{"router-solicitation", 10, 133},
    IcmpName{"router-advertisement", 9, 134},
    IcmpName{"neighbor-solicitation", none, 135},
    IcmpName{"neighbor-advertisement", none, 136},
};

constexpr std::array ethertypes{
    EthertypeName{"ipv4", ethertype_ipv4}, EthertypeName{"arp", ethertype_arp},
    EthertypeName{"ipv6", ethertype_ipv6}, EthertypeName{"vlan", ethertype_vlan},
    EthertypeName{"lldp", 0x88cc},
};

}  // namespace

std::span<const NumberWord> number_words() {
  return numbers;
}

std::span<const IcmpName> icmp_names() {
  return icmp_types;
}

std::span<const EthertypeName> ethertype_names() {
  return ethertypes;
}

}  // namespace qimctl
