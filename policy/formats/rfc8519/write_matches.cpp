// The matches of an entry as members of the model's containers.
#include "policy/formats/rfc8519/write_matches.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <utility>

#include "policy/base/canonical_json.h"
#include "policy/base/criteria.h"
#include "policy/base/json_text.h"
#include "policy/base/text.h"
#include "policy/formats/parts/attachments.h"
#include "policy/model/name_hash.h"

namespace qimctl::rfc8519 {

using formats::name_obstacle;

namespace {

constexpr std::array header_order{Header::eth, Header::ipv4, Header::ipv6,
                                  Header::tcp, Header::udp,  Header::icmp};

constexpr std::string_view own_module = "ietf-access-control-list";

std::string base64(const std::vector<uint8_t>& bytes) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t count = std::min<size_t>(3, bytes.size() - i);
    uint32_t bits = 0;
    for (size_t k = 0; k < 3; k++) bits = bits << 8 | (k < count ? bytes[i + k] : 0u);
    for (size_t k = 0; k < 4; k++) text += k <= count ? digits[bits >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

void append_number(std::string& to, uint32_t value) {
  std::array<char, 10> digits;
  char* const end = std::to_chars(digits.begin(), digits.end(), value).ptr;
  to.append(digits.data(), end);
}

// 0 for what is none of the model's.
uint32_t container_bit(Header header) {
  const auto at = std::find(header_order.begin(), header_order.end(), header);
  return at == header_order.end() ? 0 : 1u << (at - header_order.begin());
}

// "" for the matches themselves.
std::string container_name(uint32_t container) {
  for (const Header header : header_order)
    if (container_bit(header) == container) return std::string(header_name(header));
  return "";
}

// Sorts criteria into containers, and stops at the first that the model has no place for.
class Sorter {
 public:
  explicit Sorter(Matches& matches) : matches_(matches) {}

  void sort(const Entry& entry) {
    for (const Criterion& criterion : entry.criteria) {
      if (!matches_.obstacle.empty()) return;
      criterion.type == criterion_opaque ? add_opaque(criterion) : add_known(criterion);
    }
    check_choices();
  }

 private:
  void refuse(const std::string& what) { matches_.obstacle = what; }

  // A member whose value is the text from `from` on. Most differ in their names.
  void add(Match match, size_t from) {
    const bool twice =
        std::any_of(matches_.members.begin(), matches_.members.end(), [&](const Match& other) {
          return other.container == match.container && other.name == match.name &&
                 other.field == match.field;
        });
    if (twice) {
      const std::string field = match.field.empty() ? "" : "/" + std::string(match.field);
      return refuse("two matches on " + container_name(match.container) + field + "/" +
                    std::string(match.name));
    }
    match.json_at = from;
    match.json_size = matches_.text.size() - from;
    matches_.any = true;
    matches_.members.push_back(match);
  }

  std::string_view own_name(std::string name) {
    return matches_.own_names.emplace_back(std::move(name));
  }

  // `field` in the container of the header of a kind.
  void add_text(const CriterionKind& kind, std::string_view value) {
    const size_t from = matches_.text.size();
    append_json_string(matches_.text, value);
    add({container_bit(kind.header), "", kind.field()}, from);
  }

  void add_opaque(const Criterion& criterion) {
    OpaqueMatch match;
    try {
      match = to_opaque(criterion);
    } catch (const std::invalid_argument& error) {
      return refuse(error.what());
    }
    const std::string member = match.module + ":" + match.name;
    const bool foreign = match.module.find(':') == std::string::npos &&
                         !match.module.starts_with('@') && match.module != own_module;
    const std::optional<Container> within = container_of(match.within);
    if (!within || !foreign || !reads_as_text(member) || !is_json(match.json))
      return refuse("a match of another model that is damaged");
    if (within->kind != nullptr) note_header(within->kind->header);
    const size_t from = matches_.text.size();
    matches_.text += match.json;
    add({within->kind == nullptr ? 0 : container_bit(within->kind->header), within->field,
         own_name(member)},
        from);
  }

  // A container that the model has, by constants.
  struct Container {
    const CriterionKind* kind = nullptr;  // of the header, NULL = the matches themselves
    std::string_view field;
  };

  static bool is_json(const std::string& text) {
    try {
      return canonical_json(parse_json(text, "").view()) == text;
    } catch (const InputError&) {
      return false;
    }
  }

  static std::optional<Container> container_of(const std::string& within) {
    if (within.empty()) return Container();
    const size_t slash = within.find('/');
    const CriterionKind* header = find_criterion_kind(std::string_view(within).substr(0, slash));
    if (header == nullptr || header->encoding != Encoding::none) return {};
    if (slash == std::string::npos) return Container{header, ""};
    std::string field = within;
    field[slash] = '.';
    const CriterionKind* ports = find_criterion_kind(field);
    if (ports == nullptr || ports->encoding != Encoding::ports) return {};
    return Container{header, ports->field()};
  }

  void refuse(const Criterion& criterion) {
    refuse("the match " + criterion_text(criterion.type, criterion.args));
  }

  void add_known(const Criterion& criterion) {
    const CriterionKind* kind = find_criterion_kind(criterion.type);
    qim_crit_value_t value;
    if (kind == nullptr || !parse(criterion, value)) return refuse(criterion);
    if (kind->header == Header::interface) return add_interface(*kind, criterion, value);
    note_header(kind->header);
    switch (kind->encoding) {
      case Encoding::u8:
      case Encoding::u16:
      case Encoding::u16_hex:
      case Encoding::u32:
        return add_number(*kind, criterion, value.as.number);
      case Encoding::ports:
        return add_ports(*kind, criterion, value);
      case Encoding::ipv4_flags:
      case Encoding::tcp_flags:
      case Encoding::mac:
      case Encoding::ipv4_prefix:
      case Encoding::ipv6_prefix:
        return add_words(*kind, criterion);
      case Encoding::bytes:
        return add_bytes(*kind, criterion);
      default:
        return;
    }
  }

  static bool parse(const Criterion& criterion, qim_crit_value_t& value) {
    return qim_crit_parse(criterion.type, static_cast<uint32_t>(criterion.args.size()),
                          criterion.args.data(), &value) == 0;
  }

  void add_number(const CriterionKind& kind, const Criterion& criterion, uint32_t value) {
    if (value < kind.min || value > kind.max) return refuse(criterion);
    const size_t from = matches_.text.size();
    append_number(matches_.text, value);
    add({container_bit(kind.header), "", kind.field()}, from);
  }

  // Of which the file says what the tool says.
  void add_words(const CriterionKind& kind, const Criterion& criterion) {
    const std::optional<std::string> value = criterion_value(kind, criterion.args);
    if (!value) return refuse(criterion);
    if (kind.encoding == Encoding::mac) return add_mac(kind, *value);
    const bool network =
        kind.encoding == Encoding::ipv4_prefix || kind.encoding == Encoding::ipv6_prefix;
    add_text(kind, network ? *value : flags(*value));
  }

  static std::string flags(const std::string& value) {
    if (value == "none") return "";
    std::string names = value;
    std::replace(names.begin(), names.end(), ',', ' ');
    return names;
  }

  void add_mac(const CriterionKind& kind, const std::string& value) {
    const size_t slash = value.find('/');
    add_text(kind, value.substr(0, slash));
    if (slash == std::string::npos) return;
    const size_t from = matches_.text.size();
    append_json_string(matches_.text, value.substr(slash + 1));
    add({container_bit(kind.header), "", own_name(std::string(kind.field()) + "-mask")}, from);
  }

  void add_ports(const CriterionKind& kind, const Criterion& criterion,
                 const qim_crit_value_t& value) {
    const auto& [comparison, first, last] = value.as.ports;
    if (comparison == QIM_PORT_RANGE) {
      add_port(kind, "lower-port", first);
      return add_port(kind, "upper-port", last);
    }
    if (first != last) return refuse(criterion);
    const size_t from = matches_.text.size();
    for (const OperatorName& op : port_operators())
      if (comparison == static_cast<uint8_t>(op.code)) append_json_string(matches_.text, op.name);
    add({container_bit(kind.header), kind.field(), "operator"}, from);
    add_port(kind, "port", first);
  }

  void add_port(const CriterionKind& kind, std::string_view name, uint32_t port) {
    const size_t from = matches_.text.size();
    append_number(matches_.text, port);
    add({container_bit(kind.header), kind.field(), name}, from);
  }

  void add_bytes(const CriterionKind& kind, const Criterion& criterion) {
    const size_t size = criterion.args.size();
    if (size < kind.min || size > kind.max) return refuse(criterion);
    add_text(kind, base64(criterion.args));
  }

  void add_interface(const CriterionKind& kind, const Criterion& criterion,
                     const qim_crit_value_t& value) {
    const qim_crit_bytes_t& bytes = value.as.interface.name;
    const std::string name(bytes.at, bytes.at + bytes.len);
    const bool known = value.as.interface.index == interface_index(name) &&
                       name_obstacle(name, std::string::npos).empty();
    if (!known) return refuse(criterion);
    const size_t from = matches_.text.size();
    append_json_string(matches_.text, name);
    add({0, "", kind.field()}, from);
  }

  void note_header(Header header) {
    matches_.any = true;
    matches_.containers |= container_bit(header);
    if (header == Header::eth) matches_.headers |= acl_type_eth;
    if (header == Header::ipv4) matches_.headers |= acl_type_ipv4;
    if (header == Header::ipv6) matches_.headers |= acl_type_ipv6;
  }

  bool has(Header header) const { return (matches_.containers & container_bit(header)) != 0; }

  // An entry of the model asks for one header of a layer at most.
  void check_choices() {
    const int third = has(Header::ipv4) + has(Header::ipv6);
    const int fourth = has(Header::tcp) + has(Header::udp) + has(Header::icmp);
    if (third > 1 || fourth > 1) refuse("matches on two headers that exclude each other");
  }

  Matches& matches_;
};

// The fields of headers that are containers, in the order in which they are written.
constexpr std::array<std::string_view, 2> container_fields{"destination-port", "source-port"};

// False when there are none.
bool print_members(JsonPrinter& printer, const Matches& matches, uint32_t container,
                   std::string_view field) {
  bool any = false;
  for (const Match& match : matches.members) {
    if (match.container != container || match.field != field) continue;
    if (!std::exchange(any, true) && !field.empty()) printer.member(field).object();
    printer.member(match.name)
        .json(std::string_view(matches.text).substr(match.json_at, match.json_size));
  }
  return any;
}

}  // namespace

void Matches::clear() {
  members.clear();
  text.clear();
  own_names.clear();
  containers = 0;
  any = false;
  headers = acl_type_unknown;
  obstacle.clear();
}

void sort_matches(const Entry& entry, Matches& matches) {
  matches.clear();
  Sorter(matches).sort(entry);
}

void print_matches(JsonPrinter& printer, const Matches& matches) {
  printer.object();
  print_members(printer, matches, 0, "");
  for (const Header header : header_order) {
    const uint32_t container = container_bit(header);
    if ((matches.containers & container) == 0) continue;
    printer.member(header_name(header)).object();
    print_members(printer, matches, container, "");
    for (const std::string_view field : container_fields)
      if (print_members(printer, matches, container, field)) printer.close();
    printer.close();
  }
  printer.close();
}

}  // namespace qimctl::rfc8519
