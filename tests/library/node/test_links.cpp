// Resolving a node's links into the places of its body: which links are asked for, in which order,
// where they go, and what a missing, failing or ill-formed one does.

#include <cstddef>
#include <cstring>
#include <functional>

#include "rov.h"
#include "tests/library/node/support.h"
#include "tests/support/fake/records.h"

namespace {

using fake::any;
using fake::call;
using fake::report;
using node_test::Bytes;
using node_test::bytes_of;
using node_test::kFailure;
using node_test::kInternal;
using node_test::kNode;
using node_test::kSes;

using Texts = std::vector<std::string>;

struct Place {
  std::uint16_t code;
  bool full;
  std::uint32_t position;  // in the body

  std::uint32_t width() const { return full ? sizeof(qim_link_t) : sizeof(qim_node_id_t); }
};

struct Resolver {
  const char* name;  // of the type
  const char* function;
  std::function<void(fake::Node&)> make;
  std::vector<Place> places;
};

void PrintTo(const Resolver& resolver, std::ostream* os) {
  *os << resolver.name;
}

// The slots of a type, in the order in which they are resolved: that of their positions.
std::vector<Place> places_of(std::string_view type) {
  std::vector<Place> places;
  for (const fake::TypeLayout& known : fake::type_layouts) {
    if (known.name != type) continue;
    const fake::RecordLayout& record = fake::record_layout(known.kind);
    for (const fake::RecordMember& member : record.members) {
      if (!member.is_slot()) continue;
      places.push_back({fake::link_code(member), member.is == fake::Is::full, record.here(member)});
    }
  }
  return places;
}

Resolver resolver(const char* name, const char* function, std::function<void(fake::Node&)> make) {
  return {name, function, std::move(make), places_of(name)};
}

const std::vector<Resolver> kResolvers = {
    resolver("Filter", "qim_filter_links_get", [](auto& n) { n.filter({}); }),
    resolver("Action", "qim_action_links_get", [](auto& n) { n.action({}); }),
    resolver("Ifelse", "qim_ifelse_links_get", [](auto& n) { n.ifelse(); }),
    resolver("Hfilter", "qim_hfilter_links_get", [](auto& n) { n.hfilter({}); }),
    resolver("Haction", "qim_haction_links_get", [](auto& n) { n.haction({}); }),
    resolver("Police", "qim_police_links_get", [](auto& n) { n.police({}); }),
    resolver("Group", "qim_group_links_get", [](auto& n) { n.group_body({}); }),
    resolver("Def", "qim_def_links_get", [](auto& n) { n.def({}); }),
    resolver("Pinst", "qim_pinst_dsetname_get", [](auto& n) { n.pinst(); }),
    resolver("Edest", "qim_pinst_dsetname_get", [](auto& n) { n.edest(); }),
    resolver("Dset", "qim_pinst_dsetname_get", [](auto& n) { n.data_set().dset_name(Bytes(21)); }),
};

class NodeLinks : public node_test::NodeTest, public testing::WithParamInterface<Resolver> {
 protected:
  const std::vector<Place>& places() const { return GetParam().places; }

  // The node with every link of its type, the n-th leading to 0x100 + n, and one that no place
  // holds.
  fake::Node& make() {
    fake::Node& made = fake::node(kNode);
    GetParam().make(made);
    for (std::size_t i = 0; i < places().size(); ++i) made.link(places()[i].code, link_of(i));
    return made.link(0x7c1, 5);
  }

  fake::Link link_of(std::size_t i) const {
    const auto n = static_cast<std::uint32_t>(i);
    fake::Link link{.node = 0x100 + n, .tag = static_cast<std::uint16_t>(0x400 + n)};
    if (places()[i].full) {
      link.node2 = 0x200 + n;
      link.val = 0x300 + n;
    }
    return link;
  }

  // The bytes that the i-th place holds when its link is there.
  Bytes filled(std::size_t i) const {
    const fake::Link link = link_of(i);
    if (!places()[i].full) return bytes_of(link.node);
    return bytes_of(qim_link_t{link.node, link.node2, link.val, link.tag, places()[i].code});
  }

  Bytes found(std::size_t i) const {
    const Bytes body = bytes_of(node()->body);
    const auto from = body.begin() + places()[i].position;
    return Bytes(from, from + places()[i].width());
  }

  bool is_data_set() const { return std::string(GetParam().name) == "Dset"; }
  bool is_pinst() const { return is_data_set() || places()[0].code == 0x2c1; }

  // Reports of open and decode above a failed resolver.
  Texts above(std::uint32_t status) const {
    if (is_data_set()) return {report(status, "qim_int_node_open", 541)};
    return {report(status, "qim_node_from_tlva", is_pinst() ? 337 : 370),
            report(status, "qim_int_node_open", 549)};
  }
};

INSTANTIATE_TEST_SUITE_P(, NodeLinks, testing::ValuesIn(kResolvers), node_test::name_of<Resolver>);

TEST_P(NodeLinks, are_asked_for_by_the_nodes_own_identifier_in_the_order_of_the_type) {
  make();
  opened(kNode);
  fake::Calls expected;
  for (const Place& place : places()) {
    expected.push_back(call("rov_node_ln_field_get", kSes, fake::id(kNode), place.code, any));
  }
  EXPECT_EQ(fake::calls_of("rov_node_ln_field_get"), expected);
  close();
}

TEST_P(NodeLinks, go_to_their_places_in_the_body) {
  make();
  opened(kNode);
  for (std::size_t i = 0; i < places().size(); ++i) EXPECT_EQ(found(i), filled(i)) << i;
  close();
}

TEST_P(NodeLinks, count_down_the_links_that_no_place_holds) {
  make();
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(node.links_total, places().size() + 1);
  EXPECT_EQ(node.links_unfixed, 1u);
  close();
}

TEST_P(NodeLinks, that_are_missing_leave_their_place_zero_and_the_count_as_it_was) {
  for (std::size_t missing = 0; missing < places().size(); ++missing) {
    SCOPED_TRACE(missing);
    make();
    fake::fail("rov_node_ln_field_get", ROV_ERR_NO_LINK, static_cast<unsigned>(missing + 1));
    const qim_node_t& node = opened(kNode);
    for (std::size_t i = 0; i < places().size(); ++i) {
      EXPECT_EQ(found(i), i == missing ? Bytes(places()[i].width()) : filled(i)) << i;
    }
    EXPECT_EQ(node.links_unfixed, 2u);
    close();
    fake::remove_node(kNode);
  }
}

TEST_P(NodeLinks, may_all_be_missing) {
  fake::node(kNode).links_total(9);
  GetParam().make(fake::node(kNode));
  const qim_node_t& node = opened(kNode);
  EXPECT_EQ(node.links_unfixed, 9u);
  for (std::size_t i = 0; i < places().size(); ++i) {
    EXPECT_EQ(found(i), Bytes(places()[i].width())) << i;
  }
  EXPECT_EQ(fake::count("rov_node_ln_field_get"), places().size());
  close();
}

TEST_P(NodeLinks, that_fail_stop_the_resolver_and_fail_the_open) {
  make();
  for (std::size_t failing = 0; failing < places().size(); ++failing) {
    SCOPED_TRACE(failing);
    fake::clear_calls();
    const std::size_t before = fake::reports().size();
    fake::fail("rov_node_ln_field_get", kFailure, static_cast<unsigned>(failing + 1));
    EXPECT_EQ(open(kNode), kFailure);
    EXPECT_EQ(node(), nullptr);
    EXPECT_EQ(fake::count("rov_node_ln_field_get"), failing + 1);
    Texts expected = {report(kFailure, "qim_link_field_get", 1038),
                      report(kFailure, "qim_list_get_fixed", 151)};
    if (!places()[failing].full) expected.push_back(report(kFailure, "qim_link_get_fixed", 183));
    expected.push_back(report(kFailure, GetParam().function, 210 + static_cast<int>(failing)));
    for (const std::string& text : above(kFailure)) expected.push_back(text);
    const Texts texts = fake::report_texts();
    EXPECT_EQ(Texts(texts.begin() + static_cast<std::ptrdiff_t>(before), texts.end()), expected);
  }
}

// Only a missing link is no failure, whatever else the database says.
TEST_P(NodeLinks, are_missing_by_one_status_only) {
  make();
  for (const std::uint32_t status : {0x41170006u, 0x4117000eu, 0x41170010u, 0x4116000fu, 0xfu}) {
    fake::fail("rov_node_ln_field_get", status);
    EXPECT_EQ(open(kNode), status);
  }
}

// ---- Bare identifiers ------------------------------------------------------------------------

class NodeSingleLinks : public NodeLinks {};

std::vector<Resolver> with_single_links() {
  std::vector<Resolver> found;
  for (const Resolver& resolver : kResolvers) {
    if (!resolver.places[0].full) found.push_back(resolver);
  }
  return found;
}

INSTANTIATE_TEST_SUITE_P(, NodeSingleLinks, testing::ValuesIn(with_single_links()),
                         node_test::name_of<Resolver>);

TEST_P(NodeSingleLinks, that_carry_a_second_node_or_a_value_are_refused) {
  for (const bool second : {true, false}) {
    make().link(places()[0].code,
                {.node = 9, .node2 = second ? 8u : 0u, .val = second ? 0u : 0x80000000u});
    fake::clear_calls();
    const std::size_t before = fake::reports().size();
    EXPECT_EQ(open(kNode), kInternal);
    EXPECT_EQ(node(), nullptr);
    EXPECT_EQ(fake::count("rov_node_ln_field_get"), 1u);
    Texts expected = {report(kInternal, "qim_link_get_fixed", 189),
                      report(kInternal, GetParam().function, 210)};
    for (const std::string& text : above(kInternal)) expected.push_back(text);
    const Texts texts = fake::report_texts();
    EXPECT_EQ(Texts(texts.begin() + static_cast<std::ptrdiff_t>(before), texts.end()), expected);
  }
}

TEST_P(NodeSingleLinks, that_carry_more_are_reported_whatever_the_debug_bit) {
  report_only_unconditionally();
  make().link(places()[0].code, {.node = 9, .val = 1});
  EXPECT_EQ(open(kNode), kInternal);
  EXPECT_EQ(fake::report_texts(), (Texts{report(kInternal, "qim_link_get_fixed", 189)}));
}

TEST_P(NodeSingleLinks, that_carry_more_without_leading_anywhere_are_refused_too) {
  make().link(places()[0].code, {.node = 0, .val = 1});
  EXPECT_EQ(open(kNode), kInternal);
}

TEST_P(NodeSingleLinks, may_carry_a_tag) {
  make().link(places()[0].code, {.node = 9, .tag = 0xffff});
  opened(kNode);
  EXPECT_EQ(found(0), bytes_of(qim_node_id_t{9}));
  close();
}

TEST_P(NodeSingleLinks, take_nothing_from_an_entry_that_was_not_cleared) {
  fake::settings().zero_ary = false;
  GetParam().make(fake::node(kNode));
  opened(kNode);
  EXPECT_EQ(found(0), Bytes(4));
  close();
}

}  // namespace
