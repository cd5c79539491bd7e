// Which packets two policies decide differently, and how that is said.
#include "policy/analysis/difference.h"

#include "tests/policy/trace/trace_support.h"

namespace {

using namespace qimctl;
using trace_test::entry;
using trace_test::list;
using trace_test::model_of;

Model model_with(const std::string& entries) {
  return model_of(R"("acl":[)" + list("l", entries) + "]");
}

using Texts = std::vector<std::string>;

// "PLACE: WORDS: BEFORE -> AFTER, EXAMPLE" of each region.
Texts regions(const Model& before, const Model& after, const AnalysisLimits& limits = {}) {
  Texts texts;
  for (const PlaceDifference& place : semantic_difference(before, after, limits)) {
    for (const DifferentRegion& region : place.differences.regions)
      texts.push_back(place.place + ": " + region.words + ": " + verdict_text(region.before) +
                      " -> " + verdict_text(region.after) + ", " + region.example);
    if (!place.differences.complete) texts.push_back(place.place + ": gave up");
  }
  return texts;
}

const std::string net = R"("ipv4":{"destination-ipv4-network":"10.0.0.0/8"})";

TEST(Difference, NothingWhereTheSameIsSaidInAnotherWay) {
  const std::string halves =
      entry("a", R"("ipv4":{"destination-ipv4-network":"10.0.0.0/9"})", "accept") + "," +
      entry("b", R"("ipv4":{"destination-ipv4-network":"10.128.0.0/9"})", "accept");
  EXPECT_EQ(regions(model_with(entry("n", net, "accept")), model_with(halves)), Texts{});
}

TEST(Difference, SaysWhichPacketsAndShowsOne) {
  EXPECT_EQ(regions(model_with(entry("n", net, "accept")), model_with("")),
            Texts{"list l: ipv4 to 10.0.0.0/8: accept -> drop, tcp 192.0.2.1 > 10.0.0.0"});
  const std::string ssh = R"("tcp":{"destination-port":{"lower-port":22,"upper-port":23}})";
  EXPECT_EQ(
      regions(model_with(entry("n", net, "accept")),
              model_with(entry("s", ssh, "reject") + "," + entry("n", net, "accept"))),
      (Texts{"list l: ipv4 tcp to 10.0.0.0/8 destination-port 22-23: accept -> reject, "
             "tcp 192.0.2.1 > 10.0.0.0:22",
             "list l: ipv4 tcp to 0.0.0.0-9.255.255.255 destination-port 22-23: drop -> reject, "
             "tcp 192.0.2.1 > 0.0.0.0:22",
             "list l: ipv4 tcp to 11.0.0.0-255.255.255.255 destination-port 22-23: drop -> reject, "
             "tcp 192.0.2.1 > 198.51.100.1:22",
             "list l: ipv6 tcp destination-port 22-23: drop -> reject, "
             "tcp 2001:db8::1 > [2001:db8::2]:22"}));
}

TEST(Difference, OfDefaultsIsAllThatIsLeft) {
  const Model before = model_with("");
  Model after = before;
  after.lists[0].default_action = ActionType::accept;
  EXPECT_EQ(regions(before, after),
            Texts{"list l: any: drop -> accept, tcp 192.0.2.1 > 198.51.100.1"});
}

TEST(Difference, OfPlacesCountsWhatIsAskedThere) {
  const std::string points =
      R"(,"attachment-points":{"interface":[{"interface-id":"eth0","ingress":{"acl-sets":)"
      R"({"acl-set":[{"name":"l"}]}}}]})";
  const std::string entries =
      entry("own", R"("ingress-interface":"eth0","icmp":{"type":8})", "accept") + "," +
      entry("other", R"("ingress-interface":"eth1")", "accept");
  const std::string lists = R"("acl":[)" + list("l", entries) + "]";
  EXPECT_EQ(
      regions(model_of(lists + points), model_of(R"("acl":[)" + list("l", "") + "]" + points)),
      (Texts{"if:eth0/in: icmp type 8: accept -> drop, entering eth0 icmp 192.0.2.1 > "
             "198.51.100.1 type 8",
             "if:eth0/in: icmp6 type 8: accept -> drop, entering eth0 icmp6 2001:db8::1 > "
             "2001:db8::2 type 8"}));
}

}  // namespace
