// Every operation of the database under the library's name: the same arguments in the same places,
// the result as it came, and nothing beside.

#include <cstring>
#include <thread>

#include "tests/library/lib/pass_through.h"
#include "tests/support/fake/fixture.h"

namespace {

using fake::Arg;
using fake::Calls;
using lib_tests::Memory;
using lib_tests::PassThrough;

constexpr std::uint8_t kGiven = 0x10;
constexpr std::uint8_t kAnswered = 0x60;

// Statuses of both libraries, and words that are none.
constexpr std::uint32_t kResults[] = {0,          1,          0x41160003, 0x41160005,
                                      0x41170006, 0x4117000f, 0x80000000, 0xffffffff};

class PassesOn : public fake::Test, public testing::WithParamInterface<PassThrough> {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    fake::report_everything(ctx());
    ctx()->db_parms.dbg_flags |= QIM_DBG_STRICT;
    ctx()->rov_lib = lib_tests::kContextLib;
    memory_.fill(kGiven);
  }

  std::uint32_t call() { return GetParam().call(memory_, &args_); }

  Memory memory_;
  std::vector<Arg> args_;
};

INSTANTIATE_TEST_SUITE_P(, PassesOn, testing::ValuesIn(lib_tests::pass_throughs()),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(PassesOn, every_argument_in_its_place) {
  call();
  EXPECT_EQ(fake::calls(), Calls{GetParam().expected(args_)});
}

TEST_P(PassesOn, the_result_unchanged) {
  for (const std::uint32_t result : kResults) {
    fake::fail(GetParam().target, result);
    EXPECT_EQ(call(), result);
  }
}

// The platform finds what the caller gave, and the caller finds what the platform left.
TEST_P(PassesOn, what_pointers_lead_to_as_it_is) {
  bool given = false;
  fake::script(GetParam().target, [&](const fake::Call&) {
    given = memory_.holds(kGiven);
    memory_.fill(kAnswered);
    return 0x41170047u;
  });
  call();
  // This function's output is garbage before its script runs.
  if (std::string(GetParam().name) != "qim_db_init_parms_init") {
    EXPECT_TRUE(given);
  }
  EXPECT_TRUE(memory_.holds(kAnswered));
}

TEST_P(PassesOn, failures_without_a_report_or_an_abort_check) {
  for (const std::uint32_t result : kResults) {
    fake::fail(GetParam().target, result);
    call();
  }
  EXPECT_EQ(fake::reports(), std::vector<fake::Report>{});
  EXPECT_EQ(fake::count("rov_dbg_abort_chk"), 0u);
}

TEST_P(PassesOn, in_a_thread_without_a_context_unless_it_needs_one) {
  const fake::Ending ending = fake::ending_of([this] {
    std::thread([] { qim_lib_tls_init(0); }).join();
    fake::fail(GetParam().target, 0x41170047);
    EXPECT_EQ(call(), 0x41170047u);
  });
  EXPECT_FALSE(ending.failed);
  EXPECT_EQ(ending.signal, GetParam().needs_context ? SIGABRT : 0);
}

// The context stays as it is, but for what the logger and the flags are kept in.
TEST_P(PassesOn, without_touching_the_context) {
  qim_lib_ctx_t expected = *ctx();
  call();
  const std::string name = GetParam().name;
  if (name == "qim_db_reg_logger") {
    expected.db_parms.logger_arg = memory_.at(2);
  } else if (name == "qim_db_debug") {
    expected.db_parms.dbg_flags = static_cast<std::uint32_t>(args_.at(1).value);
  }
  EXPECT_EQ(std::memcmp(ctx(), &expected, sizeof expected), 0);
}

}  // namespace
