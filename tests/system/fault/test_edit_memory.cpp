// Edits without memory: each piece of it that an edit or its commit asks for is refused in turn. The
// session is lost then, and nothing else.
#include <gtest/gtest.h>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/contents.h"
#include "tests/system/fault/edits.h"
#include "tests/system/fault/refusing_arena.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace testing_rov;
using fault::Edit;

class EditMemory : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    ASSERT_OK(fault::prepare_for_edits(db_));
  }

  uint64_t digest() const {
    const fault::Contents contents = fault::read_contents(db_);
    EXPECT_TRUE(contents.good) << contents.message;
    return contents.digest;
  }

  // With request `at` refused, in a session of its own. False when there are not so many requests:
  // then the edit was committed.
  bool make(const Edit& edit, uint32_t at) {
    const uint32_t ses = begin();
    refusing_arena::begin(at);
    const uint32_t made = edit.make(ses);
    const uint32_t committed = rov_edit_commit(ses);
    const bool refused = refusing_arena::end();
    if (!refused) {
      EXPECT_EQ(made, uint32_t{ROV_OK});
      EXPECT_OK(committed);
      return false;
    }
    EXPECT_TRUE(made == ROV_OK || made == ROV_ERR_NO_MEM) << rov_status_name(made);
    EXPECT_EQ(committed, uint32_t{ROV_ERR_NO_MEM}) << rov_status_name(committed);
    EXPECT_STATUS(rov_ses_close(ses), ROV_ERR_HANDLE);
    return true;
  }
};

TEST_F(EditMemory, RefusedRequestsLoseTheSessionAndNothingElse) {
  uint32_t refused = 0;
  for (const Edit& edit : fault::all_edits()) {
    SCOPED_TRACE(edit.name);
    const uint64_t before = digest();
    uint32_t at = 0;
    for (; make(edit, at) && !HasFailure(); ++at) {
      // Looking at everything after each of them would take most of the time.
      const bool look = at % 50 == 0;
      EXPECT_TRUE(!look || digest() == before);
    }
    if (HasFailure()) FAIL() << "request " << at;
    EXPECT_GT(at, 0U);
    refused += at;
  }
  fault::announce("memory of edits", 0, refused, "requests refused");
  reopen();
  rov_verify_t report;
  EXPECT_OK(rov_edit_verify(db_, &report));
}

}  // namespace
