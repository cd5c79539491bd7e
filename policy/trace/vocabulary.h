// The words that packets are described with, for reading and for printing.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "policy/trace/packet.h"

namespace qimctl {

// A word that a number follows.
struct NumberWord {
  std::string_view name;
  std::string_view alias;  // "" = none
  Field field;
  bool ipv4;  // in which headers there is such a field
  bool ipv6;
  Header transport;  // interface: it is none of the transport header
  uint32_t least;
  uint32_t most;
};
std::span<const NumberWord> number_words();

// Names of ICMP types.
struct IcmpName {
  std::string_view name;
  uint32_t icmp;  // its number there, 256 where there is no such message
  uint32_t icmp6;
};
std::span<const IcmpName> icmp_names();

// Names of Ethernet types.
struct EthertypeName {
  std::string_view name;
  uint16_t number;
};
std::span<const EthertypeName> ethertype_names();

}  // namespace qimctl
