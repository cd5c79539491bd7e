// Databases as states: read, compared by digest, and changed with the smallest edits.
#include "fleet/base/error.h"
#include "fleet/state/database_state.h"
#include "fleet/state/state_digest.h"
#include "rov_edit.h"
#include "tests/fleet/state/random_state.h"
#include "tests/tools/support.h"

namespace {

using fleet_test::OwnState;
using fleet_test::RandomStates;
using fleet_test::state_of;
using qim::fleet::apply_changes;
using qim::fleet::apply_state;
using qim::fleet::BlockDigests;
using qim::fleet::difference;
using qim::fleet::Digest;
using qim::fleet::ForgedError;
using qim::fleet::parse_difference;
using qim::fleet::read_nodes;
using qim::fleet::read_state;
using qim::fleet::State;
using qim::fleet::state_digest;
using qim::fleet::StateEdits;
using qim::fleet::to_hex;
using qimctl::Database;
using qimctl::ReadSession;
using qimctl::WriteSession;

class DatabaseState : public testing::Test {
 protected:
  StateEdits make(const State& wanted) {
    WriteSession writer(database_);
    const ReadSession held(database_);
    const StateEdits counted = apply_state(nullptr, held, wanted);
    const StateEdits edits = apply_state(&writer, held, wanted);
    EXPECT_EQ(counted.total(), edits.total());
    writer.commit();
    return edits;
  }
  State now() const { return read_state(ReadSession(database_).handle()); }
  Digest digest() const {
    BlockDigests digests;
    digests.read(ReadSession(database_).handle());
    return digests.digest();
  }

  tools_test::TempDir dir_;
  Database database_{dir_ / "db", qimctl::OpenMode::create};
};

TEST_F(DatabaseState, becomes_whatever_is_wanted) {
  RandomStates random(5);
  OwnState nodes = random.make(80);
  for (uint32_t round = 0; round < 12; round++) {
    const State wanted = state_of(nodes);
    make(wanted);
    ASSERT_EQ(now(), wanted) << round;
    EXPECT_EQ(make(wanted).total(), 0U);
    EXPECT_EQ(digest(), state_digest(wanted));
    random.change(nodes, random.below(30));
    if (round % 4 == 3) nodes = random.make(60);
  }
}

TEST_F(DatabaseState, follows_differences_and_so_does_its_digest) {
  RandomStates random(6);
  OwnState nodes = random.make(80);
  State before = state_of(nodes);
  make(before);
  BlockDigests digests;
  digests.read(ReadSession(database_).handle());
  for (uint32_t round = 0; round < 12; round++) {
    random.change(nodes, 1 + random.below(8));
    const State after = state_of(nodes);
    const std::string bytes = difference(before, after);
    WriteSession writer(database_);
    const StateEdits edits = apply_changes(writer, parse_difference(bytes));
    digests.refresh(writer.handle(), edits.touched);
    EXPECT_EQ(digests.digest(), state_digest(after));
    EXPECT_EQ(read_nodes(writer.handle(), {UINT32_MAX}).size(),
              nodes.contains(UINT32_MAX) ? 1U : 0U);
    writer.commit();
    ASSERT_EQ(now(), after) << round;
    before = after;
  }
}

TEST_F(DatabaseState, changes_no_more_than_it_must) {
  OwnState nodes;
  for (uint32_t id = 1; id <= 10; id++) {
    nodes[id].tlv = "x";
    nodes[id].links[7] = {7, 0, id + 1, 0, 0};
    nodes[id].links[9] = {9, 0, id + 1, 0, 0};
  }
  make(state_of(nodes));
  nodes[2].tlv = "y";
  nodes[3].links.erase(9);
  nodes[4].links[9].val = 5;
  nodes[5].links[8] = {8, 0, 1, 0, 0};
  nodes.erase(6);
  const StateEdits edits = make(state_of(nodes));
  EXPECT_EQ(edits.nodes_put, 1U);
  EXPECT_EQ(edits.nodes_removed, 1U);
  EXPECT_EQ(edits.links, 3U);
  EXPECT_EQ(edits.touched, (std::vector<uint32_t>{2, 3, 4, 5, 6}));
}

TEST_F(DatabaseState, leaves_out_what_belongs_to_the_device) {
  OwnState nodes;
  nodes[1].tlv = "x";
  make(state_of(nodes));
  const Digest before = digest();
  {
    WriteSession writer(database_);
    ASSERT_EQ(rov_edit_priv_put(writer.handle(), qimctl::database_id(1), 9, "kept", 4), 0U);
    ASSERT_EQ(rov_edit_mark_put(writer.handle(), "fleet", "kept", 4), 0U);
    writer.commit();
  }
  EXPECT_EQ(digest(), before);
  nodes[1].tlv = "y";
  make(state_of(nodes));
  char data[8];
  uint32_t client = 0;
  uint32_t length = 0;
  const ReadSession session(database_);
  EXPECT_EQ(
      rov_edit_priv_nth(session.handle(), qimctl::database_id(1), 0, &client, 8, data, &length),
      0U);
  EXPECT_EQ(std::string(data, length), "kept");
}

TEST_F(DatabaseState, refuses_a_difference_that_does_not_fit) {
  OwnState nodes;
  nodes[1].links[7] = {7, 0, 2, 0, 0};
  const State with = state_of(nodes);
  nodes[1].links.clear();
  const State unlinked = state_of(nodes);
  make(unlinked);
  const auto complaint = [&](const State& from, const State& to) {
    WriteSession writer(database_);
    const std::string bytes = difference(from, to);
    try {
      apply_changes(writer, parse_difference(bytes));
    } catch (const ForgedError& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  const std::string node = "the difference does not fit the database: node 0x00000001 ";
  EXPECT_EQ(complaint(with, unlinked), node + "has no link to take away");
  EXPECT_EQ(complaint(State(), with), node + "is there already");
  nodes[2].tlv = "x";
  EXPECT_EQ(complaint(state_of(nodes), unlinked),
            "the difference does not fit the database: node 0x00000002 is not there");
}

TEST(Digest, of_a_state_is_the_same_on_every_machine) {
  RandomStates random(1);
  EXPECT_EQ(to_hex(state_digest(state_of(random.make(500)))),
            "9766317c90024f6db0e6161b81d01a11424a0cb7363e64f6947ab2e9fce5c892");
  EXPECT_EQ(to_hex(state_digest(State())), to_hex(qim::fleet::sha256("qim state 1\n")));
}

}  // namespace
