// Words of the OpenConfig model.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "policy/base/criteria_codes.h"

namespace qimctl::openconfig {

inline constexpr std::string_view own_module = "openconfig-acl";

// An identity and the number that it stands for.
struct Word {
  std::string_view name;
  uint32_t number;
};

inline constexpr std::array protocols{Word{"IP_ICMP", 1},  Word{"IP_IGMP", 2},  Word{"IP_IN_IP", 4},
                                      Word{"IP_TCP", 6},   Word{"IP_UDP", 17},  Word{"IP_RSVP", 46},
                                      Word{"IP_GRE", 47},  Word{"IP_AUTH", 51}, Word{"IP_PIM", 103},
                                      Word{"IP_L2TP", 115}};
inline constexpr std::array ethertypes{
    Word{"ETHERTYPE_IPV4", 0x0800}, Word{"ETHERTYPE_ARP", 0x0806},  Word{"ETHERTYPE_VLAN", 0x8100},
    Word{"ETHERTYPE_IPV6", 0x86dd}, Word{"ETHERTYPE_MPLS", 0x8847}, Word{"ETHERTYPE_LLDP", 0x88cc},
    Word{"ETHERTYPE_ROCE", 0x8915}};
inline constexpr std::array actions{Word{"ACCEPT", static_cast<uint32_t>(ActionType::accept)},
                                    Word{"DROP", static_cast<uint32_t>(ActionType::drop)},
                                    Word{"REJECT", static_cast<uint32_t>(ActionType::reject)}};

// What a list is asked about, and the header that every packet has then, 0 = any.
struct SetType {
  std::string_view name;
  uint32_t bits;
  uint32_t header;
};
inline constexpr uint32_t mixed_bits = acl_type_eth | acl_type_ipv4 | acl_type_ipv6;
inline constexpr std::array set_types{SetType{"ACL_IPV4", acl_type_ipv4, QIM_HEADER_IPV4},
                                      SetType{"ACL_IPV6", acl_type_ipv6, QIM_HEADER_IPV6},
                                      SetType{"ACL_L2", acl_type_eth, 0},
                                      SetType{"ACL_MIXED", mixed_bits, 0}};

// Containers of an entry that hold matches. Where they have no word for what is carried whole, its
// name is that of the container, a dot, and the leaf.
inline constexpr std::array<std::string_view, 5> containers{"l2", "ipv4", "ipv6", "transport",
                                                            "input-interface"};
// Is it a leaf whose meaning is known here, so that it is never carried whole?
bool is_known_leaf(std::string_view container, std::string_view leaf);

// The number of a word, or `none`.
inline constexpr uint32_t none = UINT32_MAX;
template <size_t Count>
constexpr uint32_t number_of(const std::array<Word, Count>& words, std::string_view name) {
  for (const Word& word : words)
    if (word.name == name) return word.number;
  return none;
}

}  // namespace qimctl::openconfig
