// Packets in words.
#include "tests/policy/trace/trace_support.h"

namespace {

using namespace qimctl;

constexpr uint64_t from_v4 = 0xc0000205;
constexpr uint64_t to_v4 = 0xc6336407;

// Fails the test unless the words are refused with a message that holds `what`.
void expect_refused(const std::string& words, const std::string& what) {
  try {
    packet_from_words(words);
    ADD_FAILURE() << "taken: " << words;
  } catch (const PacketError& error) {
    EXPECT_NE(std::string(error.what()).find(what), std::string::npos) << words << "\n"
                                                                       << error.what();
  }
}

// What is printed of the words when they are read.
std::string echoed(const std::string& words) {
  return packet_words(packet_from_words(words));
}

TEST(PacketWords, ReadTheUsualForm) {
  const Packet packet = packet_from_words("tcp 192.0.2.5:4000 > 198.51.100.7:22 syn");
  EXPECT_EQ(packet.has(Header::eth), Truth::yes);
  EXPECT_EQ(packet.has(Header::ipv4), Truth::yes);
  EXPECT_EQ(packet.has(Header::ipv6), Truth::no);
  EXPECT_EQ(packet.has(Header::tcp), Truth::yes);
  EXPECT_EQ(packet.has(Header::udp), Truth::no);
  EXPECT_EQ(packet.number(Field::source), from_v4);
  EXPECT_EQ(packet.number(Field::destination), to_v4);
  EXPECT_EQ(packet.number(Field::source_port), 4000u);
  EXPECT_EQ(packet.number(Field::destination_port), 22u);
  EXPECT_EQ(packet.number(Field::tcp_flags), 2u);
  EXPECT_EQ(packet.number(Field::protocol), 6u);
  EXPECT_EQ(packet.number(Field::ethertype), 0x0800u);
  EXPECT_TRUE(packet.knows(Field::offset));
  EXPECT_FALSE(packet.knows(Field::ttl));
  EXPECT_FALSE(packet.knows(Field::ip_flags));
  EXPECT_FALSE(packet.knows(Field::source_mac));
}

TEST(PacketWords, ReadTheFormOfEntries) {
  EXPECT_EQ(echoed("ipv4 tcp from 192.0.2.5 port 4000 to any port 22 flags syn,ack ttl 3"),
            "ipv4 tcp 192.0.2.5:4000 > any:22 ack,syn ttl 3");
  EXPECT_EQ(echoed("udp from [2001:db8::1]:53 to [2001:db8::2]:5000"),
            "udp [2001:db8::1]:53 > [2001:db8::2]:5000");
  EXPECT_EQ(echoed("entering eth0 udp 192.0.2.5>198.51.100.7"),
            "entering eth0 udp 192.0.2.5 > 198.51.100.7");
  EXPECT_EQ(echoed("leaving \"two words\" tcp 192.0.2.5 -> 198.51.100.7"),
            "leaving \"two words\" tcp 192.0.2.5 > 198.51.100.7");
}

TEST(PacketWords, EveryWordIsReadAndPrinted) {
  for (const std::string words : {
           "tcp 192.0.2.5:1 > 198.51.100.7:2 syn",
           "tcp 192.0.2.5:1 > 198.51.100.7:2 flags none",
           "tcp 192.0.2.5 > 198.51.100.7 cwr,ece,urg,ack,psh,rst,syn,fin",
           "tcp 192.0.2.5 > 198.51.100.7 dscp 10 ecn 1 length 400 ttl 3 ihl 6 identification 77 "
           "sequence-number 1 acknowledgement-number 2 data-offset 6 reserved 3 window-size 4 "
           "urgent-pointer 5 ip-flags reserved,fragment,more options 01010100",
           "tcp 192.0.2.5 > 198.51.100.7 ip-flags none options none",
           "udp 192.0.2.5:1 > 198.51.100.7:2 udp-length 9",
           "udp [2001:db8::1]:53 > [2001:db8::2]:5000 dscp 10 flow-label 9",
           "ipv6 tcp any > any:22",
           "tcp any:1 > any",
           "icmp 192.0.2.5 > 198.51.100.7 type 8 code 0 rest-of-header 01020304",
           "icmp6 2001:db8::1 > 2001:db8::2 type 128",
           "icmp rest-of-header none",
           "ipv4 192.0.2.5 > 198.51.100.7 protocol 47",
           "ipv4 192.0.2.5 > 198.51.100.7 protocol 6 offset 5",
           "ipv4 192.0.2.5 > 198.51.100.7 protocol 6 fragment",
           "ipv4 192.0.2.5 > 198.51.100.7 protocol 6 no-transport",
           "ipv6 2001:db8::1 > 2001:db8::2 protocol 17 fragment",
           "ipv4 192.0.2.5 > 198.51.100.7",
           "eth from 00:00:5e:00:53:01 to ff:ff:ff:ff:ff:ff arp",
           "eth to ff:ff:ff:ff:ff:ff ethertype 0x88cc",
           "vlan 5 ipv4",
           "vlan 5 no-ip",
           "ethertype 0x88a8 vlan 5 vlan 6 no-ip",
           "ethertype 0x0800 no-ip",
           "no-eth ipv6",
           "no-ip",
           "eth",
       }) {
    EXPECT_EQ(echoed(words), words);
  }
}

TEST(PacketWords, HaveShortForms) {
  EXPECT_EQ(echoed("ipv4 df len 40 id 3"), "ipv4 length 40 identification 3 ip-flags fragment");
  EXPECT_EQ(echoed("ipv4 df more hop-limit 3"), "ipv4 ttl 3 ip-flags fragment,more");
  EXPECT_EQ(echoed("ipv6 flow 3"), "ipv6 flow-label 3");
  EXPECT_EQ(echoed("tcp syn ack seq 3 window 0x10"),
            "tcp ack,syn sequence-number 3 window-size 16");
  EXPECT_EQ(echoed("eth type arp"), "arp");
  EXPECT_EQ(echoed("ethertype lldp"), "ethertype 0x88cc");
  EXPECT_EQ(echoed("vlan 5 arp 10.0.0.1 > 10.0.0.2"), "vlan 5 no-ip");
}

TEST(PacketWords, NameTypesOfIcmp) {
  EXPECT_EQ(packet_from_words("icmp echo-request").number(Field::icmp_type), 8u);
  EXPECT_EQ(packet_from_words("icmp6 echo-request").number(Field::icmp_type), 128u);
  EXPECT_EQ(packet_from_words("icmp6 too-big").number(Field::icmp_type), 2u);
  EXPECT_EQ(packet_from_words("icmp6 echo-request").number(Field::protocol), 58u);
  expect_refused("icmp too-big", "is a type of icmp6 only");
  expect_refused("tcp echo-reply", "say icmp or icmp6 before it");
}

TEST(PacketWords, ImplyOnlyWhatMustBe) {
  const Packet tcp = packet_from_words("tcp");
  EXPECT_EQ(tcp.has(Header::ipv4), Truth::unknown);
  EXPECT_EQ(tcp.has(Header::ipv6), Truth::unknown);
  EXPECT_FALSE(tcp.knows(Field::ethertype));
  const Packet ip = packet_from_words("ipv4");
  EXPECT_EQ(ip.has(Header::tcp), Truth::unknown);
  const Packet gre = packet_from_words("ipv4 protocol 47");
  EXPECT_EQ(gre.has(Header::tcp), Truth::no);
  EXPECT_EQ(packet_from_words("ipv4 protocol 17").has(Header::udp), Truth::yes);
  EXPECT_EQ(packet_from_words("protocol 17").has(Header::udp), Truth::unknown);
  EXPECT_EQ(packet_from_words("eth").has(Header::ipv4), Truth::unknown);
  EXPECT_EQ(packet_from_words("ethertype 0x0800").has(Header::ipv4), Truth::unknown);
  EXPECT_EQ(packet_from_words("ethertype 0x88cc").has(Header::ipv4), Truth::no);
  EXPECT_EQ(packet_from_words("vlan 5").number(Field::ethertype), 0x8100u);
  EXPECT_EQ(packet_from_words("vlan 5 arp").has(Header::ipv4), Truth::no);
  const Packet fragment = packet_from_words("ipv4 protocol 6 fragment");
  EXPECT_EQ(fragment.has(Header::tcp), Truth::no);
  EXPECT_FALSE(fragment.knows(Field::offset));
}

TEST(PacketWords, AreRefusedWithTheWordAndWhatWouldDo) {
  expect_refused("", "the packet is empty; say one such as");
  expect_refused("tpc 192.0.2.5 > 192.0.2.6",
                 "word 1 of the packet, 'tpc': is not understood; say");
  expect_refused("tcp 192.0.2.5:99999 > 192.0.2.6:1",
                 "word 2 of the packet, '192.0.2.5:99999': '99999' is no port; ports are numbers "
                 "from 0 to 65535");
  expect_refused("tcp 192.0.2.5 > 192.0.2.600", "word 4 of the packet, '192.0.2.600'");
  expect_refused("tcp 192.0.2.5 >", "the packet ends too early: '192.0.2.5' needs an address");
  expect_refused("tcp 192.0.2.5", "put the packet in quotes");
  expect_refused("tcp any", "say both ends with '>'");
  expect_refused("tcp > 192.0.2.5", "say both ends with '>'");
  expect_refused("tcp [192.0.2.5]:3 > any", "is no address");
  expect_refused("tcp 192.0.2.5 > 2001:db8::1", "is of ipv6, but the packet is of ipv4");
  expect_refused("tcp udp", "a packet has one of tcp, udp and icmp; keep one");
  expect_refused("tcp ttl", "the packet ends too early: 'ttl' needs a number from 0 to 255");
  expect_refused("tcp ttl 256", "'256': 'ttl' needs a number from 0 to 255");
  expect_refused("tcp ttl three", "'three': 'ttl' needs a number from 0 to 255");
  expect_refused("ipv6 ihl 5", "is of ipv4, but the packet is of ipv6");
  expect_refused("ipv4 flow 5", "is of ipv6, but the packet is of ipv4");
  expect_refused("ipv4 ttl 5 ttl 6", "says another value than an earlier word");
  expect_refused("udp syn", "a packet has one of tcp, udp and icmp");
  expect_refused("tcp flags sin", "'sin' is no flag; known are cwr, ece");
  expect_refused("ipv4 ip-flags df",
                 "'df' is no flag; known are reserved, fragment, more, and none");
  expect_refused("tcp port 5", "whose? say 'from ADDRESS port N'");
  expect_refused("ipv4 from any port 5", "say tcp or udp");
  expect_refused("icmp from any port 5", "say tcp or udp");
  expect_refused("arp ttl 5 tcp", "has no tcp, udp or icmp header");
  expect_refused("arp ipv4", "has no IP header");
  expect_refused("tcp any:5 > any fragment", "has no ports");
  expect_refused("ipv4 offset 0 fragment", "remove one of the two");
  expect_refused("tcp options abc", "needs pairs of hexadecimal digits");
  expect_refused("tcp protocol 17", "is not that of its tcp header");
  expect_refused("no-eth vlan 5", "has no hardware addresses, type and tags");
  expect_refused("vlan 4096", "'vlan' needs a number from 0 to 4095");
  expect_refused("eth type foo", "needs a number from 0 to 65535");
  expect_refused("tcp \x1b[31m", "\\x1b[31m");
}

// Names are printed with escapes where they could not be told apart otherwise.
TEST(PacketWords, OfInterfacesAreReadAsTheyArePrinted) {
  for (const std::string name : {"a\\b", "\x01 \xff\"", "\xc2\xad", "\xe2\x80\xae",
                                 "\xf3\xa0\x80\x81", "\\x4", "\\u{}", "\\u{0"}) {
    Packet packet = packet_from_words("arp");
    packet.ingress = name;
    const std::string words = packet_words(packet);
    EXPECT_EQ(packet_from_words(words).ingress, name) << words;
  }
  EXPECT_EQ(packet_from_words("arp leaving \\u{41}\\u{e9}").egress, "A\xc3\xa9");
  EXPECT_EQ(packet_from_words("arp leaving \\x4").egress, "\\x4");
  EXPECT_EQ(packet_from_words("arp leaving \\u{z}").egress, "\\u{z}");
  EXPECT_EQ(packet_from_words("arp leaving \\u{1").egress, "\\u{1");
}

}  // namespace
