// Writing access lists as a document of the OpenConfig model.
#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "policy/base/canonical_json.h"
#include "policy/base/criteria.h"
#include "policy/base/json_print.h"
#include "policy/base/json_text.h"
#include "policy/base/text.h"
#include "policy/formats/openconfig/codes.h"
#include "policy/formats/openconfig/openconfig.h"
#include "policy/formats/parts/attachments.h"
#include "policy/formats/parts/criteria.h"
#include "policy/model/words.h"

namespace qimctl {

namespace openconfig {

namespace {

using formats::in_quotes;
using formats::name_obstacle;

// Leaves with their values as JSON, by the container that holds them, which may have none.
using Containers = std::map<std::string, std::vector<std::pair<std::string, std::string>>>;

uint32_t number(const std::vector<uint8_t>& args, size_t at, size_t width) {
  uint32_t value = 0;
  for (size_t i = 0; i < width; i++) value = value << 8 | args[at + i];
  return value;
}

// Sorts the criteria of an entry into containers, and stops at the first that there is no place for.
class Sorter {
 public:
  Sorter(const Entry& entry, uint32_t list_type) {
    for (const Criterion& criterion : entry.criteria)
      if (obstacle_.empty()) add(criterion);
    if (obstacle_.empty() && protocol_) add_protocol(list_type);
  }

  const std::string& obstacle() const { return obstacle_; }
  Containers take() { return std::move(containers_); }

 private:
  void refuse(const std::string& what) { obstacle_ = what; }
  void put(const std::string& container, const std::string& leaf, const std::string& json) {
    containers_[container].emplace_back(leaf, json);
  }

  // TCP and UDP have no place of their own but in the protocol of IP.
  void add_protocol(uint32_t list_type) {
    const bool is_ipv6 = (list_type & acl_type_ipv6) != 0;
    const bool is_ipv4 = (list_type & acl_type_ipv4) != 0;
    std::string container = is_ipv6 ? "ipv6" : "ipv4";
    if (containers_.contains("ipv4")) {
      container = "ipv4";
    } else if (containers_.contains("ipv6")) {
      container = "ipv6";
    } else if (is_ipv4 == is_ipv6) {
      return refuse("TCP or UDP of either IPv4 or IPv6");
    }
    const std::string json = protocol_json(*protocol_);
    for (const auto& [leaf, value] : containers_[container]) {
      if (leaf != "protocol") continue;
      if (value != json) refuse("matches that exclude each other");
      return;
    }
    put(container, "protocol", json);
  }

  static std::string protocol_json(uint32_t protocol) {
    for (const Word& word : protocols)
      if (word.number == protocol)
        return json_string("openconfig-packet-match-types:" + std::string(word.name));
    return std::to_string(protocol);
  }

  void add(const Criterion& criterion) {
    if (criterion.type == criterion_opaque) return add_opaque(criterion);
    const CriterionKind* kind = find_criterion_kind(criterion.type);
    const std::string text = criterion_text(criterion.type, criterion.args);
    if (kind == nullptr || !text.starts_with(kind->name)) return refuse("the match " + text);
    bool known = false;
    switch (kind->header) {
      case Header::interface:
        known = add_interface(criterion);
        break;
      case Header::eth:
        known = add_eth(criterion, text);
        break;
      case Header::ipv4:
        known = add_ip(formats::ipv4_codes, "ipv4", criterion, text);
        break;
      case Header::ipv6:
        known = add_ip(formats::ipv6_codes, "ipv6", criterion, text);
        break;
      case Header::tcp:
        known = add_transport(formats::tcp_codes, formats::protocol_tcp, criterion);
        break;
      case Header::udp:
        known = add_transport(formats::udp_codes, formats::protocol_udp, criterion);
        break;
      default:
        break;
    }
    if (!known) refuse("the match " + text);
  }

  bool add_interface(const Criterion& criterion) {
    const std::string name(criterion.args.begin() + 4, criterion.args.end());
    if (criterion.type != formats::code_ingress_interface ||
        !name_obstacle(name, std::string::npos).empty())
      return false;
    put("input-interface", "interface", json_string(name));
    return true;
  }

  // What stands behind the name of a criterion in words.
  static std::string value_of(const std::string& text) { return text.substr(text.find(' ') + 1); }

  bool add_eth(const Criterion& criterion, const std::string& text) {
    containers_["l2"];
    if (criterion.type == QIM_HEADER_ETH) return true;
    if (criterion.type == formats::code_ethertype) {
      const uint32_t ethertype = number(criterion.args, 0, 2);
      std::string json = std::to_string(ethertype);
      for (const Word& word : ethertypes)
        if (word.number == ethertype)
          json = json_string("openconfig-packet-match-types:" + std::string(word.name));
      put("l2", "ethertype", json);
      return true;
    }
    const std::string leaf =
        criterion.type == formats::code_eth_source ? "source-mac" : "destination-mac";
    const std::string value = value_of(text);
    const size_t slash = value.find('/');
    put("l2", leaf, json_string(value.substr(0, slash)));
    if (slash != std::string::npos) put("l2", leaf + "-mask", json_string(value.substr(slash + 1)));
    return true;
  }

  bool add_ip(const formats::IpCodes& codes, const std::string& container,
              const Criterion& criterion, const std::string& text) {
    containers_[container];
    if (criterion.type == codes.header) return true;
    if (criterion.type == codes.source || criterion.type == codes.destination) {
      const char* leaf = criterion.type == codes.source ? "source-address" : "destination-address";
      put(container, leaf, json_string(value_of(text)));
      return true;
    }
    const bool dscp = criterion.type == codes.dscp && criterion.args[0] < 64;
    if (criterion.type == codes.protocol) {
      put(container, "protocol", protocol_json(criterion.args[0]));
    } else if (dscp || criterion.type == codes.ttl) {
      put(container, dscp ? "dscp" : "hop-limit", std::to_string(criterion.args[0]));
    } else {
      return false;
    }
    return true;
  }

  bool add_transport(const formats::PortCodes& codes, uint32_t protocol,
                     const Criterion& criterion) {
    if (protocol_ && *protocol_ != protocol) return false;
    protocol_ = protocol;
    if (criterion.args.empty()) return true;
    if (criterion.type != codes.source && criterion.type != codes.destination) return false;
    uint32_t first = number(criterion.args, 1, 2);
    uint32_t last = number(criterion.args, 3, 2);
    const auto op = static_cast<PortOperator>(criterion.args[0]);
    if (op == PortOperator::neq) return false;
    if (op == PortOperator::lte) first = 0;
    if (op == PortOperator::gte) last = UINT16_MAX;
    put("transport", criterion.type == codes.source ? "source-port" : "destination-port",
        first == last ? std::to_string(first)
                      : json_string(std::to_string(first) + ".." + std::to_string(last)));
    return true;
  }

  // What is carried whole goes back to where its name says that it was.
  void add_opaque(const Criterion& criterion) {
    constexpr const char* elsewhere = "a match that only another model has";
    OpaqueMatch match;
    try {
      match = to_opaque(criterion);
    } catch (const std::invalid_argument& error) {
      return refuse(error.what());
    }
    const size_t dot = match.name.find('.');
    const std::string container = match.name.substr(0, dot);
    if (!match.within.empty() || dot == std::string::npos ||
        std::find(containers.begin(), containers.end(), container) == containers.end())
      return refuse(elsewhere);
    const std::string leaf = match.name.substr(dot + 1);
    const bool own = match.module == own_module;
    const std::string member = own ? leaf : match.module + ":" + leaf;
    const bool sound = reads_as_text(member) && !match.module.empty() && is_json(match.json) &&
                       match.module.find(':') == std::string::npos &&
                       leaf.find(':') == std::string::npos && !member.starts_with('@') &&
                       !(own && is_known_leaf(container, leaf)) && leaf != "matched-packets" &&
                       leaf != "matched-octets" && member != "state";
    if (!sound) return refuse(elsewhere);
    put(container, member, match.json);
  }

  static bool is_json(const std::string& text) {
    try {
      return canonical_json(parse_json(text, "").view()) == text;
    } catch (const InputError&) {
      return false;
    }
  }

  Containers containers_;
  std::optional<uint32_t> protocol_;  // that the header behind IP stands for
  std::string obstacle_;
};

struct Written {
  const Entry* entry;
  Containers containers;
};

class Writer {
 public:
  explicit Writer(const Model& model) : model_(model) {}

  ModelText write(const std::vector<std::string>& names);

 private:
  void write_list(const AccessList& list);
  void write_entries(const AccessList& list, const std::vector<Written>& entries,
                     const SetType& type);
  void write_entry(const Written& written, uint32_t sequence, const SetType& type);
  void write_container(const std::string& name, const Containers& containers);
  void write_attachments();
  void write_attached(std::string_view member, const std::string& direction,
                      const std::vector<const Attachment*>& attached);
  void compare(const std::string& text);

  void note(Fate fate, const std::string& where, std::string what) {
    findings_.push_back({fate, {where, 0, ""}, std::move(what)});
  }

  const Model& model_;
  JsonPrinter printer_;
  std::vector<Finding> findings_;
  std::set<std::string> written_;
  std::vector<std::pair<const AccessList*, std::vector<const Entry*>>> lists_;  // as written
  std::map<std::string, std::string_view> types_;  // of the lists that are written
};

ModelText Writer::write(const std::vector<std::string>& names) {
  const std::set<std::string> wanted(names.begin(), names.end());
  printer_.object().member(openconfig_root).object();
  printer_.member("acl-sets").object().member("acl-set").array();
  for (const AccessList& list : model_.lists)
    if (wanted.empty() || wanted.contains(list.name)) write_list(list);
  printer_.close().close();
  write_attachments();
  printer_.close().close();
  std::string text = printer_.take();
  compare(text);
  return {{std::move(text)}, std::move(findings_)};
}

// The narrowest in which its readers add nothing to what the entries ask for.
const SetType& type_of(const AccessList& list, const std::vector<Written>& entries) {
  const auto fits = [&](const SetType& type) {
    return std::all_of(entries.begin(), entries.end(), [&type](const Written& one) {
      const Containers& has = one.containers;
      if (type.header == QIM_HEADER_IPV4 && !has.contains("ipv4")) return false;
      if (type.header == QIM_HEADER_IPV6 && !has.contains("ipv6")) return false;
      return (!has.contains("l2") || (type.bits & acl_type_eth) != 0) &&
             (!has.contains("ipv4") || (type.bits & acl_type_ipv4) != 0) &&
             (!has.contains("ipv6") || (type.bits & acl_type_ipv6) != 0);
    });
  };
  for (const SetType& type : set_types)
    if (type.bits == list.type && fits(type)) return type;
  return set_types.back();
}

void Writer::write_list(const AccessList& list) {
  const std::string obstacle = name_obstacle(list.name, formats::longest_name);
  if (!obstacle.empty())
    return note(Fate::skipped, list.name,
                "access list left out, for its name can't be one: " + obstacle);
  written_.insert(list.name);
  std::vector<Written> entries;
  for (const Entry& entry : list.entries) {
    const std::string where = list.name + "/" + entry.name;
    Sorter sorter(entry, list.type);
    const std::string bad_name = name_obstacle(entry.name, formats::longest_name);
    if (!sorter.obstacle().empty() || !bad_name.empty()) {
      note(Fate::skipped, where,
           "entry left out, for this format can't carry " +
               (bad_name.empty() ? sorter.obstacle() : "a name of which " + bad_name));
      continue;
    }
    entries.push_back({&entry, sorter.take()});
  }
  const SetType& type = type_of(list, entries);
  types_[list.name] = type.name;
  if (type.bits != list.type)
    note(Fate::approximated, list.name, "written with the type " + in_quotes(type.name));
  if (list.default_action != ActionType::drop)
    note(Fate::skipped, list.name,
         "this format can't say what becomes of packets that no entry matches: its readers drop "
         "them, where this list would " +
             std::string(action_name(static_cast<uint32_t>(list.default_action))));
  printer_.object().member("name").text(list.name).member("type").text(type.name);
  printer_.member("config").object();
  printer_.member("name").text(list.name).member("type").text(type.name).close();
  if (!entries.empty()) write_entries(list, entries, type);
  printer_.close();
}

// Names that are numbers in their order are the numbers of entries; else they are what describes them.
void Writer::write_entries(const AccessList& list, const std::vector<Written>& entries,
                           const SetType& type) {
  std::vector<uint32_t> numbers;
  for (const Written& one : entries) {
    const auto sequence = formats::parse_decimal(one.entry->name, UINT32_MAX);
    if (!sequence || std::to_string(*sequence) != one.entry->name) break;
    if (!numbers.empty() && numbers.back() >= *sequence) break;
    numbers.push_back(*sequence);
  }
  const bool numbered = numbers.size() == entries.size();
  printer_.member("acl-entries").object().member("acl-entry").array();
  lists_.push_back({&list, {}});
  constexpr uint32_t gap = 10;
  uint32_t sequence = 0;
  for (size_t i = 0; i < entries.size(); i++) {
    sequence = numbered ? numbers[i] : sequence + gap;
    write_entry(entries[i], sequence, type);
    lists_.back().second.push_back(entries[i].entry);
  }
  printer_.close().close();
}

void Writer::write_entry(const Written& written, uint32_t sequence, const SetType& type) {
  const Entry& entry = *written.entry;
  printer_.object().member("sequence-id").number(sequence);
  printer_.member("config").object().member("sequence-id").number(sequence);
  if (entry.name != std::to_string(sequence)) printer_.member("description").text(entry.name);
  printer_.close();
  for (const std::string_view container : containers) {
    const auto found = written.containers.find(std::string(container));
    if (found == written.containers.end()) continue;
    const bool implied =
        found->second.empty() && ((container == "ipv4" && type.header == QIM_HEADER_IPV4) ||
                                  (container == "ipv6" && type.header == QIM_HEADER_IPV6));
    if (!implied) write_container(found->first, written.containers);
  }
  printer_.member("actions").object().member("config").object().member("forwarding-action");
  for (const Word& word : actions)
    if (word.number == static_cast<uint32_t>(entry.forwarding))
      printer_.text("openconfig-acl:" + std::string(word.name));
  if (entry.log) printer_.member("log-action").text("openconfig-acl:LOG_SYSLOG");
  printer_.close().close().close();
}

void Writer::write_container(const std::string& name, const Containers& containers) {
  const bool is_input = name == "input-interface";
  printer_.member(name).object();
  if (is_input) printer_.member("interface-ref").object();
  printer_.member("config").object();
  for (const auto& [leaf, json] : containers.at(name)) printer_.member(leaf).json(json);
  printer_.close().close();
  if (is_input) printer_.close();
}

void Writer::write_attachments() {
  const auto sound = formats::lists_by_interface(model_, written_, findings_);
  if (sound.empty()) return;
  printer_.member("interfaces").object().member("interface").array();
  for (const formats::InterfaceLists& interface : sound) {
    printer_.object().member("id").text(interface.name);
    printer_.member("config").object().member("id").text(interface.name).close();
    write_attached("ingress-acl-sets", "ingress-acl-set", interface.in);
    write_attached("egress-acl-sets", "egress-acl-set", interface.out);
    printer_.close();
  }
  printer_.close().close();
}

void Writer::write_attached(std::string_view member, const std::string& direction,
                            const std::vector<const Attachment*>& attached) {
  if (attached.empty()) return;
  printer_.member(member).object().member(direction).array();
  for (const Attachment* attachment : attached) {
    const std::string_view type = types_.at(attachment->list);
    printer_.object().member("set-name").text(attachment->list).member("type").text(type);
    printer_.member("config").object();
    printer_.member("set-name").text(attachment->list).member("type").text(type);
    printer_.close().close();
  }
  printer_.close().close();
}

// What the text says is what its reader makes of it.
void Writer::compare(const std::string& text) {
  const ModelInput input = read_openconfig(text, "");
  for (const auto& [list, entries] : lists_) {
    const AccessList& read = *find_list(input.model, list->name);
    for (size_t i = 0; i < entries.size(); i++) {
      const std::string where = list->name + "/" + entries[i]->name;
      if (!entries[i]->policer.empty())
        note(Fate::approximated, where,
             "written without the policer " + in_quotes(entries[i]->policer) +
                 ", which this format has no word for");
      Entry bare = *entries[i];
      bare.policer.clear();
      if (!same_entry(bare, read.entries[i]))
        note(
            Fate::approximated, where,
            "written as " + criteria_words(read.entries[i]) + ": " + action_words(read.entries[i]));
    }
  }
}

}  // namespace

}  // namespace openconfig

ModelText write_openconfig(const Model& model, const std::vector<std::string>& names) {
  return openconfig::Writer(model).write(names);
}

}  // namespace qimctl
