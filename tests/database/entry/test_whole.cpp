// What tools need that take a whole database: all clients' private data, and checksums.
#include "tests/database/child.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

class WholeTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    ses_ = begin();
    ASSERT_OK(put_node(ses_, 7, {}));
    ASSERT_OK(put_node(ses_, 8, {}));
  }

  uint32_t put(uint32_t node, uint32_t client, const Bytes& data) const {
    return rov_edit_priv_put(ses_, id(node), client, data.data(),
                             static_cast<uint32_t>(data.size()));
  }
  static uint32_t nth(uint32_t ses, uint32_t node, uint32_t n, uint32_t* client, Bytes* data) {
    data->resize(100);
    uint32_t len = 0;
    const uint32_t status = rov_edit_priv_nth(ses, id(node), n, client, 100, data->data(), &len);
    data->resize(len);
    return status;
  }

  uint32_t ses_ = 0;
};

TEST_F(WholeTest, AllClientsAreFoundInOrder) {
  ASSERT_OK(put(7, 9, {1}));
  ASSERT_OK(put(7, 0, {2, 3}));
  ASSERT_OK(put(7, 0xffffffff, {4}));
  ASSERT_OK(put(8, 5, {5}));
  commit(ses_);
  const uint32_t ses = read();
  uint32_t client = 1;
  Bytes data;
  EXPECT_OK(nth(ses, 7, 0, &client, &data));
  EXPECT_EQ(client, 0U);
  EXPECT_EQ(data, (Bytes{2, 3}));
  EXPECT_OK(nth(ses, 7, 1, &client, &data));
  EXPECT_EQ(client, 9U);
  EXPECT_OK(nth(ses, 7, 2, &client, &data));
  EXPECT_EQ(client, 0xffffffffU);
  EXPECT_STATUS(nth(ses, 7, 3, &client, &data), ROV_ERR_NO_VALUE);
  EXPECT_STATUS(nth(ses, 9, 0, &client, &data), ROV_ERR_NO_ITEM);
}

// The same whether it is summed up record by record or in the file.
TEST_F(WholeTest, TheSumOverAllNodesIsThatOfTheFile) {
  ASSERT_OK(put(7, 9, {1}));
  ASSERT_OK(put(7, 0xffffffff, {4}));
  ASSERT_OK(put_link(ses_, 8, 3, 7));
  uint64_t edited = 0;
  ASSERT_OK(rov_edit_node_sum(ses_, id(7), &edited));
  commit(ses_);
  const uint32_t ses = read();
  rov_verify_t report = {};
  ASSERT_OK(rov_ses_verify(ses, &report));
  uint64_t sum = 0;
  for (const uint32_t node : {7U, 8U}) {
    uint64_t one = 0;
    ASSERT_OK(rov_edit_node_sum(ses, id(node), &one));
    if (node == 7) {
      EXPECT_EQ(one, edited) << "what will be stored";
    }
    sum += one;
  }
  EXPECT_EQ(sum, report.sum);
  EXPECT_STATUS(rov_edit_node_sum(ses, id(9), &sum), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_edit_node_sum(ses, id(7), nullptr), ROV_ERR_INVALID);
  ses_ = ses;
}

TEST_F(WholeTest, ARoomThatIsTooSmallIsToldTheLength) {
  ASSERT_OK(put(7, 9, pattern(1, 50)));
  uint32_t client = 0;
  uint32_t len = 0;
  EXPECT_STATUS(rov_edit_priv_nth(ses_, id(7), 0, &client, 0, nullptr, &len), ROV_ERR_LENGTH);
  EXPECT_EQ(len, 50U);
  EXPECT_EQ(client, 9U);
}

TEST_F(WholeTest, EachClientSeesWhatWasPutForIt) {
  ASSERT_OK(put(7, kClient, {1, 2}));
  EXPECT_EQ(private_of(ses_, 7), (Bytes{1, 2}));
  ASSERT_OK(put(7, kClient + 1, {3}));
  EXPECT_EQ(private_of(ses_, 7), (Bytes{1, 2}));
  ASSERT_OK(put(7, kClient, {}));
  EXPECT_EQ(private_of(ses_, 7), Bytes());
}

TEST_F(WholeTest, BadArguments) {
  uint32_t client = 0;
  uint32_t len = 0;
  uint8_t byte = 0;
  EXPECT_STATUS(rov_edit_priv_nth(ses_, id(7), 0, nullptr, 1, &byte, &len), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_priv_nth(ses_, id(7), 0, &client, 1, nullptr, &len), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_priv_nth(ses_, id(7), 0, &client, 1, &byte, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_priv_put(ses_, id(7), 1, nullptr, 1), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_priv_put(ses_, id(7), 1, &byte, 2U << 20), ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_edit_priv_put(ses_, id(99), 1, &byte, 1), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_edit_priv_put(read(), id(7), 1, &byte, 1), ROV_ERR_READ_ONLY);
}

std::vector<rov_holder_t> holders_of(uint32_t db) {
  std::vector<rov_holder_t> holders;
  EXPECT_OK(rov_edit_holders(
      db,
      [](const rov_holder_t* holder, void* all) {
        static_cast<std::vector<rov_holder_t>*>(all)->push_back(*holder);
      },
      &holders));
  return holders;
}

TEST_F(WholeTest, HoldersAreReadersAndTheWriter) {
  const std::vector<rov_holder_t> writing = holders_of(db_);
  ASSERT_FALSE(writing.empty());
  EXPECT_EQ(writing.back().what, static_cast<uint32_t>(ROV_HOLDER_WRITER));
  EXPECT_EQ(writing.back().pid, static_cast<uint32_t>(getpid()));
  commit(ses_);
  const uint32_t ses = read();
  const std::vector<rov_holder_t> reading = holders_of(db_);
  ASSERT_FALSE(reading.empty());
  for (const rov_holder_t& holder : reading) {
    EXPECT_EQ(holder.what, static_cast<uint32_t>(ROV_HOLDER_READER));
    EXPECT_EQ(holder.pid, static_cast<uint32_t>(getpid()));
    EXPECT_GT(holder.revision, 0U);
  }
  ASSERT_OK(rov_ses_close(ses));
  EXPECT_LT(holders_of(db_).size(), reading.size());
  EXPECT_STATUS(rov_edit_holders(db_, nullptr, nullptr), ROV_ERR_INVALID);
}

TEST_F(WholeTest, AWriterOfAnotherProcessIsAHolder) {
  commit(ses_);
  Child child(path(), [](uint32_t db, int out) {
    uint32_t ses = 0;
    const uint32_t good = rov_edit_begin(db, &ses) == ROV_OK ? 1 : 0;
    const bool told = write(out, &good, sizeof good) == sizeof good;
    pause();
    return told;
  });
  uint32_t good = 0;
  ASSERT_TRUE(child.next(&good));
  ASSERT_EQ(good, 1U);
  const std::vector<rov_holder_t> holders = holders_of(db_);
  ASSERT_FALSE(holders.empty());
  EXPECT_EQ(holders.back().what, static_cast<uint32_t>(ROV_HOLDER_WRITER));
  EXPECT_NE(holders.back().pid, static_cast<uint32_t>(getpid()));
}

TEST_F(WholeTest, ChecksumsContinue) {
  EXPECT_EQ(rov_crc32c(0, "123456789", 9), 0xe3069283U);
  EXPECT_EQ(rov_crc32c(rov_crc32c(0, "1234", 4), "56789", 5), 0xe3069283U);
  EXPECT_EQ(rov_crc32c(17, nullptr, 0), 17U);
}

}  // namespace
