// Libraries, databases and sessions: handles, snapshots, the base, writers taking turns.
#include <atomic>
#include <chrono>
#include <thread>

#include "database/handle/handle.h"
#include "tests/database/database_fixture.h"
#include "tests/database/random.h"

namespace {

using namespace testing_rov;

using SessionTest = DatabaseTest;

uint32_t library() {
  uint32_t lib = 0;
  EXPECT_OK(rov_lib_init(1, &lib));
  return lib;
}

TEST_F(SessionTest, ASnapshotStaysAndTheBaseFollows) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 8)));
  commit(writer);
  const uint32_t ses = read();
  uint32_t base = 0;
  ASSERT_OK(rov_ses_orig_handle(ses, &base));
  EXPECT_NE(base, ses);
  for (uint32_t round = 2; round < 6; ++round) {
    writer = begin();
    ASSERT_OK(put_node(writer, 1, pattern(round, 8)));
    ASSERT_OK(put_node(writer, round, {}));
    commit(writer);
    EXPECT_EQ(tlv_of(ses, 1), pattern(1, 8));
    EXPECT_EQ(tlv_of(base, 1), pattern(round, 8));
    EXPECT_EQ(parms_of(base, round).tlv_len, 0U);
    rov_node_parms_t parms;
    EXPECT_STATUS(rov_node_parms_get(ses, id(round), &parms), ROV_ERR_NO_ITEM);
  }
  uint32_t again = 0;
  ASSERT_OK(rov_ses_orig_handle(base, &again));
  EXPECT_EQ(again, base);
  ASSERT_OK(rov_ses_close(ses));
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(base, id(1), &parms), ROV_ERR_HANDLE);
}

TEST_F(SessionTest, TheBaseOfAWriteSessionSeesOnlyCommits) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  uint32_t base = 0;
  ASSERT_OK(rov_ses_orig_handle(writer, &base));
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(base, id(1), &parms), ROV_ERR_NO_ITEM);
  EXPECT_STATUS(put_node(base, 2, {}), ROV_ERR_READ_ONLY);
  commit(writer);
}

TEST_F(SessionTest, ABaseCannotBeClosed) {
  const uint32_t ses = read();
  uint32_t base = 0;
  ASSERT_OK(rov_ses_orig_handle(ses, &base));
  EXPECT_STATUS(rov_ses_close(base), ROV_ERR_HANDLE);
  EXPECT_OK(rov_ses_close(ses));
}

TEST_F(SessionTest, StaleForeignAndForgedHandlesGiveAStatus) {
  const uint32_t ses = read();
  EXPECT_OK(rov_ses_close(ses));
  EXPECT_STATUS(rov_ses_close(ses), ROV_ERR_HANDLE);
  rov_node_parms_t parms;
  rov_parms_t block;
  for (uint32_t handle : {ses, db_, library(), 0U, 1U, 0xffffffffU}) {
    EXPECT_STATUS(rov_node_parms_get(handle, id(1), &parms), ROV_ERR_HANDLE);
    EXPECT_STATUS(rov_edit_commit(handle), ROV_ERR_HANDLE);
    EXPECT_STATUS(rov_edit_abandon(handle), ROV_ERR_HANDLE);
    EXPECT_STATUS(rov_ses_close(handle), ROV_ERR_HANDLE);
    if (handle == db_) continue;
    uint32_t out = 0x55;
    EXPECT_STATUS(rov_ses_open_ro(handle, &out), ROV_ERR_HANDLE);
    EXPECT_STATUS(rov_edit_begin(handle, &out), ROV_ERR_HANDLE);
    EXPECT_STATUS(rov_db_close(handle, 0), ROV_ERR_HANDLE);
    EXPECT_STATUS(rov_db_init_parms_get(handle, ROV_VERSION, &block), ROV_ERR_HANDLE);
    EXPECT_EQ(out, 0x55U);
  }
}

TEST_F(SessionTest, RandomHandlesNeverHarm) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  commit(writer);
  Random random(4711);
  std::vector<uint32_t> handles = {db_, 0};
  rov_node_parms_t parms;
  for (int round = 0; round < 20000; ++round) {
    uint32_t& handle = handles[random.below(static_cast<uint32_t>(handles.size()))];
    uint32_t fresh = 0;
    switch (random.below(6)) {
      case 0:
        if (rov_ses_open_ro(db_, &fresh) == ROV_OK) handles.push_back(fresh);
        break;
      case 1:
        rov_ses_close(handle);
        break;
      case 2:
        rov_node_parms_get(handle ^ (1U << random.below(32)), id(1), &parms);
        break;
      case 3:
        rov_node_parms_get(handle, id(random.below(3)), &parms);
        break;
      case 4:
        if (rov_ses_orig_handle(handle, &fresh) == ROV_OK) handles.push_back(fresh);
        break;
      default:
        rov_ses_close(random());
        break;
    }
    while (handles.size() > 100) {
      rov_ses_close(handles.back());
      handles.pop_back();
    }
  }
  EXPECT_EQ(number(parms_of(read(), 1).id), 1U);
}

TEST_F(SessionTest, ManySessionsCanBeOpenAtOnce) {
  std::vector<uint32_t> sessions(300);
  for (uint32_t& ses : sessions) ses = read();
  rov_node_parms_t parms;
  for (uint32_t ses : sessions) {
    EXPECT_STATUS(rov_node_parms_get(ses, id(1), &parms), ROV_ERR_NO_ITEM);
    EXPECT_OK(rov_ses_close(ses));
  }
}

TEST_F(SessionTest, ClosingADatabaseClosesWhatWasOpenedThroughIt) {
  uint32_t other = 0;
  ASSERT_OK(open_database(path(), 0, 2, &other));
  const uint32_t writer = begin();
  const uint32_t ses = read();
  uint32_t others = 0;
  ASSERT_OK(rov_ses_open_ro(other, &others));
  close();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(1), &parms), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_node_parms_get(others, id(1), &parms), ROV_ERR_NO_ITEM);
  // The write session that was closed holds nobody up.
  ASSERT_OK(rov_edit_begin(other, &others));
  ASSERT_OK(rov_edit_commit(others));
  EXPECT_OK(rov_db_close(other, 0));
}

TEST_F(SessionTest, OnePathIsOneDatabaseHoweverItIsWritten) {
  uint32_t other = 0;
  ASSERT_OK(open_database(directory_.path() + "/./db/", 0, 2, &other));
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 4)));
  commit(writer);
  uint32_t ses = 0;
  ASSERT_OK(rov_ses_open_ro(other, &ses));
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 4));
  EXPECT_OK(rov_db_close(other, 0));
}

TEST_F(SessionTest, ReadSessionsDoNotWrite) {
  const uint32_t ses = read();
  EXPECT_STATUS(put_node(ses, 1, {}), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(put_link(ses, 1, 1, 1), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(rov_edit_node_del(ses, id(1)), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(rov_edit_link_del(ses, id(1), 1), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(rov_edit_commit(ses), ROV_ERR_READ_ONLY);
  EXPECT_STATUS(rov_edit_abandon(ses), ROV_ERR_READ_ONLY);
  EXPECT_OK(rov_ses_close(ses));
}

TEST_F(SessionTest, ClosingAWriteSessionAbandonsIt) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, {}));
  EXPECT_OK(rov_ses_close(writer));
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(read(), id(1), &parms), ROV_ERR_NO_ITEM);
  commit(begin());
}

TEST_F(SessionTest, ASecondWriterWaitsAsLongAsItIsTold) {
  ASSERT_OK(rov_lib_init_locks(library(), 50, 1, 0, 0));
  const uint32_t writer = begin();
  uint32_t second = 0;
  const auto before = std::chrono::steady_clock::now();
  EXPECT_STATUS(rov_edit_begin(db_, &second), ROV_ERR_BUSY);
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
  ASSERT_OK(rov_lib_init_locks(library(), 0xffffffff, 1, 0, 0));
  std::atomic<uint32_t> began{0};
  std::thread waiter([&] {
    uint32_t ses = 0;
    EXPECT_OK(rov_edit_begin(db_, &ses));
    began.store(ses);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(began.load(), 0U);
  commit(writer);
  waiter.join();
  // Begun in one thread, committed in another.
  commit(began.load());
  ASSERT_OK(rov_lib_defaults(library(), 0));
}

TEST_F(SessionTest, TheNumberOfWritersHasALimit) {
  ASSERT_OK(rov_lib_init_locks(library(), 10000, 1, 1, 0));
  const uint32_t writer = begin();
  uint32_t second = 0;
  EXPECT_STATUS(rov_edit_begin(db_, &second), ROV_ERR_BUSY);
  commit(writer);
  commit(begin());
  EXPECT_STATUS(rov_lib_init_locks(library(), 0, 0, 0, 1), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_lib_init_locks(db_, 0, 0, 0, 0), ROV_ERR_HANDLE);
  ASSERT_OK(rov_lib_defaults(library(), 0));
  EXPECT_STATUS(rov_lib_defaults(db_, 0), ROV_ERR_HANDLE);
}

TEST_F(SessionTest, ALibraryHandleBelongsToItsIdentity) {
  uint32_t first = 0;
  uint32_t second = 0;
  uint32_t other = 0;
  ASSERT_OK(rov_lib_init(77, &first));
  ASSERT_OK(rov_lib_init(77, &second));
  ASSERT_OK(rov_lib_init(78, &other));
  EXPECT_EQ(first, second);
  EXPECT_NE(first, other);
  EXPECT_STATUS(rov_lib_init(77, nullptr), ROV_ERR_INVALID);
}

TEST_F(SessionTest, TheParameterBlockComesBackAsGiven) {
  rov_parms_t parms;
  memset(&parms, 0xff, sizeof parms);
  ASSERT_OK(rov_db_init_parms_init(&parms, ROV_VERSION));
  EXPECT_EQ(parms.version, uint32_t{ROV_VERSION});
  EXPECT_EQ(parms.size, sizeof parms);
  EXPECT_EQ(parms.p.db_path, nullptr);
  EXPECT_EQ(parms.p.mem.pool, nullptr);
  const std::string where = path();
  parms.p.db_path = where.c_str();
  parms.p.vdc = 64;
  parms.p.vdc_dflt = 1;
  parms.p.mem.limit = 12345;
  parms.p.dbg_flags = 0x80000001;
  parms.p.init_id = 9;
  uint32_t db = 0;
  ASSERT_OK(rov_db_init(library(), ROV_VERSION, 1, 2, ROV_PROTO, 3, &parms, 0x463, &db));
  rov_parms_t back;
  memset(&back, 0xee, sizeof back);
  ASSERT_OK(rov_db_init_parms_get(db, ROV_VERSION, &back));
  EXPECT_EQ(back.p.vdc, 64U);
  EXPECT_EQ(back.p.vdc_dflt, 1U);
  EXPECT_EQ(back.p.mem.limit, 12345U);
  EXPECT_EQ(back.p.dbg_flags, 0x80000001U);
  EXPECT_EQ(back.p.init_id, 9U);
  EXPECT_STREQ(back.p.db_path, where.c_str());
  EXPECT_STATUS(rov_db_init_parms_get(db, 2, &back), ROV_ERR_INVALID);
  EXPECT_OK(rov_db_set_ps_sizes(db, 1, 2));
  EXPECT_OK(rov_db_close(db, 0));
  EXPECT_STATUS(rov_db_set_ps_sizes(db, 1, 2), ROV_ERR_HANDLE);
}

TEST_F(SessionTest, AWrongBlockOrVersionIsRefused) {
  rov_parms_t parms;
  EXPECT_STATUS(rov_db_init_parms_init(&parms, 2), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_init_parms_init(nullptr, ROV_VERSION), ROV_ERR_INVALID);
  ASSERT_OK(rov_db_init_parms_init(&parms, ROV_VERSION));
  uint32_t db = 0;
  parms.size -= 4;
  EXPECT_STATUS(rov_db_init(library(), ROV_VERSION, 0, 0, ROV_PROTO, 0, &parms, 0, &db),
                ROV_ERR_INVALID);
  EXPECT_NE(std::string(rov_err_message()).find("rov_db_init_parms_init"), std::string::npos);
  EXPECT_STATUS(rov_db_init(library(), 2, 0, 0, ROV_PROTO, 0, nullptr, 0, &db), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_init(library(), ROV_VERSION, 0, 0, 5, 0, nullptr, 0, &db), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_init(db_, ROV_VERSION, 0, 0, ROV_PROTO, 0, nullptr, 0, &db), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_init(library(), ROV_VERSION, 0, 0, ROV_PROTO, 0, nullptr, 0, nullptr),
                ROV_ERR_INVALID);
}

TEST_F(SessionTest, ThePathComesFromTheEnvironmentWhenTheBlockHasNone) {
  const std::string where = directory_.file("from-environment");
  setenv("ROV_DB", where.c_str(), 1);
  uint32_t db = 0;
  EXPECT_OK(rov_db_init(library(), ROV_VERSION, 0, 0, ROV_PROTO, 0, nullptr, 0, &db));
  unsetenv("ROV_DB");
  EXPECT_TRUE(std::filesystem::exists(where + "/data.mdb"));
  EXPECT_OK(rov_db_close(db, 0));
}

TEST_F(SessionTest, CallbacksCanBeRegistered) {
  static const rov_show_t show[2] = {{0, ROV_SHOW_SEL_TLVA, 0, "a", 0, 0, {nullptr}},
                                     {0, ROV_SHOW_SEL_DSETNAME, 0, "b", 0, 0, {nullptr}}};
  const rov_node_id_cnv_fn convert = [](uint32_t*) {};
  EXPECT_OK(rov_db_reg_node_id_cnv(db_, convert, convert));
  for (int round = 0; round < 20; ++round) {
    EXPECT_OK(rov_reg_show_output(db_, &show[0]));
    EXPECT_OK(rov_reg_show_output(db_, &show[1]));
  }
  EXPECT_OK(rov_reg_extract_pinst(db_, [](const rov_sub_t*) { return 0U; }));
  EXPECT_OK(rov_reg_dbg_dsetname_print(
      db_, [](void*, void*, int, int, const char*, const char*) -> char* { return nullptr; }));
  EXPECT_STATUS(rov_db_reg_node_id_cnv(db_, nullptr, convert), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_reg_node_id_cnv(db_, convert, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_reg_show_output(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_reg_extract_pinst(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_reg_dbg_dsetname_print(db_, nullptr), ROV_ERR_INVALID);
  const uint32_t ses = read();
  EXPECT_STATUS(rov_reg_show_output(ses, &show[0]), ROV_ERR_HANDLE);
  EXPECT_STATUS(rov_db_reg_node_id_cnv(ses, convert, convert), ROV_ERR_HANDLE);
}

TEST_F(SessionTest, MissingArgumentsAreRefused) {
  const uint32_t ses = read();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(1), nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_link_get(ses, id(1), 1, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_ln_field_get(ses, id(1), 1, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_link_match(ses, id(1), 1, 0, 0, 16, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_link_nth(ses, id(1), 1, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_ref_get_all(ses, id(1), nullptr, 1), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_dset_get(ses, id(1), 0, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_node_next(ses, id(0), nullptr), ROV_ERR_INVALID);
  rov_node_id_t odd = {};
  odd.word[3] = 1;
  EXPECT_STATUS(rov_node_next(ses, odd, &parms), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ses_get_num_dsets(ses, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ses_dset_get(ses, 0, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ses_dset_name_get(ses, 21, nullptr, &parms), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ses_dset_name_get(ses, 21, "", nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ses_open_ro(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_ses_orig_handle(ses, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_edit_begin(db_, nullptr), ROV_ERR_INVALID);
}

TEST_F(SessionTest, DataBuffersAreCheckedBeforeAnythingIsCopied) {
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 10), name("n")));
  commit(writer);
  const uint32_t ses = read();
  Bytes tlv(12, 0xaa);
  Bytes dset(21, 0xbb);
  EXPECT_STATUS(rov_node_data_get(ses, id(1), 10, tlv.data(), 20, dset.data(), 0, nullptr),
                ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_node_data_get(ses, id(1), 9, tlv.data(), 21, dset.data(), 0, nullptr),
                ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_node_data_get(ses, id(1), 10, tlv.data(), 21, nullptr, 0, nullptr),
                ROV_ERR_INVALID);
  EXPECT_EQ(tlv, Bytes(12, 0xaa));
  EXPECT_EQ(dset, Bytes(21, 0xbb));
  EXPECT_OK(rov_node_data_get(ses, id(1), 12, tlv.data(), 0, nullptr, 5, nullptr));
  EXPECT_EQ(Bytes(tlv.begin(), tlv.begin() + 10), pattern(1, 10));
  EXPECT_EQ(tlv[10], 0xaa);
  EXPECT_STATUS(rov_node_data_get(ses, id(2), 0, nullptr, 0, nullptr, 0, nullptr), ROV_ERR_NO_ITEM);
}

// A map that grows stops sessions, at any moment of a call.
TEST_F(SessionTest, ACallWaitsWhileItsSessionIsStopped) {
  using Clock = std::chrono::steady_clock;
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 8)));
  commit(writer);
  const uint32_t ses = read();
  std::atomic<uint32_t> refused{0};
  std::atomic<uint32_t> calls{0};
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    while (!stop.load()) {
      rov_node_parms_t parms;
      if (rov_node_parms_get(ses, id(1), &parms) != ROV_OK) ++refused;
      ++calls;
    }
  });
  const auto pause = [](uint32_t turns) {
    while (turns-- > 0) std::atomic_signal_fence(std::memory_order_seq_cst);
  };
  rov::Gate& gate = rov::slot_of(ses).gate;
  const auto end = Clock::now() + std::chrono::seconds(1);
  for (uint32_t round = 0; Clock::now() < end || calls.load() == 0; ++round) {
    rov::gate_hold(gate);
    pause(round % 640);
    rov::gate_resume(gate);
    pause(round % 61);
  }
  stop.store(true);
  reader.join();
  EXPECT_EQ(refused.load(), 0U);
}

// Readers in threads of their own, each with sessions of its own, while another thread writes: a
// snapshot always shows nodes that were committed together.
TEST_F(SessionTest, ThreadsReadWholeCommitsWhileOneWrites) {
  constexpr uint32_t kNodes = 20;
  const auto write = [&](uint32_t seed) {
    const uint32_t writer = begin();
    for (uint32_t node = 1; node <= kNodes; ++node)
      ASSERT_OK(put_node(writer, node, pattern(seed, 64)));
    commit(writer);
  };
  write(0);
  std::atomic<bool> stop{false};
  std::atomic<uint32_t> torn{0};
  const auto reader = [&](uint32_t seed) {
    Random random(seed);
    while (!stop.load()) {
      const uint32_t ses = read();
      const Bytes first = tlv_of(ses, 1);
      for (int n = 0; n < 50; ++n) {
        if (tlv_of(ses, 1 + random.below(kNodes)) != first) ++torn;
      }
      EXPECT_OK(rov_ses_close(ses));
    }
  };
  std::thread one(reader, 1);
  std::thread two(reader, 2);
  for (uint32_t seed = 1; seed <= 30; ++seed) write(seed);
  stop.store(true);
  one.join();
  two.join();
  EXPECT_EQ(torn.load(), 0U);
}

}  // namespace
