// Boxes in words, and packets out of them.
#include <algorithm>

#include "policy/analysis/space.h"
#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/model/words.h"
#include "policy/trace/packet_words.h"
#include "policy/trace/vocabulary.h"

namespace qimctl {

namespace {

std::string text_of(const std::vector<uint8_t>& bytes) {
  return {bytes.begin(), bytes.end()};
}

// An address or a network where the range is one, else the first and the last address.
std::string addresses_text(Header network, const Range& range) {
  const uint32_t bits = network == Header::ipv4 ? 32 : 128;
  std::string first = address_text(network, range.first);
  if (range.first == range.last) return first;
  for (uint32_t free = 1; free <= bits; free++) {
    Wide clear = range.first;
    if (fill(clear, free) != range.last) continue;
    // The bits that are free must be 0 in the first address.
    if (free < 64 && (clear.low & ((uint64_t{1} << free) - 1)) != 0) break;
    if (free >= 64 && clear.low != 0) break;
    if (free > 64 && free < 128 && (clear.high & ((uint64_t{1} << (free - 64)) - 1)) != 0) break;
    if (free == 128 && clear.high != 0) break;
    return first + "/" + std::to_string(bits - free);
  }
  return first + "-" + address_text(network, range.last);
}

std::string numbers_text(const Range& range) {
  const std::string first = std::to_string(range.first.low);
  return range.first == range.last ? first : first + "-" + std::to_string(range.last.low);
}

std::string masked_text(const Range& range) {
  constexpr uint64_t all = 0xffffffffffff;
  const std::string mac = mac_text(range.first.low);
  return range.last.low == all ? mac : mac + "/" + mac_text(range.last.low);
}

std::string flags_text(uint32_t criterion, const Range& range) {
  const auto flags = static_cast<uint8_t>(range.first.low);
  const std::string text = criterion_text(criterion, {&flags, 1});
  return range.first == range.last ? text.substr(text.find(' ') + 1) : numbers_text(range);
}

std::string number_words_of(Shape shape, Field field, const Range& range) {
  switch (field) {
    case Field::source:
      return "from " + addresses_text(shape_network(shape), range);
    case Field::destination:
      return "to " + addresses_text(shape_network(shape), range);
    case Field::source_port:
      return "source-port " + numbers_text(range);
    case Field::destination_port:
      return "destination-port " + numbers_text(range);
    case Field::tcp_flags:
      return "flags " + flags_text(0x0505, range);
    case Field::ip_flags:
      return "ip-flags " + flags_text(0x0307, range);
    case Field::icmp_type:
      return "type " + numbers_text(range);
    default:
      break;
  }
  for (const NumberWord& word : number_words())
    if (word.field == field) return std::string(word.name) + " " + numbers_text(range);
  return "";
}

std::string ethertype_words(Shape shape, const Range& range) {
  const auto one = [shape](uint64_t place) -> std::string {
    if (shape == Shape::other)
      return place == without_ethernet(shape) ? "no-eth" : "ethertype " + hex_number(place, 4);
    static constexpr std::array names{"untagged", "vlan", "ethertype 0x88a8", "no-eth"};
    return names[static_cast<size_t>(place)];
  };
  std::string first = one(range.first.low);
  if (range.first == range.last) return first;
  if (range.first.low == 0 && range.last.low == without_ethernet(shape) - 1) return "eth";
  return first + " to " + one(range.last.low);
}

// "options 0101" of its place among the strings, and of all others.
std::string place_words(const std::string& what, const std::vector<std::string>& known,
                        const Range& range) {
  std::string text;
  for (uint64_t place = range.first.low; place <= range.last.low; place++) {
    text += text.empty() ? what + " " : " or ";
    text += place == 0 ? "other" : known[static_cast<size_t>(place - 1)];
  }
  return text;
}

std::string headers_text(const std::vector<Shape>& shapes) {
  static constexpr std::array names{"no-ip", "ipv4 no-transport", "ipv4 tcp", "ipv4 udp",
                                    "icmp",  "ipv6 no-transport", "ipv6 tcp", "ipv6 udp",
                                    "icmp6"};
  const auto has = [&shapes](Shape shape) {
    return std::find(shapes.begin(), shapes.end(), shape) != shapes.end();
  };
  if (shapes.size() == shape_count) return "any";
  std::string text;
  const auto add = [&text](const std::string& name) {
    text += (text.empty() ? "" : " or ") + name;
  };
  if (has(Shape::other)) add(names[0]);
  for (const size_t first : {size_t{1}, size_t{5}}) {
    bool all = true;
    for (size_t i = first; i < first + 4; i++) all = all && has(static_cast<Shape>(i));
    if (all) {
      add(first == 1 ? "ipv4" : "ipv6");
      continue;
    }
    for (size_t i = first; i < first + 4; i++)
      if (has(static_cast<Shape>(i))) add(names[i]);
  }
  return text;
}

// Values that are easy to recognise where every value would do.
Wide pleasant(Shape shape, Field field) {
  const bool is_ipv4 = shape_network(shape) == Header::ipv4;
  switch (field) {
    case Field::source:
      return is_ipv4 ? Wide{0, 0xc0000201} : Wide{0x20010db800000000, 1};
    case Field::destination:
      return is_ipv4 ? Wide{0, 0xc6336401} : Wide{0x20010db800000000, 2};
    case Field::ttl:
      return {0, 64};
    case Field::source_port:
      return {0, 49152};
    case Field::ihl:
      return {0, 5};
    case Field::protocol:
      return {0, 47};
    case Field::destination_port:
      return {0, 80};
    default:
      return {};
  }
}

// The Ethernet header, or none, with a type that is in the range.
void set_ethernet(Packet& packet, Shape shape, const Range& range) {
  const uint64_t none = without_ethernet(shape);
  packet.set_header(Header::eth, range.first.low == none ? Truth::no : Truth::yes);
  if (range.first.low == none) return;
  if (shape == Shape::other) {
    const Wide arp{0, ethertype_arp};
    packet.set(Field::ethertype, range.first <= arp && arp <= range.last ? arp : range.first);
    return;
  }
  const bool is_ipv4 = shape_network(shape) == Header::ipv4;
  const std::array types{is_ipv4 ? ethertype_ipv4 : ethertype_ipv6, ethertype_vlan,
                         ethertype_provider_vlan};
  packet.set(Field::ethertype, types[static_cast<size_t>(range.first.low)]);
  if (range.first.low != 0) packet.vlans = {1};
}

// A value in the range.
Wide choose(Shape shape, Field field, const Range& range) {
  // A packet without the header that follows is most often a later fragment.
  if (field == Field::offset && range.first == Wide{} && range.first < range.last) return {0, 1};
  const Wide wanted = pleasant(shape, field);
  return range.first <= wanted && wanted <= range.last ? wanted : range.first;
}

}  // namespace

std::string Space::question_text(size_t question) const {
  Entry entry;
  entry.criteria = {questions_[question]};
  return criteria_words(entry);
}

std::string Space::dimension_words(Shape shape, const Dimension& dimension,
                                   const Range& range) const {
  std::vector<std::string> known;
  switch (dimension.kind) {
    case Dimension::Kind::ethertype:
      return ethertype_words(shape, range);
    case Dimension::Kind::number:
      return number_words_of(shape, dimension.field, range);
    case Dimension::Kind::masked:
      return (dimension.field == Field::source_mac ? "from " : "to ") + masked_text(range);
    case Dimension::Kind::options:
      for (const Bytes& bytes : options_) known.push_back(hex_bytes(bytes));
      return place_words("options", known, range);
    case Dimension::Kind::rest:
      for (const Bytes& bytes : rests_) known.push_back(hex_bytes(bytes) + "...");
      return place_words("rest-of-header", known, range);
    case Dimension::Kind::ingress:
      for (const Bytes& bytes : ingress_) known.push_back(name_word(text_of(bytes)));
      return place_words("entering", known, range);
    case Dimension::Kind::egress:
      for (const Bytes& bytes : egress_) known.push_back(name_word(text_of(bytes)));
      return place_words("leaving", known, range);
    case Dimension::Kind::undecided:
      break;
  }
  return (range.first.low == 0 ? "not " : "") + question_text(dimension.question);
}

std::string Space::words(const std::vector<Shape>& shapes, Box box) const {
  const Shape shape = shapes.front();
  std::string text = headers_text(shapes);
  const std::vector<Dimension>& list = dimensions(shape);
  for (size_t i = 0; i < list.size(); i++) {
    if (box[i] != domain(shape, list[i])) text += " " + dimension_words(shape, list[i], box[i]);
  }
  return text;
}

void Space::set_example(Packet& packet, Shape shape, const Dimension& dimension,
                        const Range& range) const {
  const auto place = static_cast<size_t>(range.first.low);
  const auto name = [place](const std::vector<Bytes>& names) {
    std::string other = "other";
    while (std::find(names.begin(), names.end(), Bytes(other.begin(), other.end())) != names.end())
      other += "-";
    return place == 0 ? other : text_of(names[place - 1]);
  };
  switch (dimension.kind) {
    case Dimension::Kind::number:
      return packet.set(dimension.field, choose(shape, dimension.field, range));
    case Dimension::Kind::masked:
      if (packet.has(Header::eth) == Truth::yes) packet.set(dimension.field, range.first);
      return;
    case Dimension::Kind::options:
      packet.tcp_options = Bytes{};
      if (place != 0) packet.tcp_options = options_[place - 1];
      while (place == 0 &&
             std::binary_search(options_.begin(), options_.end(), *packet.tcp_options))
        packet.tcp_options->push_back(1);
      return;
    case Dimension::Kind::rest:
      packet.icmp_rest = place == 0 ? Bytes{} : rests_[place - 1];
      return;
    case Dimension::Kind::ingress:
      packet.ingress = name(ingress_);
      return;
    case Dimension::Kind::egress:
      packet.egress = name(egress_);
      return;
    case Dimension::Kind::ethertype:
    case Dimension::Kind::undecided:
      return;
  }
}

Packet Space::example(Shape shape, Box box) const {
  Packet packet;
  packet.ingress = at_.ingress;
  packet.egress = at_.egress;
  packet.set_no_network();
  const Header network = shape_network(shape);
  const Header transport = shape_transport(shape);
  const std::vector<Dimension>& list = dimensions(shape);
  const Dimension ethertype{Dimension::Kind::ethertype, Field::ethertype, 0};
  const bool asked = !list.empty() && list.front() == ethertype;
  set_ethernet(packet, shape, asked ? box[0] : Range{{}, {0, without_ethernet(shape)}});
  if (network != Header::entry) {
    packet.set_network(network);
    for (const Field field : {Field::source, Field::destination})
      packet.set(field, pleasant(shape, field));
  }
  if (transport != Header::entry) {
    packet.set_transport(transport);
    packet.set(Field::protocol, *shape_value(shape, Field::protocol));
    if (network == Header::ipv4) packet.set(Field::offset, 0);
  }
  for (size_t i = 0; i < list.size(); i++) set_example(packet, shape, list[i], box[i]);
  return packet;
}

}  // namespace qimctl
