// A policy instance and enforcement destinations for it, and the lookups of a destination.
#ifndef TESTS_LIBRARY_QUERY_EDEST_TEST_H
#define TESTS_LIBRARY_QUERY_EDEST_TEST_H

#include <algorithm>
#include <cstring>

#include "tests/library/query/support.h"

namespace query_test {

using Ids = std::vector<std::uint32_t>;
using Names = std::vector<std::string>;

inline constexpr qim_node_id_t kPinst = 0x08300100;
inline constexpr qim_node_id_t kOtherPinst = 0x08300200;
inline constexpr qim_node_id_t kEdest = 0x08300110;
inline constexpr std::uint16_t kBackLink = 0x2c1;

inline constexpr const char* kLookup = "qim_pinst_edest_lookup";

// An enforcement destination of this policy instance at `dest`, under the name that it must bear or
// under none, so that only the walk finds it.
inline fake::Node& put_edest(std::uint32_t id, const qim_policy_dest_t& dest, qim_node_id_t pinst) {
  return fake::node(id).edest().dset_name(name_of(dest)).link(kBackLink, pinst);
}
// The same at that destination, but under a name that is found under another type.
inline fake::Node& put_hidden_edest(std::uint32_t id, const qim_policy_dest_t& dest,
                                    qim_node_id_t pinst = kPinst) {
  return fake::node(id).edest().dset_name(name_of(dest, kType + 1)).link(kBackLink, pinst);
}

class EdestTest : public QueryTest {
 protected:
  void SetUp() override {
    QueryTest::SetUp();
    put_pinst({});
    spoil(out_);
  }

  // The policy instance in the database with these referrers, and the test's copy of it.
  static void put_pinst_node(const Ids& referrers) {
    fake::node(kPinst)
        .pinst()
        .dset_name(name_of(at_service(0x77)))
        .link(kBackLink, 0x08300001)
        .referrers(referrers);
  }
  void put_pinst(const Ids& referrers) {
    put_pinst_node(referrers);
    EXPECT_EQ(qim_node_read(kSes, kPinst, QIM_NODE_PINST, &pinst_), 0u);
    fake::clear_calls();
  }

  std::uint32_t lookup(const qim_policy_dest_t& dest) {
    return qim_pinst_edest_lookup(kSes, &pinst_, &dest, &out_);
  }

  // What copying this node into a spoilt record gives.
  static Bytes copy_of(qim_node_id_t id) {
    qim_node_t expected;
    spoil(expected);
    qim_node_t* node = nullptr;
    EXPECT_EQ(qim_int_node_open(kSes, id, nullptr, 0, &node, ctx()), 0u);
    EXPECT_EQ(qim_node_cp(kSes, node, &expected), 0u);
    EXPECT_EQ(qim_int_node_close(node, ctx()), 0u);
    return bytes_of(expected);
  }

  void expect_found(qim_node_id_t id) { EXPECT_EQ(bytes_of(out_), copy_of(id)); }
  void expect_untouched() { EXPECT_EQ(bytes_of(out_), Bytes(sizeof out_, 0xee)); }

  // The nodes that were opened, in order.
  static Ids opened() {
    Ids ids;
    for (const fake::Call& made : fake::calls_of("rov_node_parms_get")) {
      rov_node_id_t id;
      for (std::size_t word = 0; word < 4; ++word) id.word[word] = made.u32(1 + word);
      ids.push_back(fake::node_of(id));
    }
    return ids;
  }

  static std::ptrdiff_t position(std::string_view name) {
    const Names names = fake::names();
    return std::find(names.begin(), names.end(), name) - names.begin();
  }

  qim_node_t pinst_;
  qim_node_t out_;
};

}  // namespace query_test

#endif
