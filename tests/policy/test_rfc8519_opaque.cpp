// Matches of other models are carried whole, device profiles give lists a direction.
#include <gmock/gmock.h>

#include "tests/policy/rfc8519_support.h"

namespace {

using qimctl::Attachment;
using qimctl::Entry;
using qimctl::Fate;
using qimctl::Finding;
using qimctl::ModelInput;
using qimctl::OpaqueMatch;
using rfc8519_test::document;
using rfc8519_test::entry;
using rfc8519_test::list_of;
using testing::ElementsAre;
using testing::HasSubstr;

ModelInput read_model(const std::string& text, const std::string& interface = "") {
  return qimctl::read_rfc8519(text, rfc8519_test::file_name, {interface});
}

std::vector<std::string> said(const ModelInput& input, Fate fate) {
  std::vector<std::string> texts;
  for (const Finding& finding : input.findings)
    if (finding.fate == fate) texts.push_back(finding.place.path + " " + finding.what);
  return texts;
}

Entry only_entry(const ModelInput& input) {
  EXPECT_EQ(input.model.lists.size(), 1u);
  EXPECT_EQ(input.model.lists.at(0).entries.size(), 1u);
  return input.model.lists.at(0).entries.at(0);
}

std::vector<OpaqueMatch> opaque_of(const Entry& entry) {
  std::vector<OpaqueMatch> found;
  for (const qimctl::Criterion& criterion : entry.criteria)
    if (criterion.type == qimctl::criterion_opaque) found.push_back(qimctl::to_opaque(criterion));
  return found;
}

std::vector<uint32_t> types_of(const Entry& entry) {
  std::vector<uint32_t> types;
  for (const qimctl::Criterion& criterion : entry.criteria) types.push_back(criterion.type);
  return types;
}

TEST(Rfc8519Opaque, ForeignMatchesAreCarriedFromEveryContainer) {
  const ModelInput input = read_model(list_of(
      entry("e", R"("x:device":{"b":[null],"a":1},"ipv4":{"ietf-acldns:dst-dnsname":"a.example"},)"
                 R"("tcp":{"source-port":{"port":7,"x:service":"s"},)"
                 R"("destination-port":{"x:group":["g"]}})")));
  const Entry read = only_entry(input);
  EXPECT_THAT(opaque_of(read),
              ElementsAre(OpaqueMatch{"", "x", "device", R"({"a":1,"b":[null]})"},
                          OpaqueMatch{"ipv4", "ietf-acldns", "dst-dnsname", R"("a.example")"},
                          OpaqueMatch{"tcp/source-port", "x", "service", R"("s")"},
                          OpaqueMatch{"tcp/destination-port", "x", "group", R"(["g"])"}));
  EXPECT_THAT(types_of(read), ElementsAre(2u, 2u, 2u, 2u, 0x0300u, 0x0509u));
  EXPECT_TRUE(said(input, Fate::skipped).empty());
  const auto accepted = said(input, Fate::accepted);
  ASSERT_EQ(accepted.size(), 5u);
  EXPECT_THAT(accepted[1], HasSubstr(R"(/matches/ipv4/ietf-acldns:dst-dnsname )"
                                     R"("ietf-acldns:dst-dnsname" is carried whole, but only a )"
                                     R"(reader that knows "ietf-acldns" can decide it)"));
}

TEST(Rfc8519Opaque, AHeaderOfForeignMatchesAloneMustBeThereStill) {
  EXPECT_THAT(types_of(only_entry(
                  read_model(list_of(entry("e", R"("udp":{"source-port":{"x:service":"dns"}})"))))),
              ElementsAre(2u, 0x0600u));
}

TEST(Rfc8519Opaque, SpellingAndOrderOfTheInputDoNotCount) {
  const auto first = only_entry(
      read_model(list_of(entry("e", R"("x:b":{"n":1.0,"m":"\u0041"},"x:a":2,"ipv4":{"x:a":3})"))));
  const auto second = only_entry(
      read_model(list_of(entry("e", R"("ipv4":{"x:a":3},"x:a":2,"x:b":{"m":"A","n":1})"))));
  EXPECT_TRUE(same_entry(first, second));
}

TEST(Rfc8519Opaque, ANameThatIsTooLongLeavesTheEntryOut) {
  const std::string longest(UINT16_MAX, 'n');
  const auto input = read_model(list_of(entry("e", "\"x:" + longest + "\":1") + "," +
                                        entry("f", "\"x:m" + longest + "\":1") + "," +
                                        entry("g", "\"m" + longest + ":x\":1")));
  EXPECT_EQ(only_entry(input).name, "e");
  const auto skipped = said(input, Fate::skipped);
  ASSERT_EQ(skipped.size(), 2u);
  EXPECT_THAT(skipped[0], HasSubstr("which is too long for a name"));
}

TEST(Rfc8519Opaque, AListOfWhichNothingIsCarriedIsNamed) {
  const auto input = read_model(document(
      R"("acl":[{"name":"none"},{"name":"all","aces":{"ace":[)" +
      entry("a", "", R"("forwarding":"x:a")") + "," + entry("b", "", R"("forwarding":"x:b")") +
      R"(]}},{"name":"some","aces":{"ace":[)" + entry("c") + "]}}]"));
  ASSERT_EQ(input.emptied.size(), 1u);
  const qimctl::Problem problem = problem_of(input.emptied[0]);
  EXPECT_EQ(problem.place.path, "/ietf-access-control-list:acls/acl/1");
  EXPECT_THAT(problem.message, HasSubstr(R"(access list "all": 0 of 2 entries carried)"));
}

// A profile of a device with two lists, `from` and `to` as its policies' members.
std::string profile(const std::string& from, const std::string& to,
                    const std::string& points = "") {
  return R"({"ietf-mud:mud":{"from-device-policy":{)" + from + R"(},"to-device-policy":{)" + to +
         R"(}},"ietf-access-control-list:acls":{"acl":[{"name":"out"},{"name":"in"}])" + points +
         "}}";
}

std::string named_lists(const std::string& names) {
  return R"("access-lists":{"access-list":[)" + names + "]}";
}

const std::string one_each =
    profile(named_lists(R"({"name":"out"})"), named_lists(R"({"name":"in"})"));

std::vector<std::string> attached(const ModelInput& input) {
  std::vector<std::string> texts;
  for (const Attachment& attachment : input.model.attachments)
    texts.push_back(attachment.list + " " + attachment_text(attachment) + " " +
                    std::to_string(attachment.stage));
  return texts;
}

TEST(DeviceProfile, GivesItsListsADirection) {
  const ModelInput input = read_model(one_each, "eth3");
  EXPECT_THAT(attached(input), ElementsAre("out if:eth3/in 1", "in if:eth3/out 1"));
  EXPECT_TRUE(said(input, Fate::skipped).empty());
  EXPECT_THAT(
      said(input, Fate::accepted),
      testing::Contains(R"(/ietf-mud:mud/from-device-policy packets from the device are for )"
                        R"("out", attached to "eth3" for ingress)"));
}

TEST(DeviceProfile, IsAttachedNowhereWithoutAnInterface) {
  const ModelInput input = read_model(one_each);
  EXPECT_TRUE(attached(input).empty());
  const auto skipped = said(input, Fate::skipped);
  ASSERT_EQ(skipped.size(), 2u);
  EXPECT_THAT(skipped[0], HasSubstr("--interface"));
  EXPECT_THAT(skipped[1], HasSubstr(R"(packets to the device are for "in", attached nowhere)"));
}

TEST(DeviceProfile, ComesBehindTheListsThatAreAttachedAlready) {
  const std::string points =
      R"(,"attachment-points":{"interface":[{"interface-id":"eth3","egress":{"acl-sets":)"
      R"({"acl-set":[{"name":"in"}]}}},{"interface-id":"eth3b","ingress":{"acl-sets":)"
      R"({"acl-set":[{"name":"in"}]}}}]})";
  EXPECT_THAT(attached(read_model(profile("", named_lists(R"({"name":"out"})"), points), "eth3")),
              ElementsAre("in if:eth3/out 1", "in if:eth3b/in 1", "out if:eth3/out 2"));
  EXPECT_TRUE(said(read_model(profile("", "", points)), Fate::skipped).empty());
}

TEST(DeviceProfile, SaysWhatElseItLeavesOut) {
  const ModelInput input = read_model(
      R"({"ietf-mud:mud":{"mud-version":1},"ietf-access-control-list:acls":{}})", "eth3");
  EXPECT_THAT(
      said(input, Fate::skipped),
      ElementsAre("/ietf-mud:mud what else the profile says of the device is no access list "
                  "and is left out"));
}

struct Fault {
  std::string text;
  const char* path;
  const char* message;
};

TEST(DeviceProfile, FaultsAreNamedWithTheirPlace) {
  const Fault faults[] = {
      {R"({"ietf-mud:mud":7,"ietf-access-control-list:acls":{}})", "/ietf-mud:mud",
       "must be an object, not a number"},
      {profile(named_lists(R"({"name":"gone"})"), ""),
       "/from-device-policy/access-lists/access-list/0/name", R"(there is no access list "gone")"},
      {profile(named_lists("7"), ""), "/access-list/0", "must be an object"},
      {profile(named_lists("{}"), ""), "/access-list/0", "needs \"name\""},
      {profile(named_lists(R"({"name":""})"), ""), "/access-list/0/name", "must not be empty"},
      {profile(R"("rules":1)", ""), "/from-device-policy/rules", "unknown member"},
  };
  for (const Fault& fault : faults) {
    try {
      read_model(fault.text);
      ADD_FAILURE() << fault.text;
    } catch (const qimctl::InputError& error) {
      ASSERT_EQ(error.problems().size(), 1u) << error.what();
      EXPECT_TRUE(error.problems()[0].place.path.ends_with(fault.path)) << error.what();
      EXPECT_THAT(error.what(), HasSubstr(fault.message));
    }
  }
}

TEST(DeviceProfile, AListIsAttachedOnce) {
  try {
    read_model(profile(named_lists(R"({"name":"out"},{"name":"out"})"), ""), "eth3");
    ADD_FAILURE();
  } catch (const qimctl::InputError& error) {
    EXPECT_THAT(error.what(),
                HasSubstr(R"("out" is attached to "eth3" in this direction already)"));
  }
}

}  // namespace
