// Steps of the library that never fail, made to: what a test's program links from here stands in the
// place of the library's own.
#pragma once

#include <cstdint>

namespace node_test {

// What the steps of the node cache return, 0 = they do what they always do. The search for an entry
// does that as many times as `unlinks_before` says before it fails.
extern std::uint32_t lock_status;
extern std::uint32_t unlock_status;
extern std::uint32_t unlink_status;
extern std::uint32_t unlinks_before;

// The same of the recount of a policy instance's referrers.
extern std::uint32_t recount_status;

}  // namespace node_test
