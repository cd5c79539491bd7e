// The node cache with steps that fail when they are told to.
#include "tests/library/node/steps.h"

#define qim_node_cache_unlink_int real_unlink
#define qim_node_cache_lock real_lock
#define qim_node_cache_unlock real_unlock
#include "node/cache_steps.h"
#undef qim_node_cache_unlink_int
#undef qim_node_cache_lock
#undef qim_node_cache_unlock

namespace node_test {

std::uint32_t lock_status = 0;
std::uint32_t unlock_status = 0;
std::uint32_t unlink_status = 0;
std::uint32_t unlinks_before = 0;

}  // namespace node_test

namespace qim::node {

static uint32_t qim_node_cache_lock() {
  return node_test::lock_status != 0 ? node_test::lock_status : real_lock();
}
static uint32_t qim_node_cache_unlock() {
  return node_test::unlock_status != 0 ? node_test::unlock_status : real_unlock();
}
static uint32_t qim_node_cache_unlink_int(uint32_t ses, qim_node_id_t node_id,
                                          qim_node_cache_entry_t** out) {
  if (node_test::unlink_status == 0 || node_test::unlinks_before > 0) {
    if (node_test::unlinks_before > 0) --node_test::unlinks_before;
    return real_unlink(ses, node_id, out);
  }
  return node_test::unlink_status;
}

}  // namespace qim::node

#include "node/cache.cpp"
