// Entries as boxes.
#include "policy/analysis/space.h"

#include <algorithm>

namespace qimctl {

namespace {

constexpr std::array shapes{Shape::other,    Shape::ipv4,      Shape::ipv4_tcp,
                            Shape::ipv4_udp, Shape::ipv4_icmp, Shape::ipv6,
                            Shape::ipv6_tcp, Shape::ipv6_udp,  Shape::ipv6_icmp};

constexpr uint64_t no_ethernet = 0x10000;
constexpr uint64_t no_ethernet_of_ip = 3;

std::optional<uint64_t> ethertype_place(Shape shape, uint64_t type) {
  if (shape == Shape::other) return type;
  const bool is_own =
      type == (shape_network(shape) == Header::ipv4 ? ethertype_ipv4 : ethertype_ipv6);
  if (is_own) return 0;
  if (type == ethertype_vlan) return 1;
  if (type == ethertype_provider_vlan) return 2;
  return {};
}

bool has_header(Shape shape, Header header) {
  return header == Header::eth || header == shape_network(shape) ||
         header == shape_transport(shape);
}

template <typename Value>
size_t place_of(const std::vector<Value>& sorted, const Value& value) {
  return static_cast<size_t>(std::lower_bound(sorted.begin(), sorted.end(), value) -
                             sorted.begin());
}

void add_once(std::vector<std::vector<uint8_t>>& sorted, const std::vector<uint8_t>& bytes) {
  const size_t place = place_of(sorted, bytes);
  if (place < sorted.size() && sorted[place] == bytes) return;
  sorted.insert(sorted.begin() + static_cast<std::ptrdiff_t>(place), bytes);
}

bool same_question(const Criterion& a, const Criterion& b) {
  return a.type == b.type && a.args == b.args;
}

Range single(uint64_t value) {
  return {{0, value}, {0, value}};
}

Range intersection(bool masked, const Range& a, const Range& b) {
  if (masked) return {{0, a.first.low | b.first.low}, {0, a.last.low | b.last.low}};
  return {std::max(a.first, b.first), std::min(a.last, b.last)};
}

}  // namespace

Header shape_network(Shape shape) {
  if (shape == Shape::other) return Header::entry;
  return shape < Shape::ipv6 ? Header::ipv4 : Header::ipv6;
}

Header shape_transport(Shape shape) {
  switch (shape) {
    case Shape::ipv4_tcp:
    case Shape::ipv6_tcp:
      return Header::tcp;
    case Shape::ipv4_udp:
    case Shape::ipv6_udp:
      return Header::udp;
    case Shape::ipv4_icmp:
    case Shape::ipv6_icmp:
      return Header::icmp;
    default:
      return Header::entry;
  }
}

uint64_t without_ethernet(Shape shape) {
  return shape == Shape::other ? no_ethernet : no_ethernet_of_ip;
}

std::optional<uint64_t> shape_value(Shape shape, Field field) {
  const Header transport = shape_transport(shape);
  if (transport == Header::entry) return {};
  if (field == Field::offset) return 0;
  if (field != Field::protocol) return {};
  if (transport == Header::tcp) return protocol_tcp;
  if (transport == Header::udp) return protocol_udp;
  return shape == Shape::ipv4_icmp ? protocol_icmp : protocol_icmp6;
}

Space::Space(const std::vector<const Entry*>& entries, At at) : at_(std::move(at)) {
  for (const Entry* entry : entries) note_names(*entry);
  for (const Entry* entry : entries) note_dimensions(*entry);
  for (Dims& dims : dims_) {
    std::sort(dims.list.begin(), dims.list.end());
    dims.list.erase(std::unique(dims.list.begin(), dims.list.end()), dims.list.end());
    for (const Dimension& dimension : dims.list)
      dims.masked.push_back(dimension.kind == Dimension::Kind::masked);
  }
}

void Space::note_names(const Entry& entry) {
  for (const Criterion& criterion : entry.criteria) {
    const Condition condition = to_condition(criterion);
    switch (condition.kind) {
      case Condition::Kind::options:
        add_once(options_, condition.bytes);
        break;
      case Condition::Kind::rest:
        add_once(rests_, condition.bytes);
        break;
      case Condition::Kind::ingress:
        add_once(ingress_, condition.bytes);
        break;
      case Condition::Kind::egress:
        add_once(egress_, condition.bytes);
        break;
      case Condition::Kind::undecided:
        if (std::none_of(questions_.begin(), questions_.end(),
                         [&](const Criterion& known) { return same_question(known, criterion); }))
          questions_.push_back(criterion);
        break;
      default:
        break;
    }
  }
}

void Space::note_dimensions(const Entry& entry) {
  for (const Criterion& criterion : entry.criteria) {
    const Condition condition = to_condition(criterion);
    for (const Shape shape : shapes) {
      std::vector<Dimension>& list = dims_[static_cast<size_t>(shape)].list;
      const Demand asked = demand(shape, condition, criterion);
      if (!asked.impossible && asked.dimension &&
          std::find(list.begin(), list.end(), *asked.dimension) == list.end())
        list.push_back(*asked.dimension);
      const bool has_ethernet = condition.header == Header::eth;
      const Dimension ethertype{Dimension::Kind::ethertype, Field::ethertype, 0};
      if (has_ethernet && std::find(list.begin(), list.end(), ethertype) == list.end())
        list.push_back(ethertype);
    }
  }
}

Range Space::domain(Shape shape, const Dimension& dimension) const {
  switch (dimension.kind) {
    case Dimension::Kind::ethertype:
      return {{}, {0, without_ethernet(shape)}};
    case Dimension::Kind::masked:
      return {};
    case Dimension::Kind::options:
      return {{}, {0, options_.size()}};
    case Dimension::Kind::rest:
      // Every message begins with no bytes.
      return {{0, !rests_.empty() && rests_.front().empty() ? uint64_t{1} : 0}, {0, rests_.size()}};
    case Dimension::Kind::ingress:
      return {{}, {0, ingress_.size()}};
    case Dimension::Kind::egress:
      return {{}, {0, egress_.size()}};
    case Dimension::Kind::undecided:
      return {{}, {0, 1}};
    case Dimension::Kind::number:
      break;
  }
  if (dimension.field == Field::ihl) return {{0, 5}, {0, 15}};
  return {{}, fill({}, field_bits(dimension.field, shape_network(shape)))};
}

Space::Demand Space::demand_number(Shape shape, const Condition& condition) const {
  Demand asked;
  if (const auto fixed = shape_value(shape, condition.field)) {
    const Wide value{0, *fixed};
    asked.impossible = value < condition.first || condition.last < value;
    return asked;
  }
  asked.dimension = Dimension{Dimension::Kind::number, condition.field, 0};
  const Range all = domain(shape, *asked.dimension);
  if (condition.kind == Condition::Kind::range) {
    asked.ranges = {intersection(false, all, {condition.first, condition.last})};
  } else {
    if (all.first < condition.first) asked.ranges.push_back({all.first, previous(condition.first)});
    if (condition.last < all.last) asked.ranges.push_back({next(condition.last), all.last});
  }
  std::erase_if(asked.ranges, [](const Range& range) { return range.last < range.first; });
  asked.impossible = asked.ranges.empty();
  return asked;
}

Space::Demand Space::demand_string(const Condition& condition) const {
  const bool is_options = condition.kind == Condition::Kind::options;
  const std::vector<Bytes>& known = is_options ? options_ : rests_;
  const uint64_t place = place_of(known, condition.bytes) + 1;
  Demand asked;
  asked.dimension = Dimension{is_options ? Dimension::Kind::options : Dimension::Kind::rest, {}, 0};
  Range range = single(place);
  // Strings that begin like this one follow it.
  const auto begins_so = [&condition](const Bytes& longer) {
    return longer.size() >= condition.bytes.size() &&
           std::equal(condition.bytes.begin(), condition.bytes.end(), longer.begin());
  };
  while (!is_options && range.last.low < known.size() &&
         begins_so(known[static_cast<size_t>(range.last.low)]))
    range.last.low++;
  asked.ranges = {range};
  return asked;
}

Space::Demand Space::demand_interface(const Condition& condition) const {
  const bool is_ingress = condition.kind == Condition::Kind::ingress;
  const std::string& there = is_ingress ? at_.ingress : at_.egress;
  Demand asked;
  if (!there.empty()) {
    asked.impossible = Bytes(there.begin(), there.end()) != condition.bytes;
    return asked;
  }
  asked.dimension =
      Dimension{is_ingress ? Dimension::Kind::ingress : Dimension::Kind::egress, {}, 0};
  asked.ranges = {single(place_of(is_ingress ? ingress_ : egress_, condition.bytes) + 1)};
  return asked;
}

Space::Demand Space::demand(Shape shape, const Condition& condition,
                            const Criterion& criterion) const {
  Demand asked;
  if (condition.kind == Condition::Kind::always) return asked;
  if (condition.kind == Condition::Kind::ingress || condition.kind == Condition::Kind::egress)
    return demand_interface(condition);
  if (condition.kind == Condition::Kind::undecided) {
    const auto question =
        std::find_if(questions_.begin(), questions_.end(),
                     [&](const Criterion& known) { return same_question(known, criterion); });
    asked.dimension = Dimension{
        Dimension::Kind::undecided, {}, static_cast<size_t>(question - questions_.begin())};
    asked.ranges = {single(1)};
    return asked;
  }
  asked.impossible = !has_header(shape, condition.header);
  if (asked.impossible) return asked;
  const Dimension ethertype{Dimension::Kind::ethertype, Field::ethertype, 0};
  if (condition.header == Header::eth && condition.kind == Condition::Kind::header) {
    asked.dimension = ethertype;
    asked.ranges = {{{}, {0, without_ethernet(shape) - 1}}};
  } else if (condition.kind == Condition::Kind::range && condition.field == Field::ethertype) {
    const auto place = ethertype_place(shape, condition.first.low);
    asked.impossible = !place;
    asked.dimension = ethertype;
    if (place) asked.ranges = {single(*place)};
  } else if (condition.kind == Condition::Kind::masked) {
    asked.dimension = Dimension{Dimension::Kind::masked, condition.field, 0};
    asked.ranges = {{condition.first, condition.last}};
  } else if (condition.has_range()) {
    return demand_number(shape, condition);
  } else if (condition.kind != Condition::Kind::header) {
    return demand_string(condition);
  }
  return asked;
}

std::vector<Range> Space::whole(Shape shape) const {
  std::vector<Range> box;
  for (const Dimension& dimension : dimensions(shape)) box.push_back(domain(shape, dimension));
  return box;
}

Boxes Space::boxes(Shape shape, const Entry& entry) const {
  const Dims& of = dims(shape);
  std::vector<std::vector<Range>> all{whole(shape)};
  const auto narrow = [&](const Demand& asked) {
    const size_t at = place_of(of.list, *asked.dimension);
    std::vector<std::vector<Range>> narrowed;
    for (const std::vector<Range>& box : all) {
      for (const Range& range : asked.ranges) {
        const std::array<Range, 2> both{box[at], range};
        if (!overlap({of.masked[at]}, Box(both).first(1), Box(both).last(1))) continue;
        narrowed.push_back(box);
        narrowed.back()[at] = intersection(of.masked[at], box[at], range);
      }
    }
    all = std::move(narrowed);
  };
  for (const Criterion& criterion : entry.criteria) {
    const Condition condition = to_condition(criterion);
    const Demand asked = demand(shape, condition, criterion);
    if (asked.impossible) return Boxes(of.list.size());
    if (asked.dimension) narrow(asked);
    if (condition.header != Header::eth) continue;
    Condition there = condition;
    there.kind = Condition::Kind::header;
    narrow(demand(shape, there, criterion));
  }
  Boxes found(of.list.size());
  for (const std::vector<Range>& box : all) found.add(box);
  return found;
}

}  // namespace qimctl
