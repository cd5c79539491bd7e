// Publications: what a data set leads to, as one block that another process can carry on.

#include "tests/system/e2e/operations.h"
#include "tests/system/e2e/peer.h"

namespace {

using e2e::Bytes;
using e2e::Client;
using e2e::gives;
using e2e::kNode;
using e2e::ok;

// The words of a publication's head, and where they lie in a node's.
constexpr std::size_t kHead = 16;
constexpr std::size_t kNodeHead = 20;
constexpr std::size_t kLink = 16;

std::uint32_t word(const Bytes& bytes, std::size_t at) {
  return std::uint32_t{bytes.at(at)} << 24 | std::uint32_t{bytes.at(at + 1)} << 16 |
         std::uint32_t{bytes.at(at + 2)} << 8 | bytes.at(at + 3);
}

// The nodes of a publication, in its order.
std::vector<qim_node_id_t> nodes_of(const Bytes& block) {
  std::vector<qim_node_id_t> nodes;
  const auto padded = [](std::uint32_t len) { return (len + 3) / 4 * 4; };
  std::size_t at = kHead;
  while (at < block.size()) {
    nodes.push_back(word(block, at));
    at += kNodeHead + padded(word(block, at + 12)) + padded(word(block, at + 8)) +
          kLink * word(block, at + 16);
  }
  EXPECT_EQ(at, block.size());
  return nodes;
}

class OperationsPublish : public testing::Test {
 protected:
  // A data set that leads to a node, which leads to a third and back; a fourth is by itself.
  static void write(const std::string& database) {
    const Client client(database);
    std::uint32_t writer = 0;
    ASSERT_TRUE(ok(rov_edit_begin(client.db(), &writer)));
    e2e::put_value(writer, kNode, 1, e2e::interface_name(5));
    for (std::uint32_t i = 1; i < 4; ++i) e2e::put_value(writer, kNode + i, i);
    e2e::put_link(writer, kNode, 0x281, kNode + 2);
    e2e::put_link(writer, kNode + 2, 0x281, kNode + 1);
    e2e::put_link(writer, kNode + 1, 0x281, kNode);
    EXPECT_TRUE(ok(rov_edit_commit(writer)));
  }
  void SetUp() override {
    e2e::in_process([this] { write(directory_.database()); });
  }

  static std::uint32_t size_of(std::uint32_t ses) {
    std::uint32_t size = 0;
    EXPECT_TRUE(ok(qim_ps_datasize(ses, e2e::interface_name(5).data(), &size)));
    return size;
  }
  static Bytes block_of(std::uint32_t ses) {
    Bytes block(size_of(ses) + 1, 0xee);
    const auto size = static_cast<std::uint32_t>(block.size() - 1);
    EXPECT_TRUE(ok(qim_ps_data(ses, e2e::interface_name(5).data(), size, block.data())));
    EXPECT_EQ(block.back(), 0xee) << "written beyond the buffer";
    block.pop_back();
    return block;
  }

  e2e::Directory directory_;
};

TEST_F(OperationsPublish, of_a_data_set_hold_each_node_that_it_leads_to_once) {
  const Client client(directory_.database());
  const Bytes block = block_of(client.ses());
  EXPECT_EQ(word(block, 8), 3u);
  EXPECT_EQ(word(block, 12), block.size());
  EXPECT_EQ(nodes_of(block), (std::vector<qim_node_id_t>{kNode, kNode + 2, kNode + 1}));
}

TEST_F(OperationsPublish, stay_what_their_session_sees) {
  e2e::Peer other({[this] {
    const Client client(directory_.database());
    std::uint32_t writer = 0;
    ASSERT_TRUE(ok(rov_edit_begin(client.db(), &writer)));
    e2e::put_link(writer, kNode + 1, 0x282, kNode + 3);
    EXPECT_TRUE(ok(rov_edit_commit(writer)));
  }});
  const Client client(directory_.database());
  const Bytes before = block_of(client.ses());
  other.step();
  EXPECT_EQ(block_of(client.ses()), before);
  const std::uint32_t later = client.open_session();
  EXPECT_EQ(word(block_of(later), 8), 4u);
  EXPECT_TRUE(ok(rov_ses_close(later)));
}

TEST_F(OperationsPublish, above_the_limits_are_refused) {
  const Client client(directory_.database());
  const Bytes name = e2e::interface_name(5);
  const std::uint32_t size = size_of(client.ses());
  const auto limited = [&](std::uint32_t nodes, std::uint32_t bytes) {
    EXPECT_TRUE(ok(qim_db_set_ps_sizes(client.db(), nodes, bytes)));
    std::uint32_t ignored = 0;
    return qim_ps_datasize(client.ses(), name.data(), &ignored);
  };
  EXPECT_TRUE(ok(limited(3, size)));
  EXPECT_TRUE(gives(ROV_ERR_PS_SIZE, limited(2, 0)));
  EXPECT_TRUE(gives(ROV_ERR_PS_SIZE, limited(0, size - 1)));
  Bytes block(size);
  EXPECT_TRUE(gives(ROV_ERR_PS_SIZE, qim_ps_data(client.ses(), name.data(), size, block.data())));
  EXPECT_TRUE(ok(limited(0, 0)));
}

TEST_F(OperationsPublish, of_unknown_names_and_into_short_buffers_are_refused) {
  const Client client(directory_.database());
  std::uint32_t size = 0;
  EXPECT_TRUE(
      gives(ROV_ERR_NO_ITEM, qim_ps_datasize(client.ses(), e2e::interface_name(6).data(), &size)));
  size = size_of(client.ses());
  Bytes block(size);
  EXPECT_TRUE(gives(ROV_ERR_LENGTH, qim_ps_data(client.ses(), e2e::interface_name(5).data(),
                                                size - 1, block.data())));
}

}  // namespace
