// Thousands of short sequences of edits and reads against a plain model: sessions that see an older
// commit, bases that see the newest one, snapshots that are kept, and databases that are opened
// anew.
#include "tests/database/model.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace testing_rov;

class SequenceTest : public ModelDatabase {
 protected:
  void SetUp() override {
    random_ = Random(seed_);
    ModelDatabase::SetUp();
  }

  // A session of an earlier commit, which still sees that.
  void check_held() {
    if (held_ == 0) {
      held_ = read();
      held_model_ = committed_;
      return;
    }
    check_some(held_, held_model_);
    if (random_.below(4) != 0) return;
    check(held_, held_model_);
    release_held();
  }
  void release_held() {
    if (held_ == 0) return;
    ASSERT_OK(rov_ses_close(held_));
    held_ = 0;
  }

  // A snapshot of an earlier commit, which any process that opens the database finds again.
  void check_kept() {
    uint32_t kept = 0;
    ASSERT_OK(rov_db_snapshot(db_, "model", &kept));
    if (!is_kept_) kept_model_ = committed_;
    uint32_t ses = 0;
    ASSERT_OK(rov_ses_open_ro(kept, &ses));
    check(ses, kept_model_);
    ASSERT_OK(rov_ses_close(ses));
    ASSERT_OK(rov_snapshot_close(kept));
    is_kept_ = random_.below(3) != 0;
    if (is_kept_) return;
    ASSERT_OK(rov_db_uri_rm(db_, "model"));
  }

  void check_some(uint32_t ses, const Model& model) {
    for (int n = 0; n < 3; ++n) check_node(ses, model, any_node());
  }

  void edit_some(uint32_t writer, Model& model) {
    const uint32_t edits = 1 + random_.below(6);
    for (uint32_t n = 0; n < edits && !HasFatalFailure(); ++n) {
      edit(writer, model);
      check_node(writer, model, any_node());
    }
  }

  void end(uint32_t writer, Model model) {
    switch (random_.below(8)) {
      case 0:
        ASSERT_OK(rov_edit_abandon(writer));
        return;
      case 1:
        ASSERT_OK(rov_ses_close(writer));
        return;
      default:
        ASSERT_OK(rov_edit_commit(writer));
        committed_ = std::move(model);
        ++commits_;
    }
  }

  void sequence() {
    if (reader_ == 0) {
      reader_ = read();
      ASSERT_OK(rov_ses_orig_handle(reader_, &base_));
    }
    Model model = committed_;
    const uint32_t writer = begin();
    edit_some(writer, model);
    check_some(base_, committed_);
    end(writer, std::move(model));
    check_some(base_, committed_);
    if (random_.below(4) == 0) check_held();
    if (random_.below(16) == 0) check(base_, committed_);
    if (random_.below(100) == 0) check_kept();
    if (random_.below(100) == 0) {
      release_held();
      reader_ = base_ = 0;
      reopen();
    }
  }

  const uint32_t seed_ = fault::seed_or(40);
  Model committed_;
  Model held_model_;
  Model kept_model_;
  uint32_t reader_ = 0;
  uint32_t base_ = 0;
  uint32_t held_ = 0;
  bool is_kept_ = false;
  uint32_t commits_ = 0;
};

TEST_F(SequenceTest, AgreeWithTheModel) {
  const uint32_t sequences = fault::scaled(20000);
  fault::announce("model", seed_, sequences, "sequences");
  for (uint32_t n = 0; n < sequences; ++n) {
    sequence();
    ASSERT_FALSE(HasFailure()) << "in sequence " << n;
  }
  EXPECT_GT(commits_, sequences / 2);
}

}  // namespace
