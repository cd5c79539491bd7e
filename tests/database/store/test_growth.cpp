// The memory map: growing by steps under open sessions, and its limit.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "database/store/engine.h"
#include "tests/database/database_fixture.h"
#include "tests/database/random.h"

namespace {

using namespace testing_rov;

constexpr uint32_t kBig = 1U << 20;

class GrowthTest : public DatabaseTest {
 protected:
  void TearDown() override {
    DatabaseTest::TearDown();
    unsetenv("ROV_MAP_MAX");
  }
  void set_limit(const char* limit) {
    close();
    setenv("ROV_MAP_MAX", limit, 1);
    open();
  }
  static uint32_t put_big(uint32_t ses, uint32_t first, uint32_t count) {
    for (uint32_t n = 0; n < count; ++n) {
      const uint32_t status = put_node(ses, first + n, pattern(first + n, kBig));
      if (status != ROV_OK) return status;
    }
    return ROV_OK;
  }
};

TEST(MapSize, GrowsByStepsAndNeverWraps) {
  constexpr size_t kMiB = size_t{1} << 20;
  EXPECT_EQ(rov::map_size_for(0, 1), 16 * kMiB);
  EXPECT_EQ(rov::map_size_for(16 * kMiB, 16 * kMiB), 16 * kMiB);
  EXPECT_EQ(rov::map_size_for(16 * kMiB, 16 * kMiB + 1), 32 * kMiB);
  EXPECT_EQ(rov::map_size_for(16 * kMiB, 100 * kMiB), 128 * kMiB);
  EXPECT_GE(rov::map_size_for(1024 * kMiB, 1025 * kMiB), 1025 * kMiB);
  EXPECT_LE(rov::map_size_for(1024 * kMiB, 1025 * kMiB), 2048 * kMiB);
  EXPECT_EQ(rov::map_size_for(16 * kMiB, SIZE_MAX), SIZE_MAX);
}

TEST(MapSize, TheSettingIsReadWithItsUnit) {
  const auto setting = [](const char* text) {
    setenv("ROV_MAP_MAX", text, 1);
    const size_t size = rov::map_limit_setting();
    unsetenv("ROV_MAP_MAX");
    return size;
  };
  const size_t standard = rov::map_limit_setting();
  EXPECT_EQ(setting("1000000"), 1000000U);
  EXPECT_EQ(setting("64K"), 65536U);
  EXPECT_EQ(setting("20M"), size_t{20} << 20);
  EXPECT_EQ(setting("1G"), size_t{1} << 30);
  for (const char* bad :
       {"", "x", "-1", "5T", "5MB", "0", "99999999999999999999999", "9999999999999999G"}) {
    EXPECT_EQ(setting(bad), standard) << bad;
  }
}

TEST_F(GrowthTest, OpenSessionsKeepTheirCommitWhileTheMapGrows) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 100)));
  ASSERT_OK(put_link(writer, 1, 5, 1));
  commit(writer);
  const uint32_t early = read();
  EXPECT_EQ(tlv_of(early, 1), pattern(1, 100));
  EXPECT_EQ(referrers_of(early, 1).size(), 1U);
  for (uint32_t round = 0; round < 4; ++round) {
    writer = begin();
    ASSERT_OK(put_big(writer, 100 + round * 10, 10));
    ASSERT_OK(put_node(writer, 1, pattern(2 + round, 100)));
    commit(writer);
    EXPECT_EQ(tlv_of(early, 1), pattern(1, 100));
    EXPECT_EQ(referrers_of(early, 1).size(), 1U);
    rov_link_t link;
    EXPECT_OK(rov_node_link_get(early, id(1), 5, &link));
  }
  const uint32_t late = read();
  for (uint32_t node = 100; node < 140; node += 13)
    EXPECT_EQ(tlv_of(late, node), pattern(node, kBig));
}

TEST_F(GrowthTest, ThreadsReadWhileTheMapGrowsUnderThem) {
  uint32_t writer = begin();
  for (uint32_t node = 1; node <= 50; ++node) ASSERT_OK(put_node(writer, node, pattern(node, 200)));
  commit(writer);
  std::atomic<bool> stop{false};
  std::atomic<uint32_t> wrong{0};
  std::atomic<uint32_t> reads{0};
  const auto reader = [&](uint32_t seed) {
    Random random(seed);
    const uint32_t ses = read();
    uint32_t base = 0;
    EXPECT_OK(rov_ses_orig_handle(ses, &base));
    while (!stop.load()) {
      const uint32_t node = 1 + random.below(50);
      if (tlv_of(random.below(2) == 0 ? ses : base, node) != pattern(node, 200)) ++wrong;
      ++reads;
    }
  };
  std::thread one(reader, 1);
  std::thread two(reader, 2);
  for (uint32_t round = 0; round < 6; ++round) {
    writer = begin();
    ASSERT_OK(put_big(writer, 1000 + round * 10, 10));
    commit(writer);
  }
  stop.store(true);
  one.join();
  two.join();
  EXPECT_EQ(wrong.load(), 0U);
  EXPECT_GT(reads.load(), 0U);
}

TEST_F(GrowthTest, AtTheLimitNothingIsLostAndSpaceCanBeFreed) {
  set_limit("20M");
  uint32_t writer = begin();
  ASSERT_OK(put_big(writer, 1, 12));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_big(writer, 100, 12));
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_FULL);
  EXPECT_NE(std::string(rov_err_message()).find("ROV_MAP_MAX"), std::string::npos)
      << rov_err_message();
  uint32_t ses = read();
  EXPECT_EQ(tlv_of(ses, 12), pattern(12, kBig));
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(100), &parms), ROV_ERR_NO_ITEM);
  EXPECT_OK(rov_ses_close(ses));
  writer = begin();
  for (uint32_t node = 1; node <= 10; ++node) ASSERT_OK(rov_edit_node_del(writer, id(node)));
  commit(writer);
  writer = begin();
  ASSERT_OK(put_big(writer, 100, 2));
  commit(writer);
  EXPECT_EQ(tlv_of(read(), 101), pattern(101, kBig));
}

TEST_F(GrowthTest, AnotherProcessMayMakeTheMapLarger) {
  const uint32_t early = read();
  uint32_t base = 0;
  ASSERT_OK(rov_ses_orig_handle(early, &base));
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    uint32_t db = 0;
    uint32_t ses = 0;
    bool good = open_database(path(), 0, 2, &db) == ROV_OK && rov_edit_begin(db, &ses) == ROV_OK &&
                put_big(ses, 1, 30) == ROV_OK && rov_edit_commit(ses) == ROV_OK;
    good = good && rov_db_close(db, 0) == ROV_OK;
    _exit(good ? 0 : 1);
  }
  int result = 0;
  ASSERT_EQ(waitpid(child, &result, 0), child);
  ASSERT_EQ(result, 0);
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(early, id(30), &parms), ROV_ERR_NO_ITEM);
  EXPECT_EQ(tlv_of(base, 30), pattern(30, kBig));
  EXPECT_EQ(tlv_of(read(), 29), pattern(29, kBig));
  const uint32_t writer = begin();
  ASSERT_OK(put_big(writer, 100, 2));
  commit(writer);
  EXPECT_EQ(tlv_of(base, 101), pattern(101, kBig));
}

}  // namespace
