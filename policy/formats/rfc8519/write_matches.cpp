// The matches of an entry as members of the model's containers.
#include "policy/formats/rfc8519/write_matches.h"

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>

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

bool is_single(const std::string& container, Header header) {
  const std::string_view name = header_name(header);
  return container == name || container.starts_with(std::string(name) + "/");
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

  void add(const std::string& container, const std::string& member, const std::string& json) {
    if (!names_.insert(container + "/" + member).second)
      return refuse("two matches on " + container + "/" + member);
    matches_.containers[container].emplace_back(member, json);
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
    if (!is_container(match.within) || !foreign || !reads_as_text(member) || !is_json(match.json))
      return refuse("a match of another model that is damaged");
    note_header(match.within);
    add(match.within, member, match.json);
  }

  static bool is_json(const std::string& text) {
    try {
      return canonical_json(parse_json(text, "").view()) == text;
    } catch (const InputError&) {
      return false;
    }
  }

  static bool is_container(const std::string& within) {
    if (within.empty()) return true;
    const size_t slash = within.find('/');
    const CriterionKind* header = find_criterion_kind(std::string_view(within).substr(0, slash));
    if (header == nullptr || header->encoding != Encoding::none) return false;
    if (slash == std::string::npos) return true;
    std::string field = within;
    field[slash] = '.';
    const CriterionKind* ports = find_criterion_kind(field);
    return ports != nullptr && ports->encoding == Encoding::ports;
  }

  void add_known(const Criterion& criterion) {
    const CriterionKind* kind = find_criterion_kind(criterion.type);
    const std::string text = criterion_text(criterion.type, criterion.args);
    if (kind == nullptr || !text.starts_with(kind->name)) return refuse("the match " + text);
    if (kind->header == Header::interface) return add_interface(*kind, criterion);
    const std::string header(header_name(kind->header));
    note_header(header);
    matches_.containers[header];
    const std::string field(kind->field());
    const std::string value =
        text.size() > kind->name.size() ? text.substr(kind->name.size() + 1) : "";
    switch (kind->encoding) {
      case Encoding::u8:
      case Encoding::u16:
      case Encoding::u16_hex:
      case Encoding::u32:
        return add_number(*kind, criterion, text);
      case Encoding::ipv4_flags:
      case Encoding::tcp_flags:
        return add(header, field, json_string(flags(value)));
      case Encoding::mac:
        return add_mac(header, field, value);
      case Encoding::ipv4_prefix:
      case Encoding::ipv6_prefix:
        return add(header, field, json_string(value));
      case Encoding::ports:
        return add_ports(header + "/" + field, criterion);
      case Encoding::bytes:
        return add_bytes(*kind, criterion, text);
      default:
        return;
    }
  }

  void add_number(const CriterionKind& kind, const Criterion& criterion, const std::string& text) {
    const uint32_t value = number_of(criterion.args, 0, criterion.args.size());
    if (value < kind.min || value > kind.max) return refuse("the match " + text);
    add(std::string(header_name(kind.header)), std::string(kind.field()), std::to_string(value));
  }

  static std::string flags(const std::string& value) {
    if (value == "none") return "";
    std::string names = value;
    std::replace(names.begin(), names.end(), ',', ' ');
    return names;
  }

  void add_mac(const std::string& header, const std::string& field, const std::string& value) {
    const size_t slash = value.find('/');
    add(header, field, json_string(value.substr(0, slash)));
    if (slash != std::string::npos)
      add(header, field + "-mask", json_string(value.substr(slash + 1)));
  }

  void add_ports(const std::string& container, const Criterion& criterion) {
    const std::string first = std::to_string(number_of(criterion.args, 1, 2));
    const std::string last = std::to_string(number_of(criterion.args, 3, 2));
    for (const OperatorName& op : port_operators()) {
      if (criterion.args[0] != static_cast<uint8_t>(op.code)) continue;
      add(container, "operator", json_string(op.name));
      return add(container, "port", first);
    }
    add(container, "lower-port", first);
    add(container, "upper-port", last);
  }

  void add_bytes(const CriterionKind& kind, const Criterion& criterion, const std::string& text) {
    const size_t size = criterion.args.size();
    if (size < kind.min || size > kind.max) return refuse("the match " + text);
    add(std::string(header_name(kind.header)), std::string(kind.field()),
        json_string(base64(criterion.args)));
  }

  void add_interface(const CriterionKind& kind, const Criterion& criterion) {
    const std::string name(criterion.args.begin() + 4, criterion.args.end());
    const bool known = number_of(criterion.args, 0, 4) == interface_index(name) &&
                       name_obstacle(name, std::string::npos).empty();
    if (!known) return refuse("the match " + criterion_text(criterion.type, criterion.args));
    add("", std::string(kind.field()), json_string(name));
  }

  void note_header(const std::string& container) {
    if (is_single(container, Header::eth)) matches_.headers |= acl_type_eth;
    if (is_single(container, Header::ipv4)) matches_.headers |= acl_type_ipv4;
    if (is_single(container, Header::ipv6)) matches_.headers |= acl_type_ipv6;
  }

  bool has(Header header) const {
    return std::any_of(
        matches_.containers.begin(), matches_.containers.end(),
        [header](const auto& container) { return is_single(container.first, header); });
  }

  // An entry of the model asks for one header of a layer at most.
  void check_choices() {
    const int third = has(Header::ipv4) + has(Header::ipv6);
    const int fourth = has(Header::tcp) + has(Header::udp) + has(Header::icmp);
    if (third > 1 || fourth > 1) refuse("matches on two headers that exclude each other");
  }

  Matches& matches_;
  std::set<std::string> names_;
};

void print_members(JsonPrinter& printer, const Containers& containers, const std::string& name) {
  const auto found = containers.find(name);
  if (found == containers.end()) return;
  for (const auto& [member, json] : found->second) printer.member(member).json(json);
}

}  // namespace

Matches sort_matches(const Entry& entry) {
  Matches matches;
  Sorter(matches).sort(entry);
  return matches;
}

void print_matches(JsonPrinter& printer, const Containers& containers) {
  printer.object();
  print_members(printer, containers, "");
  for (const Header header : header_order) {
    const std::string name(header_name(header));
    const std::string below = name + "/";
    const auto first = containers.lower_bound(name);
    if (first == containers.end() || !is_single(first->first, header)) continue;
    printer.member(name).object();
    print_members(printer, containers, name);
    for (auto at = containers.lower_bound(below);
         at != containers.end() && at->first.starts_with(below); at++) {
      printer.member(at->first.substr(below.size())).object();
      print_members(printer, containers, at->first);
      printer.close();
    }
    printer.close();
  }
  printer.close();
}

}  // namespace qimctl::rfc8519
