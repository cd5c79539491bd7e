// Entries in words.
#include "policy/model/words.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <utility>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/model/name_hash.h"

namespace qimctl {

namespace {

constexpr uint32_t code(Header header, uint32_t field = 0) {
  return static_cast<uint32_t>(header) | field;
}

uint32_t header_of(uint32_t type) {
  return type & 0xff00u;
}

// The value of a criterion as text, "" for that of a header; nothing when its type is not known or
// its arguments have not the layout of the type.
std::optional<std::string> value_of(const Criterion& criterion) {
  const CriterionKind* kind = find_criterion_kind(criterion.type);
  if (kind == nullptr) return {};
  return criterion_value(*kind, criterion.args);
}

// Values by the types of their criteria, in ascending order: few, most of which come in this order.
// Those that have been said stay, marked.
class Values {
 public:
  struct Value {
    uint32_t type;
    std::string text;
    bool said = false;
  };

  void reserve(size_t count) { values_.reserve(count); }
  void add(uint32_t type, std::string text) {
    values_.insert(first_from(type), {type, std::move(text)});
  }
  // NULL when there is none that has not been said.
  Value* find(uint32_t type) {
    const auto found = first_from(type);
    return found != values_.end() && found->type == type && !found->said ? &*found : nullptr;
  }
  const std::vector<Value>& all() const { return values_; }

 private:
  std::vector<Value>::iterator first_from(uint32_t type) {
    auto at = values_.end();
    while (at != values_.begin() && std::prev(at)->type >= type) at--;
    return at;
  }

  std::vector<Value> values_;
};

std::string interface_word(const Criterion& criterion) {
  const std::string name(criterion.args.begin() + 4, criterion.args.end());
  uint32_t index = 0;
  for (size_t i = 0; i < 4; i++) index = index << 8 | criterion.args[i];
  const std::string word = name_word(name);
  return index == interface_index(name) ? word : word + " (" + hex_number(index, 8) + ")";
}

std::string_view address_word(std::string_view prefix, const char* whole) {
  return prefix.ends_with(whole) ? prefix.substr(0, prefix.rfind('/')) : prefix;
}

// "22", "!=22", "<=22", "1-2" of "eq 22", "neq 22", ...
std::string ports_word(const std::string& text) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 4> signs{
      {{"eq ", ""}, {"neq ", "!="}, {"lte ", "<="}, {"gte ", ">="}}};
  for (const auto& [name, sign] : signs)
    if (text.starts_with(name)) return std::string(sign) + text.substr(name.size());
  return text;
}

std::string ether_type_word(const std::string& number) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 3> names{
      {{"0x0800", "ipv4"}, {"0x0806", "arp"}, {"0x86dd", "ipv6"}}};
  for (const auto& [type, name] : names)
    if (number == type) return std::string(name);
  return number;
}

std::string opaque_words(const Criterion& criterion) {
  try {
    const OpaqueMatch match = to_opaque(criterion);
    const std::string where = match.within.empty() ? "" : match.within + "/";
    return printable(match.module + " " + where + match.name + " " + match.json) +
           " (only that model decides)";
  } catch (const std::invalid_argument&) {
    return criterion_text(criterion.type, criterion.args);
  }
}

// The words of one entry. Fields that have been said are taken away from `values_`.
class Sentence {
 public:
  explicit Sentence(const Entry& entry);
  std::string text();

 private:
  void sort_in(const Criterion& criterion);
  bool has(Header header) const;
  // The value of a field that has not been said, which now is; NULL when there is none.
  const std::string* take(uint32_t type);
  void say(std::string_view word);
  void say(std::string_view first, std::string_view second) {
    say(first);
    say(second);
  }
  void say_interfaces();
  void say_ethernet();
  void say_headers();
  void say_protocol(std::string_view l4, const std::string* number);
  void say_side(const char* side, uint32_t v4, uint32_t v6, uint32_t tcp, uint32_t udp);
  void say_fields();

  Values values_;
  std::vector<std::string> others_;
  std::string text_;
};

Sentence::Sentence(const Entry& entry) {
  values_.reserve(entry.criteria.size());
  text_.reserve(100);
  for (const Criterion& criterion : entry.criteria)
    if (criterion.type != criterion_name) sort_in(criterion);
}

// The layer of a header that excludes others of it, 0 for none.
int layer_of(uint32_t header) {
  switch (static_cast<Header>(header)) {
    case Header::ipv4:
    case Header::ipv6:
      return 3;
    case Header::tcp:
    case Header::udp:
    case Header::icmp:
      return 4;
    default:
      return 0;
  }
}

// Is there a header of the same layer, other than that of the criterion?
bool beside_another(uint32_t type, const std::vector<Values::Value>& values) {
  const uint32_t header = header_of(type);
  const int layer = layer_of(header);
  return layer != 0 && std::any_of(values.begin(), values.end(), [&](const Values::Value& known) {
           return header_of(known.type) != header && layer_of(header_of(known.type)) == layer;
         });
}

void Sentence::sort_in(const Criterion& criterion) {
  if (criterion.type == criterion_opaque) {
    others_.push_back(opaque_words(criterion));
    return;
  }
  std::optional<std::string> value = value_of(criterion);
  if (value && header_of(criterion.type) == code(Header::interface)) {
    value = interface_word(criterion);
  }
  if (value && values_.find(criterion.type) == nullptr &&
      !beside_another(criterion.type, values_.all())) {
    values_.add(criterion.type, *std::move(value));
    return;
  }
  others_.push_back(criterion_text(criterion.type, criterion.args));
}

bool Sentence::has(Header header) const {
  return std::any_of(values_.all().begin(), values_.all().end(), [header](const auto& value) {
    return header_of(value.type) == code(header) && !value.said;
  });
}

const std::string* Sentence::take(uint32_t type) {
  Values::Value* value = values_.find(type);
  if (value == nullptr) return nullptr;
  value->said = true;
  return &value->text;
}

void Sentence::say(std::string_view word) {
  if (!text_.empty()) text_ += ' ';
  text_ += word;
}

void Sentence::say_interfaces() {
  if (const auto* name = take(code(Header::interface, 1))) say("entering", *name);
  if (const auto* name = take(code(Header::interface, 2))) say("leaving", *name);
}

void Sentence::say_ethernet() {
  if (!has(Header::eth)) return;
  say("eth");
  take(code(Header::eth));
  if (const auto* mac = take(code(Header::eth, 2))) say("from", *mac);
  if (const auto* mac = take(code(Header::eth, 1))) say("to", *mac);
  if (const auto* type = take(code(Header::eth, 3))) say("type", ether_type_word(*type));
}

void Sentence::say_protocol(std::string_view l4, const std::string* number) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 4> implied{
      {{"tcp", "6"}, {"udp", "17"}, {"icmp", "1"}, {"icmp6", "58"}}};
  const auto is_this = [&](const auto& one) { return one.first == l4 && one.second == *number; };
  if (number != nullptr && std::none_of(implied.begin(), implied.end(), is_this))
    say("protocol", *number);
  if (!l4.empty()) say(l4);
}

void Sentence::say_headers() {
  const bool v6 = has(Header::ipv6);
  if (has(Header::ipv4)) say("ipv4");
  if (v6) say("ipv6");
  take(code(Header::ipv4));
  take(code(Header::ipv6));
  std::string_view l4;
  for (const Header header : {Header::tcp, Header::udp, Header::icmp}) {
    if (has(header)) l4 = header_name(header);
    take(code(header));
  }
  if (l4 == "icmp" && v6) l4 = "icmp6";
  say_protocol(l4, take(code(v6 ? Header::ipv6 : Header::ipv4, 5)));
}

void Sentence::say_side(const char* side, uint32_t v4, uint32_t v6, uint32_t tcp, uint32_t udp) {
  std::string_view address;
  if (const auto* prefix = take(code(Header::ipv4, v4))) address = address_word(*prefix, "/32");
  if (const auto* prefix = take(code(Header::ipv6, v6))) address = address_word(*prefix, "/128");
  const std::string* ports = take(code(Header::tcp, tcp));
  if (ports == nullptr) ports = take(code(Header::udp, udp));
  if (address.empty() && ports == nullptr) return;
  say(side, address.empty() ? "any" : address);
  if (ports != nullptr) say("port", ports_word(*ports));
}

// In the order of types, by the name of the field; those that two headers have are told apart.
void Sentence::say_fields() {
  for (const auto& [type, value, said] : values_.all()) {
    if (said) continue;
    const bool is_ip_flags = type == code(Header::ipv4, 7);
    const bool is_udp_length = type == code(Header::udp, 1);
    say(is_ip_flags     ? "ip-flags"
        : is_udp_length ? "udp-length"
                        : find_criterion_kind(type)->field(),
        value);
  }
}

std::string Sentence::text() {
  say_interfaces();
  say_ethernet();
  say_headers();
  say_side("from", 11, 7, 9, 2);
  say_side("to", 10, 6, 10, 3);
  say_fields();
  for (const std::string& other : others_) text_ += (text_.empty() ? "" : ", ") + other;
  return text_.empty() ? "any" : text_;
}

std::string rate_words(uint64_t rate, uint64_t burst, const std::string& unit) {
  return std::to_string(rate) + unit + (burst == 0 ? "" : " burst " + std::to_string(burst));
}

}  // namespace

std::string criteria_words(const Entry& entry) {
  return Sentence(entry).text();
}

std::string action_words(const Entry& entry) {
  std::string words(action_name(static_cast<uint32_t>(entry.forwarding)));
  if (entry.log) words += " log";
  if (!entry.policer.empty()) words += " police " + name_word(entry.policer);
  return words;
}

std::string default_words(const AccessList& list) {
  return std::string(action_name(static_cast<uint32_t>(list.default_action)));
}

std::string list_type_words(uint32_t type) {
  static constexpr std::array<std::pair<uint32_t, std::string_view>, 3> kinds{
      {{acl_type_eth, "eth"}, {acl_type_ipv4, "ipv4"}, {acl_type_ipv6, "ipv6"}}};
  std::string words;
  for (const auto& [bit, name] : kinds)
    if ((type & bit) != 0) words += (words.empty() ? "" : "+") + std::string(name);
  return words.empty() ? "any" : words;
}

std::string policer_words(const Policer& policer) {
  const std::string unit = policer.unit == Policer::Unit::bytes ? " bytes/s" : " packets/s";
  std::string words;
  if (policer.committed_rate != 0)
    words = rate_words(policer.committed_rate, policer.committed_burst, unit);
  if (policer.peak_rate != 0)
    words += (words.empty() ? "peak " : " peak ") +
             rate_words(policer.peak_rate, policer.peak_burst, unit);
  return words.empty() ? "no limit" : words;
}

std::string name_word(const std::string& name) {
  const bool is_word = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("_-.:/+@").find(c) != std::string_view::npos;
  });
  return is_word ? name : quoted(name);
}

}  // namespace qimctl
