// Answers about all packets against those of asking about each, in small worlds.
#include <cstdlib>
#include <random>

#include "policy/analysis/difference.h"
#include "policy/analysis/list_analysis.h"
#include "tests/policy/trace/trace_support.h"
#include "tests/support/pace.h"

namespace {

using namespace qimctl;

// Rarely on slow targets: each list is compared entry by entry and packet by packet.
int lists_to_try(int count) {
  const bool slow = pace::emulated() || pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  return slow ? count / 12 : count;
}

Criterion number(uint32_t type, uint32_t value, size_t width) {
  Criterion criterion{type, {}};
  for (size_t i = width; i-- > 0;) criterion.args.push_back(static_cast<uint8_t>(value >> 8 * i));
  return criterion;
}

// What no packet has.
std::vector<Criterion> nothing() {
  return {{0x0500, {}}, {0x0600, {}}};
}

// What entries ask for. The more of it there is the more packets there are to be told apart, so there
// are two worlds.
enum class World { ports, ethernet };

// Lists over few values, so that entries meet.
class Maker {
 public:
  Maker(World world, uint32_t seed) : world_(world), random_(seed) {}

  AccessList list(size_t entries) {
    AccessList made;
    made.name = "l";
    for (size_t i = 0; i < entries; i++) made.entries.push_back(entry("e" + std::to_string(i)));
    made.default_action = upto(2) == 0 ? ActionType::accept : ActionType::drop;
    return made;
  }

  Entry entry(const std::string& name) {
    Entry made;
    made.name = name;
    made.forwarding = upto(2) == 0 ? ActionType::accept : ActionType::drop;
    made.log = upto(12) == 0;
    if (upto(10) == 0) made.criteria.push_back(to_criterion({"", "other", "m", "1"}));
    if (world_ == World::ethernet) add_ethernet(made);
    if (upto(8) != 0) add_network(made, upto(6) == 0);
    if (upto(3) != 0) add_transport(made);
    return made;
  }

  // Takes an entry away, adds, changes or moves one.
  void change(AccessList& list) {
    const size_t at = upto(static_cast<uint32_t>(list.entries.size()));
    const auto place = list.entries.begin() + static_cast<std::ptrdiff_t>(at);
    switch (upto(5)) {
      case 0:
        list.entries.erase(place);
        break;
      case 1:
        list.entries.insert(place, entry("new"));
        break;
      case 2:
        std::swap(*place, list.entries.front());
        break;
      case 3:
        list.default_action = upto(2) == 0 ? ActionType::accept : ActionType::drop;
        break;
      default:
        *place = entry("changed");
    }
  }

 private:
  uint32_t upto(uint32_t end) { return static_cast<uint32_t>(random_() % end); }

  void add_ethernet(Entry& entry) {
    if (upto(8) == 0) entry.criteria.push_back({0x0101, {0, 0, 0, 1, 'a'}});
    if (upto(6) == 0) entry.criteria.push_back(number(0x0203, upto(2) == 0 ? 0x0806 : 0x0800, 2));
    if (upto(12) == 0) entry.criteria.push_back({0x0200, {}});
    if (upto(2) == 0) return;
    // The masks of a group bit, of the last byte, and of all.
    static const std::vector<std::vector<uint8_t>> masks{
        {1, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 3}, {255, 255, 255, 255, 255, 255}};
    const std::vector<uint8_t>& mask = masks[upto(3)];
    Criterion criterion{0x0202,
                        {static_cast<uint8_t>(upto(2)), 0, 0, 0, 0, static_cast<uint8_t>(upto(4))}};
    for (size_t i = 0; i < 6; i++) criterion.args[i] &= mask[i];
    criterion.args.insert(criterion.args.end(), mask.begin(), mask.end());
    entry.criteria.push_back(criterion);
  }

  void add_network(Entry& entry, bool v6) {
    if (upto(6) == 0) return entry.criteria.push_back({v6 ? 0x0400u : 0x0300u, {}});
    if (world_ == World::ports) {
      if (upto(6) == 0 && !v6) entry.criteria.push_back(number(0x0304, upto(2), 1));
      if (upto(12) == 0 && !v6) entry.criteria.push_back(number(0x0308, 20, 2));
    }
    if (upto(8) == 0)
      entry.criteria.push_back(number(v6 ? 0x0405 : 0x0305, upto(2) == 0 ? 6 : 17, 1));
    const auto length = static_cast<uint8_t>(30 + upto(3));
    const auto last = static_cast<uint8_t>(upto(4) & (0xffu << (32 - length)));
    if (!v6) return entry.criteria.push_back({0x030a, {10, 0, 0, last, length}});
    Criterion criterion{0x0406, std::vector<uint8_t>(17)};
    criterion.args[15] = last;
    criterion.args[16] = static_cast<uint8_t>(96 + length);
    entry.criteria.push_back(criterion);
  }

  void add_transport(Entry& entry) {
    const uint32_t kind = upto(5);
    if (world_ == World::ethernet) {
      if (kind < 3) entry.criteria.push_back({0x0500u + 0x100 * kind, {}});
      return;
    }
    if (kind == 0) {
      entry.criteria.push_back(number(0x0701, upto(3), 1));
      if (upto(3) == 0) entry.criteria.push_back({0x0703, std::vector<uint8_t>(upto(3), 1)});
      return;
    }
    const bool udp = kind == 1;
    if (upto(6) == 0) return entry.criteria.push_back({udp ? 0x0600u : 0x0500u, {}});
    if (!udp && upto(8) == 0) entry.criteria.push_back(number(0x0505, 2, 1));
    if (!udp && upto(8) == 0) entry.criteria.push_back({0x0508, {1, 1, 1, 1}});
    for (const uint32_t type : {udp ? 0u : 0x0509u, udp ? 0x0603u : 0x050au}) {
      if (type != 0 && upto(3) != 0) entry.criteria.push_back(ports(type));
    }
  }

  Criterion ports(uint32_t type) {
    const uint32_t op = 1 + upto(5);
    const uint32_t first = upto(3);
    const uint32_t last = op == 5 ? first + upto(2) : first;
    return {
        type,
        {static_cast<uint8_t>(op), 0, static_cast<uint8_t>(first), 0, static_cast<uint8_t>(last)}};
  }

  World world_;
  std::mt19937 random_;
};

using Texts = std::vector<std::string>;

// Every pair.
Texts operator*(const Texts& a, const Texts& b) {
  Texts all;
  for (const std::string& first : a)
    for (const std::string& second : b) all.push_back(first + second);
  return all;
}

Texts operator+(Texts a, const Texts& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A packet of each kind that entries of these lists can tell from others, but for tags.
std::vector<Packet> packets_of(World world) {
  const Texts ports{"0", "1", "2", "3", "9"};
  const Texts ends4{"from 192.0.2.1 to 10.0.0.0", "from 192.0.2.1 to 10.0.0.1",
                    "from 192.0.2.1 to 10.0.0.2", "from 192.0.2.1 to 10.0.0.3",
                    "from 192.0.2.1 to 10.0.0.4"};
  const Texts ends6{"from ::9 to ::", "from ::9 to ::1", "from ::9 to ::2", "from ::9 to ::3",
                    "from ::9 to ::4"};
  const Texts protocols{" protocol 6", " protocol 17", " protocol 47"};
  const Texts other{"arp", "ethertype 0x88cc", "ethertype 0x0800 no-ip"};
  Texts texts;
  if (world == World::ports) {
    const Texts ttls{" ttl 0", " ttl 1", " ttl 9"};
    const Texts port_words = Texts{" to any port "} * ports;
    const Texts both_ports = Texts{" from any port "} * ports * port_words;
    const Texts tcp = both_ports * Texts{" flags syn", " flags ack"} *
                      Texts{" options none", " options 01010101"};
    const Texts messages = Texts{" type 0", " type 1", " type 2", " type 9"} *
                           Texts{" rest none", " rest 01", " rest 0101"};
    const Texts v4 = ends4 * ttls;
    texts = other + Texts{"tcp "} * v4 * tcp + Texts{"udp "} * v4 * port_words +
            Texts{"icmp "} * v4 * messages +
            Texts{"ipv4 "} * v4 * protocols * Texts{" offset 20", " offset 7"} +
            Texts{"tcp "} * ends6 * tcp + Texts{"udp "} * ends6 * port_words +
            Texts{"icmp6 "} * ends6 * messages +
            Texts{"ipv6 "} * ends6 * protocols * Texts{" fragment"};
  } else {
    const Texts v4 = Texts{"tcp ",
                           "udp ",
                           "icmp ",
                           "ipv4 protocol 6 fragment ",
                           "ipv4 protocol 17 fragment ",
                           "ipv4 protocol 47 "} *
                     ends4;
    const Texts v6 = Texts{"tcp ",
                           "udp ",
                           "icmp6 ",
                           "ipv6 protocol 6 fragment ",
                           "ipv6 protocol 17 fragment ",
                           "ipv6 protocol 47 "} *
                     ends6;
    Texts macs;
    for (const char* const first : {"00", "01"})
      for (const char* const last : {"00", "01", "02", "03"})
        macs.push_back(std::string("eth from ") + first + ":00:00:00:00:" + last + " ");
    texts = macs * (other + Texts{"", "vlan 5 "} * (v4 + v6)) +
            Texts{"no-eth "} * (Texts{"no-ip"} + v4 + v6);
    texts = Texts{"entering a ", "entering b "} * texts;
  }
  std::vector<Packet> all;
  for (const std::string& text : texts) all.push_back(packet_from_words(text));
  return all;
}

const std::vector<Packet>& packets_in(World world) {
  static const std::array all{packets_of(World::ports), packets_of(World::ethernet)};
  return all[world == World::ports ? 0 : 1];
}

World world_of(int seed) {
  return seed % 4 < 2 ? World::ports : World::ethernet;
}

// The list as it is for packets of which the other model says yes, or no.
AccessList answered(const AccessList& list, bool yes) {
  AccessList decided = list;
  for (Entry& entry : decided.entries) {
    const size_t asked = std::erase_if(entry.criteria, [](const Criterion& criterion) {
      return criterion.type == criterion_opaque;
    });
    if (asked != 0 && !yes) entry.criteria = nothing();
  }
  return decided;
}

// By entry and verdict, of each packet of the world, for both answers.
struct Decisions {
  std::vector<std::optional<size_t>> entries;
  std::vector<Verdict> verdicts;
};

Decisions decide(const AccessList& list, const std::vector<Packet>& packets) {
  Decisions decisions;
  for (const bool yes : {false, true}) {
    const AccessList decided = answered(list, yes);
    const Tracer tracer({&decided});
    for (const Packet& packet : packets) {
      const TraceResult result = tracer.trace(packet, false);
      EXPECT_EQ(result.outcomes.size(), 1u) << packet_words(packet);
      decisions.entries.push_back(result.outcomes[0].entry);
      decisions.verdicts.push_back(result.outcomes[0].verdict);
    }
  }
  return decisions;
}

// Without an entry: it stays in its place and matches nothing.
AccessList without(const AccessList& list, size_t entry) {
  AccessList left = list;
  left.entries[entry].criteria = nothing();
  return left;
}

std::set<size_t> of_fault(const ListAnalysis& analysis, EntryFault fault) {
  std::set<size_t> entries;
  for (const EntryFinding& finding : analysis.findings)
    if (finding.fault == fault) entries.insert(finding.entry);
  return entries;
}

// Entries that decide no packet.
std::set<size_t> never_first(const AccessList& list, const Decisions& decisions) {
  std::set<size_t> entries;
  for (size_t i = 0; i < list.entries.size(); i++) entries.insert(i);
  for (const auto& entry : decisions.entries)
    if (entry) entries.erase(*entry);
  return entries;
}

TEST(BruteForce, FindsTheSameEntriesThatDoNothing) {
  for (int seed = 0; seed < lists_to_try(80); seed++) {
    const std::vector<Packet>& packets = packets_in(world_of(seed));
    AccessList list = Maker(world_of(seed), static_cast<uint32_t>(seed)).list(9);
    const ListAnalysis analysis = analyse_list(list, false);
    const Decisions decisions = decide(list, packets);
    std::set<size_t> dead = of_fault(analysis, EntryFault::shadowed);
    dead.merge(of_fault(analysis, EntryFault::impossible));
    ASSERT_EQ(dead, never_first(list, decisions)) << seed;
    for (const size_t entry : dead) list = without(list, entry);
    std::set<size_t> redundant;
    for (size_t entry = 0; entry < list.entries.size(); entry++) {
      if (dead.contains(entry)) continue;
      const AccessList left = without(list, entry);
      if (decide(left, packets).verdicts != decisions.verdicts) continue;
      redundant.insert(entry);
      list = left;
    }
    ASSERT_EQ(of_fault(analysis, EntryFault::redundant), redundant) << seed;
    ASSERT_TRUE(of_fault(analysis, EntryFault::gave_up).empty());
  }
}

Shape shape_of(const Packet& packet) {
  const bool v6 = packet.has(Header::ipv6) == Truth::yes;
  if (!v6 && packet.has(Header::ipv4) != Truth::yes) return Shape::other;
  size_t shape = static_cast<size_t>(v6 ? Shape::ipv6 : Shape::ipv4);
  const std::array headers{Header::tcp, Header::udp, Header::icmp};
  for (size_t i = 0; i < headers.size(); i++)
    if (packet.has(headers[i]) == Truth::yes) shape += i + 1;
  return static_cast<Shape>(shape);
}

// The packet's value in a dimension of these lists.
Wide value_in(const Packet& packet, const Dimension& dimension, bool yes) {
  const bool has_ethernet = packet.has(Header::eth) == Truth::yes;
  switch (dimension.kind) {
    case Dimension::Kind::ethertype:
      if (!has_ethernet) return {0, without_ethernet(shape_of(packet))};
      if (shape_of(packet) == Shape::other) return packet.value(Field::ethertype);
      return {0, packet.vlans.empty() ? uint64_t{0} : 1};
    case Dimension::Kind::options:
      return {0, packet.tcp_options->empty() ? uint64_t{0} : 1};
    case Dimension::Kind::ingress:
      return {0, packet.ingress == "a" ? uint64_t{1} : 0};
    case Dimension::Kind::undecided:
      return {0, yes ? uint64_t{1} : 0};
    default:
      return packet.value(dimension.field);
  }
}

// Strings that an ICMP message may begin with depend on the lists: they are left to examples.
bool is_in(const Region& region, const Packet& packet, bool yes) {
  if (std::find(region.shapes.begin(), region.shapes.end(), shape_of(packet)) ==
      region.shapes.end())
    return false;
  for (const auto& [dimension, range] : region.demands) {
    const Wide value = value_in(packet, dimension, yes);
    const bool inside = dimension.kind == Dimension::Kind::masked
                            ? (value.low & range.last.low) == range.first.low
                            : range.first <= value && value <= range.last;
    if (!inside) return false;
  }
  return true;
}

void drop_rest_matches(AccessList& list) {
  for (Entry& entry : list.entries)
    std::erase_if(entry.criteria, [](const Criterion& one) { return one.type == 0x0703; });
}

void expect_examples_differ(const AccessList& a, const AccessList& b, const Differences& found) {
  for (const DifferentRegion& region : found.regions) {
    bool yes = false;
    for (const auto& [dimension, range] : region.region.demands)
      if (dimension.kind == Dimension::Kind::undecided) yes = range.first.low == 1;
    const Packet packet = packet_from_words(region.example);
    const AccessList before = answered(a, yes);
    const AccessList after = answered(b, yes);
    const TraceResult first = Tracer({&before}).trace(packet, false);
    const TraceResult second = Tracer({&after}).trace(packet, false);
    ASSERT_EQ(first.outcomes.size(), 1u) << region.words << " e.g. " << region.example;
    ASSERT_EQ(second.outcomes.size(), 1u) << region.words << " e.g. " << region.example;
    EXPECT_EQ(first.outcomes[0].verdict, region.before)
        << region.words << " e.g. " << region.example;
    EXPECT_EQ(second.outcomes[0].verdict, region.after)
        << region.words << " e.g. " << region.example;
  }
}

// Where a region is all that is left of a box, each packet that is decided so is in one of the regions.
TEST(BruteForce, FindsTheSamePacketsWhenFewRegionsAreTold) {
  AnalysisLimits limits;
  limits.pieces = 1;
  size_t rests = 0;
  for (int seed = 0; seed < lists_to_try(60); seed += 2) {
    const std::vector<Packet>& packets = packets_in(world_of(seed));
    Maker maker(world_of(seed), static_cast<uint32_t>(seed));
    AccessList a = maker.list(8);
    AccessList b = a;
    for (int i = 0; i <= seed % 3; i++) maker.change(b);
    drop_rest_matches(a), drop_rest_matches(b);
    const Differences found = semantic_difference(Lists{&a}, Lists{&b}, {}, limits);
    ASSERT_TRUE(found.complete);
    expect_examples_differ(a, b, found);
    const std::vector<Verdict> before = decide(a, packets).verdicts;
    const std::vector<Verdict> after = decide(b, packets).verdicts;
    for (const DifferentRegion& region : found.regions) rests += region.unless == 0 ? 0 : 1;
    for (size_t i = 0; i < before.size(); i++) {
      const Packet& packet = packets[i % packets.size()];
      const bool told = std::any_of(
          found.regions.begin(), found.regions.end(), [&](const DifferentRegion& region) {
            return region.before == before[i] && region.after == after[i] &&
                   is_in(region.region, packet, i >= packets.size());
          });
      ASSERT_TRUE(told || before[i] == after[i]) << seed << " " << packet_words(packet);
    }
  }
  EXPECT_GT(rests, 0u);
}

TEST(BruteForce, FindsTheSamePacketsThatAreDecidedDifferently) {
  for (int seed = 0; seed < lists_to_try(160); seed++) {
    const std::vector<Packet>& packets = packets_in(world_of(seed));
    Maker maker(world_of(seed), static_cast<uint32_t>(seed));
    AccessList a = maker.list(8);
    AccessList b = a;
    for (int i = 0; i <= seed % 3; i++) maker.change(b);
    if (seed % 4 == 0) b = maker.list(8);
    if (seed % 2 == 0) drop_rest_matches(a), drop_rest_matches(b);
    const Differences found = semantic_difference(Lists{&a}, Lists{&b});
    ASSERT_TRUE(found.complete);
    expect_examples_differ(a, b, found);
    if (seed % 2 != 0) continue;
    const std::vector<Verdict> before = decide(a, packets).verdicts;
    const std::vector<Verdict> after = decide(b, packets).verdicts;
    for (size_t i = 0; i < before.size(); i++) {
      const Packet& packet = packets[i % packets.size()];
      std::vector<std::string> in;
      for (const DifferentRegion& region : found.regions) {
        if (!is_in(region.region, packet, i >= packets.size())) continue;
        in.push_back(verdict_text(region.before) + verdict_text(region.after));
      }
      const std::vector<std::string> wanted{verdict_text(before[i]) + verdict_text(after[i])};
      ASSERT_EQ(in, before[i] == after[i] ? std::vector<std::string>{} : wanted)
          << seed << " " << packet_words(packet);
    }
  }
}

}  // namespace
