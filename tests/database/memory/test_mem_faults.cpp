// The pool when the system has no memory.
#include <gtest/gtest.h>

#include <thread>

#include "database/memory/pool.h"
#include "mem.h"
#include "rov.h"
#include "tests/database/failing_malloc.h"

namespace {

constexpr int kNever = failing_malloc::kNever;

struct Outcome {
  int calls = 0;
  int refused = 0;
};

// A fresh thread, so without a cache, takes arrays of small, middling and large blocks and frees
// them.
Outcome run(int from, int until) {
  Outcome outcome;
  std::thread([&] {
    failing_malloc::begin(from, until);
    void* out[6][3];
    for (auto& blocks : out) {
      const mem_request_t requests[] = {{40, &blocks[0]}, {4000, &blocks[1]}, {9000, &blocks[2]}};
      const uint32_t status = mem_alloc_ary(3, requests, nullptr);
      if (status == ROV_OK) continue;
      EXPECT_EQ(status, ROV_ERR_NO_MEM);
      for (const void* block : blocks) EXPECT_EQ(block, nullptr);
      ++outcome.refused;
    }
    outcome.calls = failing_malloc::end();
    for (const auto& blocks : out) {
      for (void* block : blocks) {
        if (block != nullptr) {
          EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
        }
      }
    }
  }).join();
  return outcome;
}

TEST(MemFaults, EachRefusalOfTheSystemIsReportedAndLosesNothing) {
  const size_t before = mem::live_bytes();
  const int calls_of_clean_run = run(kNever, kNever).calls;
  ASSERT_GT(calls_of_clean_run, 0);
  int refused = 0;
  for (int call = 0; call < calls_of_clean_run; ++call) {
    refused += run(call, call + 1).refused;
    EXPECT_EQ(mem::live_bytes(), before) << "call " << call;
    EXPECT_EQ(run(kNever, kNever).refused, 0) << "after call " << call;
  }
  EXPECT_GT(refused, 0);
}

TEST(MemFaults, WithoutAnyMemoryEveryRequestIsRefused) {
  const size_t before = mem::live_bytes();
  EXPECT_EQ(run(0, 1 << 30).refused, 6);
  EXPECT_EQ(mem::live_bytes(), before);
}

TEST(MemFaults, ALimitIsNotEatenByRefusedBlocks) {
  const size_t before = mem::live_bytes();
  std::thread([&] {
    rov_mem_ctx_t pool{nullptr, static_cast<uint32_t>(before) + 10000, 0};
    void* block = nullptr;
    failing_malloc::begin(0, 1 << 30);
    EXPECT_EQ(mem_zalloc(9000, &pool, &block), ROV_ERR_NO_MEM);
    EXPECT_GT(failing_malloc::end(), 0);
    EXPECT_EQ(mem_zalloc(10000, &pool, &block), ROV_OK);
    EXPECT_EQ(mem_free(block, &pool), ROV_OK);
  }).join();
  EXPECT_EQ(mem::live_bytes(), before);
}

}  // namespace
