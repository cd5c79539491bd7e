#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "database/memory/block.h"
#include "database/memory/classes.h"
#include "database/memory/pool.h"
#include "mem.h"
#include "rov.h"

namespace {

void* take(uint32_t size, rov_mem_ctx_t* pool = nullptr) {
  void* block = nullptr;
  EXPECT_EQ(mem_zalloc(size, pool, &block), ROV_OK) << size;
  return block;
}

bool all_zero(const void* block, size_t size) {
  const auto* byte = static_cast<const uint8_t*>(block);
  return std::accumulate(byte, byte + size, 0u, [](unsigned a, unsigned b) { return a | b; }) == 0;
}

// Every test must leave the pool as it found it.
class Mem : public testing::Test {
 protected:
  ~Mem() override { EXPECT_EQ(mem::live_bytes(), live_before_) << "blocks were left or lost"; }

  size_t live_before_ = mem::live_bytes();
};

TEST_F(Mem, BlocksAreZeroFilledAndAlignedAtEverySizeWhenTakenAgainToo) {
  for (int round = 0; round < 2; ++round) {
    for (uint32_t size = 1; size < 5000; size += size < 600 ? 1 : 37) {
      void* block = take(size);
      ASSERT_NE(block, nullptr);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u) << size;
      ASSERT_TRUE(all_zero(block, size)) << size;
      std::memset(block, 0xa5, size);
      ASSERT_EQ(mem_free(block, nullptr), ROV_OK);
    }
  }
}

TEST_F(Mem, LiveBlocksDoNotOverlap) {
  std::vector<std::pair<unsigned char*, uint32_t>> blocks;
  for (uint32_t i = 0; i < 3000; ++i) {
    const uint32_t size = 1 + i * 7 % 4500;
    auto* block = static_cast<unsigned char*>(take(size));
    std::memset(block, static_cast<int>(i & 0xff), size);
    blocks.emplace_back(block, size);
  }
  for (uint32_t i = 0; i < blocks.size(); ++i) {
    const auto [block, size] = blocks[i];
    ASSERT_EQ(block[0], i & 0xff);
    ASSERT_EQ(block[size - 1], i & 0xff);
    ASSERT_EQ(mem_free(block, nullptr), ROV_OK);
  }
}

TEST_F(Mem, SizeZeroGivesNullAndSuccess) {
  int anything = 0;
  void* block = &anything;
  EXPECT_EQ(mem_zalloc(0, nullptr, &block), ROV_OK);
  EXPECT_EQ(block, nullptr);
}

TEST_F(Mem, WithoutAnOutputIsInvalid) {
  EXPECT_EQ(mem_zalloc(8, nullptr, nullptr), ROV_ERR_INVALID);
  void* first = nullptr;
  const mem_request_t requests[] = {{8, &first}, {8, nullptr}};
  EXPECT_EQ(mem_alloc_ary(2, requests, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(first, nullptr);
  EXPECT_EQ(mem_alloc_ary(1, nullptr, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(mem_alloc_ary(0, nullptr, nullptr), ROV_OK);
}

TEST_F(Mem, APoolThatWasNotMadeHereIsInvalid) {
  int anything = 0;
  rov_mem_ctx_t pool{&anything, 0, 0};
  void* block = &anything;
  EXPECT_EQ(mem_zalloc(8, &pool, &block), ROV_ERR_INVALID);
  EXPECT_EQ(block, nullptr);
  block = &anything;
  const mem_request_t request{8, &block};
  EXPECT_EQ(mem_alloc_ary(1, &request, &pool), ROV_ERR_INVALID);
  EXPECT_EQ(block, nullptr);
  block = take(8);
  EXPECT_EQ(mem_free(block, &pool), ROV_ERR_INVALID);
  EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
}

TEST_F(Mem, AnArrayGivesEveryBlockOfItsOwn) {
  void* out[4] = {nullptr, &out, nullptr, nullptr};
  const mem_request_t requests[] = {{100, &out[0]}, {0, &out[1]}, {21, &out[2]}, {176, &out[3]}};
  rov_mem_ctx_t pool{};
  ASSERT_EQ(mem_alloc_ary(4, requests, &pool), ROV_OK);
  EXPECT_EQ(out[1], nullptr);
  for (const int i : {3, 0, 2}) {
    EXPECT_TRUE(all_zero(out[i], requests[i].size));
    std::memset(out[i], 0xff, requests[i].size);
    EXPECT_EQ(mem_free(out[i], &pool), ROV_OK);
  }
}

TEST_F(Mem, AnArrayOverTheLimitGivesNothing) {
  int anything = 0;
  void* out[3] = {&anything, &anything, &anything};
  const mem_request_t requests[] = {{100, &out[0]}, {0, &out[1]}, {101, &out[2]}};
  rov_mem_ctx_t pool{nullptr, static_cast<uint32_t>(mem::live_bytes()) + 200, 0};
  EXPECT_EQ(mem_alloc_ary(3, requests, &pool), ROV_ERR_NO_MEM);
  for (const void* block : out) EXPECT_EQ(block, nullptr);
}

TEST_F(Mem, TheLimitCountsWhatIsHandedOut) {
  rov_mem_ctx_t pool{nullptr, static_cast<uint32_t>(mem::live_bytes()) + 300, 0};
  rov_mem_ctx_t copy = pool;
  void* first = take(200, &pool);
  void* second = nullptr;
  EXPECT_EQ(mem_zalloc(101, &copy, &second), ROV_ERR_NO_MEM);
  EXPECT_EQ(second, nullptr);
  second = take(100, &copy);
  void* third = nullptr;
  EXPECT_EQ(mem_zalloc(1, &pool, &third), ROV_ERR_NO_MEM);
  EXPECT_EQ(mem_zalloc(5000, &pool, &third), ROV_ERR_NO_MEM);
  third = take(1);  // without a limit of its own
  EXPECT_EQ(mem_free(first, &pool), ROV_OK);
  first = take(199, &pool);
  EXPECT_EQ(mem_free(first, nullptr), ROV_OK);
  EXPECT_EQ(mem_free(second, &copy), ROV_OK);
  EXPECT_EQ(mem_free(third, nullptr), ROV_OK);
}

TEST_F(Mem, CountsTheBytesAskedFor) {
  std::vector<void*> blocks;
  size_t sum = 0;
  for (uint32_t size : {1u, 16u, 17u, 129u, 4096u, 4097u, 100000u}) {
    blocks.push_back(take(size));
    sum += size;
    EXPECT_EQ(mem::live_bytes(), live_before_ + sum);
  }
  for (void* block : blocks) EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
}

TEST_F(Mem, FreeingWhatIsNoLiveBlockIsRefused) {
  EXPECT_EQ(mem_free(nullptr, nullptr), ROV_ERR_INVALID);

  void* block = take(64);
  EXPECT_EQ(mem_free(static_cast<char*>(block) + 16, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(mem_free(static_cast<char*>(block) + 1, nullptr), ROV_ERR_INVALID);

  alignas(16) unsigned char other[64] = {};
  EXPECT_EQ(mem_free(other + 32, nullptr), ROV_ERR_INVALID);
  std::memcpy(other + 16, static_cast<char*>(block) - 16,
              32);  // a copy of a live block, head and all
  EXPECT_EQ(mem_free(other + 32, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
}

TEST_F(Mem, FreeingTwiceIsRefused) {
  void* block = take(64);
  EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
  EXPECT_EQ(mem_free(block, nullptr), ROV_ERR_INVALID);
}

// The address sanitizer keeps freed blocks apart for a while.
#ifndef MEM_UNDER_ASAN

TEST_F(Mem, AFreedBlockIsTakenAgain) {
  void* block = take(48);
  EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
  void* again = take(33);
  EXPECT_EQ(again, block);
  EXPECT_EQ(mem_free(again, nullptr), ROV_OK);
}

#endif

TEST_F(Mem, EverySizeFitsItsClassAndNoSmallerOne) {
  for (uint32_t size = 1; size <= mem::kMaxPooled; ++size) {
    const uint32_t bin = mem::bin_of(size);
    ASSERT_LT(bin, mem::kBins);
    ASSERT_GE(mem::kBinSize[bin], size);
    if (bin > 0) {
      ASSERT_LT(mem::kBinSize[bin - 1], size);
    }
  }
}

}  // namespace
