// Keys and values as bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "database/record/keys.h"
#include "database/record/referrer_chunk.h"
#include "tests/database/random.h"

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

// What a node value is made of.
struct Parts {
  uint32_t flags = 0;
  uint32_t clients = 0;
  uint32_t tlv_len = 5;
  bool named = false;
  uint32_t links = 2;
  uint32_t link_len = rov::kShortLink;

  std::vector<uint8_t> value() const {
    const std::vector<uint8_t> name(rov::kNameBytes, 'n');
    const std::vector<uint8_t> tlv(tlv_len, 't');
    const std::vector<uint8_t> link(size_t{links} * link_len, 'l');
    NodeView node;
    node.flags = flags;
    node.refs = 3;
    node.clients = clients;
    node.tlv_len = tlv_len;
    node.links = links;
    node.link_len = link_len;
    node.dset_len = named ? rov::kNameBytes : 0;
    node.dset = name.data();
    node.tlv = tlv.data();
    node.link = link.data();
    std::vector<uint8_t> made(rov::node_bytes(node));
    rov::write_node(node, made.data());
    return made;
  }
};

Bytes all_of(const std::vector<uint8_t>& value) {
  return {value.data(), static_cast<uint32_t>(value.size())};
}

const Parts kParts[] = {{},
                        {.tlv_len = 0, .links = 0},
                        {.named = true},
                        {.flags = 0x80000004},
                        {.clients = 65535},
                        {.link_len = rov::kLinkBytes},
                        {.links = 65535},
                        {.links = 65536},
                        {.flags = 1, .clients = 1, .named = true, .link_len = rov::kLinkBytes}};

TEST(Keys, ANodeValueReadsBack) {
  for (const Parts& parts : kParts) {
    const std::vector<uint8_t> value = parts.value();
    NodeView node;
    ASSERT_TRUE(rov::parse_node(9, all_of(value), &node));
    EXPECT_EQ(node.node, 9U);
    EXPECT_EQ(node.flags, parts.flags);
    EXPECT_EQ(node.refs, 3U);
    EXPECT_EQ(node.clients, parts.clients);
    EXPECT_EQ(node.links, parts.links);
    EXPECT_EQ(node.link_len, parts.link_len);
    EXPECT_EQ(std::string(node.tlv, node.tlv + node.tlv_len), std::string(parts.tlv_len, 't'));
    EXPECT_EQ(std::string(node.dset, node.dset + node.dset_len),
              std::string(parts.named ? 21 : 0, 'n'));
    const size_t bytes = size_t{parts.links} * parts.link_len;
    EXPECT_EQ(std::string(node.link, node.link + bytes), std::string(bytes, 'l'));
    EXPECT_EQ(node.link + bytes, value.data() + value.size());
  }
}

TEST(Keys, ANodeTakesNoMoreThanItNeeds) {
  EXPECT_EQ((Parts{.tlv_len = 0, .links = 0}.value().size()), 12U);
  EXPECT_EQ((Parts{.flags = 1, .tlv_len = 0, .links = 0}.value().size()), 20U);
  EXPECT_EQ((Parts{.tlv_len = 7, .named = true, .links = 2}.value().size()), 12U + 21 + 7 + 24);
}

TEST(Keys, ANodeValueThatIsTooShortIsRefused) {
  for (const Parts& parts : kParts) {
    const std::vector<uint8_t> value = parts.value();
    NodeView node;
    const auto least = static_cast<uint32_t>(value.size()) - parts.tlv_len;
    for (uint32_t len = 0; len < least; ++len) {
      ASSERT_FALSE(rov::parse_node(9, {value.data(), len}, &node)) << len;
    }
    EXPECT_TRUE(rov::parse_node(9, {value.data(), least}, &node));
  }
}

TEST(Keys, ANodeValueOfUnknownFormIsRefused) {
  for (uint32_t bit = 4; bit < 16; ++bit) {
    std::vector<uint8_t> value = Parts{.tlv_len = 100}.value();
    rov::store(value.data() + 10, static_cast<uint16_t>(1U << bit));
    NodeView node;
    EXPECT_FALSE(rov::parse_node(9, all_of(value), &node)) << bit;
  }
}

TEST(Keys, ANodeValueIsRefusedWhoseMarksAreAllZero) {
  std::vector<uint8_t> value = Parts{.flags = 1}.value();
  NodeView node;
  ASSERT_TRUE(rov::parse_node(9, all_of(value), &node));
  rov::store(value.data() + rov::kNodeHead, uint32_t{0});
  EXPECT_FALSE(rov::parse_node(9, all_of(value), &node));
}

void check_links(uint32_t link_len) {
  const rov::Link links[] = {
      {3, 1, 2, 3, 4}, {0x81, 0xffff, 0xffffffff, 7, 0}, {0xffff, 0, 1, 0, 0xfffffffe}};
  std::vector<uint8_t> value = Parts{.tlv_len = 0, .links = 3, .link_len = link_len}.value();
  uint8_t* first = value.data() + rov::kNodeHead;
  for (size_t n = 0; n < 3; ++n) rov::write_link(links[n], link_len, first + n * link_len);
  NodeView node;
  ASSERT_TRUE(rov::parse_node(1, all_of(value), &node));
  for (uint32_t n = 0; n < 3; ++n) {
    const rov::Link link = rov::read_link(node, n);
    EXPECT_EQ(link.field, links[n].field);
    EXPECT_EQ(link.tag, links[n].tag);
    EXPECT_EQ(link.node, links[n].node);
    EXPECT_EQ(link.val, links[n].val);
    EXPECT_EQ(link.node2, link_len == rov::kLinkBytes ? links[n].node2 : 0);
  }
  EXPECT_EQ(rov::find_link(node, 0), 0U);
  EXPECT_EQ(rov::find_link(node, 3), 0U);
  EXPECT_EQ(rov::find_link(node, 4), 1U);
  EXPECT_EQ(rov::find_link(node, 0x81), 1U);
  EXPECT_EQ(rov::find_link(node, 0x10000), 3U);
}

TEST(Keys, LinksReadBackAndAreFoundByField) {
  check_links(rov::kShortLink);
  check_links(rov::kLinkBytes);
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
