// Looking up which entries could match.
#include "policy/trace/classifier.h"

#include <algorithm>
#include <bit>
#include <set>
#include <span>

namespace qimctl {

namespace {

constexpr std::array headers{Header::eth, Header::ipv4, Header::ipv6,
                             Header::tcp, Header::udp,  Header::icmp};

constexpr size_t words_of(size_t entries) {
  return (entries + 63) / 64;
}

void set_bit(uint64_t* bits, size_t entry) {
  bits[entry / 64] |= uint64_t{1} << (entry % 64);
}

}  // namespace

Classifier::Classifier(const Tracer& tracer) : tracer_(tracer) {
  for (size_t list = 0; list < tracer.lists().size(); list++) {
    const ListMatcher& matcher = tracer.lists()[list];
    for (size_t first = 0; first < matcher.list().entries.size(); first += block_entries)
      blocks_.push_back(make_block(matcher, list, first));
  }
}

Classifier::Block Classifier::make_block(const ListMatcher& matcher, size_t list, size_t first) {
  Block block;
  block.list = list;
  block.first = first;
  block.count = std::min(matcher.list().entries.size() - first, block_entries);
  block.without.fill(Bits(words_of(block.count)));
  std::set<Field> fields;
  for (size_t i = 0; i < block.count; i++) {
    for (size_t header = 0; header < headers.size(); header++) {
      const std::span<const Condition> conditions = matcher.conditions(first + i);
      const bool needed = std::any_of(
          conditions.begin(), conditions.end(),
          [header](const Condition& condition) { return condition.header == headers[header]; });
      if (!needed) set_bit(block.without[header].data(), i);
    }
    for (const Condition& condition : matcher.conditions(first + i))
      if (condition.kind == Condition::Kind::range) fields.insert(condition.field);
  }
  for (const Field field : fields) block.tables.push_back(make_table(matcher, block, field));
  return block;
}

Classifier::Table Classifier::make_table(const ListMatcher& matcher, const Block& block,
                                         Field field) {
  const auto asks = [field](const Condition& condition) {
    return condition.kind == Condition::Kind::range && condition.field == field;
  };
  Table table{field, {Wide{}}, {}};
  for (size_t i = 0; i < block.count; i++) {
    for (const Condition& condition : matcher.conditions(block.first + i)) {
      if (!asks(condition)) continue;
      table.edges.push_back(condition.first);
      if (condition.last != Wide{UINT64_MAX, UINT64_MAX})
        table.edges.push_back(next(condition.last));
    }
  }
  std::sort(table.edges.begin(), table.edges.end());
  table.edges.erase(std::unique(table.edges.begin(), table.edges.end()), table.edges.end());
  const size_t words = words_of(block.count);
  table.suits.resize(table.edges.size() * words);
  for (size_t i = 0; i < block.count; i++) {
    Wide first;
    Wide last{UINT64_MAX, UINT64_MAX};
    for (const Condition& condition : matcher.conditions(block.first + i)) {
      if (!asks(condition)) continue;
      first = std::max(first, condition.first);
      last = std::min(last, condition.last);
    }
    auto edge = std::lower_bound(table.edges.begin(), table.edges.end(), first);
    for (; edge != table.edges.end() && *edge <= last; ++edge)
      set_bit(&table.suits[static_cast<size_t>(edge - table.edges.begin()) * words], i);
  }
  return table;
}

// True when an entry of the block certainly matches.
bool Classifier::ask(const Block& block, const Packet& packet, TraceResult& result) const {
  std::array<uint64_t, words_of(block_entries)> suits;
  suits.fill(UINT64_MAX);
  const size_t words = words_of(block.count);
  const auto narrow = [&suits, words](const uint64_t* row) {
    for (size_t word = 0; word < words; word++) suits[word] &= row[word];
  };
  for (size_t i = 0; i < headers.size(); i++)
    if (packet.has(headers[i]) == Truth::no) narrow(block.without[i].data());
  for (const Table& table : block.tables) {
    if (!packet.knows(table.field)) continue;
    const auto edge =
        std::upper_bound(table.edges.begin(), table.edges.end(), packet.value(table.field));
    narrow(&table.suits[static_cast<size_t>(edge - table.edges.begin() - 1) * words]);
  }
  const ListMatcher& matcher = tracer_.lists()[block.list];
  for (size_t word = 0; word < words; word++) {
    for (uint64_t bits = suits[word]; bits != 0; bits &= bits - 1) {
      const size_t at = 64 * word + static_cast<size_t>(std::countr_zero(bits));
      if (at >= block.count) break;
      const size_t entry = block.first + at;
      const Truth truth = matcher.ask(entry, packet).truth;
      if (truth == Truth::no) continue;
      result.outcomes.push_back({verdict_of(matcher.list().entries[entry]), block.list, entry});
      if (truth == Truth::yes) return true;
    }
  }
  return false;
}

TraceResult Classifier::trace(const Packet& packet) const {
  TraceResult result;
  for (const Block& block : blocks_)
    if (ask(block, packet, result)) return result;
  const AccessList& last = tracer_.lists().back().list();
  result.outcomes.push_back({{last.default_action, false, {}}, tracer_.lists().size() - 1, {}});
  return result;
}

}  // namespace qimctl
