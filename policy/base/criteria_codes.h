// The codes that imported access lists use in policy records whose values the policy library
// carries without interpreting them: criteria, actions, defaults, groups and policies.
// docs/rfc8519.md says how they fit together.
#pragma once

#include <cstdint>

namespace qimctl {

// A packet header, the high byte of a criterion type. The low byte is the field; field 0 asks only
// that the packet has the header.
enum class Header : uint32_t {
  interface = 0x0100,
  eth = 0x0200,
  ipv4 = 0x0300,
  ipv6 = 0x0400,
  tcp = 0x0500,
  udp = 0x0600,
  icmp = 0x0700,
};

// What an entry is called, in UTF-8: it holds for every packet.
inline constexpr uint32_t criterion_name = 0x0001;
// A match that only another data model understands (policy/model/model.h tells how its arguments are
// laid out): nobody else can say whether it holds. An entry may have several.
inline constexpr uint32_t criterion_opaque = 0x0002;

// The comparison that begins a port criterion's arguments.
enum class PortOperator : uint8_t { eq = 1, neq = 2, lte = 3, gte = 4, range = 5 };

// qim_action_t.type, and qim_def_t.type for what happens to a packet that no entry matches.
enum class ActionType : uint32_t {
  accept = 1,
  drop = 2,
  reject = 3,  // drop, and tell the sender with an ICMP error
  log_syslog = 0x101,
};

// qim_group_t.type. 1 is QIM_GROUP_IFELSE, which an access list is not.
inline constexpr uint32_t group_access_list = 2;

// qim_group_t.subtype of an access list: a bit for each kind of header that it may match on; 0 when
// the list says nothing, or something that is not known here.
enum AclType : uint32_t {
  acl_type_unknown = 0,
  acl_type_eth = 1,
  acl_type_ipv4 = 2,
  acl_type_ipv6 = 4,
};

// The policy type in the data-set names of access lists: this, and in the low 16 bits the place of
// the list in the order in which those of one interface and direction are gone through, from 1.
inline constexpr uint32_t policy_type_access_list = 0x00010000;
inline constexpr uint32_t policy_type_stages = 0xffff;

// A data-set name's direction. QIM_DIR_IN is input; of the other values, which are all output, this
// is the one written.
inline constexpr uint8_t dir_out = 2;

}  // namespace qimctl
