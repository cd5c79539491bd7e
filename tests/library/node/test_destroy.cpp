// Freeing an entry with everything it owns.

#include <cstring>

#include "tests/library/node/support.h"

namespace {

using fake::report;
using node_test::kFailure;
using node_test::kInternal;

using Blocks = std::vector<void*>;
using Texts = std::vector<std::string>;

constexpr const char* kDestroy = "qim_lib_node_destroy";

class NodeDestroy : public node_test::NodeTest {
 protected:
  template <class T>
  static T* block(std::uint32_t size = sizeof(T)) {
    return static_cast<T*>(fake::allocate(size, pool()));
  }

  static qim_node_cache_entry_t* entry(std::uint32_t type) {
    auto* const made = block<qim_node_cache_entry_t>();
    made->node.type = type;
    return made;
  }

  static qim_criterion_t* criterion(qim_criterion_t* next, std::uint32_t args_len) {
    auto* const made = block<qim_criterion_t>();
    made->next = next;
    made->args_len = args_len;
    made->args = args_len == 0 ? nullptr : block<std::uint8_t>(args_len);
    return made;
  }

  static void give_private_data(qim_node_cache_entry_t* to) {
    to->node.priv_len = 3;
    to->node.priv_buf = block<std::uint8_t>(3);
  }

  static Blocks frees() {
    Blocks freed;
    for (const fake::Call& made : fake::calls_of("mem_free")) {
      EXPECT_EQ(made.pointer<rov_mem_ctx_t>(1), pool());
      freed.push_back(made.pointer<void>(0));
    }
    return freed;
  }

  // Frees what a failed destruction left.
  static void release(const Blocks& blocks) {
    for (void* const left : blocks) fake::release(left);
  }
};

TEST_F(NodeDestroy, frees_arguments_of_an_action_private_data_and_entry_in_this_order) {
  auto* const made = entry(QIM_NODE_ACTION);
  made->node.body.action.args_len = 4;
  made->node.body.action.args = block<std::uint8_t>(4);
  give_private_data(made);
  const Blocks expected = {made->node.body.action.args, made->node.priv_buf, made};
  EXPECT_EQ(qim_lib_node_destroy(made, ctx()), 0u);
  EXPECT_EQ(frees(), expected);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(NodeDestroy, frees_arguments_of_a_def_private_data_and_entry_in_this_order) {
  auto* const made = entry(QIM_NODE_DEF);
  made->node.body.def.args_len = 4;
  made->node.body.def.args = block<std::uint8_t>(4);
  give_private_data(made);
  const Blocks expected = {made->node.body.def.args, made->node.priv_buf, made};
  EXPECT_EQ(qim_lib_node_destroy(made, ctx()), 0u);
  EXPECT_EQ(frees(), expected);
}

TEST_F(NodeDestroy, frees_each_criterion_after_its_arguments_in_list_order) {
  auto* const third = criterion(nullptr, 2);
  auto* const second = criterion(third, 0);
  auto* const first = criterion(second, 1);
  auto* const made = entry(QIM_NODE_FILTER);
  made->node.body.filter.crit = first;
  give_private_data(made);
  const Blocks expected = {first->args,         first, second, third->args, third,
                           made->node.priv_buf, made};
  EXPECT_EQ(qim_lib_node_destroy(made, ctx()), 0u);
  EXPECT_EQ(frees(), expected);
}

TEST_F(NodeDestroy, accepts_bodies_that_own_nothing) {
  for (const std::uint32_t type : {QIM_NODE_ACTION, QIM_NODE_DEF, QIM_NODE_FILTER}) {
    EXPECT_EQ(qim_lib_node_destroy(entry(type), ctx()), 0u);
  }
  EXPECT_EQ(fake::count("mem_free"), 3u);
}

// Their bodies own nothing, whatever stands where another type keeps its pointers.
TEST_F(NodeDestroy, frees_nothing_in_the_bodies_of_other_types) {
  for (const std::uint32_t type : {0u, 3u, 4u, 5u, 6u, 7u, 8u, 10u, 11u, 32u, 33u, 0xffffffffu}) {
    SCOPED_TRACE(type);
    auto* const made = entry(type);
    std::memset(&made->node.body, 0xff, sizeof made->node.body);
    give_private_data(made);
    fake::clear_calls();
    const Blocks expected = {made->node.priv_buf, made};
    EXPECT_EQ(qim_lib_node_destroy(made, ctx()), 0u);
    EXPECT_EQ(frees(), expected);
  }
}

TEST_F(NodeDestroy, frees_private_data_only_of_a_length_above_0) {
  for (const std::uint32_t len : {0u, 0x80000000u, 0xffffffffu}) {
    SCOPED_TRACE(len);
    auto* const made = entry(QIM_NODE_IFELSE);
    auto* const data = block<std::uint8_t>(3);
    made->node.priv_len = len;
    made->node.priv_buf = data;
    EXPECT_EQ(qim_lib_node_destroy(made, ctx()), 0u);
    EXPECT_TRUE(fake::is_live(data));
    fake::release(data);
  }
}

TEST_F(NodeDestroy, frees_from_the_pool_of_the_context_it_is_given) {
  qim_lib_ctx_t other{};
  auto* const made = static_cast<qim_node_cache_entry_t*>(
      fake::allocate(sizeof(qim_node_cache_entry_t), &other.db_parms.mem));
  made->node.type = QIM_NODE_IFELSE;
  EXPECT_EQ(qim_lib_node_destroy(made, &other), 0u);
}

// ---- Lengths and buffers that contradict each other ------------------------------------------

struct Mismatch {
  const char* name;
  std::uint32_t type;
  int line;
  bool has_buffer;  // else it has a length
};

class NodeDestroyMismatch : public NodeDestroy, public testing::WithParamInterface<Mismatch> {
 protected:
  void SetUp() override {
    NodeDestroy::SetUp();
    buffer_ = GetParam().has_buffer ? block<std::uint8_t>(4) : nullptr;
    const std::uint32_t len = GetParam().has_buffer ? 0 : 4;
    entry_ = entry(GetParam().type);
    give_private_data(entry_);
    qim_node_body_t& body = entry_->node.body;
    if (GetParam().type == QIM_NODE_ACTION) {
      body.action.args = buffer_;
      body.action.args_len = len;
    } else if (GetParam().type == QIM_NODE_DEF) {
      body.def.args = buffer_;
      body.def.args_len = len;
    } else {
      body.filter.crit = criterion(nullptr, 0);
      body.filter.crit->args = buffer_;
      body.filter.crit->args_len = len;
    }
  }

  void TearDown() override {
    if (buffer_ != nullptr) fake::release(buffer_);
    if (GetParam().type == QIM_NODE_FILTER) fake::release(entry_->node.body.filter.crit);
    fake::release(entry_->node.priv_buf);
    fake::release(entry_);
    NodeDestroy::TearDown();
  }

  qim_node_cache_entry_t* entry_ = nullptr;

 private:
  std::uint8_t* buffer_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, NodeDestroyMismatch,
                         testing::Values(Mismatch{"ActionBuffer", QIM_NODE_ACTION, 625, true},
                                         Mismatch{"ActionLength", QIM_NODE_ACTION, 625, false},
                                         Mismatch{"DefBuffer", QIM_NODE_DEF, 640, true},
                                         Mismatch{"DefLength", QIM_NODE_DEF, 640, false},
                                         Mismatch{"CriterionBuffer", QIM_NODE_FILTER, 655, true},
                                         Mismatch{"CriterionLength", QIM_NODE_FILTER, 655, false}),
                         node_test::name_of<Mismatch>);

TEST_P(NodeDestroyMismatch, is_refused_with_nothing_freed) {
  EXPECT_EQ(qim_lib_node_destroy(entry_, ctx()), kInternal);
  EXPECT_EQ(fake::count("mem_free"), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, kDestroy, GetParam().line)}));
}

TEST_P(NodeDestroyMismatch, is_reported_whatever_the_debug_bit) {
  report_only_unconditionally();
  EXPECT_EQ(qim_lib_node_destroy(entry_, ctx()), kInternal);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, kDestroy, GetParam().line)}));
  EXPECT_EQ(fake::count("rov_dbg_abort_chk"), 1u);
}

TEST_F(NodeDestroy, stops_at_a_mismatch_further_down_the_list) {
  auto* const second = criterion(nullptr, 0);
  second->args_len = 1;
  auto* const first = criterion(second, 1);
  auto* const made = entry(QIM_NODE_FILTER);
  made->node.body.filter.crit = first;
  const Blocks expected = {first->args, first};
  EXPECT_EQ(qim_lib_node_destroy(made, ctx()), kInternal);
  EXPECT_EQ(frees(), expected);
  release({second, made});
}

// ---- Failing frees ---------------------------------------------------------------------------

TEST_F(NodeDestroy, stops_at_the_first_free_that_fails_and_leaves_the_rest) {
  const std::vector<int> lines = {660, 666, 666, 682, 688};
  for (std::size_t failing = 0; failing < lines.size(); ++failing) {
    SCOPED_TRACE(failing);
    auto* const second = criterion(nullptr, 0);
    auto* const first = criterion(second, 1);
    auto* const made = entry(QIM_NODE_FILTER);
    made->node.body.filter.crit = first;
    give_private_data(made);
    const Blocks all = {first->args, first, second, made->node.priv_buf, made};
    const std::size_t reports = fake::reports().size();
    fake::clear_calls();
    fake::fail("mem_free", kFailure, static_cast<unsigned>(failing + 1));
    EXPECT_EQ(qim_lib_node_destroy(made, ctx()), kFailure);
    const auto stop = all.begin() + static_cast<std::ptrdiff_t>(failing);
    EXPECT_EQ(frees(), Blocks(all.begin(), stop + 1));
    for (auto left = stop; left != all.end(); ++left) EXPECT_TRUE(fake::is_live(*left));
    ASSERT_EQ(fake::reports().size(), reports + 1);
    EXPECT_EQ(fake::report_texts().back(), report(kFailure, kDestroy, lines[failing]));
    release(Blocks(stop, all.end()));
  }
}

TEST_F(NodeDestroy, frees_private_data_only_where_there_are_some) {
  auto* const without = entry(QIM_NODE_IFELSE);
  without->node.priv_len = 3;
  EXPECT_EQ(qim_lib_node_destroy(without, ctx()), 0u);
  auto* const unbounded = entry(QIM_NODE_IFELSE);
  give_private_data(unbounded);
  void* const data = unbounded->node.priv_buf;
  unbounded->node.priv_len = 0x80000000;
  EXPECT_EQ(qim_lib_node_destroy(unbounded, ctx()), 0u);
  EXPECT_EQ(frees(), (Blocks{without, unbounded}));
  release({data});
}

TEST_F(NodeDestroy, reports_arguments_of_action_and_def_that_cannot_be_freed) {
  auto* const action = entry(QIM_NODE_ACTION);
  action->node.body.action.args_len = 1;
  action->node.body.action.args = block<std::uint8_t>(1);
  auto* const def = entry(QIM_NODE_DEF);
  def->node.body.def.args_len = 1;
  def->node.body.def.args = block<std::uint8_t>(1);
  fake::fail_every("mem_free", kFailure);
  EXPECT_EQ(qim_lib_node_destroy(action, ctx()), kFailure);
  EXPECT_EQ(qim_lib_node_destroy(def, ctx()), kFailure);
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kFailure, kDestroy, 630), report(kFailure, kDestroy, 645)}));
  EXPECT_EQ(fake::count("mem_free"), 2u);
  release({action->node.body.action.args, action, def->node.body.def.args, def});
}

TEST_F(NodeDestroy, reports_failed_frees_under_the_debug_bit_only) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  auto* const made = entry(QIM_NODE_IFELSE);
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(qim_lib_node_destroy(made, ctx()), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
  release({made});
}

}  // namespace
