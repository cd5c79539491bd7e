// Gates, handles and pointer values.
#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "database/handle/gate.h"
#include "database/handle/handle.h"
#include "database/store/pointers.h"
#include "rov.h"
#include "rov_edit.h"
#include "tests/database/random.h"

namespace {

using rov::Gate;
using rov::Kind;

class GateTest : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    rov::gate_setup();
    if (!GetParam()) rov::g_gate_barrier.store(false);
    gate_.live.store(77);
  }
  void TearDown() override { rov::gate_setup(); }
  Gate gate_;
};

INSTANTIATE_TEST_SUITE_P(WithAndWithoutBarrier, GateTest, testing::Bool());

TEST_P(GateTest, LetsInOnlyItsNumber) {
  EXPECT_FALSE(rov::gate_enter(gate_, 78));
  EXPECT_EQ(gate_.busy.load(), 0U);
  EXPECT_TRUE(rov::gate_enter(gate_, 77));
  EXPECT_EQ(gate_.busy.load(), 1U);
  rov::gate_leave(gate_);
}

TEST_P(GateTest, LetsNobodyInWhileItIsStopped) {
  rov::gate_hold(gate_);
  rov::gate_hold(gate_);
  EXPECT_FALSE(rov::gate_enter(gate_, 77));
  EXPECT_FALSE(rov::gate_enter(gate_, rov::kGateHeld + 1));
  rov::gate_resume(gate_);
  EXPECT_TRUE(rov::gate_enter(gate_, 77));
  rov::gate_leave(gate_);
}

TEST_P(GateTest, AClosedGateStaysClosed) {
  gate_.live.store(0);
  rov::gate_hold(gate_);
  EXPECT_EQ(gate_.live.load(), 0U);
  rov::gate_resume(gate_);
  EXPECT_EQ(gate_.live.load(), 0U);
}

// What the gate protects is plain memory: a thread that is inside never sees it half-changed.
TEST_P(GateTest, WhoStopsItIsAlone) {
  uint64_t first = 0;
  uint64_t second = 0;
  std::atomic<bool> stop{false};
  std::atomic<uint32_t> seen{0};
  std::thread reader([&] {
    while (!stop.load()) {
      if (!rov::gate_enter(gate_, 77)) continue;
      if (first != second) abort();
      rov::gate_leave(gate_);
      ++seen;
    }
  });
  for (int round = 0; round < 2000 || seen.load() == 0; ++round) {
    rov::gate_hold(gate_);
    rov::gate_barrier();
    rov::gate_drain(gate_);
    ++first;
    ++second;
    rov::gate_resume(gate_);
    if (round % 64 == 0) std::this_thread::yield();
  }
  stop.store(true);
  reader.join();
  EXPECT_GT(seen.load(), 0U);
}

TEST(Handles, AreNeverZeroAndCarryTheirKind) {
  int object = 0;
  uint32_t handle = 0;
  ASSERT_EQ(rov::handle_reserve(Kind::kSession, 5, &object, &handle), uint32_t{ROV_OK});
  EXPECT_NE(handle, 0U);
  EXPECT_EQ(rov::kind_of(handle), Kind::kSession);
  EXPECT_EQ(rov::handle_object(handle, Kind::kSession), nullptr) << "not published yet";
  rov::handle_publish(handle);
  EXPECT_EQ(rov::handle_object(handle, Kind::kSession), &object);
  EXPECT_EQ(rov::handle_object(handle, Kind::kDatabase), nullptr);
  EXPECT_EQ(rov::handle_object(rov::as_kind(handle, Kind::kDatabase), Kind::kDatabase), nullptr);
  EXPECT_EQ(rov::handle_owned_by(5), handle);
  EXPECT_TRUE(rov::handle_retire(handle));
  EXPECT_FALSE(rov::handle_retire(handle));
  EXPECT_EQ(rov::handle_owned_by(5), rov::kGateHeld);
  rov::handle_release(handle);
  EXPECT_EQ(rov::handle_owned_by(5), 0U);
  EXPECT_EQ(rov::handle_object(handle, Kind::kSession), nullptr);
}

TEST(Handles, ANumberDoesNotComeBackSoon) {
  std::set<uint32_t> seen;
  for (int round = 0; round < 20000; ++round) {
    uint32_t handle = 0;
    ASSERT_EQ(rov::handle_reserve(Kind::kSession, 0, &seen, &handle), uint32_t{ROV_OK});
    ASSERT_TRUE(seen.insert(handle).second) << round;
    rov::handle_publish(handle);
    rov::handle_release(handle);
  }
}

TEST(Handles, WhenAllAreTakenTheNextOneIsBusy) {
  std::vector<uint32_t> handles;
  uint32_t handle = 0;
  uint32_t status = ROV_OK;
  while ((status = rov::handle_reserve(Kind::kSession, 0, &handles, &handle)) == ROV_OK) {
    ASSERT_LT(handles.size(), rov::kSlots);
    handles.push_back(handle);
  }
  EXPECT_EQ(status, uint32_t{ROV_ERR_BUSY});
  EXPECT_STRNE(rov_err_message(), "");
  for (uint32_t taken : handles) rov::handle_release(taken);
  ASSERT_EQ(rov::handle_reserve(Kind::kSession, 0, &handles, &handle), uint32_t{ROV_OK});
  rov::handle_release(handle);
}

TEST(Handles, ForgedNumbersNameNothing) {
  testing_rov::Random random(99);
  for (int round = 0; round < 100000; ++round) {
    const auto forged = random();
    EXPECT_EQ(rov::handle_object(forged, rov::kind_of(forged)), nullptr);
  }
}

TEST(Pointers, AgreeWithAMap) {
  testing_rov::Random random(3);
  rov::PointerTable table;
  std::map<std::pair<uint32_t, uint32_t>, uintptr_t> model;
  EXPECT_EQ(table.get(1, 1), 0U);
  table.drop_node(1);
  for (int step = 0; step < 20000; ++step) {
    const uint32_t client = random.below(3);
    const uint32_t node = 1 + random.below(500);
    const uintptr_t value = random.below(4) == 0 ? 0 : uintptr_t{random()};
    ASSERT_TRUE(table.set(client, node, value));
    model[{client, node}] = value;
    if (step % 1000 == 0) {
      table.drop_node(node);
      for (uint32_t c = 0; c < 3; ++c) model[{c, node}] = 0;
    }
  }
  for (const auto& [key, value] : model) EXPECT_EQ(table.get(key.first, key.second), value);
}

// The reader asks for what is about to be set, which is where it meets cells that another key
// takes.
TEST(Pointers, CanBeReadWhileTheTableGrows) {
  constexpr uint32_t kNodes = 50000;
  rov::PointerTable table;
  ASSERT_TRUE(table.set(1, 1, 42));
  std::atomic<uint32_t> next{2};
  std::thread reader([&] {
    while (next.load() <= kNodes) {
      if (table.get(1, 1) != 42) abort();
      const uint32_t first = next.load();
      for (uint32_t node = first; node < first + 64; ++node) {
        const uintptr_t other = table.get(1, node);
        if (other != 0 && other != node) abort();
      }
    }
  });
  for (uint32_t node = 2; node <= kNodes; ++node) {
    next.store(node);
    ASSERT_TRUE(table.set(1, node, node));
  }
  next.store(kNodes + 1);
  reader.join();
}

// Keeps the calling thread on that one of the processors that it may use.
void stay_on(uint32_t which) {
  cpu_set_t all;
  std::vector<int> usable;
  if (sched_getaffinity(0, sizeof all, &all) != 0) return;
  for (int at = 0; at < CPU_SETSIZE; ++at) {
    if (CPU_ISSET(at, &all)) usable.push_back(at);
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(usable[which % usable.size()], &one);
  sched_setaffinity(0, sizeof one, &one);
}

// Node 2 and this one begin their search at the same cell of a table of 64.
constexpr uint32_t kSamePlace = 10;

// A reader asks for a node that has no value while the cell where its search ends becomes another
// node's. Each table gives one chance to take that one's value for its own. Both threads come to it
// at the same time, and to as many as half a second allows.
TEST(Pointers, NoOneElsesValueIsRead) {
  constexpr uint32_t kTables = 3000;
  std::vector<rov::PointerTable> tables(kTables);
  for (rov::PointerTable& table : tables) ASSERT_TRUE(table.set(1, 1, 1));
  std::atomic<uint32_t> reads{0};   // how many the reader has come to
  std::atomic<uint32_t> writes{0};  // how many have been written to
  uint32_t wrong = 0;
  std::thread reader([&] {
    stay_on(0);
    for (uint32_t at = 0; at < kTables; ++at) {
      reads.store(at + 1);
      while (writes.load() <= at) {
        for (int n = 0; n < 200; ++n) wrong += tables[at].get(1, kSamePlace) != 0 ? 1 : 0;
        std::this_thread::yield();
      }
    }
  });
  std::thread writer([&] {
    stay_on(1);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    for (uint32_t at = 0; at < kTables && std::chrono::steady_clock::now() < end; ++at) {
      while (reads.load() <= at) std::this_thread::yield();
      if (!tables[at].set(1, 2, 2)) abort();
      writes.store(at + 1);
    }
    writes.store(kTables);
  });
  reader.join();
  writer.join();
  EXPECT_EQ(wrong, 0U);
}

}  // namespace
