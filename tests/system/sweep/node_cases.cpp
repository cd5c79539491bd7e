// Opening, reading, caching and freeing nodes, and clients' private data on them.

#include <gtest/gtest.h>

#include <memory>

#include "node/cache.h"
#include "qim.h"
#include "rov.h"
#include "tests/library/query/support.h"
#include "tests/system/sweep/cases.h"

namespace sweep_test {
namespace {

using fake::Hit;
using fake::kSes;
using query_test::Bytes;
using query_test::bytes_of;
using query_test::spoil;

constexpr qim_node_id_t kNode = 0x08300007;

// ---- An action with arguments and private data -----------------------------------------------

// Its blocks: the TLV data; the arguments, the private data, the node.
constexpr query_test::NodeBlocks kBlocks = {.scratch = 1, .decoded = 1, .priv = true};
constexpr std::size_t kOwned = 3;

void put_action() {
  fake::node(kNode)
      .action({.type = 5, .args = {1, 2, 3}})
      .group(0x61)
      .flags(0x62)
      .link(0x141, 9)
      .priv({7, 8})
      .priv_ptr(0x70);
}

qim_node_t action_copy() {
  qim_node_t node{};
  node.links_total = 1;
  node.id = kNode;
  node.group = 0x61;
  node.type = QIM_NODE_ACTION;
  node.flags = 0x62;
  node.priv_len = 2;
  node.priv_ptr = 0x70;
  node.body.action.ln_141 = 9;
  node.body.action.type = 5;
  node.body.action.args_len = 3;
  return node;
}

Case open_case() {
  const auto node = std::make_shared<qim_node_t*>();
  const auto run = [node] {
    static qim_node_t stray;
    *node = &stray;
    return qim_int_node_open(kSes, kNode, nullptr, QIM_NODE_ACTION, node.get(), qim_lib_get());
  };
  // A scratch buffer that cannot be freed leaves the node open.
  const auto check = [node](std::uint32_t returned, const Hit& hit) {
    const bool opened = returned == 0 || hit.call.name == "mem_free";
    ASSERT_EQ(*node != nullptr, opened);
    if (opened) {
      EXPECT_EQ((*node)->body.action.type, 5u);
      EXPECT_EQ(qim_int_node_close(*node, qim_lib_get()), 0u);
    }
  };
  const auto left = [](const Hit& hit) -> std::size_t {
    const std::string& name = hit.call.name;
    return name == "mem_free" || name == "rov_node_ln_field_get" ? 1 : 0;
  };
  return failing("qim_int_node_open",
                 {.prepare = put_action, .run = run, .check = check, .left = left});
}

using Read = std::function<std::uint32_t(qim_node_t*)>;

Case read_case(const char* function, const Read& read) {
  const auto record = std::make_shared<qim_node_t>();
  const auto run = [record, read] {
    spoil(*record);
    return read(record.get());
  };
  const auto check = [record](std::uint32_t returned, const Hit& hit) {
    const bool copied = returned == 0 || (hit.nth != 0 && query_test::hit_close(hit, kBlocks));
    EXPECT_EQ(bytes_of(*record), copied ? bytes_of(action_copy()) : Bytes(sizeof *record));
  };
  const auto left = [](const Hit& hit) { return query_test::left_behind(hit, kBlocks); };
  return failing(function, {.prepare = put_action, .run = run, .check = check, .left = left});
}

Cases reading() {
  return {
      open_case(),
      read_case("qim_node_read",
                [](qim_node_t* out) { return qim_node_read(kSes, kNode, QIM_NODE_ACTION, out); }),
      read_case("qim_node_read_no_nedest",
                [](qim_node_t* out) { return qim_node_read_no_nedest(kSes, kNode, 0, out); }),
      read_case("qim_node_read_int",
                [](qim_node_t* out) { return qim_node_read_int(kSes, kNode, nullptr, 0, out); }),
  };
}

// ---- Freeing ---------------------------------------------------------------------------------

// The same node, opened without a call that could fail.
qim_node_cache_entry_t* an_entry(qim_node_id_t id = kNode) {
  rov_mem_ctx_t* const pool = &qim_lib_get()->db_parms.mem;
  auto* const entry =
      static_cast<qim_node_cache_entry_t*>(fake::allocate(sizeof(qim_node_cache_entry_t), pool));
  entry->ses = kSes;
  entry->node.id = id;
  entry->node.type = QIM_NODE_ACTION;
  entry->node.body.action.args = static_cast<std::uint8_t*>(fake::allocate(3, pool));
  entry->node.body.action.args_len = 3;
  entry->node.priv_buf = static_cast<std::uint8_t*>(fake::allocate(2, pool));
  entry->node.priv_len = 2;
  return entry;
}

// It stops at the first block that cannot be freed.
std::size_t left_of_an_entry(const Hit& hit) {
  return kOwned + 1 - hit.nth;
}

qim_node_cache_entry_t* cached_entry() {
  qim_node_cache_entry_t* const entry = an_entry();
  EXPECT_EQ(qim_node_cache_add(kSes, entry, qim_lib_get()), 0u);
  EXPECT_EQ(node_cache_head, entry);
  return entry;
}

void expect_empty_cache(std::uint32_t, const Hit&) {
  EXPECT_EQ(node_cache_head, nullptr);
  EXPECT_EQ(node_cache_tail, nullptr);
  EXPECT_EQ(node_cache_count, 0);
}

Case freeing_case(const char* function, const std::function<std::uint32_t()>& run,
                  bool returns_it = true) {
  return failing(
      function, {.prepare = [] { node_cache_max = 1; },
                 .run = run,
                 .check = expect_empty_cache,
                 .expected = [returns_it](const Hit&,
                                          std::uint32_t status) { return returns_it ? status : 0; },
                 .left = left_of_an_entry});
}

// Adding evicts the entry that was there. When that one cannot be freed the new one stays the
// caller's and the call succeeds all the same.
Case add_case() {
  const auto added = std::make_shared<qim_node_cache_entry_t*>();
  const auto run = [added] {
    cached_entry();
    *added = an_entry(kNode + 1);
    return qim_node_cache_add(kSes, *added, qim_lib_get());
  };
  const auto check = [added](std::uint32_t, const Hit& hit) {
    EXPECT_EQ(node_cache_head, hit.nth == 0 ? *added : nullptr);
    EXPECT_EQ(node_cache_count, hit.nth == 0 ? 1 : 0);
    if (hit.nth == 0) {
      EXPECT_EQ(qim_node_cache_unlink(kSes, kNode + 1, nullptr), 0u);
    }
    EXPECT_EQ(qim_lib_node_destroy(*added, qim_lib_get()), 0u);
  };
  return failing("qim_node_cache_add", {.prepare = [] { node_cache_max = 1; },
                                        .run = run,
                                        .check = check,
                                        .expected = [](const Hit&, std::uint32_t) { return 0u; },
                                        .left = left_of_an_entry});
}

Cases freeing() {
  return {
      freeing_case("qim_int_node_close",
                   [] { return qim_int_node_close(&an_entry()->node, qim_lib_get()); }),
      freeing_case("qim_lib_node_destroy",
                   [] { return qim_lib_node_destroy(an_entry(), qim_lib_get()); }),
      freeing_case("qim_node_cache_rm",
                   [] {
                     cached_entry();
                     return qim_node_cache_rm(kSes, kNode, qim_lib_get());
                   }),
      freeing_case("qim_node_cache_replace",
                   [] {
                     const qim_node_t copy = cached_entry()->node;
                     return qim_node_cache_replace(kSes, &copy, qim_lib_get());
                   }),
      // Failures are reported and not returned.
      freeing_case(
          "qim_node_cache_destroy",
          [] {
            cached_entry();
            return qim_node_cache_destroy(qim_lib_get());
          },
          false),
      add_case(),
  };
}

// ---- Private data ----------------------------------------------------------------------------

// Before a write the node leaves the cache. Its blocks may fail to be freed: then nothing is
// written.
Case set_case(const char* function, const char* writer, const std::function<std::uint32_t()>& set) {
  const auto check = [writer](std::uint32_t returned, const Hit& hit) {
    expect_empty_cache(returned, hit);
    EXPECT_EQ(fake::count(writer), returned == 0 || hit.call.name == writer ? 1u : 0u);
  };
  const auto left = [](const Hit& hit) -> std::size_t {
    return hit.call.name == "mem_free" ? left_of_an_entry(hit) : 0;
  };
  return failing(function, {.prepare = [] { node_cache_max = 1; },
                            .run =
                                [set] {
                                  cached_entry();
                                  return set();
                                },
                            .check = check,
                            .left = left});
}

Case get_case() {
  const auto buffer = std::make_shared<query_test::Buffer>(2);
  const auto run = [buffer] {
    buffer->refill();
    return qim_node_priv_get(kSes, kNode, buffer->size(), buffer->data());
  };
  const auto check = [buffer](std::uint32_t returned, const Hit&) {
    EXPECT_EQ(buffer->bytes(), returned == 0 ? (Bytes{7, 8}) : Bytes(2, 0xee));
  };
  return failing("qim_node_priv_get", {.prepare = put_action, .run = run, .check = check});
}

Case ptr_get_case() {
  const auto out = std::make_shared<void*>();
  const auto run = [out] {
    *out = out.get();
    return qim_node_priv_ptr_get(kSes, kNode, out.get());
  };
  const auto check = [out](std::uint32_t returned, const Hit&) {
    EXPECT_EQ(*out, returned == 0 ? reinterpret_cast<void*>(std::uintptr_t{0x70}) : out.get());
  };
  return failing("qim_node_priv_ptr_get", {.prepare = put_action, .run = run, .check = check});
}

Case alloc_case() {
  struct Block {
    void* at;
    std::uint32_t size;
  };
  const auto block = std::make_shared<Block>();
  const auto run = [block] {
    *block = {block.get(), 0x5117};
    return qim_tlv_struct_alloc(16, &block->at, &block->size);
  };
  const auto check = [block](std::uint32_t returned, const Hit&) {
    EXPECT_EQ(block->size, returned == 0 ? 16u : 0u);
    EXPECT_EQ(block->at != nullptr, returned == 0);
    if (returned == 0) fake::release(block->at);
  };
  return failing("qim_tlv_struct_alloc", {.prepare = [] {}, .run = run, .check = check});
}

Cases private_data() {
  return {
      set_case("qim_node_priv_set", "rov_node_priv_set",
               [] { return qim_node_priv_set(kSes, kNode, "ab", 2); }),
      set_case("qim_node_priv_ptr_set", "rov_node_priv_ptr_set",
               [] { return qim_node_priv_ptr_set(kSes, kNode, nullptr); }),
      get_case(),
      ptr_get_case(),
      alloc_case(),
  };
}

}  // namespace

Cases node_cases() {
  Cases all;
  for (const auto family : {reading, freeing, private_data}) {
    for (Case& one : family()) all.push_back(std::move(one));
  }
  return all;
}

}  // namespace sweep_test
