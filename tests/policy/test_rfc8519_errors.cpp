// Input that is wrong: each fault is reported where it is, and all of them at once.
#include "tests/policy/rfc8519_support.h"

namespace {

using rfc8519_test::document;
using rfc8519_test::entry;
using rfc8519_test::expect_problem;
using rfc8519_test::list_of;
using rfc8519_test::problems_of;

// ---- Leaves ------------------------------------------------------------------------------------

struct BadLeaf {
  const char* matches;
  const char* path;     // the end of the problem's path
  const char* message;  // part of it
};

void PrintTo(const BadLeaf& bad, std::ostream* out) {
  *out << bad.matches;
}

const BadLeaf bad_leaves[] = {
    {R"("ipv4":{"dscp":64})", "/ipv4/dscp", "is 64, but must be a whole number, 0 to 63"},
    {R"("ipv4":{"dscp":-1})", "/ipv4/dscp", "is -1, but"},
    {R"("ipv4":{"dscp":1.5})", "/ipv4/dscp", "is 1.5, but"},
    {R"("ipv4":{"dscp":"46"})", "/ipv4/dscp", "not a string"},
    {R"("ipv4":{"dscp":null})", "/ipv4/dscp", "not null"},
    {R"("ipv4":{"dscp":[1]})", "/ipv4/dscp", "not an array"},
    {R"("ipv4":{"dscp":true})", "/ipv4/dscp", "not true or false"},
    {R"("ipv4":{"ecn":4})", "/ipv4/ecn", "0 to 3"},
    {R"("ipv4":{"length":65536})", "/ipv4/length", "0 to 65535"},
    {R"("ipv4":{"ttl":256})", "/ipv4/ttl", "0 to 255"},
    {R"("ipv4":{"protocol":256})", "/ipv4/protocol", "0 to 255"},
    {R"("ipv4":{"protocol":"tcp"})", "/ipv4/protocol", "0 to 255, not a string"},
    {R"("ipv4":{"protocol":99999999999999999999})", "/ipv4/protocol", "0 to 255"},
    {R"("ipv4":{"ihl":4})", "/ipv4/ihl", "5 to 60"},
    {R"("ipv4":{"ihl":61})", "/ipv4/ihl", "5 to 60"},
    {R"("ipv4":{"offset":19})", "/ipv4/offset", "20 to 65535"},
    {R"("ipv4":{"identification":65536})", "/ipv4/identification", "0 to 65535"},
    {R"("ipv4":{"flags":"df"})", "/ipv4/flags",
     R"("df" is not a flag; use "reserved", "fragment" or "more")"},
    {R"("ipv4":{"flags":"more more"})", "/ipv4/flags", R"("more" comes twice)"},
    {R"("ipv4":{"flags":4})", "/ipv4/flags", "must be a string, not a number"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2.0"})", "/source-ipv4-network",
     R"("192.0.2.0" is not an IPv4 prefix)"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2.0/33"})", "/source-ipv4-network", "up to 32"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2.0/"})", "/source-ipv4-network", "not an IPv4"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2.0/08"})", "/source-ipv4-network", "not an IPv4"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2.0/-1"})", "/source-ipv4-network", "not an IPv4"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2.0/4294967297"})", "/source-ipv4-network",
     "not an IPv4"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2/24"})", "/source-ipv4-network", "not an IPv4"},
    {R"("ipv4":{"source-ipv4-network":"192.0.2.256/24"})", "/source-ipv4-network", "not an IPv4"},
    {R"("ipv4":{"source-ipv4-network":"www.example.com"})", "/source-ipv4-network", "not an IPv4"},
    {R"("ipv4":{"source-ipv4-network":"2001:db8::/32"})", "/source-ipv4-network", "not an IPv4"},
    {R"("ipv4":{"destination-ipv4-network":7})", "/destination-ipv4-network", "must be a string"},
    {R"("ipv6":{"source-ipv6-network":"2001:db8::/129"})", "/source-ipv6-network", "up to 128"},
    {R"("ipv6":{"source-ipv6-network":"2001:db8/32"})", "/source-ipv6-network", "not an IPv6"},
    {R"("ipv6":{"destination-ipv6-network":"192.0.2.0/24"})", "/destination-ipv6-network",
     R"(such as "2001:db8::/32")"},
    {R"("ipv6":{"flow-label":1048576})", "/flow-label", "0 to 1048575"},
    {R"("ipv6":{"dscp":64})", "/ipv6/dscp", "0 to 63"},
    {R"("tcp":{"sequence-number":4294967296})", "/sequence-number", "0 to 4294967295"},
    {R"("tcp":{"data-offset":4})", "/data-offset", "5 to 15"},
    {R"("tcp":{"data-offset":16})", "/data-offset", "5 to 15"},
    {R"("tcp":{"flags":"SYN"})", "/tcp/flags", R"("SYN" is not a flag; use "cwr", )"},
    {R"("tcp":{"options":"AgQ"})", "/options", R"("AgQ" is not base64)"},
    {R"("tcp":{"options":"Ag=A"})", "/options", "not base64"},
    {R"("tcp":{"options":"A==="})", "/options", "not base64"},
    {R"("tcp":{"options":"AgR="})", "/options", "not base64"},
    {R"("tcp":{"options":"A!=="})", "/options", "not base64"},
    {R"("tcp":{"options":""})", "/options", "holds 0 bytes, but must hold 1 to 40"},
    {R"("tcp":{"options":"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"})", "/options",
     "holds 42 bytes"},
    {R"("tcp":{"source-port":80})", "/source-port", R"("source-port" must be an object)"},
    {R"("tcp":{"source-port":{"operator":"eq"}})", "/source-port", R"(needs "port")"},
    {R"("tcp":{"source-port":{"operator":"lt","port":1}})", "/operator",
     R"("lt" is not an operator; use "eq", "neq", "lte" or "gte")"},
    {R"("tcp":{"source-port":{"operator":1,"port":1}})", "/operator", "must be a string"},
    {R"("tcp":{"source-port":{"operator":"eq","port":65536}})", "/port", "0 to 65535"},
    {R"("tcp":{"source-port":{"operator":"eq","port":"http"}})", "/port", "not a string"},
    {R"("tcp":{"source-port":{"lower-port":1}})", "/source-port", R"(needs "upper-port")"},
    {R"("tcp":{"source-port":{"upper-port":1}})", "/source-port", R"(needs "lower-port")"},
    {R"("tcp":{"source-port":{"lower-port":2,"upper-port":1}})", "/source-port",
     "the range 2 to 1 is upside down"},
    {R"("tcp":{"source-port":{"lower-port":1,"upper-port":2,"port":1}})", "/source-port",
     "has an operator and a range"},
    {R"("tcp":{"source-port":{"port":1,"ports":1}})", "/ports", R"(unknown member "ports")"},
    {R"("udp":{"flags":"syn"})", "/udp/flags", R"(unknown member "flags" of "udp")"},
    {R"("icmp":{"type":256})", "/icmp/type", "0 to 255"},
    {R"("icmp":{"code":256})", "/icmp/code", "0 to 255"},
    {R"("icmp":{"rest-of-header":7})", "/rest-of-header", "must be a string"},
    {R"("eth":{"ethertype":65536})", "/ethertype", "0 to 65535"},
    {R"("eth":{"ethertype":"0x0800"})", "/ethertype",
     R"("0x0800" is not the name of an Ethernet type)"},
    {R"("eth":{"source-mac-address":"00-00-5e-00-53-01"})", "/source-mac-address",
     "is not a MAC address"},
    {R"("eth":{"source-mac-address":"00:00:5e:00:53"})", "/source-mac-address",
     "is not a MAC address"},
    {R"("eth":{"source-mac-address":"00:00:5e:00:53:0g"})", "/source-mac-address",
     "is not a MAC address"},
    {R"("eth":{"source-mac-address":"00:00:5e:00:53:01",
               "source-mac-address-mask":"/24"})",
     "/source-mac-address-mask", "is not a MAC address"},
    {R"("eth":[])", "/eth", R"("eth" must be an object, not an array)"},
    {R"("ingress-interface":"")", "/ingress-interface", "must not be empty"},
    {R"("ingress-interface":1)", "/ingress-interface", "must be a string"},
    {R"("ingress-interface":"a\u0007b")", "/ingress-interface", "holds a control character"},
    {R"("egress-interface":{})", "/egress-interface", "must be a string, not an object"},
    {R"("ipv4":{},"ipv6":{})", "/matches", R"("ipv4" and "ipv6" exclude each other)"},
    {R"("tcp":{},"udp":{})", "/matches", R"("tcp" and "udp" exclude each other)"},
    {R"("tcp":{},"udp":{},"icmp":{})", "/matches",
     R"("tcp" and "udp" and "icmp" exclude each other)"},
    {R"("ip":{})", "/matches/ip", R"(unknown member "ip" of "matches"; it may have "eth", )"},
    {R"("ipv4":{"ietf-access-control-list:ttl":1,"ttl":1})", "/ttl", R"("ttl" comes twice)"},
};

class Rfc8519BadLeaf : public testing::TestWithParam<BadLeaf> {};

TEST_P(Rfc8519BadLeaf, IsReportedWhereItIs) {
  const BadLeaf& bad = GetParam();
  expect_problem(list_of(entry("e", bad.matches)), bad.path, bad.message);
}

INSTANTIATE_TEST_SUITE_P(All, Rfc8519BadLeaf, testing::ValuesIn(bad_leaves));

// ---- Everything else ---------------------------------------------------------------------------

struct BadDocument {
  std::string text;
  const char* path;
  const char* message;
};

void PrintTo(const BadDocument& bad, std::ostream* out) {
  *out << bad.text;
}

std::string actions(const char* members) {
  return list_of(entry("e", "", members));
}

std::string typed(const std::string& type, const std::string& matches) {
  return document(R"("acl":[{"name":"l",)" + type + R"("aces":{"ace":[)" + entry("e", matches) +
                  "]}}]");
}

std::string points(const std::string& interfaces) {
  return document(R"("acl":[{"name":"l"}],"attachment-points":{"interface":[)" + interfaces + "]}");
}

std::string sets(const std::string& lists) {
  return points(R"({"interface-id":"i","ingress":{"acl-sets":{"acl-set":[)" + lists + "]}}}");
}

const char* const acls = "/ietf-access-control-list:acls";

std::vector<BadDocument> bad_documents() {
  const std::string accept = R"("actions":{"forwarding":"accept"})";
  return {
      {"{}", "", R"(has no access lists; they are in a member "ietf-access-control-list:acls")"},
      {"[]", "", "has no access lists"},
      {R"({"acls":{}})", "", "has no access lists"},
      {R"({"a":{"ietf-access-control-list:acls":{}},"ietf-access-control-list:acls":{}})", acls,
       "access lists come twice, here and at /a/ietf-access-control-list:acls"},
      {R"({"ietf-access-control-list:acls":[]})", acls,
       R"("acls" must be an object, not an array)"},
      {document(R"("acls":[])"), "/acls", R"(unknown member "acls")"},
      {document(R"("acl":{})"), "/acl", "must be an array, not an object"},
      {document(R"("acl":[1])"), "/acl/0", "an access list must be an object, not a number"},
      {document(R"("acl":[{}])"), "/acl/0", R"(an access list needs "name")"},
      {document(R"("acl":[{"name":""}])"), "/acl/0/name", "must not be empty"},
      {document(R"("acl":[{"name":7}])"), "/acl/0/name", "must be a string"},
      {document(R"("acl":[{"name":")" + std::string(65, 'x') + R"("}])"), "/acl/0/name",
       "is 65 characters long, but must not be longer than 64"},
      {document(R"("acl":[{"name":"l"},{"name":"l"}])"), "/acl/1/name",
       R"(access list "l" comes twice)"},
      {document(R"("acl":[{"name":"l","type":"ip"}])"), "/acl/0/type",
       R"("ip" is not a type; use "eth-acl-type", )"},
      {document(R"("acl":[{"name":"l","type":4}])"), "/acl/0/type", "must be a string"},
      {document(R"("acl":[{"name":"l","ace":[]}])"), "/acl/0/ace", R"(unknown member "ace")"},
      {document(R"("acl":[{"name":"l","aces":[]}])"), "/acl/0/aces",
       R"("aces" must be an object, not an array)"},
      {document(R"("acl":[{"name":"l","aces":{"ace":"x"}}])"), "/aces/ace",
       "must be an array, not a string"},
      {list_of("7"), "/ace/0", "an entry must be an object"},
      {list_of("{" + accept + "}"), "/ace/0", R"(an entry needs "name")"},
      {list_of(R"({"name":"",)" + accept + "}"), "/ace/0/name", "must not be empty"},
      {list_of(R"({"name":")" + std::string(65, 'x') + R"(",)" + accept + "}"), "/ace/0/name",
       "65 characters"},
      {list_of(R"({"name":"e","match":{},)" + accept + "}"), "/ace/0/match",
       R"(unknown member "match" of an entry; it may have "name", "matches", "actions" or )"},
      {list_of(R"({"name":"e","matches":[],)" + accept + "}"), "/ace/0/matches",
       R"("matches" must be an object)"},
      {list_of(entry("e") + "," + entry("f") + "," + entry("e")), "/ace/2/name",
       R"(entry "e" comes twice in its access list)"},
      {list_of(R"({"name":"e"})"), "/ace/0", R"(an entry needs "actions")"},
      {list_of(R"({"name":"e","actions":7})"), "/ace/0/actions", R"("actions" must be an object)"},
      {actions(""), "/actions", R"("actions" needs "forwarding")"},
      {actions(R"("forwarding":"permit")"), "/forwarding",
       R"("permit" is not an action; use "accept", "drop" or "reject")"},
      {actions(R"("forwarding":true)"), "/forwarding", "must be a string"},
      {actions(R"("forwarding":"drop","logging":"yes")"), "/logging",
       R"("yes" is not a kind of logging; use "log-syslog" or "log-none")"},
      {actions(R"("forwarding":"drop","logging":1)"), "/logging", "must be a string"},
      {actions(R"("forwarding":"drop","log":1)"), "/actions/log", R"(unknown member "log")"},
      {list_of(R"({"name":"e","statistics":{"matched-packets":7},)" + accept + "}"),
       "/matched-packets", "must be a string"},
      {list_of(R"({"name":"e","statistics":{"matched-octets":"-7"},)" + accept + "}"),
       "/matched-octets", R"("-7" is not a count in digits)"},
      {list_of(R"({"name":"e","statistics":{"drops":"7"},)" + accept + "}"), "/drops",
       R"(unknown member "drops")"},

      {typed("", R"("ipv4":{})"), "/ipv4",
       R"("ipv4" cannot be matched in an access list that has no "type")"},
      {typed(R"("type":"eth-acl-type",)", R"("ipv4":{})"), "/ipv4",
       R"(that is of the type "eth-acl-type"; give the list a "type" that includes "ipv4")"},
      {typed(R"("type":"ipv4-acl-type",)", R"("ipv6":{})"), "/ipv6", "cannot be matched"},
      {typed(R"("type":"ipv6-acl-type",)", R"("ipv4":{})"), "/ipv4", "cannot be matched"},
      {typed(R"("type":"ipv4-acl-type",)", R"("eth":{})"), "/eth", "cannot be matched"},
      {typed(R"("type":"mixed-eth-ipv4-acl-type",)", R"("ipv6":{})"), "/ipv6", "cannot be matched"},
      {typed(R"("type":"mixed-eth-ipv6-acl-type",)", R"("ipv4":{})"), "/ipv4", "cannot be matched"},

      {document(R"("attachment-points":[])"), "/attachment-points",
       R"("attachment-points" must be an object)"},
      {points("1"), "/interface/0", "an attachment point must be an object"},
      {points("{}"), "/interface/0", R"(an attachment point needs "interface-id")"},
      {points(R"({"interface-id":""})"), "/interface-id", "must not be empty"},
      {points(R"({"interface-id":"i","in":{}})"), "/interface/0/in", R"(unknown member "in")"},
      {points(R"({"interface-id":"i"},{"interface-id":"i"})"), "/interface/1/interface-id",
       R"(interface "i" comes twice)"},
      {points(R"({"interface-id":"eth55656"},{"interface-id":"eth61156"})"),
       "/interface/1/interface-id",
       R"("eth61156" gets the same interface index as "eth55656"; rename one)"},
      {points(R"({"interface-id":"i","ingress":[]})"), "/ingress",
       R"("ingress" must be an object)"},
      {points(R"({"interface-id":"i","egress":{"acl-set":[]}})"), "/egress/acl-set",
       R"(unknown member "acl-set" of "egress"; it may have "acl-sets")"},
      {points(R"({"interface-id":"i","egress":{"acl-sets":{"acl-set":{}}}})"), "/acl-set",
       "must be an array"},
      {sets("1"), "/acl-set/0", "an attached access list must be an object"},
      {sets("{}"), "/acl-set/0", R"(an attached access list needs "name")"},
      {sets(R"({"name":"m"})"), "/acl-set/0/name",
       R"(there is no access list "m"; define it or remove it)"},
      {sets(R"({"name":"l"},{"name":"l"})"), "/acl-set/1/name",
       R"(access list "l" is attached twice to "ingress")"},
      {sets(R"({"name":"l","ace-statistics":7})"), "/ace-statistics", "must be an array"},
      {sets(R"({"name":"l","ace-statistics":[{"name":"e","matched-packets":"x"}]})"),
       "/matched-packets", "not a count"},
  };
}

class Rfc8519BadDocument : public testing::TestWithParam<BadDocument> {};

TEST_P(Rfc8519BadDocument, IsReportedWhereItIs) {
  const BadDocument& bad = GetParam();
  expect_problem(bad.text, bad.path, bad.message);
}

INSTANTIATE_TEST_SUITE_P(All, Rfc8519BadDocument, testing::ValuesIn(bad_documents()));

TEST(Rfc8519Errors, TextThatIsNotJsonIsRefused) {
  EXPECT_EQ(problems_of("{\"a\":\n").size(), 1u);
  EXPECT_EQ(problems_of("").size(), 1u);
  EXPECT_EQ(problems_of(R"({"ietf-access-control-list:acls":{"acl":[],"acl":[]}})").size(), 1u);
}

TEST(Rfc8519Errors, AllProblemsAreReportedAtOnceWithTheirLines) {
  const std::string text =
      document("\n\"acl\":[\n{\"name\":\"l\",\n\"type\":\"ipv4-acl-type\",\n\"aces\":{\"ace\":[\n" +
               entry("e", "\n\"ipv4\":{\n\"ttl\":300,\n\"dscp\":99}") + ",\n" +
               entry("e", "", "\n\"forwarding\":\"allow\"") +
               "]}}],\n\"attachment-points\":{\"interface\":[{\"interface-id\":\"i\",\n\"egress\":"
               "{\"acl-sets\":{\"acl-set\":[\n{\"name\":\"gone\"}]}}}]}");
  const std::string ace = "/ietf-access-control-list:acls/acl/0/aces/ace";
  const auto problems = problems_of(text);
  ASSERT_EQ(problems.size(), 5u) << testing::PrintToString(problems);
  EXPECT_TRUE(problems[0].starts_with("9 " + ace + "/0/matches/ipv4/dscp is 99"));
  EXPECT_TRUE(problems[1].starts_with("8 " + ace + "/0/matches/ipv4/ttl is 300"));
  EXPECT_TRUE(problems[2].starts_with("10 " + ace + "/1/name entry \"e\""));
  EXPECT_TRUE(problems[3].starts_with("11 " + ace + "/1/actions/forwarding \"allow\""));
  EXPECT_TRUE(problems[4].starts_with(
      "14 /ietf-access-control-list:acls/attachment-points/interface/0/egress/acl-sets/acl-set/0/"
      "name there is no access list \"gone\""));
}

TEST(Rfc8519Errors, MessagesShortenLongTexts) {
  const std::string long_name(200, 'x');
  expect_problem(document("\"" + long_name + "\":1"), long_name,
                 "unknown member \"" + std::string(80, 'x') + "...\"");
}

TEST(Rfc8519Errors, MessagesCutNoCharacterInHalf) {
  std::string name = "x";
  for (int i = 0; i < 60; i++) name += "\xc3\xa9";
  expect_problem(document("\"" + name + "\":1"), name,
                 "unknown member \"" + name.substr(0, 79) + "...\"");
}

TEST(Rfc8519Errors, NamesAreMeasuredInCharacters) {
  std::string name;
  for (int i = 0; i < 64; i++) name += "\xc3\xa9";
  EXPECT_TRUE(problems_of(document(R"("acl":[{"name":")" + name + R"("}])")).empty());
  expect_problem(document(R"("acl":[{"name":")" + name + R"(e"}])"), "/name", "is 65 characters");
}

TEST(Rfc8519Errors, InterfacesOfMatchesAndAttachmentsShareTheirIndexes) {
  const std::string text = document(
      R"("acl":[{"name":"l","aces":{"ace":[)" + entry("e", R"("ingress-interface":"eth55656")") +
      R"(]}}],"attachment-points":{"interface":[{"interface-id":"eth61156"}]})");
  expect_problem(text, "/interface-id", "gets the same interface index");
}

}  // namespace
