// Reading from several threads at once, which works as long as the cache keeps nothing.

#include <cstring>
#include <thread>

#include "tests/library/node/samples_fake.h"
#include "tests/library/node/support.h"

namespace {

using node_test::bytes_of;
using node_test::kSes;
using node_test::Sample;

constexpr int kThreads = 4;
constexpr int kRounds = 20;

// Number of reads that gave something else than the sample's record.
int wrong_reads() {
  int wrong = 0;
  for (int round = 0; round < kRounds; ++round) {
    for (const Sample& sample : node_test::samples()) {
      qim_node_t record;
      std::memset(&record, 0xee, sizeof record);
      const std::uint32_t status = qim_node_read(kSes, sample.copy.id, 0, &record);
      if (status != 0 || bytes_of(record) != bytes_of(sample.copy)) ++wrong;
    }
  }
  return wrong;
}

class NodeThreads : public node_test::NodeTest {};

TEST_F(NodeThreads, read_side_by_side_while_the_cache_is_off) {
  node_test::put_all();
  int wrong[kThreads] = {};
  std::vector<std::thread> threads;
  for (int& count : wrong) threads.emplace_back([&count] { count = wrong_reads(); });
  for (std::thread& thread : threads) thread.join();
  for (const int count : wrong) EXPECT_EQ(count, 0);
  EXPECT_EQ(node_cache_head, nullptr);
  EXPECT_EQ(node_cache_tail, nullptr);
}

// With contexts of their own, threads allocate from their own context's pool.
CHILD_TEST(NodeThreadsOwn, read_through_contexts_of_their_own) {
  node_test::put_all();
  int wrong[kThreads] = {};
  rov_mem_ctx_t* pools[kThreads] = {};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&wrong, &pools, i] {
      if (qim_lib_tls_init(0) == 0) pools[i] = &qim_lib_get()->db_parms.mem;
      wrong[i] = wrong_reads();
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::size_t of_the_threads = 0;
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(wrong[i], 0);
    ASSERT_NE(pools[i], nullptr);
    for (const fake::Call& made : fake::calls_of("mem_zalloc")) {
      of_the_threads += made.pointer<rov_mem_ctx_t>(1) == pools[i] ? 1 : 0;
    }
  }
  EXPECT_GT(of_the_threads, 0u);
  EXPECT_EQ(of_the_threads, fake::count("mem_zalloc"));
  EXPECT_EQ(fake::live_blocks(), 0u);
}

}  // namespace
