// The names of Ethernet types.
#include "policy/formats/rfc8519/ethertypes.h"

#include <algorithm>
#include <array>

namespace qimctl::rfc8519 {

namespace {

struct EtherType {
  std::string_view name;
  uint16_t number;
};

constexpr std::array ethertypes{
    EtherType{"ipv4", 0x0800},
    EtherType{"arp", 0x0806},
    EtherType{"wlan", 0x0842},
    EtherType{"srp", 0x22ea},
    EtherType{"trill", 0x22f3},
    EtherType{"decnet", 0x6003},
    EtherType{"rarp", 0x8035},
    EtherType{"appletalk", 0x809b},
    EtherType{"aarp", 0x80f3},
    EtherType{"vlan", 0x8100},
    EtherType{"ipx", 0x8137},
    EtherType{"qnx", 0x8204},
    EtherType{"ipv6", 0x86dd},
    EtherType{"efc", 0x8808},
    EtherType{"esp", 0x8809},
    EtherType{"cobranet", 0x8819},
    EtherType{"mpls-unicast", 0x8847},
    EtherType{"mpls-multicast", 0x8848},
    EtherType{"pppoe-discovery", 0x8863},
    EtherType{"pppoe-session", 0x8864},
    EtherType{"intel-ans", 0x886d},
    EtherType{"jumbo-frames", 0x8870},
    EtherType{"homeplug", 0x887b},
    EtherType{"eap", 0x888e},
    EtherType{"profinet", 0x8892},
    EtherType{"hyperscsi", 0x889a},
    EtherType{"aoe", 0x88a2},
    EtherType{"ethercat", 0x88a4},
    EtherType{"provider-bridging", 0x88a8},
    EtherType{"ethernet-powerlink", 0x88ab},
    EtherType{"goose", 0x88b8},
    EtherType{"gse", 0x88b9},
    EtherType{"sv", 0x88ba},
    EtherType{"lldp", 0x88cc},
    EtherType{"sercos", 0x88cd},
    EtherType{"wsmp", 0x88dc},
    EtherType{"homeplug-av-mme", 0x88e1},
    EtherType{"mrp", 0x88e3},
    EtherType{"macsec", 0x88e5},
    EtherType{"pbb", 0x88e7},
    EtherType{"cfm", 0x8902},
    EtherType{"fcoe", 0x8906},
    EtherType{"fcoe-ip", 0x8914},
    EtherType{"roce", 0x8915},
    EtherType{"tte", 0x891d},
    EtherType{"hsr", 0x892f},
};

}  // namespace

std::optional<uint16_t> ethertype_by_name(std::string_view name) {
  const auto* found =
      std::find_if(ethertypes.begin(), ethertypes.end(),
                   [name](const EtherType& ethertype) { return ethertype.name == name; });
  if (found == ethertypes.end()) return {};
  return found->number;
}

}  // namespace qimctl::rfc8519
