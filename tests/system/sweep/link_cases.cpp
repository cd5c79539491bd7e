// Links and referrers of a node.

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "qim.h"
#include "tests/library/query/support.h"
#include "tests/system/sweep/cases.h"

namespace sweep_test {
namespace {

using fake::Hit;
using fake::kSes;

constexpr qim_node_id_t kLinked = 0x08300007;
constexpr qim_node_id_t kStrayNode = 0x5117;
constexpr std::uint16_t kField = 0x0081;
constexpr std::uint16_t kOptional = 0x8081;

using GetLink = std::function<std::uint32_t(qim_link_t*)>;

Case link_case(const char* function, std::uint16_t field, const GetLink& get) {
  const auto link = std::make_shared<qim_link_t>();
  const auto run = [link, get] {
    query_test::spoil(*link);
    return get(link.get());
  };
  const auto check = [link, field](std::uint32_t returned, const Hit&) {
    const qim_link_t expected = returned == 0 ? qim_link_t{9, 10, 11, 12, field} : qim_link_t{};
    EXPECT_EQ(query_test::bytes_of(*link), query_test::bytes_of(expected));
  };
  const auto prepare = [field] {
    fake::node(kLinked).link(field, {.node = 9, .node2 = 10, .val = 11, .tag = 12});
  };
  return failing(function, {.prepare = prepare, .run = run, .check = check});
}

using GetRef = std::uint32_t (*)(std::uint32_t, qim_node_id_t, std::uint32_t, qim_node_id_t*);

Case ref_case(const char* function, GetRef get) {
  const auto ref = std::make_shared<qim_node_id_t>();
  const auto run = [ref, get] {
    *ref = kStrayNode;
    return get(kSes, kLinked, 1, ref.get());
  };
  const auto check = [ref](std::uint32_t returned, const Hit&) {
    EXPECT_EQ(*ref, returned == 0 ? 0x20u : 0u);
  };
  return failing(function, {.prepare =
                                [] {
                                  fake::node(kLinked).referrers({0x10, 0x20});
                                },
                            .run = run,
                            .check = check});
}

struct Refs {
  qim_node_id_t stray = kStrayNode;
  qim_node_id_t* at = nullptr;
  std::uint32_t count = 0;
};

Case all_refs_case() {
  const auto refs = std::make_shared<Refs>();
  const auto run = [refs] {
    refs->at = &refs->stray;
    refs->count = kStrayNode;
    qim_node_t node{};
    node.id = kLinked;
    node.refs = 2;
    return qim_ref_get_all(kSes, &node, &refs->at, &refs->count);
  };
  const auto check = [refs](std::uint32_t returned, const Hit&) {
    if (returned != 0) {
      EXPECT_EQ(refs->at, nullptr);
      EXPECT_EQ(refs->count, 0u);
      return;
    }
    ASSERT_EQ(refs->count, 2u);
    EXPECT_EQ(refs->at[0], 0x10u);
    EXPECT_EQ(refs->at[1], 0x20u);
    std::free(refs->at);
  };
  return failing("qim_ref_get_all", {.prepare =
                                         [] {
                                           fake::node(kLinked).referrers({0x10, 0x20});
                                         },
                                     .run = run,
                                     .check = check});
}

}  // namespace

Cases link_cases() {
  return {
      link_case("qim_link_field_get", kField,
                [](qim_link_t* link) { return qim_link_field_get(kSes, kLinked, kField, link); }),
      link_case("qim_link_get", kField,
                [](qim_link_t* link) { return qim_link_get(kSes, kLinked, kField, link); }),
      link_case("qim_link_opt_get", kOptional,
                [](qim_link_t* link) { return qim_link_opt_get(kSes, kLinked, kField, link); }),
      // Codes of this kind are in no record.
      link_case("qim_link_val", kOptional,
                [](qim_link_t* link) {
                  qim_node_t node{};
                  node.id = kLinked;
                  node.type = QIM_NODE_FILTER;
                  return qim_link_val(kSes, &node, kOptional, link);
                }),
      ref_case("qim_ref_get", qim_ref_get),
      ref_case("qim_node_ref_get", qim_node_ref_get),
      all_refs_case(),
  };
}

}  // namespace sweep_test
