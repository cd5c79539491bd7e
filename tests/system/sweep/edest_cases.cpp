// The enforcement destinations of a policy instance.

#include <gtest/gtest.h>

#include <memory>

#include "tests/library/query/edest_test.h"
#include "tests/system/sweep/cases.h"

namespace sweep_test {
namespace {

using fake::Hit;
using fake::kSes;
using query_test::kEdest;
using query_test::kPinst;

qim_policy_dest_t place() {
  return query_test::at_interface(0x11223344);
}

// A policy instance with a destination that the name leads to, or with one that only its referrers
// lead to.
void put_named() {
  fake::node(kPinst)
      .pinst()
      .dset_name(query_test::name_of(query_test::at_service(0x77)))
      .referrers({kEdest});
  query_test::put_edest(kEdest, place(), kPinst);
}
void put_hidden() {
  put_named();
  query_test::put_hidden_edest(kEdest, place());
}

qim_node_t pinst_copy() {
  qim_node_t node{};
  node.id = kPinst;
  node.type = QIM_NODE_PINST;
  node.refs = 1;
  node.body.pinst.fields.type = query_test::kType;
  node.body.pinst.fields.dir = query_test::kDir;
  return node;
}

using Find = std::function<std::uint32_t(qim_node_t*)>;

// What was found is copied out before it is closed; nothing is touched otherwise.
Case edest_case(const char* function, const std::function<void()>& prepare, const Find& find,
                const std::function<std::size_t(const Hit&)>& left) {
  const auto out = std::make_shared<qim_node_t>();
  const auto run = [out, find] {
    query_test::spoil(*out);
    return find(out.get());
  };
  const auto check = [out](std::uint32_t returned, const Hit& hit) {
    const bool closing = hit.call.name == "mem_free" && query_test::hit_node(hit);
    if (returned == 0 || closing) {
      EXPECT_EQ(out->id, kEdest);
      EXPECT_EQ(out->body.pinst.ln_2c1.node, kPinst);
    } else {
      EXPECT_EQ(query_test::bytes_of(*out), query_test::Bytes(sizeof *out, 0xee));
    }
  };
  // How many data sets a session has only decides on the way that is taken.
  const auto expected = [](const Hit& hit, std::uint32_t status) {
    return hit.call.name == "rov_ses_get_num_dsets" ? 0 : status;
  };
  return failing(
      function,
      {.prepare = prepare, .run = run, .check = check, .expected = expected, .left = left});
}

std::size_t the_block_alone(const Hit& hit) {
  return hit.call.name == "mem_free" ? 1 : 0;
}

// The scratch of the policy instance comes first and leaves that one open.
std::size_t or_the_policy_instance(const Hit& hit) {
  if (hit.call.name != "mem_free") return 0;
  return hit.nth <= 2 ? 2 : 1;
}

// Scratch that cannot be freed leaves the destination open.
std::size_t or_the_destination(const Hit& hit) {
  if (hit.call.name != "mem_free") return 0;
  return query_test::hit_node(hit) ? 1 : 2;
}

std::uint32_t lookup(qim_node_t* out) {
  const qim_node_t pinst = pinst_copy();
  const qim_policy_dest_t dest = place();
  return qim_pinst_edest_lookup(kSes, &pinst, &dest, out);
}

std::uint32_t by_identifier(qim_node_t* out) {
  const qim_policy_dest_t dest = place();
  return qim_pinst_edest_name_get(kSes, kPinst, &dest, out);
}

std::uint32_t counting(qim_node_t* out) {
  std::uint32_t count = 0x5117;
  const std::uint32_t status = qim_pinst_edest_get_int(kSes, kPinst, 0, out, &count);
  EXPECT_EQ(count, 0u);
  return status;
}

}  // namespace

Cases edest_cases() {
  constexpr const char* kLookup = "qim_pinst_edest_lookup";
  constexpr const char* kByIdentifier = "qim_pinst_edest_name_get";
  return {
      both(edest_case(kLookup, put_named, lookup, the_block_alone),
           edest_case(kLookup, put_hidden, lookup, the_block_alone)),
      both(edest_case(kByIdentifier, put_named, by_identifier, or_the_policy_instance),
           edest_case(kByIdentifier, put_hidden, by_identifier, or_the_policy_instance)),
      edest_case("qim_pinst_edest_get_int", put_named, counting, or_the_destination),
      edest_case(
          "qim_pinst_edest_get", put_named,
          [](qim_node_t* out) { return qim_pinst_edest_get(kSes, kPinst, 0, out); },
          or_the_destination),
  };
}

}  // namespace sweep_test
