// The matches of an entry as members of the model's containers.
#include "policy/formats/rfc8519/write_matches.h"

#include <algorithm>
#include <array>
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

uint32_t number_of(const std::vector<uint8_t>& args, size_t at, size_t width) {
  uint32_t value = 0;
  for (size_t i = 0; i < width; i++) value = value << 8 | args[at + i];
  return value;
}

// 0 for what is none of the model's.
uint32_t container_bit(Header header) {
  const auto at = std::find(header_order.begin(), header_order.end(), header);
  return at == header_order.end() ? 0 : 1u << (at - header_order.begin());
}

// Sorts criteria into containers, and stops at the first that the model has no place for.
class Sorter {
 public:
  explicit Sorter(Matches& matches) : matches_(matches) {}

  void sort(const Entry& entry) {
    matches_.members.reserve(entry.criteria.size() + 2);  // ports are two members
    for (const Criterion& criterion : entry.criteria) {
      if (!matches_.obstacle.empty()) return;
      criterion.type == criterion_opaque ? add_opaque(criterion) : add_known(criterion);
    }
    check_choices();
  }

 private:
  void refuse(const std::string& what) { matches_.obstacle = what; }

  void add(Match match) {
    const bool twice =
        std::any_of(matches_.members.begin(), matches_.members.end(), [&](const Match& other) {
          return other.header == match.header && other.field == match.field &&
                 other.member() == match.member();
        });
    if (twice) {
      const std::string field = match.field.empty() ? "" : "/" + std::string(match.field);
      return refuse("two matches on " + std::string(match.header) + field + "/" +
                    std::string(match.member()));
    }
    matches_.any = true;
    matches_.members.push_back(std::move(match));
  }

  // Of the header of a kind: `field` in its container.
  void add(const CriterionKind& kind, std::string json) {
    add({header_name(kind.header), "", kind.field(), "", std::move(json)});
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
    add({within->kind == nullptr ? "" : header_name(within->kind->header), within->field, "",
         member, match.json});
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
    const auto value = kind == nullptr ? std::nullopt : criterion_value(*kind, criterion.args);
    if (!value) return refuse(criterion);
    if (kind->header == Header::interface) return add_interface(*kind, criterion);
    note_header(kind->header);
    switch (kind->encoding) {
      case Encoding::u8:
      case Encoding::u16:
      case Encoding::u16_hex:
      case Encoding::u32:
        return add_number(*kind, criterion);
      case Encoding::ipv4_flags:
      case Encoding::tcp_flags:
        return add(*kind, json_string(flags(*value)));
      case Encoding::mac:
        return add_mac(*kind, *value);
      case Encoding::ipv4_prefix:
      case Encoding::ipv6_prefix:
        return add(*kind, json_string(*value));
      case Encoding::ports:
        return add_ports(*kind, criterion);
      case Encoding::bytes:
        return add_bytes(*kind, criterion);
      default:
        return;
    }
  }

  void add_number(const CriterionKind& kind, const Criterion& criterion) {
    const uint32_t value = number_of(criterion.args, 0, criterion.args.size());
    if (value < kind.min || value > kind.max) return refuse(criterion);
    add(kind, std::to_string(value));
  }

  static std::string flags(const std::string& value) {
    if (value == "none") return "";
    std::string names = value;
    std::replace(names.begin(), names.end(), ',', ' ');
    return names;
  }

  void add_mac(const CriterionKind& kind, const std::string& value) {
    const size_t slash = value.find('/');
    add(kind, json_string(value.substr(0, slash)));
    if (slash == std::string::npos) return;
    add({header_name(kind.header), "", "", std::string(kind.field()) + "-mask",
         json_string(value.substr(slash + 1))});
  }

  void add_ports(const CriterionKind& kind, const Criterion& criterion) {
    const auto add_here = [&](std::string_view name, std::string json) {
      add({header_name(kind.header), kind.field(), name, "", std::move(json)});
    };
    std::string first = std::to_string(number_of(criterion.args, 1, 2));
    for (const OperatorName& op : port_operators()) {
      if (criterion.args[0] != static_cast<uint8_t>(op.code)) continue;
      add_here("operator", json_string(op.name));
      return add_here("port", std::move(first));
    }
    add_here("lower-port", std::move(first));
    add_here("upper-port", std::to_string(number_of(criterion.args, 3, 2)));
  }

  void add_bytes(const CriterionKind& kind, const Criterion& criterion) {
    const size_t size = criterion.args.size();
    if (size < kind.min || size > kind.max) return refuse(criterion);
    add(kind, json_string(base64(criterion.args)));
  }

  void add_interface(const CriterionKind& kind, const Criterion& criterion) {
    const std::string name(criterion.args.begin() + 4, criterion.args.end());
    const bool known = number_of(criterion.args, 0, 4) == interface_index(name) &&
                       name_obstacle(name, std::string::npos).empty();
    if (!known) return refuse(criterion);
    add({"", "", kind.field(), "", json_string(name)});
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
bool print_members(JsonPrinter& printer, const Matches& matches, std::string_view header,
                   std::string_view field) {
  bool any = false;
  for (const Match& match : matches.members) {
    if (match.header != header || match.field != field) continue;
    if (!std::exchange(any, true) && !field.empty()) printer.member(field).object();
    printer.member(match.member()).json(match.json);
  }
  return any;
}

}  // namespace

Matches sort_matches(const Entry& entry) {
  Matches matches;
  Sorter(matches).sort(entry);
  return matches;
}

void print_matches(JsonPrinter& printer, const Matches& matches) {
  printer.object();
  print_members(printer, matches, "", "");
  for (const Header header : header_order) {
    if ((matches.containers & container_bit(header)) == 0) continue;
    const std::string_view name = header_name(header);
    printer.member(name).object();
    print_members(printer, matches, name, "");
    for (const std::string_view field : container_fields)
      if (print_members(printer, matches, name, field)) printer.close();
    printer.close();
  }
  printer.close();
}

}  // namespace qimctl::rfc8519
