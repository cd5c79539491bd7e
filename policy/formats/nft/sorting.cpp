// The chains that sort packets.
//
// The kernel knows a transport header (`th`, `meta l4proto`) of IP packets only whose version and
// lengths are right. It does not look at where the packet ends according to these lengths, nor whether
// the header is whole: that is what is asked here. A packet that no rule takes on is sound, so the
// last rule of each chain takes it.
#include "policy/formats/nft/sorting.h"

#include <algorithm>
#include <array>

#include "policy/base/json_print.h"
#include "policy/formats/nft/expressions.h"
#include "policy/formats/nft/names.h"
#include "policy/trace/packet.h"

namespace qimctl::nft {

namespace {

struct Transport {
  uint32_t number;
  uint32_t least;  // bytes that its header has
};
constexpr std::array transports4{Transport{protocol_icmp, 4}, Transport{protocol_tcp, 20},
                                 Transport{protocol_udp, 8}};
constexpr std::array transports6{Transport{protocol_tcp, 20}, Transport{protocol_udp, 8},
                                 Transport{protocol_icmp6, 4}};

// Extension headers whose length is in the same place, in units of 8 bytes behind the first 8. A fragment
// header has 8 bytes. Behind one of authentication the kernel looks for nothing.
constexpr std::array<uint32_t, 3> plain_extensions{0, 43, 60};
constexpr uint32_t fragment = 44;
constexpr std::array<uint32_t, 8> extensions{0, 43, 44, 51, 60, 135, 139, 140};
// The lengths, as the headers have them, that are told apart.
constexpr uint32_t extension_lengths = 16;
constexpr uint32_t most = 65535;

constexpr Bits ipv4_first{Base::network, 0, 8};  // version and length of the header
constexpr Bits ipv4_length{Base::network, 16, 16};
constexpr Bits ipv4_offset{Base::network, 48, 16};
constexpr Bits protocol_field{Base::network, 72, 8};
constexpr Bits ipv6_length{Base::network, 32, 16};
constexpr Bits ipv6_next{Base::network, 48, 8};
constexpr Bits ipv6_first{Base::network, 0, 8};
constexpr Bits extension_next{Base::network, 320, 8};
constexpr Bits extension_length{Base::network, 328, 8};
constexpr Bits fragment_offset{Base::network, 336, 16};

template <size_t count>
std::vector<std::string> number_texts(const std::array<uint32_t, count>& all) {
  std::vector<std::string> texts(all.size());
  std::transform(all.begin(), all.end(), texts.begin(), [](uint32_t each) { return number(each); });
  return texts;
}

std::vector<std::string> protocol_texts(const std::array<Transport, 3>& transports) {
  std::vector<std::string> texts(transports.size());
  std::transform(transports.begin(), transports.end(), texts.begin(),
                 [](const Transport& each) { return number(each.number); });
  return texts;
}

// A chain of rules that hand on what matches.
class Sorter {
 public:
  Sorter(std::string name, const Targets& targets) : targets_(targets) {
    chain_.name = std::move(name);
  }
  // A kind without a target is no error: its packets pass.
  void hand_on(Kind kind, std::vector<std::string> matches) {
    const std::string& target = targets_.at(kind);
    matches.push_back(target.empty() ? verdict("accept") : go_to(target));
    add(matches);
  }
  void go(const std::string& chain, std::vector<std::string> matches) {
    matches.push_back(go_to(chain));
    add(matches);
  }
  Chain take() { return std::move(chain_); }

 private:
  void add(const std::vector<std::string>& all) {
    const std::string text = expressions(all);
    const std::string key = hash_text(mix(hash_seed, std::to_string(chain_.rules.size())));
    chain_.rules.push_back({rule_tag(key, text, "sorts packets"), text});
  }

  const Targets& targets_;
  Chain chain_;
};

// The kernel has looked at the lengths, and they are right.
std::string is_sound() {
  return equal(masked(meta("l4proto"), 0), number(0));
}

std::string is_no_later_fragment() {
  return equal(masked(payload(ipv4_offset), 0x1fff), number(0));
}

std::string ipv4_key() {
  return concat({payload(ipv4_first), payload(protocol_field), payload(ipv4_length)});
}

// IPv4 packets by the length of their header, their protocol and their whole length: those that have
// the transport header whole, or those that have not.
std::string ipv4_lengths(bool whole) {
  std::vector<std::string> elements;
  for (uint32_t words = 5; words < 16; words++) {
    for (const Transport& transport : transports4) {
      const uint32_t least = 4 * words + transport.least;
      elements.push_back(concat({number(0x40 + words), number(transport.number),
                                 whole ? range(least, most) : range(1, least - 1)}));
    }
  }
  return set_of(elements);
}

Chain sort_ipv4(const std::string& name, const std::string& unsound, const Targets& targets) {
  Sorter sorter(name, targets);
  sorter.hand_on(Kind::whole,
                 {is_sound(), is_no_later_fragment(), equal(ipv4_key(), ipv4_lengths(true))});
  sorter.hand_on(Kind::bare, {is_sound()});
  for (uint32_t words = 5; words < 16; words++)
    sorter.go(unsound, {equal(payload(ipv4_first), number(0x40 + words)),
                        lies_within({Base::network, 32 * words - 8, 8})});
  sorter.hand_on(Kind::other, {});
  return sorter.take();
}

// Of IPv4 packets whose lengths are wrong.
Chain sort_unsound_ipv4(const std::string& name, const Targets& targets) {
  Sorter sorter(name, targets);
  sorter.hand_on(Kind::bare,
                 {differs(payload(protocol_field), set_of(protocol_texts(transports4)))});
  sorter.hand_on(Kind::bare, {differs(masked(payload(ipv4_offset), 0x1fff), number(0))});
  sorter.hand_on(Kind::bare, {equal(ipv4_key(), ipv4_lengths(false))});
  sorter.hand_on(Kind::unsure_l4, {});
  return sorter.take();
}

std::string ipv6_key() {
  return concat({payload(ipv6_next), payload(ipv6_length)});
}

// IPv6 packets without extension headers that have the transport header whole, or have not.
std::string ipv6_lengths(bool whole) {
  std::vector<std::string> elements;
  elements.reserve(transports6.size());
  for (const Transport& transport : transports6)
    elements.push_back(concat({number(transport.number), whole ? range(transport.least, most)
                                                               : range(1, transport.least - 1)}));
  return set_of(elements);
}

// What the first extension headers and what is behind them take, for each length that they may have.
std::string extension_lengths_set(bool with_transport) {
  std::vector<std::string> elements;
  const auto add = [&](uint32_t next, uint32_t length, uint32_t bytes) {
    if (!with_transport) {
      elements.push_back(concat({number(next), number(length), range(bytes, most)}));
      return;
    }
    for (const Transport& transport : transports6)
      elements.push_back(concat({number(next), number(transport.number), number(length),
                                 range(bytes + transport.least, most)}));
  };
  for (uint32_t length = 0; length < extension_lengths; length++) {
    for (const uint32_t next : plain_extensions) add(next, length, 8 + 8 * length);
  }
  return set_of(elements);
}

std::string fragment_lengths() {
  std::vector<std::string> elements;
  elements.reserve(transports6.size());
  for (const Transport& transport : transports6)
    elements.push_back(concat({number(transport.number), range(8 + transport.least, most)}));
  return set_of(elements);
}

void sort_extensions(Sorter& sorter) {
  const std::string key = concat({payload(ipv6_next), payload(extension_next),
                                  payload(extension_length), payload(ipv6_length)});
  sorter.hand_on(Kind::whole, {is_sound(), equal(key, extension_lengths_set(true))});
  const std::string is_fragment = equal(payload(ipv6_next), number(fragment));
  sorter.hand_on(
      Kind::whole,
      {is_sound(), is_fragment, equal(masked(payload(fragment_offset), 0xfff8), number(0)),
       equal(concat({payload(extension_next), payload(ipv6_length)}), fragment_lengths())});
  // Behind a second extension header nothing is looked for.
  sorter.hand_on(Kind::unsure_l4,
                 {is_sound(), equal(payload(ipv6_next), set_of(number_texts(extensions))),
                  equal(payload(extension_next), set_of(number_texts(extensions)))});
  sorter.hand_on(
      Kind::bare,
      {is_sound(),
       equal(concat({payload(ipv6_next), payload(extension_length), payload(ipv6_length)}),
             extension_lengths_set(false))});
  sorter.hand_on(Kind::bare,
                 {is_sound(), is_fragment, equal(payload(ipv6_length), range(8, most))});
}

Chain sort_ipv6(const std::string& name, const Targets& targets) {
  Sorter sorter(name, targets);
  sorter.hand_on(Kind::whole, {is_sound(), equal(ipv6_key(), ipv6_lengths(true))});
  sorter.hand_on(Kind::bare, {is_sound(), equal(ipv6_key(), ipv6_lengths(false))});
  std::vector<std::string> others = number_texts(extensions);
  const std::vector<std::string> known = protocol_texts(transports6);
  others.insert(others.end(), known.begin(), known.end());
  sorter.hand_on(Kind::bare, {is_sound(), differs(payload(ipv6_next), set_of(others))});
  sort_extensions(sorter);
  sorter.hand_on(Kind::unsure_l4, {equal(masked(payload(ipv6_first), 0xf0), number(0x60)),
                                   lies_within({Base::network, 8 * 39, 8})});
  sorter.hand_on(Kind::other, {});
  return sorter.take();
}

// Frames with more tags than the kernel has taken off. Without IP behind two tags they are none.
Chain sort_tagged(const std::string& name, const Targets& targets) {
  const std::string tags = set_of({number(ethertype_vlan), number(ethertype_provider_vlan)});
  const std::string more = set_of({number(ethertype_vlan), number(ethertype_provider_vlan),
                                   number(ethertype_ipv4), number(ethertype_ipv6)});
  const std::string behind_one = payload({Base::link, 128, 16});
  Sorter sorter(name, targets);
  sorter.hand_on(Kind::unsure_l3,
                 {equal(behind_one, set_of({number(ethertype_ipv4), number(ethertype_ipv6)}))});
  sorter.hand_on(Kind::unsure_l3,
                 {equal(behind_one, tags), equal(payload({Base::link, 160, 16}), more)});
  sorter.hand_on(Kind::other, {});
  return sorter.take();
}

constexpr Bits tcp_offset{Base::transport, 96, 8};  // length of the header, and reserved bits

// For each length that a TCP header can say that it has, the least that IP must have room for.
template <typename Add>
void each_tcp_length(Add add) {
  for (uint32_t words = 0; words < 16; words++)
    add(range(uint64_t{16} * words, uint64_t{16} * words + 15), std::max(20u, 4 * words));
}

std::string ipv4_with_options() {
  std::vector<std::string> elements;
  for (uint32_t words = 5; words < 16; words++) {
    each_tcp_length([&](const std::string& offset, uint32_t bytes) {
      elements.push_back(concat({number(0x40 + words), range(4 * words + bytes, most), offset}));
    });
  }
  return equal(concat({payload(ipv4_first), payload(ipv4_length), payload(tcp_offset)}),
               set_of(elements));
}

std::string ipv6_with_options() {
  std::vector<std::string> elements;
  each_tcp_length([&](const std::string& offset, uint32_t bytes) {
    elements.push_back(concat({number(protocol_tcp), range(bytes, most), offset}));
  });
  return equal(concat({payload(ipv6_next), payload(ipv6_length), payload(tcp_offset)}),
               set_of(elements));
}

std::string ipv4_with_icmp(uint32_t bytes) {
  std::vector<std::string> elements;
  for (uint32_t words = 5; words < 16; words++)
    elements.push_back(concat({number(0x40 + words), range(4 * words + 4 + bytes, most)}));
  return equal(concat({payload(ipv4_first), payload(ipv4_length)}), set_of(elements));
}

// Of packets that are whole but for what only some entries ask for: whether they have that, too.
Chain sort_deep(const std::string& name, const Targets& targets, const Depth& depth) {
  Sorter sorter(name, targets);
  const std::string is_ipv4 = equal(meta("protocol"), json_string("ip"));
  const std::string is_ipv6 = equal(meta("protocol"), json_string("ip6"));
  const auto is = [](uint32_t protocol) { return equal(meta("l4proto"), number(protocol)); };
  if (depth.tcp_options) {
    sorter.hand_on(Kind::whole, {is_ipv4, is(protocol_tcp), ipv4_with_options()});
    sorter.hand_on(Kind::whole, {is_ipv6, is(protocol_tcp), ipv6_with_options()});
    sorter.hand_on(Kind::unsure_l4, {is(protocol_tcp)});
  }
  if (depth.icmp_bytes != 0) {
    sorter.hand_on(Kind::whole, {is_ipv4, is(protocol_icmp), ipv4_with_icmp(depth.icmp_bytes)});
    sorter.hand_on(Kind::whole, {is_ipv6, equal(payload(ipv6_next), number(protocol_icmp6)),
                                 equal(payload(ipv6_length), range(4 + depth.icmp_bytes, most))});
    sorter.hand_on(Kind::unsure_l4, {is(protocol_icmp)});
    sorter.hand_on(Kind::unsure_l4, {is(protocol_icmp6)});
  }
  sorter.hand_on(Kind::whole, {});
  return sorter.take();
}

}  // namespace

void Depth::add(const Depth& other) {
  tcp_options = tcp_options || other.tcp_options;
  icmp_bytes = std::max(icmp_bytes, other.icmp_bytes);
}

void add_sorting(std::vector<Chain>& chains, const std::string& device, bool egress,
                 const std::string& place, const Targets& targets, const Depth& depth) {
  const std::string direction = place.substr(0, place.find('.'));
  const auto name = [&](const char* what) { return direction + what + '.' + plain(device); };
  Targets sorted = targets;
  if (depth.tcp_options || depth.icmp_bytes != 0) {
    chains.push_back(sort_deep(name("d"), targets, depth));
    sorted.of[static_cast<size_t>(Kind::whole)] = name("d");
  }
  chains.push_back(sort_unsound_ipv4(name("4u"), sorted));
  chains.push_back(sort_ipv4(name("4"), name("4u"), sorted));
  chains.push_back(sort_ipv6(name("6"), sorted));
  chains.push_back(sort_tagged(name("v"), sorted));
  const std::string protocol = meta("protocol");
  Sorter sorter(place, sorted);
  sorter.go(name("4"), {equal(protocol, json_string("ip"))});
  sorter.go(name("6"), {equal(protocol, json_string("ip6"))});
  sorter.go(name("v"),
            {equal(protocol, set_of({number(ethertype_vlan), number(ethertype_provider_vlan)}))});
  sorter.hand_on(Kind::other, {});
  Chain base = sorter.take();
  base.device = device;
  base.egress = egress;
  chains.push_back(std::move(base));
}

}  // namespace qimctl::nft
