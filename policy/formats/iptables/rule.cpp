// Reading one rule, word by word.
#include "policy/formats/iptables/rule.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string_view>

#include "policy/base/json_print.h"
#include "policy/base/text.h"
#include "policy/formats/parts/attachments.h"

namespace qimctl::iptables {

namespace {

using formats::Choice;
using formats::in_quotes;

constexpr const char* own_module = "iptables";
// Of a match that has no counterpart but several that together say the same.
constexpr size_t most_alternatives = 16;

struct LongName {
  std::string_view name;
  std::string_view option;
};
constexpr std::array long_names{LongName{"--source", "-s"},
                                LongName{"--src", "-s"},
                                LongName{"--destination", "-d"},
                                LongName{"--dst", "-d"},
                                LongName{"--protocol", "-p"},
                                LongName{"--proto", "-p"},
                                LongName{"--in-interface", "-i"},
                                LongName{"--out-interface", "-o"},
                                LongName{"--match", "-m"},
                                LongName{"--jump", "-j"},
                                LongName{"--goto", "-g"},
                                LongName{"--fragment", "-f"},
                                LongName{"--set-counters", "-c"},
                                LongName{"--source-port", "--sport"},
                                LongName{"--destination-port", "--dport"},
                                LongName{"--source-ports", "--sports"},
                                LongName{"--destination-ports", "--dports"}};

struct Number {
  std::string_view name;
  uint32_t number;
};
constexpr std::array protocol_numbers{
    Number{"icmp", 1},  Number{"igmp", 2},       Number{"tcp", 6},   Number{"udp", 17},
    Number{"gre", 47},  Number{"esp", 50},       Number{"ah", 51},   Number{"icmpv6", 58},
    Number{"ospf", 89}, Number{"ipv6-icmp", 58}, Number{"sctp", 132}};
constexpr std::array icmp_types{Number{"echo-reply", 0},     Number{"destination-unreachable", 3},
                                Number{"redirect", 5},       Number{"echo-request", 8},
                                Number{"time-exceeded", 11}, Number{"parameter-problem", 12}};
constexpr std::array icmp6_types{Number{"destination-unreachable", 1},
                                 Number{"packet-too-big", 2},
                                 Number{"time-exceeded", 3},
                                 Number{"parameter-problem", 4},
                                 Number{"echo-request", 128},
                                 Number{"echo-reply", 129},
                                 Number{"router-solicitation", 133},
                                 Number{"router-advertisement", 134},
                                 Number{"neighbour-solicitation", 135},
                                 Number{"neighbour-advertisement", 136}};
constexpr std::array tcp_flag_bits{Number{"FIN", 0x01}, Number{"SYN", 0x02}, Number{"RST", 0x04},
                                   Number{"PSH", 0x08}, Number{"ACK", 0x10}, Number{"URG", 0x20},
                                   Number{"ALL", 0x3f}, Number{"NONE", 0}};
// Modules that match nothing by themselves, only by their options.
constexpr std::array<std::string_view, 13> silent_modules{
    "tcp",     "udp",       "icmp", "icmp6", "icmpv6", "ipv6-icmp", "mac",
    "comment", "multiport", "ttl",  "hl",    "dscp",   "length"};

template <size_t Count>
std::optional<uint32_t> number_of(const std::array<Number, Count>& numbers, std::string_view name) {
  for (const Number& number : numbers)
    if (number.name == name) return number.number;
  return {};
}

bool is_option(const std::string& word) {
  const size_t letter = word.find_first_not_of('-');
  return letter != 0 && letter != std::string::npos && (word[letter] < '0' || word[letter] > '9');
}

// Options whose value is whatever stands behind them.
bool takes_text(const std::string& option) {
  return option == "--comment" || option.ends_with("-prefix") || option.ends_with("string");
}

class RuleReader {
 public:
  RuleReader(Notes& notes, formats::Interfaces& interfaces, const Line& line, bool is_ipv6)
      : notes_(notes),
        interfaces_(interfaces),
        line_(line),
        codes_(is_ipv6 ? formats::ipv6_codes : formats::ipv4_codes),
        is_ipv6_(is_ipv6) {}

  Rule read();

 private:
  // An option with what stands before and behind it.
  struct Option {
    std::string name;  // the short one
    bool negated = false;
    std::vector<std::string> values;
    std::string text() const {
      std::string text = negated ? "! " + name : name;
      for (const std::string& value : values) text += " " + value;
      return text;
    }
  };

  Option next();
  void take(const Option& option);
  bool match(const Option& option);
  bool match_address(const Option& option);
  bool match_protocol(const Option& option);
  bool match_interface(const Option& option);
  bool match_field(const Option& option);
  bool match_ports(const Option& option);
  bool match_tcp_flags(const Option& option);
  bool match_icmp(const Option& option);
  bool match_number(const Option& option, uint32_t type, size_t width, uint32_t max);
  void resolve_ports();
  std::optional<std::vector<formats::PortRange>> port_ranges(const Option& option);
  void carry_whole();
  void problem(const std::string& message) { notes_.problem(line_.place, message); }
  bool wrong(const Option& option, const std::string& wanted) {
    problem(in_quotes(option.text()) + " is not " + wanted);
    return true;
  }
  void add(Criterion criterion) { rule_.matches.push_back({{std::move(criterion)}}); }

  Notes& notes_;
  formats::Interfaces& interfaces_;
  const Line& line_;
  const formats::IpCodes& codes_;
  bool is_ipv6_;
  size_t at_ = 2;  // behind -A and the chain
  Rule rule_;
  std::string module_;
  std::string comment_;
  std::optional<uint32_t> protocol_;
  std::vector<Option> ports_;
  std::map<std::string, std::string> whole_;  // matches by module, as they are written
};

std::string name_of(const Line& line, const std::string& comment) {
  std::string name = comment;
  if (name.empty()) {
    // Behind the chain's name, which has no blanks.
    const size_t chain = line.text.find_first_not_of(" \t", 2);
    const size_t rest = line.text.find_first_not_of(" \t", line.text.find_first_of(" \t", chain));
    name = rest == std::string::npos ? "all" : line.text.substr(rest);
  }
  std::replace_if(name.begin(), name.end(), formats::is_forbidden, ' ');
  return formats::name_obstacle(name, std::string::npos).empty() ? name : "rule";
}

Rule RuleReader::read() {
  rule_.place = line_.place;
  while (at_ < line_.words.size()) take(next());
  resolve_ports();
  carry_whole();
  rule_.name = name_of(line_, comment_);
  return std::move(rule_);
}

RuleReader::Option RuleReader::next() {
  Option option;
  const std::vector<std::string>& words = line_.words;
  option.negated = words[at_] == "!";
  if (option.negated) at_++;
  option.name = at_ < words.size() ? words[at_++] : "";
  for (const LongName& name : long_names)
    if (name.name == option.name) option.name = name.option;
  if (takes_text(option.name) && at_ < words.size()) option.values.push_back(words[at_++]);
  while (at_ < words.size() && words[at_] != "!" && !is_option(words[at_]))
    option.values.push_back(words[at_++]);
  return option;
}

void RuleReader::take(const Option& option) {
  if (!is_option(option.name)) return problem(in_quotes(option.text()) + " is no option");
  if (option.name == "-c") return;
  if (option.name == "-m" || option.name == "-j" || option.name == "-g") {
    if (option.values.size() != 1 || option.values[0].empty())
      return problem(in_quotes(option.text()) + " needs one name");
    if (option.name == "-m") {
      module_ = option.values[0];
      const bool silent =
          std::find(silent_modules.begin(), silent_modules.end(), module_) != silent_modules.end();
      if (!silent) whole_[module_];
      return;
    }
    rule_.target = option.values[0];
    rule_.is_goto = option.name == "-g";
    module_.clear();
    return;
  }
  if (!rule_.target.empty() && module_.empty() && option.name.starts_with("--")) {
    rule_.options.push_back(option.text());
    return;
  }
  if (match(option)) return;
  std::string& text =
      whole_[option.name.starts_with("--") && !module_.empty() ? module_ : option.name];
  text += (text.empty() ? "" : " ") + option.text();
}

// False when only another reader can decide it.
bool RuleReader::match(const Option& option) {
  if (option.name == "-s" || option.name == "-d") return match_address(option);
  if (option.name == "-p") return match_protocol(option);
  if (option.name == "-i" || option.name == "-o") return match_interface(option);
  if (option.name == "--comment") {
    comment_ = option.values.empty() ? "" : option.values[0];
    return true;
  }
  return match_field(option);
}

bool RuleReader::match_field(const Option& option) {
  const std::string& name = option.name;
  if (name == "--sport" || name == "--dport" || name == "--sports" || name == "--dports" ||
      name == "--ports") {
    ports_.push_back(option);
    return true;
  }
  if (name == "--syn" || name == "--tcp-flags") return match_tcp_flags(option);
  if (name == "--icmp-type" || name == "--icmpv6-type") return match_icmp(option);
  if (name == "--ttl-eq" || name == "--hl-eq") return match_number(option, codes_.ttl, 1, 255);
  if (name == "--dscp") return match_number(option, codes_.dscp, 1, 63);
  if (name == "--length" && !is_ipv6_) return match_number(option, codes_.length, 2, UINT16_MAX);
  if (name != "--mac-source" || option.negated) return false;
  const auto mac = option.values.size() == 1 ? formats::parse_mac(option.values[0]) : std::nullopt;
  if (!mac) return wrong(option, "a MAC address");
  add(formats::mac_criterion(formats::code_eth_source, *mac, std::vector<uint8_t>(6, 0xff)));
  return true;
}

// Prefixes that hold every address but those of this one.
Choice complement(uint32_t type, const std::vector<uint8_t>& prefix) {
  Choice choice;
  for (uint32_t bit = 0; bit < prefix.back(); bit++) {
    std::vector<uint8_t> other(prefix);
    for (size_t i = bit / 8 + 1; i + 1 < other.size(); i++) other[i] = 0;
    uint8_t& byte = other[bit / 8];
    const auto kept = static_cast<uint8_t>(0xff00u >> (bit % 8 + 1));
    byte = static_cast<uint8_t>((byte ^ (0x80u >> bit % 8)) & kept);
    other.back() = static_cast<uint8_t>(bit + 1);
    choice.push_back({{type, std::move(other)}});
  }
  return choice;
}

// "192.0.2.0/255.255.255.0" with the length in place of the mask, if it is one.
std::string with_length(const std::string& text) {
  const size_t slash = text.find('/');
  const auto mask = slash == std::string::npos
                        ? std::nullopt
                        : formats::parse_prefix(text.substr(slash + 1), false);
  if (!mask || text.find('.', slash) == std::string::npos) return text;
  uint32_t bits = 0;
  for (size_t i = 0; i < 4; i++) bits = bits << 8 | (*mask)[i];
  uint32_t length = 0;
  while (length < 32 && (bits & (0x80000000u >> length)) != 0) length++;
  const bool contiguous = length == 32 || bits << length == 0;
  return contiguous ? text.substr(0, slash + 1) + std::to_string(length) : "";
}

bool RuleReader::match_address(const Option& option) {
  const uint32_t type = option.name == "-s" ? codes_.source : codes_.destination;
  if (option.values.size() != 1) return wrong(option, "an address");
  Choice choice;
  for (const std::string& part : split_at_commas(option.values[0])) {
    const std::string spelled = is_ipv6_ ? part : with_length(part);
    if (spelled.empty()) return false;
    auto prefix = formats::parse_prefix(spelled, is_ipv6_);
    if (!prefix)
      return wrong(option, std::string("an address or prefix of ") + (is_ipv6_ ? "IPv6" : "IPv4"));
    choice.push_back({{type, *std::move(prefix)}});
  }
  if (option.negated) {
    if (choice.size() != 1) return wrong(option, "one address, which it must be behind \"!\"");
    choice = complement(type, choice[0][0].args);
    if (choice.size() > most_alternatives) return false;
  }
  rule_.matches.push_back(std::move(choice));
  return true;
}

bool RuleReader::match_protocol(const Option& option) {
  if (option.values.size() != 1) return wrong(option, "a protocol");
  std::string name = option.values[0];
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  auto number = number_of(protocol_numbers, name);
  if (!number) number = formats::parse_decimal(name, 255);
  if (name == "all" || number == 0u) return !option.negated;
  if (module_.empty() && !option.negated) module_ = name;
  if (!number || option.negated) return false;
  protocol_ = number;
  add(formats::number_criterion(codes_.protocol, *number, 1));
  return true;
}

bool RuleReader::match_interface(const Option& option) {
  if (option.values.size() != 1) return wrong(option, "an interface");
  const std::string& name = option.values[0];
  const std::string obstacle = formats::name_obstacle(name, std::string::npos);
  if (!obstacle.empty()) return wrong(option, "an interface: " + obstacle);
  if (name == "+" && !option.negated) return true;
  if (name.ends_with('+') || option.negated) return false;
  const uint32_t type =
      option.name == "-i" ? formats::code_ingress_interface : formats::code_egress_interface;
  add(interfaces_.criterion(notes_, type, name, line_.place));
  return true;
}

bool RuleReader::match_number(const Option& option, uint32_t type, size_t width, uint32_t max) {
  const auto number =
      option.values.size() == 1 ? formats::parse_value(option.values[0], max) : std::nullopt;
  if (!number || option.negated) return false;
  add(formats::number_criterion(type, *number, width));
  return true;
}

// Flags that the mask does not look at may be set or not: an alternative for each combination.
bool RuleReader::match_tcp_flags(const Option& option) {
  uint32_t mask = 0x17;
  uint32_t flags = 0x02;
  if (option.name == "--tcp-flags") {
    if (option.values.size() != 2) return wrong(option, "a mask and flags");
    for (const auto& [text, bits] :
         {std::pair(&option.values[0], &mask), std::pair(&option.values[1], &flags)}) {
      *bits = 0;
      for (const std::string& name : split_at_commas(*text)) {
        const auto bit = number_of(tcp_flag_bits, name);
        if (!bit) return wrong(option, "a mask and flags of SYN,ACK,FIN,RST,URG,PSH,ALL,NONE");
        *bits |= *bit;
      }
    }
  }
  Choice choice;
  for (uint32_t all = 0; all <= 0xff; all++)
    if ((all & mask) == flags)
      choice.push_back({formats::number_criterion(formats::code_tcp_flags, all, 1)});
  if (option.negated || choice.size() > most_alternatives || protocol_ != formats::protocol_tcp)
    return false;
  rule_.matches.push_back(std::move(choice));
  return true;
}

bool RuleReader::match_icmp(const Option& option) {
  if (option.values.size() != 1 || option.negated) return false;
  const std::string& text = option.values[0];
  if (text == "any") return true;
  const size_t slash = text.find('/');
  const std::string name = text.substr(0, slash);
  auto type = is_ipv6_ ? number_of(icmp6_types, name) : number_of(icmp_types, name);
  if (!type) type = formats::parse_decimal(name, 255);
  const auto code = slash == std::string::npos
                        ? std::optional<uint32_t>(0)
                        : formats::parse_decimal(text.substr(slash + 1), 255);
  if (!type || !code) return false;
  add(formats::number_criterion(formats::code_icmp_type, *type, 1));
  if (slash != std::string::npos) add(formats::number_criterion(formats::code_icmp_code, *code, 1));
  return true;
}

std::optional<std::vector<formats::PortRange>> RuleReader::port_ranges(const Option& option) {
  std::vector<formats::PortRange> ranges;
  if (option.values.size() != 1) return {};
  for (std::string part : split_at_commas(option.values[0])) {
    if (part.starts_with(':')) part.insert(0, "0");
    if (part.ends_with(':')) part += "65535";
    const auto range = formats::parse_ports(part, ":");
    if (!range) return {};
    ranges.push_back(*range);
  }
  return ranges;
}

// Which header ports are of is known when all is read.
void RuleReader::resolve_ports() {
  for (const Option& option : ports_) {
    const bool known = protocol_ == formats::protocol_tcp || protocol_ == formats::protocol_udp;
    if (!known || !match_ports(option)) whole_[option.name] += option.text();
  }
}

bool RuleReader::match_ports(const Option& option) {
  const formats::PortCodes& codes =
      protocol_ == formats::protocol_tcp ? formats::tcp_codes : formats::udp_codes;
  const auto ranges = port_ranges(option);
  if (!ranges) return wrong(option, "a port or ports up to 65535");
  std::vector<uint32_t> types;
  if (!option.name.starts_with("--d")) types.push_back(codes.source);
  if (!option.name.starts_with("--s")) types.push_back(codes.destination);
  Choice choice;
  if (option.negated) {
    if (ranges->size() != 1 || types.size() != 1) return false;
    const formats::PortRange& range = ranges->front();
    if (range.first == range.last) {
      Criterion other = formats::ports_criterion(types[0], range);
      other.args[0] = static_cast<uint8_t>(PortOperator::neq);
      add(std::move(other));
      return true;
    }
    if (range.first > 0)
      choice.push_back({formats::ports_criterion(types[0], {0, range.first - 1})});
    if (range.last < UINT16_MAX)
      choice.push_back({formats::ports_criterion(types[0], {range.last + 1, UINT16_MAX})});
  } else {
    for (const uint32_t type : types)
      for (const formats::PortRange& range : *ranges)
        choice.push_back({formats::ports_criterion(type, range)});
  }
  rule_.matches.push_back(std::move(choice));
  return true;
}

void RuleReader::carry_whole() {
  for (const auto& [module, text] : whole_) {
    const std::string name = module.substr(module.find_first_not_of('-'));
    const auto match = formats::whole_match(own_module, name, json_string(text));
    if (!match) {
      problem("a name that is longer than 65535 characters");
      continue;
    }
    notes_.finding(Fate::accepted, line_.place,
                   formats::carried_whole(text.empty() ? "-m " + module : text, own_module));
    add(*match);
  }
}

}  // namespace

Rule read_rule(Notes& notes, formats::Interfaces& interfaces, const Line& line, bool is_ipv6) {
  return RuleReader(notes, interfaces, line, is_ipv6).read();
}

bool speaks_ipv6(const Line& line) {
  for (size_t i = 1; i < line.words.size(); i++) {
    const std::string& before = line.words[i - 1];
    const std::string& word = line.words[i];
    const bool address = before == "-s" || before == "-d";
    if (address && word.find(':') != std::string::npos) return true;
    if (before == "-p" && (word == "ipv6-icmp" || word == "icmpv6")) return true;
  }
  return false;
}

}  // namespace qimctl::iptables
