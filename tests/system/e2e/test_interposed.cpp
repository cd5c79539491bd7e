// A client that has a function of its own in the place of an exported one sees the calls that the
// library makes to it; but what it, or another library, calls by one of the names that are not only
// ours stays its own.

#include <gtest/gtest.h>

#include "mem.h"
#include "qim.h"

namespace {

constexpr std::uint32_t kMine = 0x5117;

std::uint32_t given_flags = 99;
int common_calls = 0;

}  // namespace

extern "C" __attribute__((visibility("default"))) std::uint32_t qim_db_priv_recover2(
    std::uint32_t, std::uint32_t, std::uint32_t flags, rov_priv_t*) {
  given_flags = flags;
  return kMine;
}

extern "C" __attribute__((visibility("default"))) int memset_s(void*, size_t, int, size_t) {
  return ++common_calls;
}

extern "C" __attribute__((visibility("default"))) int snprintf_bytes(char*, size_t, const void*,
                                                                     size_t, int) {
  return ++common_calls;
}

TEST(Interposed, names_that_others_have_too_are_theirs) {
  qim_node_t node;
  node.type = 77;
  EXPECT_EQ(qim_node_read(1, 0, 0, &node), std::uint32_t{QIM_ERR_INVALID});
  EXPECT_EQ(node.type, 0u);
  EXPECT_EQ(common_calls, 0);
}

TEST(Interposed, recovery_goes_through_the_clients_function) {
  rov_priv_t priv{};
  EXPECT_EQ(qim_db_priv_recover(1, 2, &priv), kMine);
  EXPECT_EQ(given_flags, 0u);
}
