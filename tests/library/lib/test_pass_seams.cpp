// Recovery goes through the exported function of the other name: the linker puts this one in its
// place (see CMakeLists.txt).

#include "tests/support/fake/fixture.h"

namespace {

rov_priv_t* given_priv = nullptr;
std::vector<std::uint32_t> given;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" std::uint32_t __wrap_qim_db_priv_recover2(std::uint32_t db, std::uint32_t after_key,
                                                     std::uint32_t flags, rov_priv_t* priv);
extern "C" std::uint32_t __wrap_qim_db_priv_recover2(std::uint32_t db, std::uint32_t after_key,
                                                     std::uint32_t flags, rov_priv_t* priv) {
  given = {db, after_key, flags};
  given_priv = priv;
  return 0x41170049;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

class PassSeams : public fake::Test {};

TEST_F(PassSeams, recovery_calls_the_exported_function_and_not_the_database) {
  rov_priv_t priv{};
  EXPECT_EQ(qim_db_priv_recover(0xa, 0xb, &priv), 0x41170049u);
  EXPECT_EQ(given, (std::vector<std::uint32_t>{0xa, 0xb, 0}));
  EXPECT_EQ(given_priv, &priv);
  EXPECT_EQ(fake::calls(), fake::Calls{});
}

}  // namespace
