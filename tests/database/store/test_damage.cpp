// Damaged records: told apart, and named; while the database is open, and when it is opened.
#include <lmdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "tests/database/database_fixture.h"

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
  }

  // Runs `work` in a process of its own: the engine must not open one path twice in a process.
  static void in_child(const std::function<void()>& work) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      work();
      _exit(HasFailure() ? 1 : 0);
    }
    int result = 0;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    ASSERT_EQ(result, 0);
  }

  // Damages the record of `key` in a table, as another process does it while this one has the
  // database open.
  void damage(const char* table, const Bytes& key, const std::function<void(Bytes&)>& change) {
    in_child([&] { edit(table, key, change); });
  }

  // Changes a record through the storage engine itself.
  void edit(const char* table, Bytes key, const std::function<void(Bytes&)>& change) {
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
  constexpr size_t kBytes = rov::kNodeHead + 40 + rov::kShortLink;
  for (size_t at = 0; at < kBytes; at += 5) {
    damage("nodes", node_key(0x5678), [&](Bytes& value) {
      ASSERT_EQ(value.size(), kBytes);
      value[at] = static_cast<uint8_t>(value[at] ^ 0x10);
    });
    const uint32_t ses = read();
    rov_node_parms_t parms;
    rov_link_t link;
    EXPECT_STATUS(rov_node_parms_get(ses, id(0x5678), &parms), ROV_ERR_CORRUPT);
    expect_named("0x00005678");
    EXPECT_STATUS(rov_node_link_get(ses, id(0x5678), 3, &link), ROV_ERR_CORRUPT);
    EXPECT_STATUS(rov_node_next(ses, id(0x1234), &parms), ROV_ERR_CORRUPT);
    EXPECT_EQ(tlv_of(ses, 0x1234), pattern(1, 40));
    EXPECT_OK(rov_ses_close(ses));
    damage("nodes", node_key(0x5678),
           [&](Bytes& value) { value[at] = static_cast<uint8_t>(value[at] ^ 0x10); });
  }
}

TEST_F(DamageTest, ANodeCutShortOrEmpty) {
  for (size_t len : {size_t{0}, size_t{3}, size_t{4}, size_t{11}, size_t{12}, size_t{63}}) {
    damage("nodes", node_key(0x5678), [&](Bytes& value) { value.resize(len); });
    rov_node_parms_t parms;
    EXPECT_STATUS(rov_node_parms_get(read(), id(0x5678), &parms), ROV_ERR_CORRUPT);
  }
}

TEST_F(DamageTest, ARecordUnderAnotherKey) {
  in_child([&] {
    Bytes copy;
    edit("nodes", node_key(0x5678), [&](Bytes& value) { copy = value; });
    edit("nodes", node_key(0x1234), [&](Bytes& value) { value = copy; });
  });
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(0x1234), &parms), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
}

TEST_F(DamageTest, AReferrerChunk) {
  damage("referrers", key_bytes(rov::pair_key(0x1234, 0)), [](Bytes& value) { value[8] ^= 1; });
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
  const uint32_t ses = read();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_ses_dset_get(ses, 0, &parms), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
  EXPECT_STATUS(rov_ses_dset_name_get(ses, 21, text.data(), &parms), ROV_ERR_CORRUPT);
}

TEST_F(DamageTest, PrivateData) {
  damage("private", key_bytes(rov::pair_key(0x1234, kClient)), [](Bytes& value) { value[5] ^= 1; });
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(0x1234), &parms), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
}

TEST_F(DamageTest, AnEditThatMeetsDamageLosesItsSession) {
  damage("nodes", node_key(0x5678), [](Bytes& value) { value[30] ^= 1; });
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

TEST_F(DamageTest, ALinkToADamagedTargetLosesItsSession) {
  damage("referrers", key_bytes(rov::pair_key(0x1234, 0)), [](Bytes& value) { value[8] ^= 1; });
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 7, {}));
  ASSERT_OK(put_link(writer, 7, 9, 0x1234));
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_CORRUPT);
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(7), &parms), ROV_ERR_NO_ITEM);
  // Who asks before that is told the node, and then why nothing more comes of it.
  writer = begin();
  ASSERT_OK(put_node(writer, 7, {}));
  ASSERT_OK(put_link(writer, 7, 9, 0x1234));
  EXPECT_STATUS(rov_node_parms_get(writer, id(7), &parms), ROV_ERR_CORRUPT);
  expect_named("0x00001234");
  EXPECT_STATUS(rov_node_next(writer, id(7), &parms), ROV_ERR_CORRUPT);
  expect_named("begin it again");
  EXPECT_STATUS(rov_edit_link_del(writer, id(7), 9), ROV_ERR_CORRUPT);
  EXPECT_STATUS(put_link(writer, 7, 9, 7), ROV_ERR_CORRUPT);
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_CORRUPT);
  EXPECT_STATUS(rov_node_parms_get(read(), id(7), &parms), ROV_ERR_NO_ITEM);
}

TEST_F(DamageTest, ADamagedTargetLosesTheSessionOfALinkToIt) {
  damage("nodes", node_key(0x1234), [](Bytes& value) { value[30] ^= 1; });
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 7, {}));
  ASSERT_OK(put_link(writer, 7, 9, 0x1234));
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_CORRUPT);
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(7), &parms), ROV_ERR_NO_ITEM);
}

TEST_F(DamageTest, AWriterThatTakesNoLockIsNoticed) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 7, {}));
  damage("nodes", node_key(0x1234), [](Bytes&) {});
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_BUSY);
}

// What the next process finds that opens the database when nobody else has it open.
class DamageAtOpeningTest : public DamageTest {
 protected:
  uint32_t open_damaged(const char* table, const Bytes& key) {
    damage(table, key, [](Bytes& value) { value.back() ^= 1; });
    close();
    uint32_t db = 0;
    return open_database(path(), 0, kClient, &db);
  }
};

TEST_F(DamageAtOpeningTest, ANodeIsNamedWithItsPage) {
  ASSERT_STATUS(open_damaged("nodes", node_key(0x5678)), ROV_ERR_CORRUPT);
  expect_named("0x00005678");
  expect_named("damaged at page");
  expect_named("restore the database from a dump");
}

TEST_F(DamageAtOpeningTest, OtherRecordsAreNamed) {
  const Bytes text = name("n");
  const std::pair<const char*, Bytes> records[] = {
      {"referrers", key_bytes(rov::pair_key(0x1234, 0))},
      {"data sets", key_bytes(rov::dset_key(text.data(), 0x1234))},
      {"private", key_bytes(rov::pair_key(0x1234, kClient))}};
  for (const auto& [table, key] : records) {
    EXPECT_STATUS(open_damaged(table, key), ROV_ERR_CORRUPT) << table;
    expect_named("0x00001234");
    expect_named(table);
    in_child([&, table = table, key = key] {
      edit(table, key, [](Bytes& value) { value.back() ^= 1; });
    });
    open();
  }
}

TEST_F(DamageAtOpeningTest, IsNotLookedForWhileAnotherProcessHasItOpen) {
  int ready[2];
  int done[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(done), 0);
  close();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    uint32_t db = 0;
    const bool opened = open_database(path(), 0, kClient, &db) == ROV_OK;
    char byte = opened ? 'y' : 'n';
    static_cast<void>(::write(ready[1], &byte, 1) + ::read(done[0], &byte, 1));
    _exit(0);
  }
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  ASSERT_EQ(byte, 'y');
  damage("nodes", node_key(0x5678), [](Bytes& value) { value.back() ^= 1; });
  open();
  rov_verify_t report;
  EXPECT_STATUS(rov_edit_verify(db_, &report), ROV_ERR_CORRUPT);
  expect_named("0x00005678");
  EXPECT_EQ(tlv_of(read(), 0x1234), pattern(1, 40));
  ASSERT_EQ(::write(done[1], &byte, 1), 1);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  for (const int file : {ready[0], ready[1], done[0], done[1]}) ::close(file);
}

TEST_F(DamageTest, VerifyingTellsWhatIsThere) {
  rov_verify_t report;
  ASSERT_OK(rov_edit_verify(db_, &report));
  EXPECT_EQ(report.nodes, 2U);
  EXPECT_GE(report.records, 5U);
  EXPECT_GE(report.bytes, (report.pages - report.free_pages) * report.page_size);
  EXPECT_STATUS(rov_edit_verify(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_verify(0, &report), ROV_ERR_HANDLE);
}

TEST_F(DamageTest, VerifyingWaitsForTheWriter) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 9, {}));
  rov_verify_t report;
  std::thread other([&] { EXPECT_OK(rov_edit_verify(db_, &report)); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  commit(writer);
  other.join();
  EXPECT_EQ(report.nodes, 3U);
}

}  // namespace
