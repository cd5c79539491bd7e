// States and differences as bytes: the same on every machine, and nothing else is taken for them.
#include <gtest/gtest.h>

#include "fleet/base/error.h"
#include "fleet/state/difference.h"
#include "fleet/state/state.h"
#include "rov_edit.h"
#include "tests/fleet/state/random_state.h"
#include "tests/support/pace.h"

namespace {

using fleet_test::OwnState;
using fleet_test::RandomStates;
using fleet_test::state_of;
using qim::fleet::changed;
using qim::fleet::cut_pieces;
using qim::fleet::difference;
using qim::fleet::ForgedError;
using qim::fleet::most_piece;
using qim::fleet::NodeFate;
using qim::fleet::parse_difference;
using qim::fleet::State;

uint32_t crc(const std::string& bytes) {
  return rov_crc32c(0, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

std::string complaint_of_state(const std::string& bytes) {
  try {
    State::parse(bytes);
  } catch (const ForgedError& error) {
    return error.what();
  }
  return "";
}

std::string complaint_of_difference(const std::string& bytes) {
  try {
    parse_difference(bytes);
  } catch (const ForgedError& error) {
    return error.what();
  }
  return "";
}

std::string complaint_of_change(const State& from, const std::string& bytes) {
  try {
    changed(from, parse_difference(bytes));
  } catch (const ForgedError& error) {
    return error.what();
  }
  return "";
}

uint32_t rounds() {
  return pace::emulated() ? 10 : 60;
}

OwnState two_nodes() {
  OwnState nodes;
  nodes[0x0102].tlv = "data";
  nodes[0x0102].links[0x81] = {0x81, 2, 0x03040506, 7, 8};
  nodes[0x03040506].flags = 1;
  nodes[0x03040506].dset = std::string(21, 'n');
  return nodes;
}

TEST(State, is_the_same_bytes_on_every_machine) {
  const std::string link("\0\x81\0\2\3\4\5\6\0\0\0\7\0\0\0\x8", 16);
  const std::string wanted =
      std::string("QSS1\0\0\0\2", 8) + std::string("\0\0\1\2\0\0\0\0\0\0\0\0\4data\0\0\0\1", 21) +
      link + std::string("\3\4\5\6\0\0\0\1\x15", 9) + std::string(21, 'n') + std::string(8, '\0');
  EXPECT_EQ(state_of(two_nodes()).bytes(), wanted);
  // Of more, their sum: std::mt19937 is the same everywhere, too.
  RandomStates random(1);
  OwnState nodes = random.make(500);
  const State before = state_of(nodes);
  random.change(nodes, 200);
  EXPECT_EQ(crc(before.bytes()), 1435613879U);
  EXPECT_EQ(crc(difference(before, state_of(nodes))), 1308450764U);
}

TEST(State, is_read_as_it_was_written) {
  for (uint32_t seed = 0; seed < rounds(); seed++) {
    RandomStates random(seed);
    const OwnState nodes = random.make(random.below(50));
    const State state = state_of(nodes);
    const State again = State::parse(state.bytes());
    ASSERT_EQ(again, state);
    ASSERT_EQ(again.size(), nodes.size());
    size_t n = 0;
    for (const auto& [id, node] : nodes) {
      ASSERT_EQ(again.at(n).id, id);
      ASSERT_EQ(again.at(n).tlv, node.tlv);
      ASSERT_EQ(again.at(n).dset, node.dset);
      ASSERT_EQ(again.at(n).links.size(), node.links.size());
      n++;
    }
  }
  EXPECT_EQ(State().size(), 0U);
  EXPECT_EQ(State::parse(State().bytes()), State());
}

TEST(State, that_is_cut_or_changed_is_refused_or_another_one) {
  RandomStates random(7);
  const std::string bytes = state_of(random.make(12)).bytes();
  for (size_t length = 0; length < bytes.size(); length++) {
    EXPECT_NE(complaint_of_state(bytes.substr(0, length)), "") << length;
  }
  EXPECT_NE(complaint_of_state(bytes + "x"), "");
  for (size_t at = 0; at < bytes.size(); at++) {
    std::string other = bytes;
    other[at] = static_cast<char>(other[at] ^ (1 << random.below(8)));
    try {
      EXPECT_EQ(State::parse(other).bytes(), other);
    } catch (const ForgedError& error) {
      EXPECT_EQ(std::string(error.what()).rfind("snapshot, byte ", 0), 0U) << error.what();
    }
  }
}

TEST(State, that_contradicts_itself_is_refused_with_the_place) {
  const std::string good = state_of(two_nodes()).bytes();
  const auto with = [&](size_t at, const std::string& piece) {
    return complaint_of_state(std::string(good).replace(at, piece.size(), piece));
  };
  EXPECT_EQ(with(0, "QSS2"), "snapshot, byte 4: it is no snapshot of this version");
  EXPECT_EQ(with(8, std::string(4, '\0')),
            "snapshot, byte 12: a node's identifier does not follow the one before");
  EXPECT_EQ(with(45, std::string("\0\0\1\2", 4)),
            "snapshot, byte 49: a node's identifier does not follow the one before");
  EXPECT_EQ(with(16, "\1"), "snapshot, byte 17: a data-set name has 21 bytes or none");
  EXPECT_EQ(with(17, "\7"), "snapshot, byte 21: a node's TLV data are longer than 16 MiB");
  EXPECT_EQ(with(25, "\7"), "snapshot, byte 29: a node has more than 65536 links");
  EXPECT_EQ(with(33, std::string(4, '\0')), "snapshot, byte 45: a link leads to node 0");
  OwnState nodes = two_nodes();
  nodes[0x0102].links[0x82] = {0x82, 2, 1, 0, 0};
  const std::string more = state_of(nodes).bytes();
  EXPECT_EQ(complaint_of_state(std::string(more).replace(46, 1, "\x80")),
            "snapshot, byte 61: links are not in order");
}

TEST(Difference, makes_one_state_of_another) {
  for (uint32_t seed = 0; seed < rounds(); seed++) {
    RandomStates random(seed);
    OwnState nodes = random.make(random.below(60));
    const State from = state_of(nodes);
    random.change(nodes, random.below(30));
    const State to = state_of(nodes);
    const std::string there = difference(from, to);
    const std::string back = difference(to, from);
    ASSERT_EQ(changed(from, parse_difference(there)), to) << seed;
    ASSERT_EQ(changed(to, parse_difference(back)), from) << seed;
    const State other = state_of(random.make(random.below(60)));
    const std::string across = difference(from, other);
    ASSERT_EQ(changed(from, parse_difference(across)), other) << seed;
    ASSERT_EQ(parse_difference(difference(to, to)).size(), 0U);
  }
}

TEST(Difference, of_one_link_among_many_is_small) {
  OwnState nodes;
  for (uint32_t field = 0; field < 60000; field++) {
    const auto code = static_cast<uint16_t>(field);
    nodes[1].links[code] = {code, 0, field + 2, 0, 0};
  }
  const State from = state_of(nodes);
  nodes[1].links[77].node = 5;
  EXPECT_LT(difference(from, state_of(nodes)).size(), 64U);
}

TEST(Difference, that_is_cut_or_changed_is_refused_or_another_one) {
  RandomStates random(9);
  OwnState nodes = random.make(30);
  const State from = state_of(nodes);
  random.change(nodes, 30);
  const std::string bytes = difference(from, state_of(nodes));
  for (size_t length = 0; length < bytes.size(); length++) {
    EXPECT_NE(complaint_of_difference(bytes.substr(0, length)), "") << length;
  }
  EXPECT_EQ(complaint_of_difference(bytes + "x"),
            "difference, byte " + std::to_string(bytes.size()) + ": more follows than its changes");
  for (size_t at = 0; at < bytes.size(); at++) {
    std::string other = bytes;
    other[at] = static_cast<char>(other[at] ^ (1 << random.below(8)));
    const std::string complaint = complaint_of_change(from, other);
    EXPECT_TRUE(complaint.empty() || complaint.rfind("difference, byte ", 0) == 0 ||
                complaint.rfind("the difference does not fit the state: ", 0) == 0)
        << complaint;
  }
}

TEST(Difference, that_contradicts_itself_is_refused_with_the_place) {
  const auto complaint = [](const std::string& changes) {
    return complaint_of_difference(std::string("QSD1\0\0\0\1", 8) + changes);
  };
  EXPECT_EQ(complaint_of_difference("QSD2"),
            "difference, byte 4: it is no difference of this version");
  EXPECT_EQ(complaint(std::string("\0\0\0\0\1", 5)),
            "difference, byte 12: a node's identifier does not follow the one before");
  EXPECT_EQ(complaint(std::string("\0\0\0\1\0", 5)),
            "difference, byte 13: a change has the unknown form 0");
  EXPECT_EQ(complaint(std::string("\0\0\0\1\x8\0\0\0\0\0\0\0\0", 13)),
            "difference, byte 21: no link changes");
  EXPECT_EQ(complaint(std::string("\0\0\0\1\x8\0\1\0\1", 9)),
            "difference, byte 17: a node has more than 65536 links");
  EXPECT_EQ(complaint(std::string("\0\0\0\1\x8\0\0\0\2\0\7\0\7\0\0\0\0", 17)),
            "difference, byte 21: links that go are not in order");
  EXPECT_EQ(complaint(std::string("\0\0\0\1\x8\0\0\0\2\0\6\0\7\0\0\0\1", 17) +
                      std::string("\0\7\0\0\0\0\0\1\0\0\0\0\0\0\0\0", 16)),
            "difference, byte 41: a link goes and comes");
  EXPECT_EQ(complaint(std::string("\0\0\0\1\x8\0\0\0\1\0\6\0\0\0\1", 15) +
                      std::string("\0\7\0\0\0\0\0\1\0\0\0\0\0\0\0\0", 16)),
            "");
}

TEST(Difference, that_does_not_fit_is_refused) {
  OwnState nodes = two_nodes();
  const State from = state_of(nodes);
  nodes.erase(0x0102);
  const State without = state_of(nodes);
  EXPECT_EQ(complaint_of_change(without, difference(from, without)),
            "the difference does not fit the state: node 258 is not there");
  EXPECT_EQ(complaint_of_change(from, difference(without, from)),
            "the difference does not fit the state: node 258 is there already");
  nodes = two_nodes();
  nodes[0x0102].links.clear();
  const State unlinked = state_of(nodes);
  EXPECT_EQ(complaint_of_change(unlinked, difference(from, unlinked)),
            "the difference does not fit the state: node 258 has no link to take away");
}

TEST(Chunks, are_the_whole_state_and_none_is_too_large) {
  RandomStates random(3);
  OwnState nodes = random.make(200);
  nodes[500].tlv = std::string(3 * most_piece, 'x');
  const State state = state_of(nodes);
  std::string all;
  for (const std::string_view chunk : cut_pieces(state)) {
    EXPECT_LE(chunk.size(), most_piece);
    EXPECT_FALSE(chunk.empty());
    all += chunk;
  }
  EXPECT_EQ(all, state.bytes());
  EXPECT_EQ(cut_pieces(State()).size(), 1U);
}

TEST(Chunks, of_states_that_differ_in_few_nodes_are_mostly_the_same) {
  OwnState nodes;
  for (uint32_t id = 1; id <= 20000; id++) nodes[id].tlv = std::string(100, static_cast<char>(id));
  const State before = state_of(nodes);
  const auto chunks = cut_pieces(before);
  const std::set<std::string> old(chunks.begin(), chunks.end());
  nodes[10000].tlv += "more";
  const State after = state_of(nodes);
  size_t fresh = 0;
  for (const std::string_view chunk : cut_pieces(after)) fresh += !old.contains(std::string(chunk));
  EXPECT_EQ(fresh, 1U);
  EXPECT_GT(chunks.size(), 8U);
}

}  // namespace
