// Every platform call of the lookups of enforcement destinations fails in turn, with a status that
// means nothing and with each of those that mean something to some step.

#include "rov.h"
#include "tests/library/query/edest_test.h"

namespace {

using namespace query_test;

constexpr std::uint32_t kStatuses[] = {kFailure, kNoItem, kNoEdest, kNoLink};

class EdestSweep : public EdestTest {
 protected:
  // The destination found was copied, or nothing was touched.
  void expect_output(std::uint32_t returned, const fake::Hit& hit, qim_node_id_t id) {
    if (returned == 0 && hit.call.name == "rov_node_ln_field_get") {
      EXPECT_EQ(out_.id, id);  // perhaps without its link
    } else if (returned == 0) {
      expect_found(id);
    } else if (hit.call.name == "mem_free" && hit_node(hit) && out_.id == id) {
      expect_found(id);  // it could not be closed
    } else {
      expect_untouched();
    }
  }

  qim_policy_dest_t dest_ = at_interface(0x11223344);
};

// Frees that fail leave one block: a node that was opened in spite of it is closed.
std::size_t one_per_failed_free(const fake::Hit& hit) {
  return hit.call.name == "mem_free" ? 1 : 0;
}

// Whether a failure in opening the node that bears the name leads to the walk. `opened_before`
// nodes were opened before it, and `freed_before` blocks freed.
bool leads_to_walk(const fake::Hit& hit, std::uint32_t status, std::size_t opened_before = 0,
                   std::size_t freed_before = 0) {
  const std::string& name = hit.call.name;
  if (name == "rov_ses_get_num_dsets") return true;
  if (name == "rov_ses_dset_name_get") return status == kNoItem;
  if (name == "rov_ses_orig_handle") return false;
  if (name == "rov_node_ln_field_get" && status == kNoLink) return true;
  if (status != kNoItem && status != kNoEdest) return false;
  if (name == "mem_free") return hit.nth > freed_before && hit.nth <= freed_before + 2;
  return hit.nth > opened_before;
}

TEST_F(EdestSweep, direct_hit) {
  for (const std::uint32_t status : kStatuses) {
    SCOPED_TRACE(testing::Message() << std::hex << status);
    const auto prepare = [&] {
      put_pinst({kEdest});
      put_edest(kEdest, dest_, kPinst);
    };
    fake::sweep({.prepare = prepare,
                 .run =
                     [&] {
                       spoil(out_);
                       return lookup(dest_);
                     },
                 .check = [&](std::uint32_t returned,
                              const fake::Hit& hit) { expect_output(returned, hit, kEdest); },
                 .expected =
                     [](const fake::Hit& hit, std::uint32_t injected) {
                       return leads_to_walk(hit, injected) ? 0 : injected;
                     },
                 .left = one_per_failed_free},
                status);
  }
}

TEST_F(EdestSweep, walk) {
  for (const std::uint32_t status : kStatuses) {
    SCOPED_TRACE(testing::Message() << std::hex << status);
    const auto prepare = [&] {
      put_pinst({1, 2, 3, 4});
      fake::node(1).filter({}).link(0x081, 9);
      put_hidden_edest(2, at_interface(2));
      put_hidden_edest(3, dest_);
      put_hidden_edest(4, dest_);
    };
    const auto expected = [](const fake::Hit& hit, std::uint32_t injected) {
      const std::string& name = hit.call.name;
      const bool passed = name == "rov_ses_get_num_dsets" ||
                          (name == "rov_ses_dset_name_get" && injected == kNoItem) ||
                          (name == "rov_node_ln_field_get" && injected == kNoLink);
      return passed ? 0 : injected;
    };
    fake::sweep({.prepare = prepare,
                 .run =
                     [&] {
                       spoil(out_);
                       return lookup(dest_);
                     },
                 .check = [&](std::uint32_t returned,
                              const fake::Hit& hit) { expect_output(returned, hit, 3); },
                 .expected = expected,
                 .left = one_per_failed_free},
                status);
  }
}

// The policy instance's TLV and name are freed first, the policy instance last.
TEST_F(EdestSweep, by_identifier) {
  for (const std::uint32_t status : kStatuses) {
    SCOPED_TRACE(testing::Message() << std::hex << status);
    const auto prepare = [&] {
      put_pinst_node({kEdest});
      put_edest(kEdest, dest_, kPinst);
    };
    const auto left = [](const fake::Hit& hit) -> std::size_t {
      if (hit.call.name != "mem_free") return 0;
      return hit.nth <= 2 ? 2 : 1;
    };
    fake::sweep({.prepare = prepare,
                 .run =
                     [&] {
                       spoil(out_);
                       return qim_pinst_edest_name_get(kSes, kPinst, &dest_, &out_);
                     },
                 .check = [&](std::uint32_t returned,
                              const fake::Hit& hit) { expect_output(returned, hit, kEdest); },
                 .expected =
                     [](const fake::Hit& hit, std::uint32_t injected) {
                       return leads_to_walk(hit, injected, 1, 2) ? 0 : injected;
                     },
                 .left = left},
                status);
  }
}

TEST_F(EdestSweep, nth) {
  for (const bool counting : {false, true}) {
    for (const std::uint32_t status : kStatuses) {
      SCOPED_TRACE(testing::Message() << std::hex << status);
      std::uint32_t count = 0;
      const auto prepare = [&] {
        fake::node(1).filter({}).link(0x081, 9);
        put_hidden_edest(2, at_interface(2));
        fake::node(3).group_body({}).link(0x281, 9).link(0x282, 9);
        put_hidden_edest(4, dest_);
        put_pinst_node({1, 2, 3, 4});
      };
      const auto run = [&] {
        spoil(out_);
        count = 0x5117;
        return counting ? qim_pinst_edest_get_int(kSes, kPinst, 1, &out_, &count)
                        : qim_pinst_edest_get(kSes, kPinst, 1, &out_);
      };
      const auto expected = [](const fake::Hit& hit, std::uint32_t injected) {
        if (hit.call.name == "rov_node_ref_get" && injected == kNoItem) return kInvalid;
        return hit.call.name == "rov_node_ln_field_get" && injected == kNoLink ? 0 : injected;
      };
      const auto check = [&](std::uint32_t returned, const fake::Hit& hit) {
        expect_output(returned, hit, 4);
        if (counting && returned == 0) {
          EXPECT_EQ(count, 1u);
        }
      };
      // An open that fails in freeing its scratch leaves the node open.
      const auto left = [](const fake::Hit& hit) -> std::size_t {
        if (hit.call.name != "mem_free") return 0;
        return hit_node(hit) ? 1 : 2;
      };
      fake::sweep(
          {.prepare = prepare, .run = run, .check = check, .expected = expected, .left = left},
          status);
    }
  }
}

}  // namespace
