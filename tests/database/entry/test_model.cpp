// Random edits and reads against a plain model in memory.
#include <set>

#include "tests/database/database_fixture.h"
#include "tests/database/model.h"
#include "tests/database/random.h"

namespace {

using namespace testing_rov;

class ModelTest : public ModelDatabase, public testing::WithParamInterface<uint32_t> {
 protected:
  void SetUp() override {
    random_ = Random(GetParam());
    ModelDatabase::SetUp();
  }
};

TEST_P(ModelTest, EditsAndReadsAgree) {
  Model committed;
  for (int transaction = 0; transaction < 40; ++transaction) {
    Model model = committed;
    const uint32_t writer = begin();
    const uint32_t before = read();
    const uint32_t edits = 1 + random_.below(25);
    for (uint32_t n = 0; n < edits; ++n) {
      edit(writer, model);
      if (HasFatalFailure()) return;
      if (n % 6 == 0) check_node(writer, model, any_node());
    }
    check(writer, model);
    if (random_.below(5) == 0) {
      ASSERT_OK(rov_edit_abandon(writer));
      model = committed;
    } else {
      ASSERT_OK(rov_edit_commit(writer));
    }
    check(before, committed);
    ASSERT_OK(rov_ses_close(before));
    committed = model;
    if (random_.below(10) == 0) reopen();
    const uint32_t after = read();
    check(after, committed);
    ASSERT_OK(rov_ses_close(after));
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ModelTest, testing::Range(1U, 9U));

// Enough referrers for several chunks, coming and going in random order.
class ReferrerModelTest : public DatabaseTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(ReferrerModelTest, ManyReferrersComeAndGo) {
  constexpr uint32_t kTarget = 0x80000000;
  Random random(GetParam());
  std::set<uint32_t> model;
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, kTarget, {}));
  for (uint32_t node = 1; node <= 1500; ++node) ASSERT_OK(put_node(writer, node, {}));
  for (int round = 0; round < 6; ++round) {
    const bool fill = round % 2 == 0;
    for (int n = 0; n < 1200; ++n) {
      const uint32_t node = round == 5 ? 1 + static_cast<uint32_t>(n) : 1 + random.below(1500);
      if (fill) {
        ASSERT_OK(put_link(writer, node, static_cast<uint16_t>(node), kTarget));
        model.insert(node);
      } else if (model.erase(node) != 0) {
        ASSERT_OK(rov_edit_link_del(writer, id(node), static_cast<uint16_t>(node)));
      }
    }
    if (random.below(2) == 0) {
      commit(writer);
      writer = begin();
    }
    const auto found = referrers_of(writer, kTarget);
    ASSERT_EQ(found.size(), model.size());
    ASSERT_TRUE(
        std::equal(found.begin(), found.end(), model.begin(),
                   [](const auto& a, uint32_t b) { return a.first == b && a.second == b; }));
  }
  for (uint32_t node : model) ASSERT_OK(rov_edit_node_del(writer, id(node)));
  EXPECT_TRUE(referrers_of(writer, kTarget).empty());
  commit(writer);
  EXPECT_EQ(parms_of(read(), kTarget).refs, 0U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ReferrerModelTest, testing::Range(1U, 4U));

}  // namespace
