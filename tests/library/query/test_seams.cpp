// Lookups when functions of the library itself behave as no database makes them.

#include "rov.h"
#include "tests/library/query/edest_test.h"
#include "tests/library/query/seams.h"

namespace {

using namespace query_test;

class EdestSeams : public EdestTest {
 protected:
  void TearDown() override {
    reset_seams();
    EdestTest::TearDown();
  }

  qim_policy_dest_t dest_ = at_interface(0x11223344);
};

TEST_F(EdestSeams, failing_copy_of_a_direct_hit_is_ignored) {
  put_edest(kEdest, dest_, kPinst);
  set_copy_status(kFailure);
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(reports_of(kLookup), Places{});
  EXPECT_EQ(out_.id, kEdest);
}

TEST_F(EdestSeams, failing_copy_of_a_referrer_is_ignored) {
  put_hidden_edest(2, dest_);
  put_pinst({2});
  set_copy_status(kFailure);
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(reports_of(kLookup), Places{});
  EXPECT_EQ(out_.id, 2u);
}

TEST_F(EdestSeams, count_is_compared_with_a_sign) {
  put_hidden_edest(2, dest_);
  for (const std::uint32_t count : {0x80000000u, 0xffffffffu}) {
    set_referrers({2}, count);
    EXPECT_EQ(lookup(dest_), kNoEdest);
    EXPECT_EQ(fake::system_blocks(), 0u) << "the array is freed all the same";
  }
  EXPECT_EQ(opened(), Ids{});
  EXPECT_EQ(reports_of(kLookup),
            (Places{{kNoEdest, 1767}, {kNoEdest, 1782}, {kNoEdest, 1767}, {kNoEdest, 1782}}));
}

TEST_F(EdestSeams, goes_by_the_count_of_the_array_and_not_of_the_node) {
  put_hidden_edest(1, at_interface(1));
  put_hidden_edest(2, dest_);
  pinst_.refs = 1;
  set_referrers({1, 2}, 2);
  EXPECT_EQ(lookup(dest_), 0u);
  EXPECT_EQ(out_.id, 2u);
}

}  // namespace
