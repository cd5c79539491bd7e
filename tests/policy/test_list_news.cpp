// What became of access lists, in words.
#include "policy/change/list_news.h"

#include <gmock/gmock.h>

#include "tests/policy/lists_support.h"

namespace {

using lists_test::list;
using lists_test::model;
using qimctl::Model;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> changes(const Model& before, const Model& after) {
  std::vector<std::string> lines;
  for (const qimctl::ListNews& change : list_news(before, after))
    lines.push_back(to_string(change, 9));
  return lines;
}

TEST(ListChanges, none_of_the_same) {
  const Model one = model({list("guard", {"a", "b drop"})}, {"guard eth0/in"});
  EXPECT_THAT(changes(one, one), IsEmpty());
}

TEST(ListChanges, lists_come_and_go) {
  EXPECT_THAT(changes(model({list("old", {"a", "b"}), list("one", {"a"})}),
                      model({list("new", {"a"})}, {"new eth0/in"})),
              ElementsAre("new: new, 1 entry, attached to if:eth0/in",
                          "old: deleted, it had 2 entries", "one: deleted, it had 1 entry"));
}

TEST(ListChanges, entries_come_go_and_change) {
  EXPECT_THAT(changes(model({list("l", {"iface", "ftp drop", "web port=80"})}),
                      model({list("l", {"ftp drop log", "web port=81", "x y"})})),
              ElementsAre("l: -iface, ftp drop -> drop log, "
                          "web: tcp to any port 80 -> tcp to any port 81, +x: any accept"));
}

TEST(ListChanges, few_entries_move) {
  EXPECT_THAT(
      changes(model({list("l", {"a", "b", "c", "d"})}), model({list("l", {"d", "a", "b", "c"})})),
      ElementsAre("l: d moved"));
  EXPECT_THAT(changes(model({list("l", {"a", "b", "c", "d", "e"})}),
                      model({list("l", {"b", "c", "a", "e", "d"})})),
              ElementsAre("l: a moved, e moved"));
}

TEST(ListChanges, what_reads_the_same_is_told_too) {
  Model before = model({list("l", {"a port=22"})});
  Model after = before;
  after.lists[0].entries[0].criteria.push_back({0x0500, {}});
  EXPECT_THAT(changes(before, after), ElementsAre("l: a is stored differently"));
}

TEST(ListChanges, types_defaults_and_places) {
  Model before = model({list("l", {}), list("m", {})}, {"l eth0/in", "m eth0/in", "l eth1/out"});
  Model after = model({list("l", {}), list("m", {})}, {"m eth0/in", "l eth0/in"});
  after.lists[0].type = qimctl::acl_type_ipv6;
  after.lists[0].default_action = qimctl::ActionType::accept;
  before.lists[0].type = 0;
  EXPECT_THAT(changes(before, after),
              ElementsAre("l: type any -> ipv6, default drop -> accept, detached from "
                          "if:eth1/out, stage 1 -> 2 at if:eth0/in",
                          "m: stage 2 -> 1 at if:eth0/in"));
}

TEST(ListChanges, policers) {
  Model before = model({});
  Model after = before;
  before.policers = {{"gold", qimctl::Policer::Unit::bytes, 1, 0, 0, 0}, {"tin", {}, 1, 0, 0, 0}};
  after.policers = {{"gold", qimctl::Policer::Unit::bytes, 2, 0, 0, 0},
                    {"new one", qimctl::Policer::Unit::packets, 5, 0, 0, 0}};
  EXPECT_THAT(changes(before, after),
              ElementsAre("policer gold: 1 bytes/s -> 2 bytes/s",
                          "policer \"new one\": new, 5 packets/s", "policer tin: deleted"));
}

TEST(ListChanges, many_are_cut_short) {
  EXPECT_EQ(to_string({"l", {"a", "b", "c"}}, 1), "l: a, and 2 more");
}

}  // namespace
