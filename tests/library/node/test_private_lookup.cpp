// Private data when the cache's lookup fails, which it never does by itself: the linker puts the
// function below in its place.

#include "tests/library/node/support.h"

namespace {

std::uint32_t lookup_status = 0;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
std::uint32_t __wrap_qim_node_cache_get(std::uint32_t ses, qim_node_id_t node_id,
                                        qim_node_cache_entry_t** out);

std::uint32_t __wrap_qim_node_cache_get(std::uint32_t, qim_node_id_t,
                                        qim_node_cache_entry_t** out) {
  *out = nullptr;
  return lookup_status;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using fake::report;
using node_test::kFailure;
using node_test::kNode;
using node_test::kSes;

using Texts = std::vector<std::string>;

class PrivateLookup : public node_test::NodeTest {
 protected:
  void SetUp() override {
    NodeTest::SetUp();
    lookup_status = kFailure;
  }
  void TearDown() override {
    EXPECT_EQ(fake::calls().size(), 0u) << "the database is not asked";
    NodeTest::TearDown();
  }
};

TEST_F(PrivateLookup, failure_is_reported_at_line_1410_by_get) {
  std::uint8_t byte = 7;
  EXPECT_EQ(qim_node_priv_get(kSes, kNode, 1, &byte), kFailure);
  EXPECT_EQ(byte, 7u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_node_priv_get", 1410)}));
}

TEST_F(PrivateLookup, failure_is_reported_at_line_1501_by_ptr_get) {
  int stray = 0;
  void* out = &stray;
  EXPECT_EQ(qim_node_priv_ptr_get(kSes, kNode, &out), kFailure);
  EXPECT_EQ(out, &stray);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_node_priv_ptr_get", 1501)}));
}

TEST_F(PrivateLookup, comes_before_identifier_0_is_refused) {
  std::uint8_t byte = 7;
  EXPECT_EQ(qim_node_priv_get(kSes, 0, 1, &byte), kFailure);
  void* out = nullptr;
  EXPECT_EQ(qim_node_priv_ptr_get(kSes, 0, &out), kFailure);
  lookup_status = 0;
  EXPECT_EQ(qim_node_priv_get(kSes, 0, 1, &byte), static_cast<std::uint32_t>(QIM_ERR_INVALID));
  EXPECT_EQ(qim_node_priv_ptr_get(kSes, 0, &out), static_cast<std::uint32_t>(QIM_ERR_INVALID));
}

TEST_F(PrivateLookup, failure_is_reported_under_the_debug_bit_only) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  std::uint8_t byte = 7;
  EXPECT_EQ(qim_node_priv_get(kSes, kNode, 1, &byte), kFailure);
  void* out = nullptr;
  EXPECT_EQ(qim_node_priv_ptr_get(kSes, kNode, &out), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
}

}  // namespace
