// Start-up and shut-down, and contexts of threads.

#include <gtest/gtest.h>

#include "tests/support/fake/fixture.h"
#include "tests/system/sweep/cases.h"

namespace sweep_test {
namespace {

using fake::Hit;
using fake::System;

constexpr std::uint32_t kId = 0x1d;
constexpr std::uint32_t kStray = 0x5117;

qim_lib_ctx_t& ctx() {
  return *qim_lib_get();
}

void empty_context() {
  ctx() = qim_lib_ctx_t{};
}

Case defaults_case() {
  const auto check = [](std::uint32_t, const Hit& hit) {
    EXPECT_EQ(ctx().rov_lib, hit.call.name == "rov_lib_init" ? 0 : fake::settings().lib);
  };
  return failing(
      "qim_lib_defaults",
      {.prepare = empty_context, .run = [] { return qim_lib_defaults(kId, 9); }, .check = check});
}

// Callbacks that the database refuses cost diagnostics, parameters that it does not fill are the
// defaults: neither is a failure.
std::uint32_t init_returns(const Hit& hit, std::uint32_t status) {
  const std::string& name = hit.call.name;
  return name.starts_with("rov_reg_") || name == "rov_db_init_parms_init" ? 0 : status;
}

Case init_case() {
  static std::uint32_t db;
  const auto run = [] {
    db = kStray;
    return qim_lib_init(1, 2, kId, 4, nullptr, 6, 0, 0, &db);
  };
  const auto check = [](std::uint32_t returned, const Hit& hit) {
    const bool opened = hit.call.name != "rov_lib_init" && hit.call.name != "rov_db_init";
    EXPECT_EQ(db, opened ? fake::settings().db : 0);
    EXPECT_EQ(ctx().init_id, returned == 0 ? kId : 0);
    EXPECT_EQ(ctx().use_count, returned == 0 ? 1 : 0);
    if (returned == 0) {
      EXPECT_EQ(qim_lib_close(db, 0), 0u);
    }
  };
  return failing("qim_lib_init",
                 {.prepare = empty_context, .run = run, .check = check, .expected = init_returns});
}

Case close_case(std::int32_t uses) {
  const auto run = [uses] {
    ctx().init_id = kId;
    ctx().use_count = uses;
    return qim_lib_close(1, 2);
  };
  const auto check = [uses](std::uint32_t, const Hit&) {
    EXPECT_EQ(ctx().use_count, uses - 1) << "the use has gone, whatever the database said";
    EXPECT_EQ(ctx().init_id, uses == 1 ? 0 : kId);
  };
  return failing("qim_lib_close", {.prepare = empty_context, .run = run, .check = check});
}

// Sets a thread's context up in a process of its own while that function of the system fails: its
// first call, should there be one.
void set_up_failing(std::uint32_t (*set_up)(), System function, std::uint32_t status) {
  fake::in_child([=] {
    fake::fail_system(function);
    EXPECT_EQ(set_up(), status);
    EXPECT_EQ(fake::system_calls(function), status == 0 ? 0u : 1u);
    // A key that could not be made is never tried again.
    const bool lasting = function == System::pthread_key_create;
    EXPECT_EQ(set_up(), lasting ? status : 0);
    EXPECT_NE(qim_lib_get(), nullptr);
    EXPECT_EQ(fake::fallible_calls(), 0u) << "there is something to sweep";
  });
}

Case tls_case(const char* function, std::uint32_t (*set_up)()) {
  return {function, [set_up] {
            set_up_failing(set_up, System::pthread_once, QIM_ERR_THREAD);
            set_up_failing(set_up, System::pthread_key_create, QIM_ERR_THREAD);
            set_up_failing(set_up, System::malloc, QIM_ERR_NO_MEM);
            set_up_failing(set_up, System::pthread_setspecific, QIM_ERR_THREAD);
            set_up_failing(set_up, System::calloc, 0);
          }};
}

}  // namespace

Cases start_cases() {
  return {defaults_case(), init_case(), both(close_case(1), close_case(2)),
          tls_case("qim_lib_tls_init_int", qim_lib_tls_init_int),
          tls_case("qim_lib_tls_init", [] { return qim_lib_tls_init(0); })};
}

}  // namespace sweep_test
