// Clients' private data on nodes: what is handed to the database, and how the cache stays true to
// it.

#include <cstring>

#include "rov.h"
#include "tests/library/node/cache_test.h"
#include "tests/support/fake/sweep.h"

namespace {

using fake::call;
using fake::Calls;
using fake::report;
using node_test::Bytes;
using node_test::kFailure;
using node_test::kNode;
using node_test::kSes;

using Texts = std::vector<std::string>;

constexpr std::uint32_t kOtherSes = 0x5e6;
constexpr std::uint32_t kInvalid = QIM_ERR_INVALID;
constexpr const char* kDestroy = "qim_lib_node_destroy";

// Statuses that mean something elsewhere mean nothing here.
constexpr std::uint32_t kDatabaseStatuses[] = {0x41170001, 0x41170006, 0x4117000f, 0x41160008};

class Private : public node_test::CacheTest {
 protected:
  void SetUp() override {
    CacheTest::SetUp();
    data_ = {1, 2, 3};
    std::memset(buffer_, fake::kGarbage, sizeof buffer_);
    out_ = &stray_;
  }

  // An entry of the cache that holds private data of these bytes and this pointer value.
  static qim_node_cache_entry_t* cached(const Bytes& data, void* pointer, std::uint32_t id = kNode,
                                        std::uint32_t ses = kSes) {
    node_cache_max = 4;
    auto* const made = entry(id, ses);
    made->node.priv_len = static_cast<std::uint32_t>(data.size());
    if (!data.empty()) {
      made->node.priv_buf = static_cast<std::uint8_t*>(fake::allocate(made->node.priv_len, pool()));
      std::memcpy(made->node.priv_buf, data.data(), data.size());
    }
    made->node.priv_ptr = reinterpret_cast<std::uintptr_t>(pointer);
    EXPECT_EQ(add(made), 0u);
    fake::clear_calls();
    return made;
  }

  // A cached entry that cannot be taken out because freeing it fails.
  static void cache_stuck_entry() {
    node_cache_max = 4;
    EXPECT_EQ(add(indestructible(kNode)), 0u);
    fake::clear_calls();
  }

  static Bytes bytes_passed(std::string_view function) {
    return fake::calls_of(function).at(0).bytes;
  }

  std::uint32_t set(std::uint32_t node = kNode) {
    return qim_node_priv_set(kSes, node, data_.data(), 3);
  }
  std::uint32_t ptr_set(std::uint32_t node = kNode) {
    return qim_node_priv_ptr_set(kSes, node, &stray_);
  }
  std::uint32_t get(std::uint32_t node = kNode) {
    return qim_node_priv_get(kSes, node, sizeof buffer_, buffer_);
  }
  std::uint32_t ptr_get(std::uint32_t node = kNode) {
    return qim_node_priv_ptr_get(kSes, node, &out_);
  }

  Bytes buffer() const { return Bytes(buffer_, buffer_ + sizeof buffer_); }

  Bytes data_;
  std::uint8_t buffer_[4];
  int stray_ = 0;
  void* out_ = nullptr;
};

// ---- Writing bytes ---------------------------------------------------------------------------

using PrivateSet = Private;

TEST_F(PrivateSet, hands_on_identifier_by_address_data_and_length) {
  EXPECT_EQ(qim_node_priv_set(0xf0000001, kNode, data_.data(), 3), 0u);
  EXPECT_EQ(fake::calls(),
            (Calls{call("rov_node_priv_set", 0xf0000001, fake::id(kNode), data_.data(), 3)}));
  EXPECT_EQ(bytes_passed("rov_node_priv_set"), data_);
}

TEST_F(PrivateSet, hands_on_no_data_as_it_stands) {
  EXPECT_EQ(qim_node_priv_set(kSes, kNode, nullptr, 0), 0u);
  EXPECT_EQ(fake::calls(), (Calls{call("rov_node_priv_set", kSes, fake::id(kNode), nullptr, 0)}));
}

TEST_F(PrivateSet, drops_the_node_from_the_cache_before_the_database_is_written) {
  cached({9, 9}, nullptr);
  fake::script("rov_node_priv_set", [](const fake::Call&) {
    EXPECT_EQ(node_cache_head, nullptr);
    EXPECT_EQ(fake::live_blocks(), 0u);
    return 0u;
  });
  EXPECT_EQ(set(), 0u);
  EXPECT_EQ(fake::names(), (std::vector<std::string>{"mem_free", "mem_free", "rov_node_priv_set"}));
  expect_list({});
}

TEST_F(PrivateSet, node_is_not_served_from_the_cache_afterwards) {
  fake::node(kNode).ifelse().priv({4, 5});
  cached({9, 9}, nullptr);
  EXPECT_EQ(set(), 0u);
  fake::clear_calls();
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(fake::names(), std::vector<std::string>{"rov_node_data_get"});
  expect_list({});
}

TEST_F(PrivateSet, leaves_other_nodes_and_other_sessions_copies_in_the_cache) {
  cached({}, nullptr, kNode, kOtherSes);
  cached({}, nullptr, kNode + 1);
  EXPECT_EQ(set(), 0u);
  expect_list({kNode + 1, kNode});
  EXPECT_EQ(qim_node_priv_set(kOtherSes, kNode, nullptr, 0), 0u);
  expect_list({kNode + 1});
}

TEST_F(PrivateSet, refuses_identifier_0_at_line_1373_without_writing) {
  EXPECT_EQ(set(0), kInvalid);
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInvalid, "qim_node_priv_set", 1373)}));
}

TEST_F(PrivateSet, failing_cache_removal_stops_the_write_at_line_1370) {
  cached({}, nullptr);
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(set(), kFailure);
  EXPECT_EQ(fake::count("rov_node_priv_set"), 0u);
  EXPECT_EQ(fake::report_texts(),
            (Texts{report(kFailure, kDestroy, 688), report(kFailure, "qim_node_priv_set", 1370)}));
  expect_left(1);
}

TEST_F(PrivateSet, cache_inconsistency_stops_the_write_too) {
  cache_stuck_entry();
  EXPECT_EQ(set(), static_cast<std::uint32_t>(QIM_ERR_INTERNAL));
  EXPECT_EQ(fake::count("rov_node_priv_set"), 0u);
  expect_left(1);
}

TEST_F(PrivateSet, database_failure_is_returned_unreported) {
  for (const std::uint32_t status : kDatabaseStatuses) {
    fake::fail("rov_node_priv_set", status);
    EXPECT_EQ(set(), status);
  }
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(PrivateSet, reports_under_the_debug_bit_only) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  EXPECT_EQ(set(0), kInvalid);
  cached({}, nullptr);
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(set(), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_left(1);
}

// ---- Writing the pointer value ---------------------------------------------------------------

using PrivatePtrSet = Private;

TEST_F(PrivatePtrSet, hands_on_identifier_by_address_and_the_value) {
  EXPECT_EQ(qim_node_priv_ptr_set(0xf0000001, kNode, &stray_), 0u);
  EXPECT_EQ(qim_node_priv_ptr_set(kSes, kNode, nullptr), 0u);
  EXPECT_EQ(fake::calls(),
            (Calls{call("rov_node_priv_ptr_set", 0xf0000001, fake::id(kNode), &stray_),
                   call("rov_node_priv_ptr_set", kSes, fake::id(kNode), nullptr)}));
}

TEST_F(PrivatePtrSet, drops_the_node_from_the_cache_before_the_database_is_written) {
  cached({9, 9}, nullptr);
  EXPECT_EQ(ptr_set(), 0u);
  EXPECT_EQ(fake::names(),
            (std::vector<std::string>{"mem_free", "mem_free", "rov_node_priv_ptr_set"}));
  expect_list({});
}

TEST_F(PrivatePtrSet, refuses_identifier_0_at_line_1467_without_writing) {
  EXPECT_EQ(ptr_set(0), kInvalid);
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInvalid, "qim_node_priv_ptr_set", 1467)}));
}

TEST_F(PrivatePtrSet, failing_cache_removal_stops_the_write_at_line_1464) {
  cached({}, nullptr);
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(ptr_set(), kFailure);
  EXPECT_EQ(fake::count("rov_node_priv_ptr_set"), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kFailure, kDestroy, 688),
                                         report(kFailure, "qim_node_priv_ptr_set", 1464)}));
  expect_left(1);
}

TEST_F(PrivatePtrSet, database_failure_is_returned_unreported) {
  for (const std::uint32_t status : kDatabaseStatuses) {
    fake::fail("rov_node_priv_ptr_set", status);
    EXPECT_EQ(ptr_set(), status);
  }
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(PrivatePtrSet, reports_under_the_debug_bit_only) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  EXPECT_EQ(ptr_set(0), kInvalid);
  cached({}, nullptr);
  fake::fail("mem_free", kFailure);
  EXPECT_EQ(ptr_set(), kFailure);
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_left(1);
}

// ---- Reading bytes ---------------------------------------------------------------------------

using PrivateGet = Private;

TEST_F(PrivateGet, asks_the_database_for_nothing_but_the_private_data) {
  fake::node(kNode).ifelse().priv({4, 5, 6, 7});
  EXPECT_EQ(qim_node_priv_get(0xf0000001, kNode, 4, buffer_), 0u);
  EXPECT_EQ(fake::calls(), (Calls{call("rov_node_data_get", 0xf0000001, fake::id(kNode), 0, nullptr,
                                       0, nullptr, 4, buffer_)}));
  EXPECT_EQ(buffer(), (Bytes{4, 5, 6, 7}));
}

TEST_F(PrivateGet, copies_from_a_cached_entry_with_the_databases_bounds_check) {
  auto* const made = cached({8, 9}, nullptr);
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(fake::calls(), (Calls{call("rov_data_cpy", 4, buffer_, 2, made->node.priv_buf)}));
  EXPECT_EQ(buffer(), (Bytes{8, 9, fake::kGarbage, fake::kGarbage}));
  expect_list({kNode});
}

TEST_F(PrivateGet, copies_nothing_from_a_cached_entry_without_private_data) {
  cached({}, nullptr);
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(fake::calls(), (Calls{call("rov_data_cpy", 4, buffer_, 0, nullptr)}));
  EXPECT_EQ(buffer(), Bytes(4, fake::kGarbage));
}

TEST_F(PrivateGet, moves_the_cached_entry_to_the_head) {
  cached({8, 9}, nullptr);
  cached({}, nullptr, kNode + 1);
  EXPECT_EQ(get(), 0u);
  expect_list({kNode, kNode + 1});
}

TEST_F(PrivateGet, another_sessions_copy_does_not_answer) {
  fake::node(kNode).ifelse().priv({4, 5, 6, 7});
  cached({8, 9}, nullptr, kNode, kOtherSes);
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(buffer(), (Bytes{4, 5, 6, 7}));
}

TEST_F(PrivateGet, refuses_identifier_0_at_line_1418_and_leaves_the_buffer_alone) {
  EXPECT_EQ(get(0), kInvalid);
  EXPECT_EQ(buffer(), Bytes(4, fake::kGarbage));
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInvalid, "qim_node_priv_get", 1418)}));
}

TEST_F(PrivateGet, failures_of_the_last_step_are_returned_unreported) {
  for (const std::uint32_t status : kDatabaseStatuses) {
    fake::fail("rov_node_data_get", status);
    EXPECT_EQ(get(), status);
  }
  cached({8, 9}, nullptr);
  for (const std::uint32_t status : kDatabaseStatuses) {
    fake::fail("rov_data_cpy", status);
    EXPECT_EQ(get(), status);
  }
  EXPECT_EQ(qim_node_priv_get(kSes, kNode, 1, buffer_), static_cast<std::uint32_t>(ROV_ERR_LENGTH))
      << "the database's bounds check";
  EXPECT_EQ(fake::reports().size(), 0u);
  expect_list({kNode});
}

TEST_F(PrivateGet, reports_under_the_debug_bit_only) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  EXPECT_EQ(get(0), kInvalid);
  EXPECT_EQ(fake::reports().size(), 0u);
}

// ---- Reading the pointer value ---------------------------------------------------------------

using PrivatePtrGet = Private;

TEST_F(PrivatePtrGet, asks_the_database_for_the_value_in_the_callers_place) {
  fake::node(kNode).ifelse().priv_ptr(reinterpret_cast<std::uintptr_t>(&data_));
  EXPECT_EQ(qim_node_priv_ptr_get(0xf0000001, kNode, &out_), 0u);
  EXPECT_EQ(fake::calls(),
            (Calls{call("rov_node_priv_ptr_get", 0xf0000001, fake::id(kNode), &out_)}));
  EXPECT_EQ(out_, &data_);
}

TEST_F(PrivatePtrGet, takes_the_value_of_a_cached_entry_without_calling_the_database) {
  cached({8, 9}, &data_);
  cached({}, nullptr, kNode + 1);
  EXPECT_EQ(ptr_get(), 0u);
  EXPECT_EQ(out_, &data_);
  EXPECT_EQ(fake::calls().size(), 0u);
  expect_list({kNode, kNode + 1});
}

TEST_F(PrivatePtrGet, a_cached_entry_without_a_value_gives_null) {
  cached({}, nullptr);
  EXPECT_EQ(ptr_get(), 0u);
  EXPECT_EQ(out_, nullptr);
}

TEST_F(PrivatePtrGet, asks_the_database_again_after_a_write) {
  fake::node(kNode).ifelse().priv_ptr(7);
  cached({}, &data_);
  EXPECT_EQ(ptr_set(), 0u);
  EXPECT_EQ(ptr_get(), 0u);
  EXPECT_EQ(out_, reinterpret_cast<void*>(std::uintptr_t{7}));
}

TEST_F(PrivatePtrGet, refuses_identifier_0_at_line_1507_and_leaves_the_output_alone) {
  EXPECT_EQ(ptr_get(0), kInvalid);
  EXPECT_EQ(out_, &stray_);
  EXPECT_EQ(fake::calls().size(), 0u);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInvalid, "qim_node_priv_ptr_get", 1507)}));
}

TEST_F(PrivatePtrGet, database_failure_is_returned_unreported) {
  for (const std::uint32_t status : kDatabaseStatuses) {
    fake::fail("rov_node_priv_ptr_get", status);
    EXPECT_EQ(ptr_get(), status);
  }
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(PrivatePtrGet, reports_under_the_debug_bit_only) {
  ctx()->db_parms.dbg_flags = QIM_DBG_ALL;
  EXPECT_EQ(ptr_get(0), kInvalid);
  EXPECT_EQ(fake::reports().size(), 0u);
}

// ---- A node that the cache took from the database --------------------------------------------

TEST_F(Private, of_an_opened_node_is_served_from_the_cache_until_it_is_written) {
  fake::node(kNode).ifelse().priv({1, 2, 3, 4}).priv_ptr(7);
  node_cache_max = 2;
  opened(kNode);
  close();
  fake::clear_calls();
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(buffer(), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(ptr_get(), 0u);
  EXPECT_EQ(out_, reinterpret_cast<void*>(std::uintptr_t{7}));
  EXPECT_EQ(fake::count("rov_node_data_get") + fake::count("rov_node_priv_ptr_get"), 0u);
  fake::node(kNode).priv({5, 6, 7, 8});
  EXPECT_EQ(set(), 0u);
  EXPECT_EQ(get(), 0u);
  EXPECT_EQ(buffer(), (Bytes{5, 6, 7, 8}));
  expect_list({});
}

// ---- Every platform call fails ---------------------------------------------------------------

class PrivateSweep : public Private {
 protected:
  // The node with a cached copy, as it is again before every run.
  static std::function<void()> with_cached_node() {
    return [] {
      forget_list();
      fake::node(kNode).ifelse().priv({4, 5, 6, 7}).priv_ptr(7);
      cached({4, 5, 6, 7}, reinterpret_cast<void*>(std::uintptr_t{7}));
    };
  }
  static std::function<void()> without_cached_node() {
    return [] { fake::node(kNode).ifelse().priv({4, 5, 6, 7}).priv_ptr(7); };
  }

  static void unchecked(std::uint32_t, const fake::Hit&) {}
};

TEST_F(PrivateSweep, set_without_a_cached_node) {
  for (const bool pointer : {false, true}) {
    fake::sweep({.prepare = without_cached_node(),
                 .run = [&] { return pointer ? ptr_set() : set(); },
                 .check = unchecked},
                kFailure);
  }
}

TEST_F(PrivateSweep, set_with_a_cached_node) {
  for (const bool pointer : {false, true}) {
    const char* const write = pointer ? "rov_node_priv_ptr_set" : "rov_node_priv_set";
    const auto check = [&](std::uint32_t returned, const fake::Hit& hit) {
      const bool written = returned == 0 || hit.call.name == write;
      EXPECT_EQ(fake::count(write), written ? 1u : 0u);
      expect_list({});
    };
    fake::sweep({.prepare = with_cached_node(),
                 .run = [&] { return pointer ? ptr_set() : set(); },
                 .check = check,
                 // The private data is freed first, then the entry.
                 .left = [](const fake::Hit& hit) -> std::size_t {
                   return hit.call.name == "mem_free" ? 3 - hit.nth : 0;
                 }},
                kFailure);
  }
}

TEST_F(PrivateSweep, get_without_a_cached_node) {
  const Bytes dirty(4, fake::kGarbage);
  fake::sweep({.prepare = without_cached_node(),
               .run =
                   [&] {
                     std::memset(buffer_, fake::kGarbage, sizeof buffer_);
                     return get();
                   },
               .check =
                   [&](std::uint32_t returned, const fake::Hit&) {
                     EXPECT_EQ(buffer(), (returned == 0 ? Bytes{4, 5, 6, 7} : dirty));
                   }},
              kFailure);
  fake::sweep({.prepare = without_cached_node(),
               .run =
                   [&] {
                     out_ = &stray_;
                     return ptr_get();
                   },
               .check =
                   [&](std::uint32_t returned, const fake::Hit&) {
                     EXPECT_EQ(out_, returned == 0 ? reinterpret_cast<void*>(std::uintptr_t{7})
                                                   : static_cast<void*>(&stray_));
                   }},
              kFailure);
}

}  // namespace
