// The nodes that refer to a node: one by one, and all at once.

#include <cstdlib>
#include <cstring>

#include "rov.h"
#include "tests/support/fake/fixture.h"
#include "tests/support/fake/sweep.h"

namespace {

using fake::any;
using fake::call;
using fake::kSes;
using fake::report;
using fake::System;

using Ids = std::vector<qim_node_id_t>;
using Texts = std::vector<std::string>;

constexpr qim_node_id_t kNode = 0x08300007;
constexpr qim_node_id_t kStray = 0x5117;

// A database status that means nothing to the library.
constexpr std::uint32_t kFailure = 0x41170047;
constexpr std::uint32_t kNoItem = 0x41170006;

class Refs : public fake::Test {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    fake::report_everything(ctx());
  }
  static void report_nothing() { ctx()->db_parms.dbg_flags = QIM_DBG_ALL; }
};

// ---- One by one ------------------------------------------------------------------------------

class RefGet : public Refs {
 protected:
  std::uint32_t get(std::uint32_t index, qim_node_id_t node = kNode) {
    ref_ = kStray;
    return qim_ref_get(kSes, node, index, &ref_);
  }

  qim_node_id_t ref_ = 0;
};

TEST_F(RefGet, walks_the_referrers_in_the_databases_order_until_0) {
  fake::node(kNode).referrers({0x30, 0x10, 0x20});
  Ids found;
  for (std::uint32_t index = 0;; ++index) {
    ASSERT_EQ(get(index), 0u);
    if (ref_ == 0) break;
    found.push_back(ref_);
  }
  EXPECT_EQ(found, (Ids{0x30, 0x10, 0x20}));
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(RefGet, asks_with_session_and_index_unchanged_and_the_identifier_by_value) {
  fake::node(kNode).referrers({0x30});
  qim_node_id_t ref = kStray;
  EXPECT_EQ(qim_ref_get(0xf0000001, kNode, 0xffffffff, &ref), 0u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_node_ref_get", 0xf0000001, fake::id(kNode),
                                             0xffffffff, any, any, any)}));
  for (const std::size_t output : {6u, 7u, 8u}) {
    EXPECT_NE(fake::calls()[0].pointer<void>(output), nullptr) << "argument " << output;
  }
}

TEST_F(RefGet, takes_the_first_word_of_the_identifier_and_nothing_of_the_other_outputs) {
  fake::script("rov_node_ref_get", [](const fake::Call& made) {
    *made.pointer<std::uint32_t>(6) = fake::kGarbageWord;
    *made.pointer<std::uint32_t>(7) = fake::kGarbageWord;
    rov_node_id_t found = fake::id(0x01020304);
    found.word[1] = found.word[2] = found.word[3] = fake::kGarbageWord;
    *made.pointer<rov_node_id_t>(8) = found;
    return 0u;
  });
  EXPECT_EQ(get(0), 0u);
  EXPECT_EQ(ref_, 0x01020304u);
}

TEST_F(RefGet, index_equal_to_the_number_of_referrers_yields_success_and_0_unreported) {
  fake::node(kNode).referrers({0x30, 0x10});
  fake::clear_calls();
  EXPECT_EQ(get(2), 0u);
  EXPECT_EQ(ref_, 0u);
  EXPECT_EQ(fake::count("rov_node_ref_get"), 1u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(RefGet, no_item_is_no_result_even_when_the_database_wrote_something) {
  fake::script("rov_node_ref_get", [](const fake::Call& made) {
    *made.pointer<rov_node_id_t>(8) = fake::id(9);
    return kNoItem;
  });
  EXPECT_EQ(get(0), 0u);
  EXPECT_EQ(ref_, 0u);
}

TEST_F(RefGet, refuses_identifier_0_with_a_report_and_without_asking) {
  EXPECT_EQ(get(0, 0), 0x41160005u);
  EXPECT_EQ(ref_, 0u);
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(0x41160005, "qim_ref_get", 92)}));
}

TEST_F(RefGet, returns_and_reports_every_other_failure_unchanged_with_0) {
  for (const std::uint32_t status : {0x41170001u, 0x41170007u, 0x4117000fu, 0x41160008u,
                                     0x41160006u, 0x00000006u, 0xffffffffu}) {
    fake::reset();
    fake::script("rov_node_ref_get", [status](const fake::Call& made) {
      *made.pointer<rov_node_id_t>(8) = fake::id(9);
      return status;
    });
    EXPECT_EQ(get(0), status);
    EXPECT_EQ(ref_, 0u);
    EXPECT_EQ(fake::report_texts(), (Texts{report(status, "qim_ref_get", 101)}));
  }
}

TEST_F(RefGet, reports_under_the_debug_bit_only) {
  report_nothing();
  EXPECT_EQ(get(0, 0), 0x41160005u);
  fake::fail("rov_node_ref_get", kFailure);
  EXPECT_EQ(get(0), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(RefGet, has_an_alias_that_is_exactly_the_same) {
  fake::node(kNode).referrers({0x30, 0x10});
  qim_node_id_t ref = kStray;
  EXPECT_EQ(qim_node_ref_get(kSes, kNode, 1, &ref), 0u);
  EXPECT_EQ(ref, 0x10u);
  EXPECT_EQ(qim_node_ref_get(kSes, kNode, 2, &ref), 0u);
  EXPECT_EQ(ref, 0u);
  EXPECT_EQ(fake::calls()[0], call("rov_node_ref_get", kSes, fake::id(kNode), 1, any, any, any));
  ref = kStray;
  EXPECT_EQ(qim_node_ref_get(kSes, 0, 1, &ref), 0x41160005u);
  EXPECT_EQ(ref, 0u);
  fake::fail("rov_node_ref_get", kFailure);
  EXPECT_EQ(qim_node_ref_get(kSes, kNode, 1, &ref), kFailure);
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(0x41160005, "qim_ref_get", 92), report(kFailure, "qim_ref_get", 101)}))
      << "under the one name";
}

TEST_F(RefGet, sweep) {
  for (const auto get : {qim_ref_get, qim_node_ref_get}) {
    qim_node_id_t ref = 0;
    fake::sweep({.prepare = [] { fake::node(kNode).referrers({0x30}); },
                 .run =
                     [&] {
                       ref = kStray;
                       return get(kSes, kNode, 0, &ref);
                     },
                 .check = [&](std::uint32_t returned,
                              const fake::Hit&) { EXPECT_EQ(ref, returned == 0 ? 0x30u : 0u); }},
                kFailure);
  }
}

// ---- All at once -----------------------------------------------------------------------------

class RefGetAll : public Refs {
 protected:
  void TearDown() override {
    std::free(refs_);
    EXPECT_EQ(fake::system_blocks(), 0u) << "the caller frees the array and nothing else";
    fake::Test::TearDown();
  }

  static qim_node_t with_refs(std::uint32_t refs, qim_node_id_t id = kNode) {
    qim_node_t node;
    std::memset(&node, fake::kGarbage, sizeof node);
    node.refs = refs;
    node.id = id;
    return node;
  }

  std::uint32_t get_all(const qim_node_t& node) {
    std::free(refs_);
    fake::reset_system();
    refs_ = &stray_;
    count_ = kStray;
    const std::uint32_t status = qim_ref_get_all(kSes, &node, &refs_, &count_);
    EXPECT_NE(refs_, &stray_);
    return status;
  }

  Ids found() const { return Ids(refs_, refs_ + count_); }

  void expect_nothing() {
    EXPECT_EQ(refs_, nullptr);
    EXPECT_EQ(count_, 0u);
    EXPECT_EQ(fake::system_blocks(), 0u) << "nothing is left for the caller to free";
  }

  qim_node_id_t stray_ = 0;
  qim_node_id_t* refs_ = nullptr;
  std::uint32_t count_ = 0;
};

TEST_F(RefGetAll, gives_three_referrers_in_the_databases_order_in_an_array_of_exactly_three) {
  fake::node(kNode).referrers({0x30, 0x10, 0x20});
  EXPECT_EQ(get_all(with_refs(3)), 0u);
  EXPECT_EQ(count_, 3u);
  EXPECT_EQ(found(), (Ids{0x30, 0x10, 0x20}));
  EXPECT_EQ(fake::last_system_size(), 3 * sizeof(qim_node_id_t));
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(RefGetAll, allocates_scratch_zeroed_with_calloc_and_the_array_with_malloc) {
  fake::node(kNode).referrers({0x30});
  EXPECT_EQ(get_all(with_refs(1)), 0u);
  EXPECT_EQ(fake::system_calls(System::calloc), 1u);
  EXPECT_EQ(fake::system_calls(System::malloc), 1u);
  EXPECT_EQ(fake::system_blocks(), 1u) << "the scratch array is gone";
  EXPECT_EQ(fake::system_frees(), 1u);
}

TEST_F(RefGetAll, serves_an_open_node_as_well) {
  fake::node(kNode).pinst().referrers({0x30, 0x10});
  qim_node_t* node = nullptr;
  ASSERT_EQ(qim_int_node_open(kSes, kNode, nullptr, 0, &node, ctx()), 0u);
  EXPECT_EQ(get_all(*node), 0u);
  EXPECT_EQ(found(), (Ids{0x30, 0x10}));
  EXPECT_EQ(qim_int_node_close(node, ctx()), 0u);
}

TEST_F(RefGetAll, asks_once_with_the_identifier_by_value_a_zeroed_scratch_array_and_refs) {
  fake::script("rov_node_ref_get_all", [](const fake::Call& made) {
    const rov_node_id_t zero[3] = {};
    EXPECT_EQ(std::memcmp(made.pointer<rov_node_id_t>(5), zero, sizeof zero), 0);
    return 0u;
  });
  EXPECT_EQ(get_all(with_refs(3)), 0u);
  EXPECT_EQ(fake::calls(),
            (fake::Calls{call("rov_node_ref_get_all", kSes, fake::id(kNode), any, 3)}));
  EXPECT_EQ(found(), (Ids{0, 0, 0}));
}

TEST_F(RefGetAll, takes_the_first_word_of_each_identifier) {
  fake::script("rov_node_ref_get_all", [](const fake::Call& made) {
    for (std::uint32_t i = 0; i < 2; ++i) {
      rov_node_id_t found = fake::id(0x01020304 + i);
      found.word[1] = found.word[2] = found.word[3] = fake::kGarbageWord;
      made.pointer<rov_node_id_t>(5)[i] = found;
    }
    return 0u;
  });
  EXPECT_EQ(get_all(with_refs(2)), 0u);
  EXPECT_EQ(found(), (Ids{0x01020304, 0x01020305}));
}

TEST_F(RefGetAll, is_as_long_as_the_node_says_whatever_the_database_holds_now) {
  fake::node(kNode).referrers({0x30, 0x10, 0x20});
  EXPECT_EQ(get_all(with_refs(2)), 0u);
  EXPECT_EQ(found(), (Ids{0x30, 0x10}));
  EXPECT_EQ(get_all(with_refs(5)), 0u);
  EXPECT_EQ(found(), (Ids{0x30, 0x10, 0x20, 0, 0}));
}

TEST_F(RefGetAll, no_referrers_is_success_with_nothing_allocated_and_nothing_asked) {
  fake::node(kNode).referrers({0x30});
  EXPECT_EQ(get_all(with_refs(0)), 0u);
  expect_nothing();
  EXPECT_EQ(get_all(with_refs(0, 0)), 0u) << "whatever the identifier";
  expect_nothing();
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::system_calls(System::calloc) + fake::system_calls(System::malloc), 0u);
  EXPECT_EQ(fake::system_frees(), 0u);
}

TEST_F(RefGetAll, refuses_identifier_0_after_allocating) {
  EXPECT_EQ(get_all(with_refs(2, 0)), 0x41160005u);
  expect_nothing();
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::system_calls(System::malloc), 1u);
  EXPECT_EQ(fake::system_frees(), 2u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(0x41160005, "qim_ref_get_all", 164)}));
}

TEST_F(RefGetAll, fails_without_memory_for_the_scratch_array) {
  fake::node(kNode).referrers({0x30});
  refs_ = &stray_;
  count_ = kStray;
  const qim_node_t node = with_refs(1);
  fake::fail_system(System::calloc);
  EXPECT_EQ(qim_ref_get_all(kSes, &node, &refs_, &count_), 0x41160010u);
  expect_nothing();
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::system_calls(System::malloc), 0u);
  EXPECT_EQ(fake::system_frees(), 0u) << "what was not allocated is not freed";
  EXPECT_EQ(fake::report_texts(), (Texts{report(0x41160010, "qim_ref_get_all", 141)}));
}

TEST_F(RefGetAll, fails_without_memory_for_the_array) {
  fake::node(kNode).referrers({0x30, 0x10, 0x20});
  refs_ = &stray_;
  count_ = kStray;
  const qim_node_t node = with_refs(3);
  fake::fail_system(System::malloc);
  EXPECT_EQ(qim_ref_get_all(kSes, &node, &refs_, &count_), 0x41160010u);
  expect_nothing();
  EXPECT_EQ(fake::last_system_size(), 3 * sizeof(rov_node_id_t)) << "the scratch array's bytes";
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::system_frees(), 1u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(0x41160010, "qim_ref_get_all", 152)}));
}

// The bytes of that many identifiers do not fit a 32-bit size; such a request must fail and not
// wrap around to a small one.
TEST_F(RefGetAll, does_not_wrap_around_with_a_huge_number_of_referrers) {
  refs_ = &stray_;
  count_ = kStray;
  const qim_node_t node = with_refs(0x40000001);
  if (sizeof(std::size_t) > 4) fake::fail_system(System::calloc);
  EXPECT_EQ(qim_ref_get_all(kSes, &node, &refs_, &count_), 0x41160010u);
  expect_nothing();
  EXPECT_EQ(fake::calls().size(), 0u);
}

TEST_F(RefGetAll, returns_and_reports_every_database_failure_and_frees_both_arrays) {
  for (const std::uint32_t status : {0x41170001u, kNoItem, 0x4117000fu, 0x41160008u}) {
    fake::reset();
    fake::fail("rov_node_ref_get_all", status);
    EXPECT_EQ(get_all(with_refs(2)), status);
    expect_nothing();
    EXPECT_EQ(fake::system_frees(), 2u);
    EXPECT_EQ(fake::report_texts(), (Texts{report(status, "qim_ref_get_all", 170)}));
  }
}

TEST_F(RefGetAll, reports_under_the_debug_bit_only) {
  report_nothing();
  EXPECT_EQ(get_all(with_refs(2, 0)), 0x41160005u);
  fake::fail("rov_node_ref_get_all", kFailure);
  EXPECT_EQ(get_all(with_refs(2)), kFailure);
  fake::fail_system_every(System::calloc);
  const qim_node_t node = with_refs(2);
  EXPECT_EQ(qim_ref_get_all(kSes, &node, &refs_, &count_), 0x41160010u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(RefGetAll, sweep) {
  const qim_node_t node = with_refs(2);
  fake::sweep({.prepare =
                   [] {
                     fake::node(kNode).referrers({0x30, 0x10});
                   },
               .run =
                   [&] {
                     refs_ = &stray_;
                     count_ = kStray;
                     return qim_ref_get_all(kSes, &node, &refs_, &count_);
                   },
               .check =
                   [&](std::uint32_t returned, const fake::Hit&) {
                     if (returned != 0) {
                       expect_nothing();
                     } else {
                       EXPECT_EQ(found(), (Ids{0x30, 0x10}));
                     }
                     std::free(refs_);
                     refs_ = nullptr;
                   }},
              kFailure);
}

}  // namespace
