// A test that starts with an empty platform and an initialised, quiet context, and fails when it
// leaves the platform's memory in disorder.
#ifndef TESTS_SUPPORT_FAKE_FIXTURE_H
#define TESTS_SUPPORT_FAKE_FIXTURE_H

#include <gtest/gtest.h>

#include "child.h"
#include "fake.h"
#include "faults.h"
#include "nodes.h"
#include "qim.h"

namespace fake {

inline constexpr std::uint32_t kSes = 0x5e5;

// A context as a successful start-up leaves it, reporting to fake::logger every status there is.
inline void report_everything(qim_lib_ctx_t* ctx) {
  ctx->db_parms.logger = logger;
  ctx->db_parms.dbg_flags = QIM_DBG_REPORT | QIM_DBG_ALL;
}

class Test : public testing::Test {
 protected:
  void SetUp() override {
    reset();
    reset_system();
    *ctx() = qim_lib_ctx_t{};
  }

  void TearDown() override {
    EXPECT_EQ(bad_frees(), 0u) << "something was freed that is no block of that pool";
    *ctx() = qim_lib_ctx_t{};
    reset();
    reset_system();
  }

  static qim_lib_ctx_t* ctx() { return qim_lib_get(); }
  static rov_mem_ctx_t* pool() { return &qim_lib_get()->db_parms.mem; }
};

}  // namespace fake

#endif
