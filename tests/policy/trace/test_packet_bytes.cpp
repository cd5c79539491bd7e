// Packets from the bytes of frames.
#include "policy/base/criteria.h"
#include "tests/policy/trace/trace_support.h"

namespace {

using namespace qimctl;
using Bytes = std::vector<uint8_t>;

Bytes hex(const std::string& digits) {
  return *bytes_from_hex(digits);
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const Bytes macs =
    hex("00005e005302"
        "00005e005301");
const Bytes type_v4 = hex("0800");
const Bytes type_v6 = hex("86dd");
// 192.0.2.5 > 198.51.100.7, 40 bytes long.
const Bytes ipv4_tcp =
    hex("45290028"
        "00070000"
        "4006ffff"
        "c0000205"
        "c6336407");
const Bytes tcp =
    hex("0fa00016"
        "00000001"
        "00000002"
        "5002ffff"
        "00000003");
const Bytes udp = hex("0035138800080000");

// An IPv6 header with a payload that begins with header `next`.
Bytes ipv6(uint8_t next, size_t payload) {
  Bytes bytes =
      hex("6a512345"
          "00000040"
          "20010db8000000000000000000000001"
          "20010db8000000000000000000000002");
  bytes[5] = static_cast<uint8_t>(payload);
  bytes[6] = next;
  return bytes;
}

Packet parse(const Bytes& bytes, bool is_cut = false) {
  // On the heap and no longer than it is, so that a sanitizer sees whoever reads on.
  const auto copy = std::make_unique<uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return packet_from_bytes({copy.get(), bytes.size()}, FrameKind::ethernet, is_cut);
}

std::string words(const Bytes& bytes) {
  return packet_words(parse(bytes));
}

TEST(PacketBytes, AllOfTcp) {
  EXPECT_EQ(words(macs + type_v4 + ipv4_tcp + tcp),
            "eth from 00:00:5e:00:53:01 to 00:00:5e:00:53:02 tcp 192.0.2.5:4000 > 198.51.100.7:22 "
            "syn dscp 10 ecn 1 length 40 ttl 64 ihl 5 identification 7 sequence-number 1 "
            "acknowledgement-number 2 data-offset 5 reserved 0 window-size 65535 urgent-pointer 3 "
            "ip-flags none options none");
}

TEST(PacketBytes, AllOfUdpOnIpv6) {
  EXPECT_EQ(words(macs + type_v6 + ipv6(17, 8) + udp),
            "eth from 00:00:5e:00:53:01 to 00:00:5e:00:53:02 udp [2001:db8::1]:53 > "
            "[2001:db8::2]:5000 dscp 41 ecn 1 length 8 ttl 64 flow-label 74565 udp-length 8");
}

TEST(PacketBytes, TagsAreGoneOver) {
  const Packet one = parse(macs + hex("81002005") + type_v6 + ipv6(17, 8) + udp);
  EXPECT_EQ(one.vlans, std::vector<uint16_t>{5});
  EXPECT_EQ(one.number(Field::ethertype), 0x8100u);
  EXPECT_EQ(one.has(Header::udp), Truth::yes);
  const Packet two = parse(macs + hex("88a80007"
                                      "81000005"
                                      "0806"));
  EXPECT_EQ(two.vlans, (std::vector<uint16_t>{7, 5}));
  EXPECT_EQ(two.number(Field::ethertype), 0x88a8u);
  EXPECT_EQ(two.has(Header::ipv4), Truth::no);
}

TEST(PacketBytes, OptionsOfIpv4AreGoneOver) {
  Bytes header = ipv4_tcp + hex("01010101");
  header[0] = 0x46;
  header[3] = 44;
  const Packet packet = parse(macs + type_v4 + header + tcp);
  EXPECT_EQ(packet.number(Field::ihl), 6u);
  EXPECT_EQ(packet.number(Field::destination_port), 22u);
}

TEST(PacketBytes, OptionsOfTcpAreKept) {
  Bytes header = tcp + hex("020405b4");
  header[12] = 0x60;
  Bytes ip = ipv4_tcp;
  ip[3] = 44;
  EXPECT_EQ(*parse(macs + type_v4 + ip + header + hex("ffff")).tcp_options, hex("020405b4"));
  header[12] = 0xf0;
  EXPECT_EQ(*parse(macs + type_v4 + ip + header).tcp_options, hex("020405b4"));
  EXPECT_FALSE(parse(macs + type_v4 + ipv4_tcp + header, true).tcp_options == hex("020405b4"));
  ip[3] = 60;
  EXPECT_FALSE(parse(macs + type_v4 + ip + header, true).tcp_options.has_value());
  header[12] = 0;
  EXPECT_TRUE(parse(macs + type_v4 + ip + header).tcp_options->empty());
}

TEST(PacketBytes, PaddingIsNoPayload) {
  Bytes ip = ipv4_tcp;
  ip[3] = 30;
  EXPECT_EQ(parse(macs + type_v4 + ip + tcp).has(Header::tcp), Truth::no);
  ip[3] = 0;  // who writes no length has them cut up later
  EXPECT_EQ(parse(macs + type_v4 + ip + tcp + udp).has(Header::tcp), Truth::yes);
  ip[3] = 4;
  EXPECT_EQ(parse(macs + type_v4 + ip + tcp).has(Header::tcp), Truth::no);
  EXPECT_EQ(parse(macs + type_v6 + ipv6(17, 7) + udp).has(Header::udp), Truth::no);
  EXPECT_EQ(parse(macs + type_v6 + ipv6(17, 0) + udp).has(Header::udp), Truth::yes);
  const Bytes padded = macs + type_v6 + ipv6(58, 0) + hex("000000000000");
  EXPECT_EQ(parse(padded).has(Header::icmp), Truth::no);
}

TEST(PacketBytes, LaterFragmentsHaveNoTransport) {
  Bytes ip = ipv4_tcp;
  ip[7] = 3;
  const Packet later = parse(macs + type_v4 + ip + tcp);
  EXPECT_EQ(later.has(Header::tcp), Truth::no);
  EXPECT_EQ(later.number(Field::protocol), 6u);
  EXPECT_EQ(later.number(Field::offset), 3u);
  ip[6] = 0x20;
  ip[7] = 0;
  const Packet first = parse(macs + type_v4 + ip + tcp);
  EXPECT_EQ(first.has(Header::tcp), Truth::yes);
  EXPECT_EQ(first.number(Field::ip_flags), 1u);
  const Packet first6 = parse(macs + type_v6 + ipv6(44, 16) + hex("1100000100000007") + udp);
  EXPECT_EQ(first6.has(Header::udp), Truth::yes);
  const Packet later6 = parse(macs + type_v6 + ipv6(44, 16) + hex("1100010100000007") + udp);
  EXPECT_EQ(later6.has(Header::udp), Truth::no);
  EXPECT_EQ(later6.number(Field::protocol), 17u);
}

TEST(PacketBytes, ExtensionHeadersAreGoneOver) {
  const std::string rest = std::string(28, '0');
  for (const int kind : {0, 43, 60, 135, 139, 140}) {
    const Packet packet =
        parse(macs + type_v6 + ipv6(static_cast<uint8_t>(kind), 24) + hex("1101" + rest) + udp);
    EXPECT_EQ(packet.has(Header::udp), Truth::yes) << kind;
  }
  const Packet signed_one =
      parse(macs + type_v6 + ipv6(51, 20) + hex("1101" + rest.substr(8)) + udp);
  EXPECT_EQ(signed_one.has(Header::udp), Truth::yes);
  const Packet unknown = parse(macs + type_v6 + ipv6(50, 24) + hex("1101" + rest) + udp);
  EXPECT_EQ(unknown.number(Field::protocol), 50u);
  EXPECT_EQ(unknown.has(Header::udp), Truth::no);
}

TEST(PacketBytes, IcmpOfBothKinds) {
  Bytes ip = ipv4_tcp;
  ip[9] = 1;
  ip[3] = 28;
  const Packet ping = parse(macs + type_v4 + ip + hex("0800ffff01020304"));
  EXPECT_EQ(ping.has(Header::icmp), Truth::yes);
  EXPECT_EQ(ping.number(Field::icmp_type), 8u);
  EXPECT_EQ(*ping.icmp_rest, hex("01020304"));
  EXPECT_EQ(parse(macs + type_v6 + ipv6(58, 4) + hex("8003ffff")).number(Field::icmp_code), 3u);
  EXPECT_EQ(parse(macs + type_v6 + ipv6(1, 4) + hex("8003ffff")).has(Header::icmp), Truth::no);
  ip[9] = 58;
  EXPECT_EQ(parse(macs + type_v4 + ip + hex("0800ffff01020304")).has(Header::icmp), Truth::no);
}

TEST(PacketBytes, HeadersThatCannotBeAreNone) {
  Bytes ip = ipv4_tcp;
  ip[0] = 0x44;
  EXPECT_EQ(parse(macs + type_v4 + ip + tcp).has(Header::ipv4), Truth::no);
  ip[0] = 0x65;
  EXPECT_EQ(parse(macs + type_v4 + ip + tcp).has(Header::ipv4), Truth::no);
  EXPECT_EQ(parse(macs + type_v6 + ipv4_tcp + tcp + tcp).has(Header::ipv6), Truth::no);
  ip[0] = 0x4f;
  EXPECT_EQ(parse(macs + type_v4 + ip).has(Header::ipv4), Truth::no);
}

// Cut anywhere: as short a frame a header is missing from, or nobody knows when more was there.
TEST(PacketBytes, TruncatedAnywhere) {
  const std::string zeros = std::string(28, '0');
  for (const Bytes& whole :
       {macs + type_v4 + ipv4_tcp + tcp, macs + hex("81000005") + type_v4 + ipv4_tcp + tcp,
        macs + type_v6 + ipv6(0, 52) + hex("2c01" + zeros) + hex("3301000000000007") +
            hex("1101" + zeros.substr(8)) + udp + udp,
        macs + type_v6 + ipv6(58, 8) + hex("8000ffff00010002")}) {
    const Packet all = parse(whole);
    for (size_t size = 0; size < whole.size(); size++) {
      const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      const Packet packet = parse(part);
      const Packet cut = parse(part, true);
      for (const Header header :
           {Header::eth, Header::ipv4, Header::ipv6, Header::tcp, Header::udp, Header::icmp}) {
        EXPECT_NE(packet.has(header), Truth::unknown) << size;
        if (cut.has(header) != Truth::unknown && size >= 18) {
          EXPECT_EQ(cut.has(header), all.has(header)) << size << header_name(header);
        }
      }
    }
  }
}

TEST(PacketBytes, WithoutEthernet) {
  const Bytes v4 = ipv4_tcp + tcp;
  const Packet packet = packet_from_bytes(v4, FrameKind::ip);
  EXPECT_EQ(packet.has(Header::eth), Truth::no);
  EXPECT_EQ(packet.has(Header::tcp), Truth::yes);
  const Bytes v6 = ipv6(17, 8) + udp;
  EXPECT_EQ(packet_from_bytes(v6, FrameKind::ip).has(Header::udp), Truth::yes);
  EXPECT_EQ(packet_from_bytes(hex("00"), FrameKind::ip).has(Header::ipv4), Truth::no);
  EXPECT_EQ(packet_from_bytes({}, FrameKind::ip).has(Header::ipv4), Truth::no);
}

}  // namespace
