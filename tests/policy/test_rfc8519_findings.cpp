// What cannot be carried is said, and never makes a rule wider than it was.
#include "tests/policy/rfc8519_support.h"

namespace {

using qimctl::Fate;
using rfc8519_test::document;
using rfc8519_test::entry;
using rfc8519_test::Finding;
using rfc8519_test::findings;
using rfc8519_test::list_of;
using rfc8519_test::name_of;
using rfc8519_test::of_type;
using rfc8519_test::Policy;
using rfc8519_test::read;

// The only finding of a fate; fails the test and gives an empty one when there is another number.
Finding only(const Policy& policy, Fate fate) {
  const auto found = findings(policy, fate);
  EXPECT_EQ(found.size(), 1u);
  return found.empty() ? Finding{} : *found.front();
}

std::string names(const Policy& policy) {
  std::string text;
  for (const auto* filter : of_type(policy, QIM_NODE_FILTER))
    text += name_of(policy, *filter) + " ";
  return text;
}

struct Obstacle {
  const char* matches;
  const char* actions;
  const char* path;  // the end of it
  const char* reason;
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) {
  *out << obstacle.matches << ' ' << obstacle.actions;
}

const Obstacle obstacles[] = {
    {R"("ipv4":{"x:ratio":9007199254740992})", R"("forwarding":"accept")", "/matches/ipv4/x:ratio",
     R"("x:ratio" with a number of 2^53 or more)"},
    {R"("eth":{"source-mac-address-mask":"ff:ff:ff:00:00:00"})", R"("forwarding":"accept")",
     "/eth/source-mac-address-mask", "a mask without an address to compare with"},
    {"", R"("forwarding":"x:police")", "/actions/forwarding",
     R"(the action "x:police" of another model)"},
    {"", R"("forwarding":"accept","logging":"x:log-remote")", "/actions/logging",
     R"(the logging "x:log-remote" of another model)"},
    {"", R"("forwarding":"accept","x:rate":7)", "/actions/x:rate", R"("x:rate" of another model)"},
};

class Rfc8519Obstacle : public testing::TestWithParam<Obstacle> {};

TEST_P(Rfc8519Obstacle, LeavesTheWholeEntryOut) {
  const Obstacle& obstacle = GetParam();
  const Policy policy =
      read(list_of(entry("before") + "," + entry("bad", obstacle.matches, obstacle.actions) +
                   ",\n" + entry("behind")));
  EXPECT_EQ(names(policy), "before behind ");
  const Finding finding = only(policy, Fate::skipped);
  EXPECT_NE(finding.what.find(R"(entry "bad" left out, because nothing here can carry )" +
                              std::string(obstacle.reason)),
            std::string::npos)
      << finding.what;
  EXPECT_TRUE(finding.place.path.ends_with(obstacle.path)) << finding.place.path;
  EXPECT_EQ(finding.place.line, 1u);
  EXPECT_EQ(finding.place.file, rfc8519_test::file_name);
  EXPECT_EQ(only(policy, Fate::accepted).what, R"(access list "l": 2 of 3 entries)");
  EXPECT_TRUE(findings(policy, Fate::approximated).empty());
}

INSTANTIATE_TEST_SUITE_P(All, Rfc8519Obstacle, testing::ValuesIn(obstacles));

TEST(Rfc8519Findings, AnAugmentedEntryIsLeftOut) {
  const Policy policy =
      read(list_of(R"({"name":"e","x:schedule":"night","actions":{"forwarding":"accept"}})"));
  EXPECT_EQ(names(policy), "");
  EXPECT_NE(only(policy, Fate::skipped).what.find("\"x:schedule\""), std::string::npos);
}

TEST(Rfc8519Findings, EveryReasonOfAnEntryIsNamedOnce) {
  const Policy policy =
      read(list_of(entry("e", "", R"("a:b":1,"c:d":2,"forwarding":"drop","logging":"e:f")")));
  EXPECT_EQ(
      only(policy, Fate::skipped).what,
      R"(entry "e" left out, because nothing here can carry "a:b" of another model, "c:d" of )"
      R"(another model, the logging "e:f" of another model; what it would drop is left to the )"
      R"(entries behind it, which may accept it)");
}

TEST(Rfc8519Findings, AnEntryLeftOutSaysWhatItWouldHaveDone) {
  const std::pair<const char*, const char*> cases[] = {
      {"accept", "what it would accept is left to the entries behind it"},
      {"drop", "what it would drop is left to the entries behind it, which may accept it"},
      {"reject", "what it would reject is left to the entries behind it, which may accept it"}};
  for (const auto& [action, text] : cases) {
    const Policy policy =
        read(list_of(entry("e", "", R"("a:b":1,"forwarding":")" + std::string(action) + "\"")));
    EXPECT_TRUE(only(policy, Fate::skipped).what.ends_with(text));
  }
}

TEST(Rfc8519Findings, AListWhoseEntriesAreAllLeftOutStillDrops) {
  const Policy policy = read(list_of(entry("e", "", R"("a:b":1,"forwarding":"accept")")));
  ASSERT_EQ(policy.nodes.size(), 3u);
  EXPECT_EQ(policy.nodes[0].links.size(), 2u);
  EXPECT_EQ(policy.nodes[0].links[0].node, policy.nodes[1].id);
}

TEST(Rfc8519Findings, FaultsInAnEntryLeftOutAreStillFaults) {
  rfc8519_test::expect_problem(
      list_of(entry("e", R"("ipv4":{"ttl":256})", R"("a:b":1,"forwarding":"drop")")), "/ttl",
      "0 to 255");
}

TEST(Rfc8519Findings, AnnotationsAreSkippedAndChangeNothing) {
  const Policy policy =
      read(document(R"("@":{"x:y":1},"acl":[{"@name":{"x:y":1},"name":"l","type":"ipv4-acl-type",)"
                    R"("aces":{"ace":[)" +
                    entry("e", R"("ipv4":{"@ttl":{"x:y":2},"ttl":1})") + "]}}]"));
  EXPECT_EQ(names(policy), "e ");
  const auto skipped = findings(policy, Fate::skipped);
  ASSERT_EQ(skipped.size(), 3u);
  EXPECT_EQ(skipped[0]->what, R"(annotation "@" left out)");
  EXPECT_EQ(skipped[1]->what, R"(annotation "@name" left out)");
  EXPECT_EQ(skipped[2]->what, R"(annotation "@ttl" left out)");
}

TEST(Rfc8519Findings, MembersOfOtherModelsBesideEntriesAreLeftOut) {
  const Policy policy = read(document(
      R"("x:a":1,"acl":[{"x:b":1,"name":"l","aces":{"x:c":1,"ace":[)" + entry("e") + "]}}]"));
  EXPECT_EQ(names(policy), "e ");
  const auto skipped = findings(policy, Fate::skipped);
  ASSERT_EQ(skipped.size(), 3u);
  EXPECT_EQ(skipped[0]->what, R"("x:a" is of another model and is left out)");
  EXPECT_EQ(skipped[1]->place.path, "/ietf-access-control-list:acls/acl/0/x:b");
  EXPECT_EQ(skipped[2]->place.path, "/ietf-access-control-list:acls/acl/0/aces/x:c");
}

TEST(Rfc8519Findings, ATypeOfAnotherModelIsNotCarriedAndChecksNothing) {
  const Policy policy =
      read(document(R"("acl":[{"name":"l","type":"x:arp-acl-type","aces":{"ace":[)" +
                    entry("e", R"("ipv4":{"ttl":1})") + "]}}]"));
  EXPECT_EQ(names(policy), "e ");
  EXPECT_EQ(policy.nodes[0].record.body.group.subtype, 0u);
  EXPECT_NE(only(policy, Fate::approximated).what.find("\"x:arp-acl-type\""), std::string::npos);
}

TEST(Rfc8519Findings, CountersAreLeftOutOncePerList) {
  const std::string statistics =
      R"("statistics":{"matched-packets":"18446744073709551615","matched-octets":"0"},)";
  const std::string first = R"({"name":"e",)" + statistics + R"("actions":{"forwarding":"drop"}})";
  const std::string second = R"({"name":"f",)" + statistics + R"("actions":{"forwarding":"drop"}})";
  const Policy policy = read(list_of(first + "," + second));
  EXPECT_EQ(names(policy), "e f ");
  const Finding finding = only(policy, Fate::skipped);
  EXPECT_EQ(finding.what,
            R"(access list "l": counters of 2 entries left out, which are no policy)");
  EXPECT_TRUE(finding.place.path.ends_with("/ace/0/statistics"));
}

TEST(Rfc8519Findings, CountersAtAnInterfaceAreLeftOut) {
  const Policy policy = read(document(
      R"("acl":[{"name":"l"}],"attachment-points":{"interface":[{"interface-id":"i","ingress":)"
      R"({"acl-sets":{"acl-set":[{"name":"l","ace-statistics":[{"name":"e",)"
      R"("matched-packets":"7"}]}]}}}]})"));
  EXPECT_EQ(of_type(policy, QIM_NODE_EDEST).size(), 1u);
  const Finding finding = only(policy, Fate::skipped);
  EXPECT_EQ(finding.what, "counters left out, which are no policy");
  EXPECT_TRUE(finding.place.path.ends_with("/ace-statistics"));
}

TEST(Rfc8519Findings, AnAugmentedAttachmentIsMadeWithoutTheAugmentation) {
  const Policy policy = read(
      document(R"("acl":[{"name":"l"}],"attachment-points":{"x:a":1,"interface":[{"x:b":1,)"
               R"("interface-id":"i",)"
               R"("ingress":{"x:c":1,"acl-sets":{"x:d":1,"acl-set":[{"name":"l","x:e":1}]}}}]})"));
  EXPECT_EQ(of_type(policy, QIM_NODE_EDEST).size(), 1u);
  const auto approximated = findings(policy, Fate::approximated);
  ASSERT_EQ(approximated.size(), 5u);
  for (const Finding* finding : approximated) {
    EXPECT_TRUE(finding->what.starts_with("attached without \"x:")) << finding->what;
  }
}

TEST(Rfc8519Findings, AccessListsAreFoundInALargerDocument) {
  const Policy policy =
      read("{\"profile\":{\"version\":1,\"lists\":\n" + document(R"("acl":[{"name":"l"}])") +
           "},\n\"other\":[{\"ietf-access-control-list:acls\":7}]}");
  ASSERT_EQ(policy.nodes.size(), 3u);
  EXPECT_EQ(policy.nodes[0].place.path, "/profile/lists/ietf-access-control-list:acls/acl/0");
  EXPECT_EQ(policy.nodes[0].place.line, 2u);
  const auto skipped = findings(policy, Fate::skipped);
  ASSERT_EQ(skipped.size(), 2u);
  EXPECT_EQ(skipped[0]->what, R"("version" is no access list and is left out)");
  EXPECT_EQ(skipped[0]->place.path, "/profile/version");
  EXPECT_EQ(skipped[1]->what, R"("other" is no access list and is left out)");
  EXPECT_EQ(skipped[1]->place.line, 3u);
}

TEST(Rfc8519Findings, TheModelsOwnPrefixMayBeSpelledOut) {
  const Policy policy =
      read(document(R"("ietf-access-control-list:acl":[{"ietf-access-control-list:name":"l"}])"));
  EXPECT_EQ(policy.nodes.size(), 3u);
  EXPECT_TRUE(findings(policy, Fate::skipped).empty());
}

}  // namespace
