#include "tests/library/query/seams.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "qim.h"

namespace {

struct Referrers {
  std::vector<std::uint32_t> ids;
  std::uint32_t count;
};

std::uint32_t copy_status = 0;
std::optional<Referrers> referrers;

}  // namespace

namespace query_test {

void set_copy_status(std::uint32_t status) {
  copy_status = status;
}

void set_referrers(const std::vector<std::uint32_t>& ids, std::uint32_t count) {
  referrers = Referrers{ids, count};
}

void reset_seams() {
  copy_status = 0;
  referrers.reset();
}

}  // namespace query_test

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

std::uint32_t __real_qim_node_cp(std::uint32_t ses, const qim_node_t* src, qim_node_t* dst);
std::uint32_t __wrap_qim_node_cp(std::uint32_t ses, const qim_node_t* src, qim_node_t* dst);
std::uint32_t __real_qim_ref_get_all(std::uint32_t ses, const qim_node_t* node,
                                     qim_node_id_t** refs, std::uint32_t* count);
std::uint32_t __wrap_qim_ref_get_all(std::uint32_t ses, const qim_node_t* node,
                                     qim_node_id_t** refs, std::uint32_t* count);

std::uint32_t __wrap_qim_node_cp(std::uint32_t ses, const qim_node_t* src, qim_node_t* dst) {
  const std::uint32_t status = __real_qim_node_cp(ses, src, dst);
  return copy_status != 0 ? copy_status : status;
}

std::uint32_t __wrap_qim_ref_get_all(std::uint32_t ses, const qim_node_t* node,
                                     qim_node_id_t** refs, std::uint32_t* count) {
  if (!referrers) return __real_qim_ref_get_all(ses, node, refs, count);
  const std::vector<std::uint32_t>& ids = referrers->ids;
  *refs = static_cast<qim_node_id_t*>(std::malloc(ids.size() * sizeof(qim_node_id_t) + 1));
  std::copy(ids.begin(), ids.end(), *refs);
  *count = referrers->count;
  return 0;
}
}
// NOLINTEND(bugprone-reserved-identifier)
