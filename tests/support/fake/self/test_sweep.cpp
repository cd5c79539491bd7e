// The sweep that other tests rely on: it fails every call once, and says so when something is
// wrong.

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "mem.h"
#include "rov.h"
#include "tests/support/fake/fake.h"
#include "tests/support/fake/faults.h"
#include "tests/support/fake/sweep.h"

namespace {

constexpr std::uint32_t kFailure = 0x41170047;

rov_mem_ctx_t pool;

// Allocates and frees a block.
std::uint32_t careful() {
  void* block = nullptr;
  if (const std::uint32_t status = mem_zalloc(8, &pool, &block)) return status;
  return mem_free(block, &pool);
}

fake::Sweep sweep_of(std::uint32_t (*run)()) {
  fake::Sweep sweep;
  sweep.prepare = [] {};
  sweep.run = run;
  sweep.check = [](std::uint32_t, const fake::Hit&) {};
  sweep.left = [](const fake::Hit& hit) -> std::size_t { return hit.call.name == "mem_free"; };
  return sweep;
}

class FakeSweep : public testing::Test {
 protected:
  void TearDown() override {
    fake::reset();
    fake::reset_system();
  }
};

TEST_F(FakeSweep, fails_every_call_once) {
  std::vector<std::string> hits;
  fake::Sweep sweep = sweep_of(careful);
  sweep.check = [&](std::uint32_t returned, const fake::Hit& hit) {
    EXPECT_EQ(returned, hit.nth == 0 ? 0u : kFailure);
    hits.push_back(hit.call.name + "/" + std::to_string(hit.nth));
  };
  fake::sweep(sweep, kFailure);
  EXPECT_EQ(hits, (std::vector<std::string>{"/0", "mem_zalloc/1", "/0", "mem_free/1", "/0"}));
}

// The failures that a sweep of this operation makes a test have.
std::string failures_of(std::uint32_t (*run)()) {
  testing::TestPartResultArray failures;
  {
    const testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    fake::sweep(sweep_of(run), kFailure);
  }
  std::string all;
  for (int i = 0; i < failures.size(); ++i) all += failures.GetTestPartResult(i).message();
  return all;
}

using testing::HasSubstr;

TEST_F(FakeSweep, has_nothing_against_a_careful_operation) {
  EXPECT_EQ(failures_of(careful), "");
}

TEST_F(FakeSweep, refuses_an_operation_without_calls) {
  EXPECT_THAT(failures_of([] { return 0u; }), HasSubstr("without calls that can fail"));
}

TEST_F(FakeSweep, sees_a_swallowed_status) {
  EXPECT_THAT(failures_of([] { return careful() & 0u; }), HasSubstr("expected(at, status)"));
}

TEST_F(FakeSweep, sees_a_leak_of_the_pool) {
  EXPECT_THAT(failures_of([] {
                void* block = nullptr;
                return mem_zalloc(8, &pool, &block);
              }),
              HasSubstr("live_blocks()"));
}

TEST_F(FakeSweep, sees_a_leak_of_the_c_library) {
  static void* kept = nullptr;
  EXPECT_THAT(failures_of([] {
                std::free(kept);
                kept = std::malloc(8);
                return careful();
              }),
              HasSubstr("system_blocks()"));
  std::free(kept);
}

TEST_F(FakeSweep, sees_a_second_free) {
  EXPECT_THAT(failures_of([] {
                void* block = nullptr;
                if (const std::uint32_t status = mem_zalloc(8, &pool, &block)) return status;
                const std::uint32_t status = mem_free(block, &pool);
                mem_free(block, &pool);
                return status;
              }),
              HasSubstr("bad_frees()"));
}

TEST_F(FakeSweep, sees_that_a_failure_lasts) {
  static std::uint32_t last = 0;
  last = 0;
  EXPECT_THAT(failures_of([] {
                const std::uint32_t status = careful();
                if (status != 0) last = status;
                return last;
              }),
              HasSubstr("without a failure"));
}

}  // namespace
