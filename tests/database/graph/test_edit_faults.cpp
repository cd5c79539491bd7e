// A write session of many links when the system has no memory for something of it.
#include <gtest/gtest.h>

#include "tests/database/database_fixture.h"
#include "tests/database/failing_malloc.h"

namespace {

using namespace testing_rov;

using Refs = std::vector<std::pair<uint32_t, uint32_t>>;

constexpr int kNever = failing_malloc::kNever;
constexpr uint32_t kNodes = 200;
constexpr uint16_t kField = 7;

class EditFaultsTest : public DatabaseTest {
 protected:
  // A node and its neighbours before it and behind it.
  static uint32_t target_of(uint32_t node, uint32_t link) {
    return 1 + (node + kNodes + link - 2) % kNodes;
  }

  static uint32_t edit(uint32_t ses) {
    for (uint32_t node = 1; node <= kNodes; ++node) {
      uint32_t status = put_node(ses, node, {});
      for (uint32_t link = 0; link < 3 && status == ROV_OK; ++link) {
        const auto field = static_cast<uint16_t>(kField + link);
        status = put_link(ses, node, field, target_of(node, link));
      }
      if (status != ROV_OK) return status;
    }
    rov_node_parms_t parms;
    return rov_node_parms_get(ses, id(5), &parms);
  }

  // One session, of whose calls for memory those are refused. Its status.
  uint32_t run(int from, int until, int* calls = nullptr) {
    const uint32_t ses = begin();
    failing_malloc::begin(from, until);
    const uint32_t status = edit(ses);
    const int made = failing_malloc::end();
    if (calls != nullptr) *calls = made;
    const uint32_t committed = rov_edit_commit(ses);
    EXPECT_EQ(committed, status) << rov_err_message();
    return status;
  }

  void expect_nothing() {
    const uint32_t ses = read();
    rov_node_parms_t parms = {};
    EXPECT_STATUS(rov_node_next(ses, parms.id, &parms), ROV_ERR_NO_ITEM);
    EXPECT_OK(rov_ses_close(ses));
  }

  void expect_all() {
    const uint32_t ses = read();
    for (uint32_t node = 2; node < kNodes; ++node) {
      ASSERT_EQ(referrers_of(ses, node),
                (Refs{{node - 1, kField + 2U}, {node, kField + 1U}, {node + 1, kField}}));
    }
    EXPECT_OK(rov_ses_close(ses));
  }

  void remove_all() {
    const uint32_t ses = begin();
    for (uint32_t node = 1; node <= kNodes; ++node) ASSERT_OK(rov_edit_node_del(ses, id(node)));
    commit(ses);
  }
};

TEST_F(EditFaultsTest, ARefusalLosesTheSessionOrNothing) {
  int calls = 0;
  ASSERT_OK(run(kNever, kNever, &calls));
  expect_all();
  remove_all();
  ASSERT_GT(calls, 5);
  int failures = 0;
  for (int call = 0; call < calls; ++call) {
    const uint32_t status = run(call, call + 1);
    if (status == ROV_OK) {
      expect_all();  // what the memory was for was done without it
      remove_all();
    } else {
      ++failures;
      EXPECT_STATUS(status, ROV_ERR_NO_MEM);
      expect_nothing();
    }
  }
  EXPECT_GT(failures, 3);
  EXPECT_LT(failures, calls);
}

}  // namespace
