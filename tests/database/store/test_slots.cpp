// The slots of the table of readers: who gets the last ones, and who has read for how long.
#include <unistd.h>

#include <memory>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

class SlotsTest : public DatabaseTest {
 protected:
  void store(uint32_t node) {
    const uint32_t ses = begin();
    ASSERT_OK(put_node(ses, node, pattern(node, 9)));
    commit(ses);
  }
};

TEST_F(SlotsTest, AGreedyProcessLeavesSomeForOthers) {
  store(1);
  constexpr uint32_t kProcesses = 2;
  std::vector<std::unique_ptr<Child>> greedy;
  uint32_t taken = 0;
  for (uint32_t i = 0; i < kProcesses; ++i) {
    greedy.push_back(std::make_unique<Child>(path(), [](uint32_t db, int pipe) {
      uint32_t count = 0;
      uint32_t ses = 0;
      uint32_t status = ROV_OK;
      while (status == ROV_OK && count < 900) {
        status = rov_ses_open_ro(db, &ses);
        if (status == ROV_OK) ++count;
      }
      say(pipe, count);
      pause();
      return true;
    }));
    uint32_t count = 0;
    ASSERT_TRUE(greedy.back()->next(&count));
    taken += count;
  }
  EXPECT_LE(taken, 1006U);
  EXPECT_GE(taken, 1000U);
  // This process has none yet.
  const uint32_t ses = read();
  EXPECT_EQ(tlv_of(ses, 1), pattern(1, 9));
  uint32_t second = 0;
  EXPECT_STATUS(rov_ses_open_ro(db_, &second), ROV_ERR_BUSY);
  store(2);
  rov_verify_t report = {};
  EXPECT_OK(rov_edit_verify(db_, &report));
  EXPECT_EQ(report.nodes, 2U);
  ASSERT_OK(rov_ses_close(ses));
  // What the dead held is there at once.
  greedy.clear();
  std::vector<uint32_t> sessions(900);
  for (uint32_t& of : sessions) ASSERT_OK(rov_ses_open_ro(db_, &of));
}

TEST_F(SlotsTest, HoldersTellForHowLongTheyLagBehind) {
  store(1);
  const uint32_t ses = read();
  const auto longest = [this] {
    uint32_t seconds = 0;
    EXPECT_OK(rov_edit_holders(
        db_,
        [](const rov_holder_t* holder, void* most) {
          auto* known = static_cast<uint32_t*>(most);
          if (holder->seconds > *known) *known = holder->seconds;
        },
        &seconds));
    return seconds;
  };
  EXPECT_EQ(longest(), 0U) << "it reads the newest commit";
  store(2);
  sleep(2);
  store(3);
  EXPECT_GE(longest(), 1U);
  ASSERT_OK(rov_ses_close(ses));
}

}  // namespace
