// Pieces of lists, and the sets in front of them.
#include "policy/formats/nft/chunks.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

#include "policy/formats/nft/expressions.h"
#include "policy/formats/nft/names.h"

namespace qimctl::nft {

namespace {

// Shorter lists stay whole, so do shorter pieces.
constexpr size_t long_list = 128;
constexpr size_t short_piece = 16;
constexpr uint64_t usual_piece = 64;
constexpr size_t longest_piece = 256;

using Entries = std::span<EntryRules>;

bool is_of(const Span& span, const Bits& bits) {
  return span.bits.base == bits.base && span.bits.offset == bits.offset;
}

// What the entries ask of a field, in ascending order and without overlaps; nothing when one of them
// does not ask.
std::vector<Span> all_of(Entries entries, const Bits& bits) {
  std::vector<Span> all;
  for (const EntryRules& entry : entries) {
    const auto found = std::find_if(entry.spans.begin(), entry.spans.end(),
                                    [&bits](const Span& span) { return is_of(span, bits); });
    if (found == entry.spans.end()) return {};
    all.push_back(*found);
  }
  std::sort(all.begin(), all.end(), [](const Span& a, const Span& b) { return a.first < b.first; });
  std::vector<Span> merged;
  for (const Span& span : all) {
    if (merged.empty() || span.first > merged.back().last + 1) {
      merged.push_back(span);
    } else {
      merged.back().last = std::max(merged.back().last, span.last);
    }
  }
  return merged;
}

// The matches that every packet meets that one of the entries matches, as far as they have something in
// common.
std::vector<std::string> guard_of(Entries entries) {
  std::vector<std::string> matches;
  bool is_network = false;
  for (const Span& field : entries.front().spans) {
    std::vector<std::string> ranges;
    for (const Span& span : all_of(entries, field.bits))
      ranges.push_back(range(span.first, span.last));
    if (ranges.empty()) continue;
    is_network = is_network || field.bits.base == Base::network;
    matches.push_back(equal(payload(field.bits), set_of(ranges)));
  }
  if (is_network) matches.insert(matches.begin(), equal(meta("protocol"), "\"ip\""));
  return matches;
}

void move_rules(Entries entries, Chain& to) {
  for (EntryRules& entry : entries)
    std::move(entry.rules.begin(), entry.rules.end(), std::back_inserter(to.rules));
}

bool ends_piece(const EntryRules& entry) {
  return mix(hash_seed, entry.key) % usual_piece == 0;
}

void add_piece(std::vector<Chain>& chains, Chain& list, Entries entries) {
  std::vector<std::string> guard;
  if (entries.size() >= short_piece) guard = guard_of(entries);
  if (guard.empty()) return move_rules(entries, list);
  // No name of a list becomes one with these marks.
  Chain piece;
  piece.name = list.name + "_-" + entries.front().key;
  guard.push_back(jump(piece.name));
  const std::string text = expressions(guard);
  const std::string key = hash_text(mix(hash_seed, piece.name));
  list.rules.push_back({rule_tag(key, text, "looks into a piece of the list"), text});
  move_rules(entries, piece);
  chains.push_back(std::move(piece));
}

}  // namespace

void add_in_pieces(std::vector<Chain>& chains, const std::string& name,
                   std::vector<EntryRules> entries) {
  Chain list;
  list.name = name;
  Entries rest(entries);
  if (rest.size() < long_list) {
    move_rules(rest, list);
    rest = {};
  }
  while (!rest.empty()) {
    size_t count = 1;
    while (count < rest.size() && count < longest_piece && !ends_piece(rest[count - 1])) count++;
    add_piece(chains, list, rest.first(count));
    rest = rest.subspan(count);
  }
  chains.push_back(std::move(list));
}

}  // namespace qimctl::nft
