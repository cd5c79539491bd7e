// The codes of access lists in policy records (qim_acl.h) as types of their own.
#pragma once

#include <cstdint>

#include "qim_acl.h"

namespace qimctl {

// A packet header, the high byte of a criterion type. `entry` is none: what is said of the entry
// itself.
enum class Header : uint32_t {
  entry = QIM_HEADER_ENTRY,
  interface = QIM_HEADER_INTERFACE,
  eth = QIM_HEADER_ETH,
  ipv4 = QIM_HEADER_IPV4,
  ipv6 = QIM_HEADER_IPV6,
  tcp = QIM_HEADER_TCP,
  udp = QIM_HEADER_UDP,
  icmp = QIM_HEADER_ICMP,
};

// What an entry is called, in UTF-8: it holds for every packet, so it is no match.
inline constexpr uint32_t criterion_name = QIM_CRIT_NAME;
// A match that only another data model understands (policy/model/model.h tells how its arguments are
// laid out): nobody else can say whether it holds. An entry may have several.
inline constexpr uint32_t criterion_opaque = QIM_CRIT_OPAQUE;

// The comparison that begins a port criterion's arguments.
enum class PortOperator : uint8_t {
  eq = QIM_PORT_EQ,
  neq = QIM_PORT_NEQ,
  lte = QIM_PORT_LTE,
  gte = QIM_PORT_GTE,
  range = QIM_PORT_RANGE,
};

// qim_action_t.type, and qim_def_t.type for what happens to a packet that no entry matches.
enum class ActionType : uint32_t {
  accept = QIM_ACTION_ACCEPT,
  drop = QIM_ACTION_DROP,
  reject = QIM_ACTION_REJECT,  // drop, and tell the sender with an ICMP error
  log_syslog = QIM_ACTION_LOG,
  name = QIM_ACTION_NAME,  // no action: its arguments are a node's name
};

inline constexpr uint32_t group_access_list = QIM_GROUP_ACCESS_LIST;

// qim_group_t.subtype of an access list: a bit for each kind of header that it may match on; 0 when
// the list says nothing, or something that is not known here.
enum AclType : uint32_t {
  acl_type_unknown = 0,
  acl_type_eth = QIM_ACL_ETH,
  acl_type_ipv4 = QIM_ACL_IPV4,
  acl_type_ipv6 = QIM_ACL_IPV6,
};

// The policy type in the data-set names of access lists: this, and in the low 16 bits the place of
// the list in the order in which those of one interface and direction are gone through, from 1.
inline constexpr uint32_t policy_type_access_list = QIM_POLICY_ACCESS_LIST;
inline constexpr uint32_t policy_type_stages = QIM_POLICY_STAGES;

inline constexpr uint8_t dir_out = QIM_DIR_OUT;

}  // namespace qimctl
