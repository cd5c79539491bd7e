#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <unordered_set>
#include <vector>

#include "database/memory/pool.h"
#include "mem.h"
#include "rov.h"

namespace {

void* take_block(uint32_t size) {
  void* block = nullptr;
  EXPECT_EQ(mem_zalloc(size, nullptr, &block), ROV_OK);
  return block;
}

std::vector<void*> take_many(size_t count, uint32_t size) {
  std::vector<void*> blocks(count);
  for (void*& block : blocks) block = take_block(size);
  return blocks;
}

void free_all(const std::vector<void*>& blocks) {
  for (void* block : blocks) EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
}

TEST(MemThreads, ABlockMayBeFreedByAnotherThread) {
  const size_t before = mem::live_bytes();
  for (int round = 0; round < 20; ++round) {
    std::vector<void*> blocks;
    std::thread([&] { blocks = take_many(2000, 40); }).join();
    EXPECT_EQ(mem::live_bytes(), before + 2000 * 40);
    std::thread([&] { free_all(blocks); }).join();
    EXPECT_EQ(mem::live_bytes(), before);
  }
}

// The address sanitizer keeps freed blocks apart for a while.
#ifndef MEM_UNDER_ASAN

TEST(MemThreads, WhatAThreadKeptIsUsedAfterItsEnd) {
  constexpr size_t kBlocks = 500;
  std::unordered_set<void*> seen;
  for (int round = 0; round < 50; ++round) {
    std::thread([&] {
      const std::vector<void*> blocks = take_many(kBlocks, 3000);
      seen.insert(blocks.begin(), blocks.end());
      free_all(blocks);
    }).join();
  }
  EXPECT_LT(seen.size(), 2 * kBlocks);
}

TEST(MemThreads, WhatAThreadFreesInExcessReachesOthers) {
  // One thread only takes, the other only frees: without an exchange every block would be a new
  // one.
  std::unordered_set<void*> seen;
  std::vector<void*> handed;
  std::atomic<int> turn{0};
  constexpr int kTurns = 200;
  std::thread taker([&] {
    for (int i = 0; i < kTurns; i += 2) {
      while (turn.load() != i) std::this_thread::yield();
      handed = take_many(300, 512);
      seen.insert(handed.begin(), handed.end());
      turn.store(i + 1);
    }
  });
  for (int i = 1; i < kTurns; i += 2) {
    while (turn.load() != i) std::this_thread::yield();
    free_all(handed);
    turn.store(i + 1);
  }
  taker.join();
  EXPECT_LT(seen.size(), size_t{3000});
}

#endif

// Threads pass blocks to one another through a few slots, fill them and check that nobody else
// wrote into them.
TEST(MemThreads, ManyThreadsMayUseThePoolAtOnce) {
  const size_t before = mem::live_bytes();
  struct Slot {
    std::mutex lock;
    unsigned char* block = nullptr;
    uint32_t size = 0;
  };
  std::vector<Slot> slots(64);
  std::atomic<int> damaged{0};
  const auto work = [&](unsigned seed) {
    std::mt19937 random(seed);
    for (int i = 0; i < 20000; ++i) {
      Slot& slot = slots[random() % slots.size()];
      const std::lock_guard guard(slot.lock);
      if (slot.block != nullptr) {
        if (slot.block[0] != (slot.size & 0xff) || slot.block[slot.size - 1] != (slot.size & 0xff))
          ++damaged;
        if (mem_free(slot.block, nullptr) != ROV_OK) ++damaged;
        slot.block = nullptr;
      } else {
        slot.size = 1 + static_cast<uint32_t>(random() % 700);
        slot.block = static_cast<unsigned char*>(take_block(slot.size));
        for (uint32_t at = 0; at < slot.size; ++at) damaged += slot.block[at] != 0 ? 1 : 0;
        std::memset(slot.block, static_cast<int>(slot.size & 0xff), slot.size);
      }
    }
  };
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= 4; ++seed) threads.emplace_back(work, seed);
  for (std::thread& thread : threads) thread.join();
  for (const Slot& slot : slots) {
    if (slot.block != nullptr) {
      EXPECT_EQ(mem_free(slot.block, nullptr), ROV_OK);
    }
  }
  EXPECT_EQ(damaged.load(), 0);
  EXPECT_EQ(mem::live_bytes(), before);
}

TEST(MemThreads, TheLimitHoldsForAllThreadsTogether) {
  constexpr uint32_t kMore = 100 * 64;
  rov_mem_ctx_t pool{nullptr, static_cast<uint32_t>(mem::live_bytes()) + kMore, 0};
  std::atomic<int> taken{0};
  std::vector<std::vector<void*>> blocks(4);
  std::vector<std::thread> threads;
  for (auto& mine : blocks) {
    threads.emplace_back([&taken, &mine, context = pool]() mutable {
      for (int i = 0; i < 60; ++i) {
        void* block = nullptr;
        if (mem_zalloc(64, &context, &block) != ROV_OK) continue;
        mine.push_back(block);
        ++taken;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(taken.load(), 100);
  for (const auto& mine : blocks) free_all(mine);
}

// Blocks that another thread's exit handlers give back after its cache is gone.
TEST(MemThreads, ABlockMayBeFreedWhileItsThreadEnds) {
  const size_t before = mem::live_bytes();
  struct Late {
    void* block = nullptr;
    ~Late() {
      if (block != nullptr) mem_free(block, nullptr);
    }
  };
  static pthread_key_t key;
  ASSERT_EQ(pthread_key_create(&key,
                               [](void* block) {
                                 EXPECT_EQ(mem_free(block, nullptr), ROV_OK);
                                 EXPECT_EQ(mem_free(take_block(24), nullptr), ROV_OK);
                               }),
            0);
  std::thread([] {
    static thread_local Late late;
    late.block = take_block(100);
    ASSERT_EQ(pthread_setspecific(key, take_block(50)), 0);
  }).join();
  EXPECT_EQ(mem::live_bytes(), before);
  pthread_key_delete(key);
}

// The address sanitizer's allocator does not survive a fork beside a busy thread.
#ifndef MEM_UNDER_ASAN

TEST(MemThreads, AForkedChildMayUseThePool) {
  std::atomic<bool> stop{false};
  std::thread busy([&] {
    while (!stop.load()) free_all(take_many(1000, 64));
  });
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      alarm(30);
      std::vector<void*> blocks(2000);
      bool good = true;
      for (void*& block : blocks) good = mem_zalloc(64, nullptr, &block) == ROV_OK && good;
      for (void* block : blocks) good = mem_free(block, nullptr) == ROV_OK && good;
      _exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  stop.store(true);
  busy.join();
}

#endif

}  // namespace
