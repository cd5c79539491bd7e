// Conditions of entries as matches on the bytes of packets.
#include "policy/formats/nft/conditions.h"

#include <algorithm>
#include <array>
#include <span>

#include "policy/base/criteria.h"
#include "policy/base/json_print.h"
#include "policy/formats/nft/expressions.h"
#include "policy/formats/nft/names.h"

namespace qimctl::nft {

namespace {

// Where a field lies: the bytes that hold it, and how many bits of them are behind it.
struct Location {
  uint32_t type;  // of the criterion
  Bits bits;
  uint32_t shift;
  uint32_t width;
};

constexpr Location at(uint32_t type, Base base, uint32_t offset, uint32_t width) {
  return {type, {base, offset, width}, 0, width};
}
constexpr Location inside(uint32_t type, Base base, uint32_t offset, uint32_t length,
                          uint32_t shift, uint32_t width) {
  return {type, {base, offset, length}, shift, width};
}

constexpr Base ll = Base::link;
constexpr Base nh = Base::network;
constexpr Base th = Base::transport;
constexpr Bits ipv4_protocol{Base::network, 72, 8};
constexpr std::array locations{
    at(0x0201, ll, 0, 48),
    at(0x0202, ll, 48, 48),
    at(0x0203, ll, 96, 16),
    inside(0x0301, nh, 8, 8, 2, 6),
    inside(0x0302, nh, 8, 8, 0, 2),
    at(0x0303, nh, 16, 16),
    at(0x0304, nh, 64, 8),
    inside(0x0306, nh, 0, 8, 0, 4),
    inside(0x0307, nh, 48, 8, 5, 3),
    inside(0x0308, nh, 48, 16, 0, 13),
    at(0x0309, nh, 32, 16),
    at(0x030a, nh, 128, 32),
    at(0x030b, nh, 96, 32),
    inside(0x0401, nh, 0, 16, 6, 6),
    inside(0x0402, nh, 0, 16, 4, 2),
    at(0x0403, nh, 32, 16),
    at(0x0404, nh, 56, 8),
    at(0x0406, nh, 192, 128),
    at(0x0407, nh, 64, 128),
    inside(0x0408, nh, 0, 32, 0, 20),
    at(0x0501, th, 32, 32),
    at(0x0502, th, 64, 32),
    inside(0x0503, th, 96, 8, 4, 4),
    inside(0x0504, th, 96, 8, 0, 4),
    at(0x0505, th, 104, 8),
    at(0x0506, th, 112, 16),
    at(0x0507, th, 144, 16),
    at(0x0509, th, 0, 16),
    at(0x050a, th, 16, 16),
    at(0x0601, th, 32, 16),
    at(0x0602, th, 0, 16),
    at(0x0603, th, 16, 16),
    at(0x0701, th, 0, 8),
    at(0x0702, th, 8, 8),
};

const Location& location_of(uint32_t type) {
  size_t i = 0;
  while (locations[i].type != type) i++;
  return locations[i];
}

uint64_t ones(uint32_t width) {
  return (uint64_t{1} << width) - 1;
}

// Bits of the field that `mask` names must be those of `value`.
std::string bits_match(const Location& where, uint64_t mask, uint64_t value) {
  const std::string bytes = payload(where.bits);
  mask <<= where.shift;
  value <<= where.shift;
  if (mask == ones(where.bits.length)) return equal(bytes, number(value));
  return equal(masked(bytes, mask), number(value));
}

// Network addresses of IPv6, 32 bits at a time: more is no number in JSON.
void add_prefix(std::vector<std::string>& matches, const Location& where,
                const Condition& condition) {
  const std::array<uint64_t, 4> first{condition.first.high >> 32, condition.first.high & ones(32),
                                      condition.first.low >> 32, condition.first.low & ones(32)};
  const Wide free{condition.first.high ^ condition.last.high,
                  condition.first.low ^ condition.last.low};
  const std::array<uint64_t, 4> open{free.high >> 32, free.high & ones(32), free.low >> 32,
                                     free.low & ones(32)};
  for (uint32_t i = 0; i < 4; i++) {
    const uint64_t mask = ~open[i] & ones(32);
    const Location part = at(where.type, where.bits.base, where.bits.offset + 32 * i, 32);
    if (mask != 0) matches.push_back(bits_match(part, mask, first[i]));
  }
}

// Are the numbers those that begin with the same bits?
bool is_prefix(const Condition& condition) {
  const Wide free{condition.first.high ^ condition.last.high,
                  condition.first.low ^ condition.last.low};
  const Wide above = next(free);
  return (above.high & free.high) == 0 && (above.low & free.low) == 0 &&
         (condition.first.high & free.high) == 0 && (condition.first.low & free.low) == 0;
}

uint32_t protocol_of(Header transport, Header network) {
  if (transport == Header::tcp) return protocol_tcp;
  if (transport == Header::udp) return protocol_udp;
  return network == Header::ipv4 ? protocol_icmp : protocol_icmp6;
}

// A match that the packet has the header, among packets that are whole.
std::string transport_match(Header transport, const std::optional<Header>& network) {
  const std::string protocol = meta("l4proto");
  if (transport != Header::icmp || network)
    return equal(protocol, number(protocol_of(transport, network.value_or(Header::ipv4))));
  return equal(protocol, set_of({number(protocol_icmp), number(protocol_icmp6)}));
}

void append(std::vector<std::string>& to, const std::vector<std::string>& more) {
  to.insert(to.end(), more.begin(), more.end());
}

}  // namespace

EntryConditions::EntryConditions(const Entry& entry, bool at_ingress, bool at_egress) {
  for (const Criterion& criterion : entry.criteria)
    if (obstacle_.empty()) add(criterion, at_ingress, at_egress);
  if (protocol_ && transport_) settle_protocol();
}

void EntryConditions::add_protocol(uint32_t number) {
  protocol_ = number;
}

// The header says which protocol it is, so the entry need not. One that contradicts itself must not reach
// the filter's library: it ends the process for some such rules.
void EntryConditions::settle_protocol() {
  if (!network_ || *protocol_ != protocol_of(*transport_, *network_)) never_ = true;
  protocol_.reset();
}

void EntryConditions::add_header(Header header) {
  if (header == Header::ipv4 || header == Header::ipv6) {
    if (network_ && *network_ != header) never_ = true;
    network_ = header;
  }
  if (header == Header::tcp || header == Header::udp || header == Header::icmp) {
    if (transport_ && *transport_ != header) never_ = true;
    transport_ = header;
  }
}

void EntryConditions::add(const Criterion& criterion, bool at_ingress, bool at_egress) {
  const Condition condition = to_condition(criterion);
  const std::string text = criterion_text(criterion.type, criterion.args);
  add_header(condition.header);
  switch (condition.kind) {
    case Condition::Kind::always:
    case Condition::Kind::header:
      return;
    case Condition::Kind::range:
    case Condition::Kind::except:
    case Condition::Kind::masked:
      return add_number(condition, criterion.type);
    case Condition::Kind::rest:
      return add_rest(condition, text);
    case Condition::Kind::options:
      return add_options(condition);
    case Condition::Kind::undecided:
      obstacle_ = "the match " + text + ", which only another model decides";
      return;
    case Condition::Kind::ingress:
    case Condition::Kind::egress:
      break;
  }
  const bool is_ingress = condition.kind == Condition::Kind::ingress;
  if (is_ingress ? at_egress : at_ingress) {
    obstacle_ = "the match " + text +
                (is_ingress ? " of packets that leave" : " of packets that come in") +
                ", of which that interface is not known";
    return;
  }
  const std::string name(condition.bytes.begin(), condition.bytes.end());
  switch (interface_name(name)) {
    case InterfaceName::possible:
      break;
    case InterfaceName::impossible:
      never_ = true;
      return;
    case InterfaceName::ambiguous:
      obstacle_ = "the match " + text + ", which the packet filter could take for something else";
      return;
  }
  interface_.push_back(equal(meta(is_ingress ? "iifname" : "oifname"), json_string(name)));
}

// Four bytes at a time: more is no number in JSON.
void EntryConditions::add_bytes(const Condition& condition, const Bits& begin) {
  const std::span<const uint8_t> bytes(condition.bytes);
  for (size_t at = 0; at < bytes.size(); at += 4) {
    const size_t count = std::min<size_t>(4, bytes.size() - at);
    l4_.push_back(equal(payload({begin.base, begin.offset + static_cast<uint32_t>(8 * at),
                                 static_cast<uint32_t>(8 * count)}),
                        number(to_wide(bytes.subspan(at, count)).low)));
  }
}

// A header that is whole has as many as its length says, in words of 4 bytes.
void EntryConditions::add_options(const Condition& condition) {
  wants_tcp_options_ = true;
  const size_t words = 5 + condition.bytes.size() / 4;
  never_whole_ = never_whole_ || condition.bytes.size() % 4 != 0 || words > 15;
  l4_.push_back(equal(masked(payload({Base::transport, 96, 8}), 0xf0), number(words << 4)));
  add_bytes(condition, {Base::transport, 160, 0});
}

void EntryConditions::add_rest(const Condition& condition, const std::string& text) {
  constexpr size_t most = 240;  // which the kernel reaches
  if (condition.bytes.size() > most) obstacle_ = "the match " + text;
  icmp_bytes_ = static_cast<uint32_t>(condition.bytes.size());
  add_bytes(condition, {Base::transport, 32, 0});
}

void EntryConditions::add_number(const Condition& condition, uint32_t type) {
  if (condition.field == Field::protocol)
    return add_protocol(static_cast<uint32_t>(condition.first.low));
  std::vector<std::string>& matches = condition.header == Header::eth     ? eth_
                                      : condition.field < Field::sequence ? ip_
                                                                          : l4_;
  const Location& where = location_of(type);
  if (condition.kind == Condition::Kind::masked) {
    if (condition.last.low != 0)
      matches.push_back(bits_match(where, condition.last.low, condition.first.low));
    return;
  }
  const bool is_except = condition.kind == Condition::Kind::except;
  if (where.width > 64) {
    if (!is_prefix(condition)) {
      obstacle_ = "an address with bits behind its length";
      return;
    }
    return add_prefix(matches, where, condition);
  }
  const uint64_t first = condition.first.low;
  const uint64_t last = std::min(condition.last.low, ones(where.width));
  if (first > last) {
    never_ = never_ || !is_except;
    return;
  }
  if (first == 0 && last == ones(where.width)) {
    never_ = never_ || is_except;
    return;
  }
  const bool is_port =
      condition.field == Field::source_port || condition.field == Field::destination_port;
  if (!is_except && (is_port || where.width == 32) && condition.field != Field::sequence &&
      condition.field != Field::acknowledgement)
    spans_.push_back({where.bits, first, last});
  if (first == last && !is_except)
    return matches.push_back(bits_match(where, ones(where.width), first));
  if (where.width == 32 && is_prefix(condition))
    return matches.push_back(bits_match(where, ones(32) & ~(first ^ last), first));
  const std::string numbers = range(first, last);
  matches.push_back(is_except ? differs(payload(where.bits), numbers)
                              : equal(payload(where.bits), numbers));
}

// That of IPv6 lies behind the extension headers.
void EntryConditions::add_protocol_match(std::vector<std::string>& matches) const {
  if (!protocol_) return;
  const bool is_ipv4 = *network_ == Header::ipv4;
  matches.push_back(equal(is_ipv4 ? payload(ipv4_protocol) : meta("l4proto"), number(*protocol_)));
}

std::string EntryConditions::network_text() const {
  if (!network_) return "";
  return *network_ == Header::ipv4 ? "ip" : "ip6";
}

std::vector<std::string> EntryConditions::network_matches() const {
  std::vector<std::string> matches = interface_;
  if (network_) matches.push_back(equal(meta("protocol"), json_string(network_text())));
  append(matches, eth_);
  return matches;
}

Asked EntryConditions::ask(Kind kind) const {
  if (never_) return {};
  Asked asked;
  asked.answer = Answer::yes;
  asked.matches = network_matches();
  switch (kind) {
    case Kind::whole:
      if (never_whole_) return {};
      if (transport_) asked.matches.push_back(transport_match(*transport_, network_));
      append(asked.matches, ip_);
      add_protocol_match(asked.matches);
      append(asked.matches, l4_);
      return asked;
    case Kind::bare:
      if (transport_) return {};
      append(asked.matches, ip_);
      add_protocol_match(asked.matches);
      return asked;
    case Kind::other:
      if (transport_ || network_) return {};
      return asked;
    case Kind::unsure_l4:
      append(asked.matches, ip_);
      if (transport_ || (protocol_ && *network_ == Header::ipv6)) {
        asked.answer = Answer::open;
      } else {
        add_protocol_match(asked.matches);
      }
      return asked;
    case Kind::unsure_l3:
      break;
  }
  if (transport_ || network_) {
    asked.answer = Answer::open;
    asked.matches = interface_;
    append(asked.matches, eth_);
  }
  return asked;
}

}  // namespace qimctl::nft
