// Sealed values: what comes back, and what does not pass.
#include "fleet/base/compression.h"
#include "fleet/base/error.h"
#include "fleet/proto/messages.h"

namespace qim::fleet {
namespace {

class FleetMessages : public testing::Test {
 protected:
  FleetMessages() : trusted_({{key_.public_key(), "publisher"}}) {
    revision_.scope = "edge";
    revision_.number = 7;
    revision_.predecessor = 6;
    revision_.predecessor_state = sha256("six");
    revision_.state = sha256("seven");
    revision_.has_difference = true;
    revision_.difference = std::string("a\0b", 3);
    revision_.difference_plain = 10;
    revision_.author = "me";
    revision_.message = "why";
    revision_.time = 12;
    revision_.newest_snapshot = 2;
    revision_.chain_bytes = 99;
  }

  std::string said(const std::string& value, uint64_t number = 7,
                   const std::string& scope = "edge") const {
    try {
      (void)open_revision(value, trusted_, scope, number);
    } catch (const ForgedError& error) {
      return error.what();
    }
    return "";
  }

  PrivateKey key_ = PrivateKey::generate();
  TrustedKeys trusted_;
  Revision revision_;
};

TEST_F(FleetMessages, ARevisionComesBack) {
  revision_.has_snapshot = true;
  revision_.snapshot = {{sha256("chunk"), 5, 50}};
  const Revision back = open_revision(seal_revision(revision_, key_), trusted_, "edge", 7);
  EXPECT_EQ(back.predecessor, 6u);
  EXPECT_EQ(back.predecessor_state, sha256("six"));
  EXPECT_EQ(back.state, sha256("seven"));
  EXPECT_TRUE(back.has_difference);
  EXPECT_EQ(back.difference, revision_.difference);
  EXPECT_EQ(back.difference_plain, 10u);
  ASSERT_EQ(back.snapshot.size(), 1u);
  EXPECT_EQ(back.snapshot[0].digest, sha256("chunk"));
  EXPECT_EQ(back.snapshot[0].plain, 50u);
  EXPECT_EQ(back.author + back.message, "mewhy");
  EXPECT_EQ(back.time, 12);
  EXPECT_EQ(back.newest_snapshot, 2u);
  EXPECT_EQ(back.chain_bytes, 99u);
}

TEST_F(FleetMessages, AChangedByteIsNoticedWhereverItIs) {
  const std::string value = seal_revision(revision_, key_);
  for (size_t at = 0; at < value.size(); at++) {
    std::string changed = value;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_NE(said(changed), "") << at;
    EXPECT_NE(said(value.substr(0, at)), "") << at;
  }
}

TEST_F(FleetMessages, WhatLiesElsewhereIsRefused) {
  const std::string value = seal_revision(revision_, key_);
  EXPECT_NE(said(value, 8).find("number 7"), std::string::npos);
  EXPECT_NE(said(value, 7, "core").find("\"edge\""), std::string::npos);
}

TEST_F(FleetMessages, WhoIsNotTrustedIsRefused) {
  EXPECT_NE(said(seal_revision(revision_, PrivateKey::generate())).find("not trusted"),
            std::string::npos);
}

TEST_F(FleetMessages, OneKindIsNoOther) {
  Head head;
  head.scope = "edge";
  EXPECT_NE(said(seal_head(head, key_)).find("wrong signature"), std::string::npos);
}

TEST_F(FleetMessages, ARevisionThatIsMadeOfNothingIsRefused) {
  revision_.has_difference = false;
  EXPECT_NE(said(seal_revision(revision_, key_)).find("how it is made"), std::string::npos);
  revision_.has_difference = true;
  revision_.predecessor = 7;
  EXPECT_NE(said(seal_revision(revision_, key_)).find("how it is made"), std::string::npos);
}

TEST_F(FleetMessages, WhatIsTooLongIsNotLookedAt) {
  EXPECT_NE(said(std::string(most_value + 1, 'x')).find("no signed value"), std::string::npos);
}

TEST_F(FleetMessages, AHeadComesBack) {
  Head head{.scope = "edge",
            .sequence = 9,
            .last = 8,
            .base = 6,
            .base_state = sha256("six"),
            .next = 7,
            .next_state = sha256("seven"),
            .stage = {20, {"lab"}, "salt", true, 3, 60},
            .author = "me",
            .time = 5,
            .what = "push",
            .carried = "revision 7"};
  const Head back = open_head(seal_head(head, key_), trusted_, "edge");
  EXPECT_EQ(back.carried, "revision 7");
  EXPECT_EQ(back.sequence, 9u);
  EXPECT_EQ(back.last, 8u);
  EXPECT_EQ(back.base, 6u);
  EXPECT_EQ(back.base_state, sha256("six"));
  EXPECT_EQ(back.next, 7u);
  EXPECT_EQ(back.next_state, sha256("seven"));
  EXPECT_EQ(back.stage.percent, 20u);
  EXPECT_EQ(back.stage.labels, std::vector<std::string>{"lab"});
  EXPECT_EQ(back.stage.salt, "salt");
  EXPECT_TRUE(back.stage.hold);
  EXPECT_EQ(back.stage.max_failures, 3u);
  EXPECT_EQ(back.stage.confirm_seconds, 60u);
  EXPECT_EQ(back.what, "push");
  EXPECT_THROW(open_head(seal_head(head, key_), trusted_, "core"), ForgedError);
}

TEST_F(FleetMessages, AStatusComesBackAndSaysWhoSignedIt) {
  Status status{.scope = "edge",
                .device = "d1",
                .sequence = 3,
                .applied = 6,
                .state = sha256("six"),
                .refused = 7,
                .reason = "unknown criterion",
                .away_since = 4,
                .drifted = true,
                .drift = "by hand",
                .database = "id",
                .labels = {"lab"},
                .head_sequence = 9,
                .time = 11,
                .version = "1"};
  const PrivateKey device = PrivateKey::generate();
  const std::string value = seal_status(status, device);
  KeyBytes signer{};
  const Status back = open_status(value, nullptr, "edge", "d1", &signer);
  EXPECT_EQ(signer, device.public_key());
  EXPECT_EQ(back.sequence, 3u);
  EXPECT_EQ(back.applied, 6u);
  EXPECT_EQ(back.refused, 7u);
  EXPECT_EQ(back.reason, "unknown criterion");
  EXPECT_EQ(back.away_since, 4);
  EXPECT_TRUE(back.drifted);
  EXPECT_EQ(back.drift + back.database + back.version, "by handid1");
  EXPECT_EQ(back.labels, std::vector<std::string>{"lab"});
  EXPECT_EQ(back.head_sequence, 9u);
  EXPECT_THROW(open_status(value, &trusted_, "edge", "d1"), ForgedError);
  EXPECT_THROW(open_status(value, nullptr, "edge", "d2"), ForgedError);
}

TEST(FleetChunk, IsWhatItsDigestSays) {
  const std::string plain(1000, 'x');
  const std::string stored = compress(plain);
  Chunk chunk{sha256(stored), stored.size(), plain.size()};
  EXPECT_EQ(open_chunk(chunk, stored), plain);
  EXPECT_THROW(open_chunk(chunk, compress("other")), ForgedError);
  EXPECT_THROW(open_chunk(chunk, stored + "x"), ForgedError);
  chunk.plain = 999;
  EXPECT_THROW(open_chunk(chunk, stored), ForgedError);
  chunk.plain = 1001;
  EXPECT_THROW(open_chunk(chunk, stored), ForgedError);
  chunk.plain = uint64_t{1} << 40u;
  EXPECT_THROW(open_chunk(chunk, stored), ForgedError);
}

}  // namespace
}  // namespace qim::fleet
