// Opening a node when a part of the library fails that never does by itself: the linker puts the
// functions below in the place of the cache's.

#include "tests/library/node/support.h"

namespace {

// What the functions in between return in place of going on, 0 = go on.
std::uint32_t lookup_status = 0;
std::uint32_t add_status = 0;

struct Added {
  std::uint32_t ses;
  qim_node_cache_entry_t* entry;
  qim_lib_ctx_t* lib;
  std::size_t links_asked;
};
std::vector<Added> added;

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
std::uint32_t __real_qim_node_cache_get(std::uint32_t ses, qim_node_id_t node_id,
                                        qim_node_cache_entry_t** out);
std::uint32_t __wrap_qim_node_cache_get(std::uint32_t ses, qim_node_id_t node_id,
                                        qim_node_cache_entry_t** out);
std::uint32_t __wrap_qim_node_cache_add(std::uint32_t ses, qim_node_cache_entry_t* entry,
                                        qim_lib_ctx_t* lib);

std::uint32_t __wrap_qim_node_cache_get(std::uint32_t ses, qim_node_id_t node_id,
                                        qim_node_cache_entry_t** out) {
  if (lookup_status != 0) return lookup_status;
  return __real_qim_node_cache_get(ses, node_id, out);
}

std::uint32_t __wrap_qim_node_cache_add(std::uint32_t ses, qim_node_cache_entry_t* entry,
                                        qim_lib_ctx_t* lib) {
  added.push_back({ses, entry, lib, fake::count("rov_node_ln_field_get")});
  return add_status;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using fake::report;
using node_test::kFailure;
using node_test::kNode;
using node_test::kSes;

using Blocks = std::vector<void*>;
using Texts = std::vector<std::string>;

class NodeOpenSeams : public node_test::NodeTest {
 protected:
  void SetUp() override {
    NodeTest::SetUp();
    lookup_status = 0;
    add_status = 0;
    added.clear();
    fake::node(kNode).filter({}).link(0x081, 9).dset_name(node_test::name_bytes()).priv({1});
  }
};

TEST_F(NodeOpenSeams, a_failed_lookup_is_returned_with_nothing_asked_or_allocated) {
  lookup_status = kFailure;
  EXPECT_EQ(open(kNode), kFailure);
  EXPECT_EQ(node(), nullptr);
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_int_node_open", 486)}));
}

TEST_F(NodeOpenSeams, a_failed_lookup_comes_before_identifier_0_is_refused) {
  lookup_status = kFailure;
  EXPECT_EQ(open(0), kFailure);
}

TEST_F(NodeOpenSeams, the_cache_is_offered_the_entry_once_it_is_complete) {
  qim_node_t& opened_node = opened(kNode);
  ASSERT_EQ(added.size(), 1u);
  EXPECT_EQ(added[0].ses, kSes);
  EXPECT_EQ(added[0].entry, node_test::entry_of(&opened_node));
  EXPECT_EQ(added[0].lib, ctx());
  EXPECT_EQ(added[0].links_asked, 1u);
  close();
}

TEST_F(NodeOpenSeams, the_cache_is_offered_the_entry_before_its_type_is_compared) {
  EXPECT_EQ(open(kNode, QIM_NODE_POLICE), static_cast<std::uint32_t>(QIM_ERR_NODE_TYPE));
  EXPECT_EQ(added.size(), 1u);
}

TEST_F(NodeOpenSeams, a_failed_add_frees_the_four_blocks_and_looks_at_no_type) {
  add_status = kFailure;
  const auto& watch = watch_blocks();
  EXPECT_EQ(open(kNode, QIM_NODE_POLICE), kFailure);
  EXPECT_EQ(node(), nullptr);
  EXPECT_EQ(watch.freed, (Blocks{watch.entry(), watch.priv(), watch.tlv(), watch.name()}));
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, "qim_int_node_open", 556)}));
}

}  // namespace
