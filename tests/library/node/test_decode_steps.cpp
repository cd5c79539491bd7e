// Decoding when the recount of a policy instance's referrers fails, which it never does.

#include "tests/library/node/samples_fake.h"
#include "tests/library/node/steps.h"
#include "tests/library/node/support.h"

namespace {

using fake::report;
using node_test::kFailure;
using node_test::Sample;

using Texts = std::vector<std::string>;

bool is_enforced(const Sample& sample) {
  return sample.copy.type == QIM_NODE_PINST || sample.copy.type == QIM_NODE_EDEST;
}

class NodeDecodeSteps : public node_test::NodeTest {
 protected:
  void TearDown() override {
    node_test::recount_status = 0;
    NodeTest::TearDown();
  }
};

TEST_F(NodeDecodeSteps, a_recount_that_fails_is_reported_and_ends_the_open) {
  node_test::put_all();
  std::size_t seen = 0;
  for (const Sample& sample : node_test::samples()) {
    if (!is_enforced(sample)) continue;
    ++seen;
    const std::size_t before = fake::report_texts().size();
    node_test::recount_status = kFailure;
    EXPECT_EQ(open(sample.copy.id), kFailure) << sample.name;
    EXPECT_EQ(node(), nullptr) << sample.name;
    const Texts texts = fake::report_texts();
    ASSERT_GT(texts.size(), before);
    EXPECT_EQ(texts[before], report(kFailure, "qim_node_from_tlva", 331)) << sample.name;
    node_test::recount_status = 0;
    opened(sample.copy.id);
    close();
  }
  EXPECT_GT(seen, 1u);
}

}  // namespace
