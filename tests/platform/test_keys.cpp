// Keys and values as bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/keys.h"
#include "platform/referrer_chunk.h"
#include "tests/platform/random.h"

namespace {

using rov::Bytes;
using rov::Chunk;
using rov::NodeView;

TEST(Keys, AnIdentifierIsItsFirstWordInNetworkOrder) {
  const rov_node_id_t id = rov::id_of(0x01020304);
  const auto* bytes = reinterpret_cast<const uint8_t*>(&id);
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 5), (std::vector<uint8_t>{1, 2, 3, 4, 0}));
  EXPECT_EQ(rov::number_of(id), 0x01020304U);
}

TEST(Keys, AnIdentifierWithMoreThanItsFirstWordNamesNoNode) {
  for (int word = 1; word < 4; ++word) {
    rov_node_id_t id = rov::id_of(7);
    id.word[word] = 1;
    EXPECT_EQ(rov::number_of(id), 0U);
  }
}

TEST(Keys, DataSetsAreOrderedByNameThenNumberAndUnnamedOnesFirst) {
  const std::vector<uint8_t> a(rov::kNameBytes, 'a');
  const std::vector<uint8_t> b(rov::kNameBytes, 'b');
  const rov::Key order[] = {rov::dset_key(nullptr, 1), rov::dset_key(nullptr, 0xffffffff),
                            rov::dset_key(a.data(), 2), rov::dset_key(a.data(), 300),
                            rov::dset_key(b.data(), 1)};
  for (size_t n = 1; n < std::size(order); ++n) EXPECT_LT(rov::compare(order[n - 1], order[n]), 0);
  EXPECT_EQ(order[0].len, rov::kUnnamedKeyBytes);
  EXPECT_EQ(order[2].len, rov::kNamedKeyBytes);
}

std::vector<uint8_t> node_value(uint32_t links, uint32_t tlv_len, bool named) {
  const std::vector<uint8_t> name(rov::kNameBytes, 'n');
  const std::vector<uint8_t> tlv(tlv_len, 't');
  const std::vector<uint8_t> link(size_t{links} * rov::kLinkBytes, 'l');
  NodeView node;
  node.flags = 0x80000004;
  node.refs = 3;
  node.clients = 65535;
  node.tlv_len = tlv_len;
  node.links = links;
  node.dset_len = named ? rov::kNameBytes : 0;
  node.dset = name.data();
  node.tlv = tlv.data();
  node.link = link.data();
  std::vector<uint8_t> value(rov::node_bytes(node));
  rov::write_node(node, value.data());
  return value;
}

TEST(Keys, ANodeValueReadsBack) {
  const std::vector<uint8_t> value = node_value(2, 5, true);
  NodeView node;
  ASSERT_TRUE(rov::parse_node(9, {value.data(), static_cast<uint32_t>(value.size())}, &node));
  EXPECT_EQ(node.node, 9U);
  EXPECT_EQ(node.flags, 0x80000004U);
  EXPECT_EQ(node.refs, 3U);
  EXPECT_EQ(node.clients, 65535U);
  EXPECT_EQ(node.links, 2U);
  EXPECT_EQ(std::string(node.tlv, node.tlv + node.tlv_len), "ttttt");
  EXPECT_EQ(std::string(node.dset, node.dset + node.dset_len), std::string(21, 'n'));
  EXPECT_EQ(std::string(node.link, node.link + 32), std::string(32, 'l'));
}

TEST(Keys, ANodeValueOfAnyOtherLengthIsRefused) {
  const std::vector<uint8_t> value = node_value(2, 5, true);
  NodeView node;
  for (uint32_t len = 0; len < value.size(); ++len) {
    EXPECT_FALSE(rov::parse_node(9, {value.data(), len}, &node)) << len;
  }
  std::vector<uint8_t> longer = value;
  longer.push_back(0);
  EXPECT_FALSE(rov::parse_node(9, {longer.data(), static_cast<uint32_t>(longer.size())}, &node));
  std::vector<uint8_t> huge = value;
  rov::store<uint32_t>(huge.data() + 16, 0xffffffff);
  EXPECT_FALSE(rov::parse_node(9, {huge.data(), static_cast<uint32_t>(huge.size())}, &node));
}

TEST(Keys, LinksReadBackAndAreFoundByField) {
  const rov::Link links[] = {
      {3, 1, 2, 3, 4}, {0x81, 0xffff, 0xffffffff, 7, 0}, {0xffff, 0, 1, 0, 0}};
  std::vector<uint8_t> value = node_value(3, 0, false);
  for (size_t n = 0; n < 3; ++n) rov::write_link(links[n], value.data() + rov::kNodeHead + n * 16);
  NodeView node;
  ASSERT_TRUE(rov::parse_node(1, {value.data(), static_cast<uint32_t>(value.size())}, &node));
  const rov::Link link = rov::read_link(node.link + 16);
  EXPECT_EQ(link.tag, 0xffff);
  EXPECT_EQ(link.node, 0xffffffffU);
  EXPECT_EQ(link.val, 7U);
  EXPECT_EQ(rov::find_link(node, 0), 0U);
  EXPECT_EQ(rov::find_link(node, 3), 0U);
  EXPECT_EQ(rov::find_link(node, 4), 1U);
  EXPECT_EQ(rov::find_link(node, 0x81), 1U);
  EXPECT_EQ(rov::find_link(node, 0x10000), 3U);
}

struct ChunkModel {
  std::vector<uint8_t> value = std::vector<uint8_t>(rov::chunk_bytes(rov::kChunkMax));
  std::vector<rov::Referrer> list;

  Chunk parse() const {
    Chunk chunk;
    const auto count = static_cast<uint32_t>(list.size());
    EXPECT_TRUE(rov::parse_chunk({value.data(), rov::chunk_bytes(count)}, &chunk));
    return chunk;
  }
  void check() const {
    const Chunk chunk = parse();
    ASSERT_EQ(chunk.count, list.size());
    for (uint32_t at = 0; at < chunk.count; ++at) {
      ASSERT_EQ(chunk.id(at), list[at].node);
      ASSERT_EQ(chunk.field(at), list[at].field);
    }
  }
};

TEST(Keys, ChunksAgreeWithAList) {
  testing_rov::Random random(7);
  ChunkModel model;
  rov::chunk_start(model.value.data());
  rov::chunk_set_more(model.value.data(), true);
  for (int step = 0; step < 5000; ++step) {
    const auto count = static_cast<uint32_t>(model.list.size());
    const bool insert = count < 2 || (count < rov::kChunkMax && random.below(2) == 0);
    const uint32_t at = random.below(insert ? count + 1 : count);
    const rov::Referrer referrer = {random(), static_cast<uint16_t>(random())};
    if (insert) {
      rov::chunk_insert(model.value.data(), at, referrer);
      model.list.insert(model.list.begin() + at, referrer);
    } else if (random.below(3) == 0) {
      rov::chunk_set_field(model.value.data(), at, referrer.field);
      model.list[at].field = referrer.field;
    } else {
      rov::chunk_remove(model.value.data(), at);
      model.list.erase(model.list.begin() + at);
    }
    model.check();
    EXPECT_TRUE(model.parse().more);
  }
  ChunkModel upper;
  const auto half = static_cast<uint32_t>(model.list.size() / 2);
  rov::chunk_copy_from(upper.value.data(), model.parse(), half);
  upper.list.assign(model.list.begin() + half, model.list.end());
  upper.check();
  EXPECT_FALSE(upper.parse().more);
  rov::chunk_keep(model.value.data(), half);
  model.list.resize(half);
  model.check();
}

TEST(Keys, ChunksOfWrongShapeAreRefused) {
  std::vector<uint8_t> value(rov::chunk_bytes(2));
  rov::chunk_start(value.data());
  Chunk chunk;
  EXPECT_FALSE(rov::parse_chunk({value.data(), rov::kChunkHead}, &chunk))
      << "empty, and none follow";
  rov::chunk_insert(value.data(), 0, {1, 1});
  EXPECT_TRUE(rov::parse_chunk({value.data(), rov::chunk_bytes(1)}, &chunk));
  EXPECT_FALSE(rov::parse_chunk({value.data(), rov::chunk_bytes(2)}, &chunk));
  EXPECT_FALSE(rov::parse_chunk({value.data(), 7}, &chunk));
  rov::store<uint16_t>(value.data() + 4, static_cast<uint16_t>(rov::kChunkMax + 1));
  std::vector<uint8_t> large(rov::chunk_bytes(rov::kChunkMax + 1));
  memcpy(large.data(), value.data(), rov::kChunkHead);
  EXPECT_FALSE(rov::parse_chunk({large.data(), static_cast<uint32_t>(large.size())}, &chunk));
}

}  // namespace
