// Taking frames apart. Every read goes through a view of the bytes that are left, which says how many
// there are.
#include "policy/trace/packet_bytes.h"

#include <algorithm>

namespace qimctl {

namespace {

using Bytes = std::span<const uint8_t>;

uint64_t number(Bytes bytes, size_t at, size_t width) {
  return to_wide(bytes.subspan(at, width)).low;
}

// IPv6 extension headers, by the protocol number that announces each.
constexpr uint8_t next_hop_by_hop = 0;
constexpr uint8_t next_routing = 43;
constexpr uint8_t next_fragment = 44;
constexpr uint8_t next_authentication = 51;
constexpr uint8_t next_destination = 60;
constexpr uint8_t next_mobility = 135;
constexpr uint8_t next_identity = 139;
constexpr uint8_t next_shim = 140;

// Ethernet pads shorter frames to this, without the checksum.
constexpr size_t least_frame = 60;

bool is_extension(uint8_t next) {
  switch (next) {
    case next_hop_by_hop:
    case next_routing:
    case next_fragment:
    case next_authentication:
    case next_destination:
    case next_mobility:
    case next_identity:
    case next_shim:
      return true;
    default:
      return false;
  }
}

class Parser {
 public:
  Parser(Bytes bytes, bool is_cut)
      : left_(bytes), is_cut_(is_cut), is_padded_(bytes.size() <= least_frame) {}

  Packet parse(FrameKind kind);

 private:
  void ethernet();
  void ip();
  void network(uint64_t ethertype);
  void ipv4();
  void ipv6();
  bool extension(uint8_t& next);
  void transport(Header network, uint8_t protocol);
  void tcp();
  void udp();
  void icmp();

  // Are there so many bytes?
  bool have(size_t bytes) const { return left_.size() >= bytes; }
  void skip(size_t bytes) { left_ = left_.subspan(bytes); }
  // A header is not whole: nobody can say, when the frame was cut there.
  Truth missing() const { return is_cut_ ? Truth::unknown : Truth::no; }
  void clip(size_t header, uint64_t length);
  void set(Field field, size_t at, size_t width) { packet_.set(field, number(left_, at, width)); }

  Packet packet_;
  Bytes left_;
  bool is_cut_;
  bool is_padded_;
  bool is_later_fragment_ = false;
};

Packet Parser::parse(FrameKind kind) {
  packet_.set_no_network();
  packet_.set_header(Header::eth, Truth::no);
  kind == FrameKind::ethernet ? ethernet() : ip();
  return std::move(packet_);
}

void Parser::ethernet() {
  packet_.set_header(Header::eth, have(14) ? Truth::yes : missing());
  if (!have(14)) {
    for (const Header header : {Header::ipv4, Header::ipv6, Header::tcp, Header::udp, Header::icmp})
      packet_.set_header(header, missing());
    return;
  }
  set(Field::destination_mac, 0, 6);
  set(Field::source_mac, 6, 6);
  set(Field::ethertype, 12, 2);
  uint64_t ethertype = packet_.number(Field::ethertype);
  skip(14);
  while (ethertype == ethertype_vlan || ethertype == ethertype_provider_vlan) {
    if (!have(4)) break;
    packet_.vlans.push_back(static_cast<uint16_t>(number(left_, 0, 2) & 0xfff));
    ethertype = number(left_, 2, 2);
    skip(4);
  }
  network(ethertype);
}

void Parser::ip() {
  if (left_.empty()) return;
  network(left_[0] >> 4 == 4 ? ethertype_ipv4 : left_[0] >> 4 == 6 ? ethertype_ipv6 : 0);
}

void Parser::network(uint64_t ethertype) {
  if (ethertype == ethertype_ipv4) return ipv4();
  if (ethertype == ethertype_ipv6) return ipv6();
}

// What lies behind the packet is padding. Who hands on large pieces to be cut up later writes no
// length; such a piece is larger than frames that are padded.
void Parser::clip(size_t header, uint64_t length) {
  if (length == 0 && !is_padded_) return;
  length += header;
  if (length > left_.size()) return;
  left_ = left_.first(static_cast<size_t>(length));
  is_cut_ = false;
}

void Parser::ipv4() {
  if (!have(20)) {
    for (const Header header : {Header::ipv4, Header::tcp, Header::udp, Header::icmp})
      packet_.set_header(header, missing());
    return;
  }
  const uint32_t ihl = left_[0] & 0xf;
  const size_t header = size_t{4} * ihl;
  if (left_[0] >> 4 != 4 || ihl < 5 || (!have(header) && !is_cut_)) return;
  packet_.set_network(Header::ipv4);
  packet_.set(Field::ihl, ihl);
  packet_.set(Field::dscp, left_[1] >> 2);
  packet_.set(Field::ecn, left_[1] & 3);
  set(Field::length, 2, 2);
  set(Field::identification, 4, 2);
  packet_.set(Field::ip_flags, left_[6] >> 5);
  packet_.set(Field::offset, number(left_, 6, 2) & 0x1fff);
  set(Field::ttl, 8, 1);
  set(Field::protocol, 9, 1);
  set(Field::source, 12, 4);
  set(Field::destination, 16, 4);
  is_later_fragment_ = packet_.number(Field::offset) != 0;
  const uint8_t protocol = left_[9];
  clip(0, packet_.number(Field::length));
  skip(std::min(header, left_.size()));
  transport(Header::ipv4, protocol);
}

void Parser::ipv6() {
  if (!have(40)) {
    for (const Header header : {Header::ipv6, Header::tcp, Header::udp, Header::icmp})
      packet_.set_header(header, missing());
    return;
  }
  if (left_[0] >> 4 != 6) return;
  packet_.set_network(Header::ipv6);
  const uint64_t traffic_class = number(left_, 0, 2) >> 4 & 0xff;
  packet_.set(Field::dscp, traffic_class >> 2);
  packet_.set(Field::ecn, traffic_class & 3);
  packet_.set(Field::flow_label, number(left_, 0, 4) & 0xfffff);
  set(Field::length, 4, 2);
  set(Field::ttl, 7, 1);
  packet_.set(Field::source, to_wide(left_.subspan(8, 16)));
  packet_.set(Field::destination, to_wide(left_.subspan(24, 16)));
  uint8_t next = left_[6];
  clip(40, packet_.number(Field::length));
  skip(40);
  while (is_extension(next) && !is_later_fragment_) {
    if (extension(next)) continue;
    if (!is_cut_) break;
    packet_.set_header(Header::tcp, Truth::unknown);
    packet_.set_header(Header::udp, Truth::unknown);
    packet_.set_header(Header::icmp, Truth::unknown);
    return;
  }
  packet_.set(Field::protocol, next);
  transport(Header::ipv6, next);
}

// Goes over an extension header, to what follows it. False when it is not whole.
bool Parser::extension(uint8_t& next) {
  if (!have(8)) return false;
  size_t length = 8 + size_t{8} * left_[1];
  if (next == next_fragment) length = 8;
  if (next == next_authentication) length = 8 + size_t{4} * left_[1];
  if (!have(length)) return false;
  if (next == next_fragment) is_later_fragment_ = number(left_, 2, 2) >> 3 != 0;
  next = left_[0];
  skip(length);
  return true;
}

void Parser::transport(Header network, uint8_t protocol) {
  const std::optional<Header> header = transport_of(network, protocol);
  if (!header || is_later_fragment_) return;
  const size_t least = *header == Header::tcp ? 20 : *header == Header::udp ? 8 : 4;
  if (!have(least)) return packet_.set_header(*header, missing());
  packet_.set_transport(*header);
  if (*header == Header::tcp) return tcp();
  if (*header == Header::udp) return udp();
  icmp();
}

void Parser::tcp() {
  set(Field::source_port, 0, 2);
  set(Field::destination_port, 2, 2);
  set(Field::sequence, 4, 4);
  set(Field::acknowledgement, 8, 4);
  packet_.set(Field::data_offset, left_[12] >> 4);
  packet_.set(Field::reserved, left_[12] & 0xf);
  set(Field::tcp_flags, 13, 1);
  set(Field::window, 14, 2);
  set(Field::urgent, 18, 2);
  const size_t header = size_t{4} * (left_[12] >> 4);
  const bool whole = have(header);
  if (!whole && is_cut_) return;
  const size_t end = std::max<size_t>(20, whole ? header : left_.size());
  const Bytes options = left_.subspan(20, end - 20);
  packet_.tcp_options.emplace(options.begin(), options.end());
}

void Parser::udp() {
  set(Field::source_port, 0, 2);
  set(Field::destination_port, 2, 2);
  set(Field::udp_length, 4, 2);
}

void Parser::icmp() {
  set(Field::icmp_type, 0, 1);
  set(Field::icmp_code, 1, 1);
  const Bytes rest = left_.subspan(4);
  if (!is_cut_) packet_.icmp_rest.emplace(rest.begin(), rest.end());
}

}  // namespace

Packet packet_from_bytes(std::span<const uint8_t> frame, FrameKind kind, bool is_cut) {
  return Parser(frame, is_cut).parse(kind);
}

}  // namespace qimctl
