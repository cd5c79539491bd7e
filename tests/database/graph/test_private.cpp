// Private data: bytes and pointer values that a client keeps on nodes.
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

class PrivateTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    const uint32_t writer = begin();
    for (uint32_t node = 1; node <= 3; ++node) ASSERT_OK(put_node(writer, node, pattern(node, 20)));
    commit(writer);
  }
  static uint32_t set(uint32_t ses, uint32_t node, const Bytes& data) {
    const rov_node_id_t node_id = id(node);
    return rov_node_priv_set(ses, &node_id, data.data(), static_cast<uint32_t>(data.size()));
  }
  static uint32_t set_pointer(uint32_t ses, uint32_t node, void* pointer) {
    const rov_node_id_t node_id = id(node);
    return rov_node_priv_ptr_set(ses, &node_id, pointer);
  }
  static void* pointer(uint32_t ses, uint32_t node) {
    const rov_node_id_t node_id = id(node);
    void* value = nullptr;
    EXPECT_OK(rov_node_priv_ptr_get(ses, &node_id, &value));
    return value;
  }
  void next_commit() {
    const uint32_t writer = begin();
    ASSERT_OK(put_node(writer, 100, pattern(++commits_, 5)));
    commit(writer);
  }
  uint32_t commits_ = 0;
};

TEST_F(PrivateTest, SetThroughAReadSessionIsDurableAndSeenAtOnce) {
  const uint32_t ses = read();
  EXPECT_EQ(private_of(ses, 1), Bytes{});
  ASSERT_OK(set(ses, 1, pattern(7, 13)));
  EXPECT_EQ(private_of(ses, 1), pattern(7, 13));
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 20));
  EXPECT_EQ(private_of(read(), 1), pattern(7, 13));
  reopen();
  EXPECT_EQ(private_of(read(), 1), pattern(7, 13));
}

TEST_F(PrivateTest, TheSnapshotStaysWhenOthersCommittedInBetween) {
  const uint32_t ses = read();
  next_commit();
  ASSERT_OK(set(ses, 1, pattern(1, 4)));
  ASSERT_OK(set(ses, 2, pattern(2, 4)));
  EXPECT_EQ(private_of(ses, 1), pattern(1, 4));
  EXPECT_EQ(private_of(ses, 2), pattern(2, 4));
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(100), &parms), ROV_ERR_NO_ITEM);
  EXPECT_EQ(private_of(read(), 2), pattern(2, 4));
  ASSERT_OK(set(ses, 1, {}));
  EXPECT_EQ(private_of(ses, 1), Bytes{});
  EXPECT_EQ(private_of(ses, 2), pattern(2, 4));
  EXPECT_EQ(private_of(read(), 1), Bytes{});
}

TEST_F(PrivateTest, CanBeReplacedAndTakenAway) {
  const uint32_t ses = read();
  ASSERT_OK(set(ses, 1, pattern(1, 4)));
  ASSERT_OK(set(ses, 1, pattern(2, 400)));
  EXPECT_EQ(private_of(ses, 1), pattern(2, 400));
  ASSERT_OK(set(ses, 1, {}));
  ASSERT_OK(set(ses, 1, {}));
  EXPECT_EQ(private_of(ses, 1), Bytes{});
  Bytes untouched(4, 9);
  EXPECT_OK(rov_node_data_get(ses, id(1), 0, nullptr, 0, nullptr, 4, untouched.data()));
  EXPECT_EQ(untouched, Bytes(4, 9));
}

TEST_F(PrivateTest, OneClientNeverSeesAnothers) {
  uint32_t other = 0;
  ASSERT_OK(open_database(path(), 0, 2, &other));
  uint32_t others = 0;
  ASSERT_OK(set(read(), 1, pattern(1, 4)));
  ASSERT_OK(rov_ses_open_ro(other, &others));
  EXPECT_EQ(private_of(others, 1), Bytes{});
  ASSERT_OK(set(others, 1, pattern(2, 8)));
  EXPECT_EQ(private_of(others, 1), pattern(2, 8));
  EXPECT_EQ(private_of(read(), 1), pattern(1, 4));
  int here = 0;
  ASSERT_OK(set_pointer(others, 1, &here));
  EXPECT_EQ(pointer(read(), 1), nullptr);
  EXPECT_EQ(pointer(others, 1), &here);
  EXPECT_OK(rov_db_close(other, 0));
}

TEST_F(PrivateTest, InAWriteSessionIsPartOfTheTransaction) {
  uint32_t writer = begin();
  ASSERT_OK(set(writer, 1, pattern(1, 4)));
  EXPECT_EQ(private_of(writer, 1), pattern(1, 4));
  EXPECT_EQ(private_of(read(), 1), Bytes{});
  EXPECT_OK(rov_edit_abandon(writer));
  EXPECT_EQ(private_of(read(), 1), Bytes{});
  writer = begin();
  ASSERT_OK(put_node(writer, 4, {}));
  ASSERT_OK(set(writer, 4, pattern(4, 4)));
  commit(writer);
  EXPECT_EQ(private_of(read(), 4), pattern(4, 4));
}

TEST_F(PrivateTest, ThroughTheBaseIsSeenThroughTheBase) {
  uint32_t base = 0;
  const uint32_t ses = read();
  ASSERT_OK(rov_ses_orig_handle(ses, &base));
  ASSERT_OK(set(base, 1, pattern(1, 4)));
  EXPECT_EQ(private_of(base, 1), pattern(1, 4));
  EXPECT_EQ(private_of(ses, 1), Bytes{});
}

TEST_F(PrivateTest, GoesWithItsNode) {
  const uint32_t ses = read();
  ASSERT_OK(set(ses, 1, pattern(1, 4)));
  int here = 0;
  ASSERT_OK(set_pointer(ses, 1, &here));
  uint32_t writer = begin();
  ASSERT_OK(rov_edit_node_del(writer, id(1)));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  commit(writer);
  const uint32_t later = read();
  EXPECT_EQ(private_of(later, 1), Bytes{});
  EXPECT_EQ(pointer(later, 1), nullptr);
}

TEST_F(PrivateTest, SurvivesReplacingItsNode) {
  ASSERT_OK(set(read(), 1, pattern(1, 4)));
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(9, 99), name("n")));
  commit(writer);
  EXPECT_EQ(private_of(read(), 1), pattern(1, 4));
}

TEST_F(PrivateTest, PointerValuesShowInTheParameters) {
  const uint32_t ses = read();
  int here = 0;
  EXPECT_EQ(pointer(ses, 2), nullptr);
  ASSERT_OK(set_pointer(ses, 2, &here));
  EXPECT_EQ(pointer(ses, 2), &here);
  EXPECT_EQ(parms_of(ses, 2).priv_ptr, reinterpret_cast<uintptr_t>(&here));
  EXPECT_EQ(parms_of(read(), 2).priv_ptr, reinterpret_cast<uintptr_t>(&here));
  ASSERT_OK(set_pointer(ses, 2, nullptr));
  EXPECT_EQ(parms_of(ses, 2).priv_ptr, 0U);
}

TEST_F(PrivateTest, BadCallsAreRefused) {
  const uint32_t ses = read();
  const rov_node_id_t one = id(1);
  const rov_node_id_t absent = id(77);
  void* value = nullptr;
  EXPECT_STATUS(set(ses, 77, pattern(1, 1)), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_node_priv_ptr_set(ses, &absent, &value), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_node_priv_ptr_get(ses, &absent, &value), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_node_priv_set(ses, nullptr, "", 1), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_priv_set(ses, &one, nullptr, 1), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_priv_set(ses, &one, "", rov::kMaxPrivate + 1), ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_node_priv_ptr_set(ses, nullptr, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_priv_ptr_get(ses, &one, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_priv_ptr_get(ses, nullptr, &value), ROV_ERR_INVALID);
  EXPECT_STATUS(set(db_, 1, {}), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_node_priv_ptr_set(db_, &one, nullptr), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_node_priv_ptr_get(db_, &one, &value), ROV_ERR_HANDLE);
  uint32_t lib = 0;
  ASSERT_OK(rov_lib_init(kClient, &lib));
  ASSERT_OK(rov_lib_init_locks(lib, 0, 1, 0, 0));
  const uint32_t writer = begin();
  EXPECT_STATUS(set(ses, 1, pattern(1, 1)), ROV_ERR_BUSY);
  EXPECT_OK(rov_edit_abandon(writer));
  ASSERT_OK(rov_lib_defaults(lib, 0));
  EXPECT_EQ(private_of(ses, 1), Bytes{});
}

}  // namespace
