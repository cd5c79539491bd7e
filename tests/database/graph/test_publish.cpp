// Publications: a data set with all that it leads to.
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

class PublishTest : public DatabaseTest {
 protected:
  // 1 (named "top") -> 2 and 3; 2 -> 3; 3 -> 1 and to 9, which is not there.
  void store_example() {
    const uint32_t ses = begin();
    ASSERT_OK(put_node(ses, 1, pattern(1, 5), name("top"), ROV_NODE_DSET));
    ASSERT_OK(put_node(ses, 2, {}));
    ASSERT_OK(put_node(ses, 3, pattern(3, 4)));
    ASSERT_OK(put_link(ses, 1, 0x81, 2, 3, 0x55, 0x66));
    ASSERT_OK(put_link(ses, 2, 0x81, 3));
    ASSERT_OK(put_link(ses, 3, 0x81, 1));
    ASSERT_OK(put_link(ses, 3, 0x82, 9));
    commit(ses);
  }
  Bytes publication(uint32_t ses) {
    uint32_t size = 0;
    EXPECT_OK(rov_ps_datasize(ses, name("top").data(), &size));
    Bytes bytes(size + 4, 0xee);
    EXPECT_OK(rov_ps_data(ses, name("top").data(), size, bytes.data()));
    EXPECT_EQ(Bytes(bytes.end() - 4, bytes.end()), Bytes(4, 0xee));
    bytes.resize(size);
    return bytes;
  }
};

Bytes words(std::initializer_list<uint32_t> values) {
  Bytes bytes;
  for (const uint32_t value : values) {
    uint8_t out[4];
    rov::store_be32(out, value);
    bytes.insert(bytes.end(), out, out + 4);
  }
  return bytes;
}
Bytes padded(Bytes bytes) {
  bytes.resize((bytes.size() + 3) & ~size_t{3});
  return bytes;
}
Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST_F(PublishTest, EveryNodeComesOnceBreadthFirst) {
  store_example();
  const Bytes nodes = words({1, ROV_NODE_DSET, 5, 21, 1}) + padded(name("top")) +
                      padded(pattern(1, 5)) + words({0x00810066, 2, 0x55, 3}) +
                      words({2, 0, 0, 0, 1}) + words({0x00810000, 3, 0, 0}) +
                      words({3, 0, 4, 0, 2}) + pattern(3, 4) + words({0x00810000, 1, 0, 0}) +
                      words({0x00820000, 9, 0, 0});
  const auto size = static_cast<uint32_t>(nodes.size()) + 16;
  EXPECT_EQ(publication(read()), words({0x51505542, 1, 3, size}) + nodes);
}

TEST_F(PublishTest, LimitsAreKept) {
  store_example();
  uint32_t size = 0;
  const uint32_t ses = read();
  ASSERT_OK(rov_ps_datasize(ses, name("top").data(), &size));
  ASSERT_OK(rov_db_set_ps_sizes(db_, 3, size));
  EXPECT_OK(rov_ps_datasize(ses, name("top").data(), &size));
  ASSERT_OK(rov_db_set_ps_sizes(db_, 2, 0));
  EXPECT_STATUS(rov_ps_datasize(ses, name("top").data(), &size), ROV_ERR_PS_SIZE);
  ASSERT_OK(rov_db_set_ps_sizes(db_, 0, size - 1));
  EXPECT_STATUS(rov_ps_datasize(ses, name("top").data(), &size), ROV_ERR_PS_SIZE);
}

TEST_F(PublishTest, AShortBufferIsRefusedAndNothingWrittenBeyondIt) {
  store_example();
  const uint32_t ses = read();
  const Bytes whole = publication(ses);
  for (uint32_t len = 0; len < whole.size(); ++len) {
    Bytes bytes(len + 1, 0xee);
    EXPECT_STATUS(rov_ps_data(ses, name("top").data(), len, bytes.data()), ROV_ERR_LENGTH);
    EXPECT_EQ(bytes.back(), 0xee) << len;
  }
}

TEST_F(PublishTest, APolicyOfManyNodesIsPublishedWhole) {
  constexpr uint32_t kNodes = 1000;
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 1, {}, name("top")));
  for (uint32_t node = 2; node <= kNodes; ++node) {
    ASSERT_OK(put_node(ses, node, {}));
    ASSERT_OK(put_link(ses, node - 1, 0x81, node, 1));
  }
  commit(ses);
  const Bytes bytes = publication(read());
  EXPECT_EQ(rov::load_be32(bytes.data() + 8), kNodes);
}

TEST_F(PublishTest, BadArgumentsAreRefused) {
  uint32_t size = 0;
  const uint32_t ses = read();
  EXPECT_STATUS(rov_ps_datasize(ses, name("none").data(), &size), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_ps_datasize(ses, nullptr, &size), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ps_datasize(ses, name("top").data(), nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ps_data(ses, name("top").data(), 4, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ps_data(0x1234, name("top").data(), 4, &size), ROV_ERR_HANDLE);
}

}  // namespace
