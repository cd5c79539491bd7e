// The table of criterion types, and the names of actions.
#include "policy/base/criteria.h"

#include <algorithm>
#include <array>
#include <utility>

#include "acl/kinds.h"

namespace qimctl {

namespace {

// The library's table, which readers of criteria in C go by, too.
constexpr std::array kinds = [] {
  std::array<CriterionKind, qim::acl::kKindCount> all{};
  for (size_t i = 0; i < all.size(); i++) {
    const qim_crit_kind_t& kind = qim::acl::kKinds[i];
    constexpr uint32_t header = 0xff00;
    all[i] = {kind.type, static_cast<Header>(kind.type & header),
              kind.name, static_cast<Encoding>(kind.layout),
              kind.min,  kind.max};
  }
  return all;
}();

constexpr std::array ipv4_flag_names{FlagName{"reserved", 4}, FlagName{"fragment", 2},
                                     FlagName{"more", 1}};
constexpr std::array tcp_flag_names{
    FlagName{"cwr", 0x80}, FlagName{"ece", 0x40}, FlagName{"urg", 0x20}, FlagName{"ack", 0x10},
    FlagName{"psh", 0x08}, FlagName{"rst", 0x04}, FlagName{"syn", 0x02}, FlagName{"fin", 0x01}};

constexpr std::array operators{
    OperatorName{"eq", PortOperator::eq}, OperatorName{"neq", PortOperator::neq},
    OperatorName{"lte", PortOperator::lte}, OperatorName{"gte", PortOperator::gte}};

}  // namespace

std::string_view CriterionKind::field() const {
  const size_t dot = name.find('.');
  return dot == std::string_view::npos ? std::string_view{} : name.substr(dot + 1);
}

std::span<const CriterionKind> criterion_kinds() {
  return kinds;
}

const CriterionKind* find_criterion_kind(uint32_t type) {
  const auto* found = std::lower_bound(
      kinds.begin(), kinds.end(), type,
      [](const CriterionKind& kind, uint32_t wanted) { return kind.type < wanted; });
  return found != kinds.end() && found->type == type ? found : nullptr;
}

const CriterionKind* find_criterion_kind(std::string_view name) {
  const auto* found = std::find_if(kinds.begin(), kinds.end(),
                                   [name](const CriterionKind& kind) { return kind.name == name; });
  return found != kinds.end() ? found : nullptr;
}

std::string_view header_name(Header header) {
  switch (header) {
    case Header::entry:
      return "entry";
    case Header::interface:
      return "interface";
    case Header::eth:
      return "eth";
    case Header::ipv4:
      return "ipv4";
    case Header::ipv6:
      return "ipv6";
    case Header::tcp:
      return "tcp";
    case Header::udp:
      return "udp";
    case Header::icmp:
      return "icmp";
  }
  return "";
}

std::span<const FlagName> flag_names(Encoding encoding) {
  if (encoding == Encoding::ipv4_flags) return ipv4_flag_names;
  if (encoding == Encoding::tcp_flags) return tcp_flag_names;
  return {};
}

std::span<const OperatorName> port_operators() {
  return operators;
}

std::string_view action_name(uint32_t type) {
  switch (static_cast<ActionType>(type)) {
    case ActionType::accept:
      return "accept";
    case ActionType::drop:
      return "drop";
    case ActionType::reject:
      return "reject";
    case ActionType::log_syslog:
      return "log-syslog";
    case ActionType::name:
      return "name";
  }
  return "";
}

}  // namespace qimctl
