// Criteria and actions of access lists, and statuses.
#include <array>
#include <string_view>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/explain/topics.h"
#include "policy/store/database.h"
#include "rov.h"

namespace qimctl {

namespace {

std::string flags_text(Encoding encoding) {
  std::string list;
  for (const FlagName& flag : flag_names(encoding))
    list += (list.empty() ? "" : ", ") + std::string(flag.name) + " " + hex_number(flag.bit, 2);
  return list;
}

std::string layout_text(Encoding encoding) {
  switch (encoding) {
    case Encoding::none:
      return "none: the packet has the header";
    case Encoding::u8:
      return "a number of 1 byte";
    case Encoding::u16:
    case Encoding::u16_hex:
      return "a number of 2 bytes";
    case Encoding::u32:
      return "a number of 4 bytes";
    case Encoding::ipv4_flags:
    case Encoding::tcp_flags:
      return "1 byte, the sum of " + flags_text(encoding) + "; all bits are compared";
    case Encoding::mac:
      return "6 bytes of address, 6 bytes of mask";
    case Encoding::ipv4_prefix:
      return "4 bytes of network, 1 byte of length";
    case Encoding::ipv6_prefix:
      return "16 bytes of network, 1 byte of length";
    case Encoding::ports:
      return "1 byte of operator (1 eq, 2 neq, 3 lte, 4 gte, 5 range), 2 bytes of first and 2 of "
             "last port";
    case Encoding::bytes:
      return "bytes as they stand in the packet";
    case Encoding::interface:
      return "4 bytes of index, then the interface's name";
    case Encoding::text:
      return "a text in UTF-8";
    case Encoding::opaque:
      return "three texts, each behind 2 bytes of length: where in the matches, module, name; then "
             "the value in JSON";
  }
  return "";
}

std::string range_text(const CriterionKind& kind) {
  if (kind.max == 0) return "";
  const std::string range = std::to_string(kind.min) + " to " + std::to_string(kind.max);
  return kind.encoding == Encoding::bytes ? range + " bytes" : range;
}

std::string meaning_text(const CriterionKind& kind) {
  const std::string header(header_name(kind.header));
  if (kind.field().empty()) return "the packet has the header " + header;
  if (kind.type == criterion_name) return "what the entry is called; it holds for every packet";
  if (kind.type == criterion_opaque) return "a match that only another data model understands";
  if (kind.header == Header::interface) return "the packet comes in or goes out there";
  return "the field " + std::string(kind.field()) + " of the header " + header;
}

Topic criterion_topic(const CriterionKind& kind) {
  Topic topic{{std::string(kind.name)}, {kind.type}, "criterion " + hex_number(kind.type, 4), {}};
  if (!kind.field().empty()) topic.names.emplace_back(kind.field());
  topic.facts = {{"meaning", meaning_text(kind)}, {"arguments", layout_text(kind.encoding)}};
  const std::string range = range_text(kind);
  if (!range.empty()) topic.facts.emplace_back("range", range);
  topic.facts.emplace_back("who uses it", "entries of access lists (Filter)");
  return topic;
}

Topic action_topic(ActionType type, const char* meaning) {
  const auto number = static_cast<uint32_t>(type);
  return {{std::string(action_name(number))},
          {number},
          "action " + (number < 10 ? std::to_string(number) : hex_number(number, 3)),
          {{"meaning", meaning},
           {"who uses it", "entries of access lists (Action); defaults of lists (Def)"}}};
}

Topic status_topic(uint32_t status) {
  const bool library = status < ROV_ERR_GENERIC && status != ROV_OK;
  return {{status_name(status)},
          {status},
          "status " + hex_number(status, 8),
          {{"meaning", status_text(status)},
           {"who uses it", library ? "the policy library" : "the node database"}}};
}

}  // namespace

std::vector<Topic> criterion_topics() {
  std::vector<Topic> topics;
  for (const CriterionKind& kind : criterion_kinds()) topics.push_back(criterion_topic(kind));
  return topics;
}

std::vector<Topic> action_topics() {
  return {action_topic(ActionType::accept, "let the packet through"),
          action_topic(ActionType::drop, "take the packet away and tell nobody"),
          action_topic(ActionType::reject,
                       "take the packet away and tell the sender with an ICMP error"),
          action_topic(ActionType::log_syslog, "write the packet to the system's log")};
}

std::vector<Topic> status_topics() {
  constexpr uint32_t codes = 0x60;
  std::vector<Topic> topics;
  for (const uint32_t first : {uint32_t{QIM_ERR_GENERIC}, uint32_t{ROV_ERR_GENERIC}}) {
    for (uint32_t status = first; status < first + codes; status++)
      if (status_name(status) != status_name(UINT32_MAX)) topics.push_back(status_topic(status));
  }
  return topics;
}

}  // namespace qimctl
