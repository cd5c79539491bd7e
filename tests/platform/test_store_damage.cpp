// Damaged records: told apart, and named.
#include <lmdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "tests/platform/database_fixture.h"

namespace {

using namespace testing_rov;

class DamageTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    const uint32_t writer = begin();
    ASSERT_OK(put_node(writer, 0x1234, pattern(1, 40), name("n")));
    ASSERT_OK(put_node(writer, 0x5678, pattern(2, 40)));
    ASSERT_OK(put_link(writer, 0x5678, 3, 0x1234));
    const rov_node_id_t node = id(0x1234);
    ASSERT_OK(rov_node_priv_set(writer, &node, "private", 7));
    commit(writer);
    close();
  }

  // Changes the record of `key` in a table through the storage engine itself.
  void damage(const char* table, Bytes key, const std::function<void(Bytes&)>& change) {
    MDB_env* env = nullptr;
    ASSERT_EQ(mdb_env_create(&env), 0);
    ASSERT_EQ(mdb_env_set_maxdbs(env, 16), 0);
    ASSERT_EQ(mdb_env_open(env, path().c_str(), MDB_NOTLS, 0664), 0);
    MDB_txn* txn = nullptr;
    ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
    MDB_dbi dbi = 0;
    ASSERT_EQ(mdb_dbi_open(txn, table, 0, &dbi), 0);
    MDB_val wanted = {key.size(), key.data()};
    MDB_val found;
    ASSERT_EQ(mdb_get(txn, dbi, &wanted, &found), 0);
    const auto* start = static_cast<const uint8_t*>(found.mv_data);
    Bytes value(start, start + found.mv_size);
    change(value);
    found = {value.size(), value.data()};
    ASSERT_EQ(mdb_put(txn, dbi, &wanted, &found, 0), 0);
    ASSERT_EQ(mdb_txn_commit(txn), 0);
    mdb_env_close(env);
  }
  static Bytes node_key(uint32_t node) {
    Bytes key(4);
    rov::store(key.data(), node);
    return key;
  }
  static Bytes key_bytes(const rov::Key& key) { return {key.bytes, key.bytes + key.len}; }
  static void expect_named(const char* node) {
    EXPECT_NE(std::string(rov_err_message()).find(node), std::string::npos) << rov_err_message();
  }
};

TEST_F(DamageTest, AnyByteOfANode) {
  constexpr size_t kBytes = rov::kNodeHead + 40 + rov::kLinkBytes;
  for (size_t at = 0; at < kBytes; at += 5) {
    damage("nodes", node_key(0x5678), [&](Bytes& value) {
      ASSERT_EQ(value.size(), kBytes);
      value[at] = static_cast<uint8_t>(value[at] ^ 0x10);
    });
    open();
    const uint32_t ses = read();
    rov_node_parms_t parms;
    rov_link_t link;
    EXPECT_STATUS(rov_node_parms_get(ses, id(0x5678), &parms), ROV_ERR_CORRUPT);
    expect_named("0x00005678");
    EXPECT_STATUS(rov_node_link_get(ses, id(0x5678), 3, &link), ROV_ERR_CORRUPT);
    EXPECT_STATUS(rov_node_next(ses, id(0x1234), &parms), ROV_ERR_CORRUPT);
    EXPECT_EQ(tlv_of(ses, 0x1234), pattern(1, 40));
    close();
    damage("nodes", node_key(0x5678),
           [&](Bytes& value) { value[at] = static_cast<uint8_t>(value[at] ^ 0x10); });
  }
}

TEST_F(DamageTest, ANodeCutShortOrEmpty) {
  for (size_t len : {size_t{0}, size_t{3}, size_t{4}, size_t{23}, size_t{24}, size_t{79}}) {
    damage("nodes", node_key(0x5678), [&](Bytes& value) { value.resize(len); });
    open();
    rov_node_parms_t parms;
    EXPECT_STATUS(rov_node_parms_get(read(), id(0x5678), &parms), ROV_ERR_CORRUPT);
    close();
  }
}

TEST_F(DamageTest, ARecordUnderAnotherKey) {
  Bytes copy;
  damage("nodes", node_key(0x5678), [&](Bytes& value) { copy = value; });
  damage("nodes", node_key(0x1234), [&](Bytes& value) { value = copy; });
  open();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(0x1234), &parms), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
}

TEST_F(DamageTest, AReferrerChunk) {
  damage("referrers", key_bytes(rov::pair_key(0x1234, 0)), [](Bytes& value) { value[8] ^= 1; });
  open();
  const uint32_t ses = read();
  rov_node_id_t referrer;
  EXPECT_STATUS(rov_node_ref_get(ses, id(0x1234), 0, nullptr, nullptr, &referrer), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
  EXPECT_STATUS(rov_node_ref_get_all(ses, id(0x1234), &referrer, 1), ROV_ERR_CORRUPT);
  EXPECT_EQ(parms_of(ses, 0x1234).refs, 1U);
}

TEST_F(DamageTest, ADataSetName) {
  const Bytes text = name("n");
  damage("data sets", key_bytes(rov::dset_key(text.data(), 0x1234)),
         [](Bytes& value) { value[0] ^= 1; });
  open();
  const uint32_t ses = read();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_ses_dset_get(ses, 0, &parms), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
  EXPECT_STATUS(rov_ses_dset_name_get(ses, 21, text.data(), &parms), ROV_ERR_CORRUPT);
}

TEST_F(DamageTest, PrivateData) {
  damage("private", key_bytes(rov::pair_key(0x1234, kClient)), [](Bytes& value) { value[5] ^= 1; });
  open();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(0x1234), &parms), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
}

TEST_F(DamageTest, AnEditThatMeetsDamageLosesItsSession) {
  damage("nodes", node_key(0x5678), [](Bytes& value) { value[30] ^= 1; });
  open();
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 7, {}));
  EXPECT_STATUS(put_link(writer, 0x5678, 9, 7), ROV_ERR_CORRUPT);
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_CORRUPT);
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(7), &parms), ROV_ERR_NO_ITEM);
  writer = begin();
  ASSERT_OK(put_node(writer, 8, {}));
  commit(writer);
}

TEST_F(DamageTest, AWriterThatTakesNoLockIsNoticed) {
  open();
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 7, {}));
  // A process of its own: the engine must not open one path twice in a process.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    damage("nodes", node_key(0x1234), [](Bytes&) {});
    _exit(HasFailure() ? 1 : 0);
  }
  int result = 0;
  ASSERT_EQ(waitpid(child, &result, 0), child);
  ASSERT_EQ(result, 0);
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_BUSY);
}

}  // namespace
