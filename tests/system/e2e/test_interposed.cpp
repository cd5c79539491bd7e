// A client that has a function of its own in the place of an exported one sees the calls that the
// library makes to it.

#include <gtest/gtest.h>

#include "qim.h"

namespace {

constexpr std::uint32_t kMine = 0x5117;

std::uint32_t given_flags = 99;

}  // namespace

extern "C" __attribute__((visibility("default"))) std::uint32_t qim_db_priv_recover2(
    std::uint32_t, std::uint32_t, std::uint32_t flags, rov_priv_t*) {
  given_flags = flags;
  return kMine;
}

TEST(Interposed, recovery_goes_through_the_clients_function) {
  rov_priv_t priv{};
  EXPECT_EQ(qim_db_priv_recover(1, 2, &priv), kMine);
  EXPECT_EQ(given_flags, 0u);
}
