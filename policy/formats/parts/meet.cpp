// What several criteria come to together.
#include <algorithm>

#include "policy/base/criteria.h"
#include "policy/formats/parts/criteria.h"

namespace qimctl::formats {

namespace {

uint32_t header_of(const Criterion& criterion) {
  return criterion.type & 0xff00u;
}

// Headers that exclude each other: one of a layer is all that a packet has.
bool exclude(uint32_t a, uint32_t b) {
  const auto layer = [](uint32_t header) {
    if (header == QIM_HEADER_IPV4 || header == QIM_HEADER_IPV6) return 3;
    if (header == QIM_HEADER_TCP || header == QIM_HEADER_UDP || header == QIM_HEADER_ICMP) return 4;
    return 0;
  };
  return a != b && layer(a) != 0 && layer(a) == layer(b);
}

Meeting meet_prefixes(Criterion& known, const Criterion& also) {
  const Criterion& wide = known.args.back() <= also.args.back() ? known : also;
  const Criterion& narrow = &wide == &known ? also : known;
  for (uint32_t bit = 0; bit < wide.args.back(); bit++) {
    const uint32_t mask = 0x80u >> bit % 8;
    if (((wide.args[bit / 8] ^ narrow.args[bit / 8]) & mask) != 0) return Meeting::none;
  }
  known.args = std::vector<uint8_t>(narrow.args);
  return Meeting::some;
}

// Of ports that are a range; those that any format here reads are, but for "other than one".
std::optional<PortRange> range_of(const Criterion& criterion) {
  const auto op = static_cast<PortOperator>(criterion.args[0]);
  if (op != PortOperator::eq && op != PortOperator::range) return {};
  const auto port = [&criterion](size_t at) {
    return static_cast<uint32_t>(criterion.args[at]) << 8 | criterion.args[at + 1];
  };
  return PortRange{port(1), port(3)};
}

Meeting meet_ports(Criterion& known, const Criterion& also) {
  const auto a = range_of(known);
  const auto b = range_of(also);
  if (!a || !b) return Meeting::open;
  const PortRange both{std::max(a->first, b->first), std::min(a->last, b->last)};
  if (both.first > both.last) return Meeting::none;
  known = ports_criterion(known.type, both);
  return Meeting::some;
}

// Two of one type that are not the same.
Meeting meet_type(Criterion& known, const Criterion& also) {
  switch (find_criterion_kind(known.type)->encoding) {
    case Encoding::ipv4_prefix:
    case Encoding::ipv6_prefix:
      return meet_prefixes(known, also);
    case Encoding::ports:
      return meet_ports(known, also);
    case Encoding::mac:
      return Meeting::open;
    default:
      return Meeting::none;
  }
}

// A header is asked for by every match on its fields, too.
void drop_implied_headers(std::vector<Criterion>& criteria) {
  const auto implied = [&criteria](const Criterion& one) {
    return header_of(one) == one.type &&
           std::any_of(criteria.begin(), criteria.end(), [&one](const Criterion& other) {
             return header_of(other) == one.type && other.type != one.type;
           });
  };
  const auto first = std::find_if(criteria.begin(), criteria.end(), implied);
  if (first != criteria.end()) criteria.erase(first);
}

bool comes_first(const Criterion& a, const Criterion& b) {
  return a.type != b.type ? a.type < b.type : a.args < b.args;
}

}  // namespace

Meeting meet(std::vector<Criterion>& criteria, const Criterion& also) {
  for (Criterion& known : criteria) {
    if (known.type == also.type && known.args == also.args) return Meeting::some;
    if (exclude(header_of(known), header_of(also))) return Meeting::none;
    if (known.type == also.type && also.type != criterion_opaque) return meet_type(known, also);
  }
  criteria.insert(std::upper_bound(criteria.begin(), criteria.end(), also, comes_first), also);
  drop_implied_headers(criteria);
  return Meeting::some;
}

std::optional<std::vector<Entry>> expand(const Entry& entry, const std::vector<Choice>& choices) {
  std::vector<Entry> entries{entry};
  for (const Choice& choice : choices) {
    if (entries.size() * choice.size() > max_alternatives) return {};
    std::vector<Entry> more;
    for (const Entry& one : entries) {
      for (const std::vector<Criterion>& alternative : choice) {
        Entry both = one;
        Meeting meeting = Meeting::some;
        for (const Criterion& criterion : alternative) {
          meeting = meet(both.criteria, criterion);
          if (meeting != Meeting::some) break;
        }
        if (meeting == Meeting::open) return {};
        if (meeting == Meeting::some) more.push_back(std::move(both));
      }
    }
    entries = std::move(more);
  }
  return entries;
}

}  // namespace qimctl::formats
