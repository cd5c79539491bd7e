// Every leaf of the model's matches becomes the criterion that docs/rfc8519.md says.
#include <set>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "tests/policy/rfc8519_support.h"

namespace {

using rfc8519_test::by_id;
using rfc8519_test::criteria_of;
using rfc8519_test::entry;
using rfc8519_test::list_of;
using rfc8519_test::of_type;
using rfc8519_test::Policy;

struct LeafCase {
  const char* matches;  // JSON members of "matches"
  uint32_t type;        // of the one criterion that comes of it
  const char* args;     // in hexadecimal
  const char* text;
};

void PrintTo(const LeafCase& leaf, std::ostream* out) {
  *out << leaf.matches;
}

const LeafCase leaf_cases[] = {
    {R"("ingress-interface":"te0/0/1.300")", 0x0101, "503831237465302f302f312e333030",
     "interface.ingress-interface te0/0/1.300 (0x50383123)"},
    {R"("egress-interface":"one")", 0x0102, "2ba5e87f6f6e65",
     "interface.egress-interface one (0x2ba5e87f)"},

    {R"("eth":{})", 0x0200, "", "eth"},
    {R"("eth":{"destination-mac-address":"00:00:5E:00:53:Af"})", 0x0201, "00005e0053afffffffffffff",
     "eth.destination-mac-address 00:00:5e:00:53:af"},
    {R"("eth":{"source-mac-address":"01:80:c2:00:00:00",
               "source-mac-address-mask":"ff:ff:ff:ff:ff:f0"})",
     0x0202, "0180c2000000fffffffffff0",
     "eth.source-mac-address 01:80:c2:00:00:00/ff:ff:ff:ff:ff:f0"},
    {R"("eth":{"destination-mac-address":"33:33:00:00:00:00",
               "destination-mac-address-mask":"ff:ff:00:00:00:00"})",
     0x0201, "333300000000ffff00000000",
     "eth.destination-mac-address 33:33:00:00:00:00/ff:ff:00:00:00:00"},
    {R"("eth":{"ethertype":2048})", 0x0203, "0800", "eth.ethertype 0x0800"},
    {R"("eth":{"ethertype":"ipv6"})", 0x0203, "86dd", "eth.ethertype 0x86dd"},
    {R"("eth":{"ethertype":65535})", 0x0203, "ffff", "eth.ethertype 0xffff"},

    {R"("ipv4":{})", 0x0300, "", "ipv4"},
    {R"("ipv4":{"dscp":63})", 0x0301, "3f", "ipv4.dscp 63"},
    {R"("ipv4":{"ecn":3})", 0x0302, "03", "ipv4.ecn 3"},
    {R"("ipv4":{"length":65535})", 0x0303, "ffff", "ipv4.length 65535"},
    {R"("ipv4":{"ttl":255})", 0x0304, "ff", "ipv4.ttl 255"},
    {R"("ipv4":{"protocol":0})", 0x0305, "00", "ipv4.protocol 0"},
    {R"("ipv4":{"ihl":5})", 0x0306, "05", "ipv4.ihl 5"},
    {R"("ipv4":{"ihl":60})", 0x0306, "3c", "ipv4.ihl 60"},
    {R"("ipv4":{"flags":"reserved fragment"})", 0x0307, "06", "ipv4.flags reserved,fragment"},
    {R"("ipv4":{"flags":"more"})", 0x0307, "01", "ipv4.flags more"},
    {R"("ipv4":{"offset":20})", 0x0308, "0014", "ipv4.offset 20"},
    {R"("ipv4":{"identification":258})", 0x0309, "0102", "ipv4.identification 258"},
    {R"("ipv4":{"destination-ipv4-network":"192.0.2.0/24"})", 0x030a, "c000020018",
     "ipv4.destination-ipv4-network 192.0.2.0/24"},
    {R"("ipv4":{"source-ipv4-network":"0.0.0.0/0"})", 0x030b, "0000000000",
     "ipv4.source-ipv4-network 0.0.0.0/0"},

    {R"("ipv6":{})", 0x0400, "", "ipv6"},
    {R"("ipv6":{"dscp":46})", 0x0401, "2e", "ipv6.dscp 46"},
    {R"("ipv6":{"ecn":1})", 0x0402, "01", "ipv6.ecn 1"},
    {R"("ipv6":{"length":1280})", 0x0403, "0500", "ipv6.length 1280"},
    {R"("ipv6":{"ttl":1})", 0x0404, "01", "ipv6.ttl 1"},
    {R"("ipv6":{"protocol":58})", 0x0405, "3a", "ipv6.protocol 58"},
    {R"("ipv6":{"destination-ipv6-network":"2001:db8::/32"})", 0x0406,
     "20010db800000000000000000000000020", "ipv6.destination-ipv6-network 2001:db8::/32"},
    {R"("ipv6":{"source-ipv6-network":"::ffff:192.0.2.1/128"})", 0x0407,
     "00000000000000000000ffffc000020180", "ipv6.source-ipv6-network ::ffff:192.0.2.1/128"},
    {R"("ipv6":{"flow-label":1048575})", 0x0408, "000fffff", "ipv6.flow-label 1048575"},

    {R"("tcp":{})", 0x0500, "", "tcp"},
    {R"("tcp":{"source-port":{}})", 0x0500, "", "tcp"},
    {R"("tcp":{"sequence-number":4294967295})", 0x0501, "ffffffff",
     "tcp.sequence-number 4294967295"},
    {R"("tcp":{"acknowledgement-number":16909060})", 0x0502, "01020304",
     "tcp.acknowledgement-number 16909060"},
    {R"("tcp":{"data-offset":15})", 0x0503, "0f", "tcp.data-offset 15"},
    {R"("tcp":{"reserved":7})", 0x0504, "07", "tcp.reserved 7"},
    {R"("tcp":{"flags":"cwr ece urg ack psh rst syn fin"})", 0x0505, "ff",
     "tcp.flags cwr,ece,urg,ack,psh,rst,syn,fin"},
    {R"("tcp":{"flags":" syn  ack "})", 0x0505, "12", "tcp.flags ack,syn"},
    {R"("tcp":{"flags":""})", 0x0505, "00", "tcp.flags none"},
    {R"("tcp":{"window-size":512})", 0x0506, "0200", "tcp.window-size 512"},
    {R"("tcp":{"urgent-pointer":1})", 0x0507, "0001", "tcp.urgent-pointer 1"},
    {R"("tcp":{"options":"AgQFtA=="})", 0x0508, "020405b4", "tcp.options 020405b4"},
    {R"("tcp":{"options":"AQ=="})", 0x0508, "01", "tcp.options 01"},
    {R"("tcp":{"options":"AQID"})", 0x0508, "010203", "tcp.options 010203"},
    {R"("tcp":{"source-port":{"operator":"eq","port":179}})", 0x0509, "0100b300b3",
     "tcp.source-port eq 179"},
    {R"("tcp":{"destination-port":{"operator":"neq","port":65535}})", 0x050a, "02ffffffff",
     "tcp.destination-port neq 65535"},
    {R"("tcp":{"destination-port":{"operator":"lte","port":1023}})", 0x050a, "0303ff03ff",
     "tcp.destination-port lte 1023"},
    {R"("tcp":{"destination-port":{"operator":"gte","port":1024}})", 0x050a, "0404000400",
     "tcp.destination-port gte 1024"},
    {R"("tcp":{"destination-port":{"lower-port":80,"upper-port":443}})", 0x050a, "05005001bb",
     "tcp.destination-port 80-443"},
    {R"("tcp":{"destination-port":{"lower-port":80,"upper-port":80}})", 0x050a, "0500500050",
     "tcp.destination-port 80-80"},
    {R"("tcp":{"destination-port":{"port":0}})", 0x050a, "0100000000", "tcp.destination-port eq 0"},

    {R"("udp":{})", 0x0600, "", "udp"},
    {R"("udp":{"length":8})", 0x0601, "0008", "udp.length 8"},
    {R"("udp":{"source-port":{"operator":"eq","port":53}})", 0x0602, "0100350035",
     "udp.source-port eq 53"},
    {R"("udp":{"destination-port":{"lower-port":33434,"upper-port":33523}})", 0x0603, "05829a82f3",
     "udp.destination-port 33434-33523"},

    {R"("icmp":{})", 0x0700, "", "icmp"},
    {R"("icmp":{"type":8})", 0x0701, "08", "icmp.type 8"},
    {R"("icmp":{"code":255})", 0x0702, "ff", "icmp.code 255"},
    {R"("icmp":{"rest-of-header":"AAEC/+8="})", 0x0703, "000102ffef",
     "icmp.rest-of-header 000102ffef"},
    {R"("icmp":{"rest-of-header":""})", 0x0703, "", "icmp.rest-of-header empty"},
};

class Rfc8519Leaf : public testing::TestWithParam<LeafCase> {};

TEST_P(Rfc8519Leaf, BecomesOneCriterion) {
  const LeafCase& leaf = GetParam();
  const Policy policy = rfc8519_test::read(list_of(entry("e", leaf.matches)));
  const auto filters = of_type(policy, QIM_NODE_FILTER);
  ASSERT_EQ(filters.size(), 1u);
  ASSERT_EQ(filters[0]->criteria.size(), 2u);
  const qimctl::Criterion& criterion = filters[0]->criteria[1];
  EXPECT_EQ(criterion.type, leaf.type);
  EXPECT_EQ(qimctl::hex_bytes(criterion.args), leaf.args);
  EXPECT_EQ(criteria_of(*filters[0]), leaf.text);
}

INSTANTIATE_TEST_SUITE_P(All, Rfc8519Leaf, testing::ValuesIn(leaf_cases));

TEST(Rfc8519Leaves, CasesCoverEveryCriterionType) {
  std::set<uint32_t> seen;
  for (const LeafCase& leaf : leaf_cases) seen.insert(leaf.type);
  for (const qimctl::CriterionKind& kind : qimctl::criterion_kinds()) {
    if (kind.header == qimctl::Header::entry) continue;
    EXPECT_TRUE(seen.contains(kind.type)) << kind.name;
  }
}

TEST(Rfc8519Leaves, CriteriaFollowTheirTypesWhateverTheOrderInTheInput) {
  const Policy policy = rfc8519_test::read(
      list_of(entry("e", R"("udp":{"destination-port":{"port":53},"source-port":{"port":1}},
             "ipv4":{"ttl":1,"dscp":2},"ingress-interface":"x","eth":{"ethertype":2048})")));
  const auto filters = of_type(policy, QIM_NODE_FILTER);
  ASSERT_EQ(filters.size(), 1u);
  std::vector<uint32_t> types;
  for (const auto& criterion : filters[0]->criteria) types.push_back(criterion.type);
  EXPECT_EQ(types, (std::vector<uint32_t>{0x001, 0x101, 0x203, 0x301, 0x304, 0x602, 0x603}));
}

TEST(Rfc8519Leaves, BitsOutsideAPrefixAreCleared) {
  const Policy policy =
      rfc8519_test::read(list_of(entry("e", R"("ipv4":{"source-ipv4-network":"10.1.255.3/15"})")));
  EXPECT_EQ(criteria_of(*of_type(policy, QIM_NODE_FILTER).at(0)),
            "ipv4.source-ipv4-network 10.0.0.0/15");
  const auto notes = rfc8519_test::findings(policy, qimctl::Fate::accepted);
  ASSERT_EQ(notes.size(), 2u);
  EXPECT_EQ(notes[0]->what, R"("10.1.255.3/15" stands for 10.0.0.0/15)");
  EXPECT_EQ(notes[0]->place.path,
            "/ietf-access-control-list:acls/acl/0/aces/ace/0/matches/ipv4/source-ipv4-network");
}

TEST(Rfc8519Leaves, BitsOutsideAnIpv6PrefixAreCleared) {
  const Policy policy = rfc8519_test::read(
      list_of(entry("e", R"("ipv6":{"source-ipv6-network":"2001:db8:ffff::1/33"})")));
  EXPECT_EQ(criteria_of(*of_type(policy, QIM_NODE_FILTER).at(0)),
            "ipv6.source-ipv6-network 2001:db8:8000::/33");
}

TEST(Rfc8519Leaves, BitsOutsideAMaskAreCleared) {
  const Policy policy =
      rfc8519_test::read(list_of(entry("e",
                                       R"("eth":{"source-mac-address":"01:02:03:04:05:06",
                "source-mac-address-mask":"ff:ff:ff:00:00:00"})")));
  EXPECT_EQ(criteria_of(*of_type(policy, QIM_NODE_FILTER).at(0)),
            "eth.source-mac-address 01:02:03:00:00:00/ff:ff:ff:00:00:00");
  EXPECT_EQ(rfc8519_test::findings(policy, qimctl::Fate::accepted).size(), 2u);
}

}  // namespace
