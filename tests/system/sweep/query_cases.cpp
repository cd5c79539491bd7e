// The variable parts of nodes, and the policy instances of data sets.

#include <gtest/gtest.h>

#include <memory>

#include "qim.h"
#include "tests/library/query/support.h"
#include "tests/system/sweep/cases.h"

namespace sweep_test {
namespace {

using fake::Hit;
using fake::kSes;
using query_test::Buffer;
using query_test::Bytes;
using query_test::bytes_of;
using query_test::NodeBlocks;
using query_test::spoil;

constexpr qim_node_id_t kQueried = 0x08300030;

// ---- Variable parts --------------------------------------------------------------------------

using Get = std::uint32_t (*)(std::uint32_t ses, qim_node_id_t node, std::uint32_t len, void* buf);

// A buffer is filled, or not touched. A node that cannot be closed costs nothing.
Case part_case(const char* function, Get get, const std::function<void()>& prepare,
               std::size_t room, const std::function<void(Buffer&)>& expect_part,
               NodeBlocks blocks) {
  const auto buffer = std::make_shared<Buffer>(room);
  const auto run = [buffer, get] {
    buffer->refill();
    return get(kSes, kQueried, buffer->size(), buffer->data());
  };
  const auto check = [buffer, expect_part](std::uint32_t returned, const Hit&) {
    if (returned == 0) {
      expect_part(*buffer);
    } else {
      EXPECT_TRUE(buffer->untouched());
    }
  };
  const auto expected = [blocks](const Hit& hit, std::uint32_t status) {
    return query_test::hit_close(hit, blocks) ? 0 : status;
  };
  const auto left = [blocks](const Hit& hit) { return query_test::left_behind(hit, blocks); };
  return failing(
      function,
      {.prepare = prepare, .run = run, .check = check, .expected = expected, .left = left});
}

void expect_args(Buffer& buffer) {
  EXPECT_EQ(buffer.bytes(), (Bytes{1, 2, 3}));
}

void expect_criterion(Buffer& buffer) {
  const auto* const first = reinterpret_cast<const qim_criterion_t*>(buffer.data());
  EXPECT_EQ(first->next, nullptr);
  EXPECT_EQ(first->type, 5u);
  ASSERT_EQ(first->args_len, 3u);
  EXPECT_EQ(Bytes(first->args, first->args + 3), (Bytes{1, 2, 3}));
}

void put_short_action() {
  fake::node(kQueried).action({.type = 1, .args = {1, 2, 3}}).link(0x141, 9);
}
void put_def() {
  fake::node(kQueried).def({.type = 1, .args = {1, 2, 3}}).link(0x301, 9).link(0x302, 9);
}
void put_filter() {
  fake::node(kQueried).filter({.match = 1, .criteria = {{5, {1, 2, 3}}}}).link(0x081, 9);
}

Cases parts() {
  const NodeBlocks args = {.scratch = 1, .decoded = 1, .priv = false};
  const NodeBlocks criterion = {.scratch = 1, .decoded = 2, .priv = false};
  return {
      part_case("qim_action_arg_get", qim_action_arg_get, put_short_action, 3, expect_args, args),
      part_case("qim_def_arg_get", qim_def_arg_get, put_def, 3, expect_args, args),
      part_case("qim_filter_criteria_get", qim_filter_criteria_get, put_filter, 35,
                expect_criterion, criterion),
  };
}

// ---- The whole node --------------------------------------------------------------------------

// Two opens, of which the second's close does not matter, and a read of private data between them.
Case readall_case() {
  const NodeBlocks blocks = {.scratch = 1, .decoded = 1, .priv = true};
  const auto out = std::make_shared<qim_node_t>();
  const auto buffer = std::make_shared<Buffer>(16);
  const auto run = [out, buffer] {
    buffer->refill();
    spoil(*out);
    return qim_node_readall(kSes, kQueried, 0, out.get(), 16, buffer->data());
  };
  const auto check = [out, buffer](std::uint32_t returned, const Hit&) {
    const std::uint8_t* const start = buffer->data();
    EXPECT_TRUE(out->priv_buf == nullptr || out->priv_buf == start) << "self-contained";
    if (returned != 0) return;
    EXPECT_EQ(out->priv_buf, start);
    EXPECT_EQ(buffer->bytes(0, 2), (Bytes{7, 8}));
    EXPECT_EQ(out->body.action.args, start + 8);
    EXPECT_EQ(buffer->bytes(8, 3), (Bytes{1, 2, 3}));
  };
  const auto prepare = [] {
    put_short_action();
    fake::node(kQueried).priv({7, 8});
  };
  const auto expected = [blocks](const Hit& hit, std::uint32_t status) {
    return query_test::hit_close(hit, blocks) && hit.nth > blocks.freed() ? 0 : status;
  };
  const auto left = [blocks](const Hit& hit) { return query_test::left_behind(hit, blocks); };
  return failing(
      "qim_node_readall",
      {.prepare = prepare, .run = run, .check = check, .expected = expected, .left = left});
}

// ---- Data sets -------------------------------------------------------------------------------

void put_data_set() {
  fake::node(kQueried)
      .data_set()
      .dset_name(query_test::name_of(query_test::at_interface(5)))
      .link(0x2c1, 9)
      .priv({7, 8});
}

qim_node_t data_set_copy() {
  qim_node_t node{};
  node.links_total = 1;
  node.id = kQueried;
  node.type = QIM_NODE_DSET;
  node.priv_len = 2;
  node.body.pinst.fields.dest = query_test::at_interface(5);
  node.body.pinst.fields.dir = query_test::kDir;
  node.body.pinst.fields.type = query_test::kType;
  node.body.pinst.ln_2c1.node = 9;
  node.body.pinst.ln_2c1.field = 0x2c1;
  return node;
}

using Query = std::function<std::uint32_t(qim_node_t*)>;

Case pinst_case(const char* function, const char* lookup, const Query& query) {
  const auto out = std::make_shared<qim_node_t>();
  const auto run = [out, query] {
    spoil(*out);
    return query(out.get());
  };
  // Frees: the name, which leaves an open node behind; then the private data and the node.
  const auto check = [out, lookup](std::uint32_t returned, const Hit& hit) {
    const bool copied = returned == 0 || (hit.call.name == "mem_free" && hit.nth != 1);
    const std::uint8_t untouched = hit.call.name == lookup ? 0xee : 0;
    EXPECT_EQ(bytes_of(*out), copied ? bytes_of(data_set_copy()) : Bytes(sizeof *out, untouched));
  };
  const auto left = [](const Hit& hit) -> std::size_t {
    return hit.call.name == "mem_free" ? 4 - hit.nth : 0;
  };
  return failing(function, {.prepare = put_data_set, .run = run, .check = check, .left = left});
}

Cases data_sets() {
  return {
      pinst_case("qim_ses_pinst_get", "rov_ses_dset_get",
                 [](qim_node_t* out) { return qim_ses_pinst_get(kSes, 0, out); }),
      pinst_case("qim_ses_pinst_name_get", "rov_ses_dset_name_get",
                 [](qim_node_t* out) {
                   const qim_pinst_t key = data_set_copy().body.pinst;
                   return qim_ses_pinst_name_get(kSes, &key, out);
                 }),
      pinst_case("qim_node_pinst_get", "rov_node_dset_get",
                 [](qim_node_t* out) { return qim_node_pinst_get(kSes, kQueried, 0, out); }),
  };
}

}  // namespace

Cases query_cases() {
  Cases all = parts();
  all.push_back(readall_case());
  for (Case& one : data_sets()) all.push_back(std::move(one));
  return all;
}

}  // namespace sweep_test
