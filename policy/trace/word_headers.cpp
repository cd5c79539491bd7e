// Reading packets in words: headers, and what words imply of each other.
#include "policy/trace/packet_words.h"
#include "policy/trace/word_reader.h"

namespace qimctl {

bool WordReader::read_header(const std::string& word) {
  if (word == "eth") return true;
  if (word == "vlan") return take_vlan(), true;
  if (word == "no-eth") return no_eth_ = true;
  if (word == "no-ip") return no_ip_ = true;
  if (word == "no-transport") return no_transport_ = true;
  if (word == "arp") return is_arp_ = true;
  if (word == "ipv4") return take_network(Header::ipv4), true;
  if (word == "ipv6") return take_network(Header::ipv6), true;
  if (word == "tcp") return take_transport(Header::tcp), true;
  if (word == "udp") return take_transport(Header::udp), true;
  if (word != "icmp" && word != "icmp6") return false;
  take_transport(Header::icmp);
  take_network(word == "icmp" ? Header::ipv4 : Header::ipv6);
  return true;
}

void WordReader::take_network(Header header) {
  if (is_arp_ || no_ip_) fail(word_, "an arp packet, or one with 'no-ip', has no IP header");
  if (network_ && *network_ != header)
    fail(word_, "is of " + std::string(header_name(header)) + ", but the packet is of " +
                    std::string(header_name(*network_)));
  network_ = header;
}

void WordReader::take_transport(Header header) {
  if (transport_ && *transport_ != header)
    fail(word_, "a packet has one of tcp, udp and icmp; keep one");
  transport_ = header;
}

void WordReader::take_vlan() {
  packet_.vlans.push_back(static_cast<uint16_t>(need_number(0, 4095)));
}

bool WordReader::read_fragment(const std::string& word) {
  return word == "fragment" && (fragment_ = true);
}

void WordReader::finish() {
  if ((has_ports_ || transport_) && (is_arp_ || no_ip_))
    throw PacketError("an arp packet, or one with 'no-ip', has no tcp, udp or icmp header");
  if (has_ports_ && (!transport_ || *transport_ == Header::icmp))
    throw PacketError("the packet has ports but no header that could hold them; say tcp or udp");
  const bool has_offset = packet_.knows(Field::offset) && packet_.number(Field::offset) != 0;
  const bool is_later = fragment_ || has_offset;
  if (fragment_ && packet_.knows(Field::offset) && !has_offset)
    throw PacketError(
        "'fragment' is a later fragment, whose offset is not 0; remove one of the two");
  if (has_ports_ && (is_later || no_transport_))
    throw PacketError(
        "a later fragment, or a packet with 'no-transport', has no ports; leave them "
        "out, or 'fragment', 'offset' and 'no-transport'");
  no_transport_ = no_transport_ || is_later;
  if (network_) packet_.set_network(*network_);
  if (is_arp_ || no_ip_) packet_.set_no_network();
  // An Ethernet type that is not IP's, on an untagged frame.
  const bool foreign = packet_.knows(Field::ethertype) && !network_ && !transport_ &&
                       packet_.vlans.empty() &&
                       packet_.number(Field::ethertype) != ethertype_ipv4 &&
                       packet_.number(Field::ethertype) != ethertype_ipv6 &&
                       packet_.number(Field::ethertype) != ethertype_vlan &&
                       packet_.number(Field::ethertype) != ethertype_provider_vlan;
  if (foreign) packet_.set_no_network();
  imply_transport();
  if (network_ == Header::ipv4 && !is_later) packet_.set(Field::offset, 0);
  imply_ethernet();
}

// Protocol number and transport header tell each other.
void WordReader::imply_transport() {
  const bool has_protocol = packet_.knows(Field::protocol);
  if (transport_) {
    const bool is_icmp6 = network_ == Header::ipv6;
    const uint8_t protocol = *transport_ == Header::tcp   ? protocol_tcp
                             : *transport_ == Header::udp ? protocol_udp
                             : is_icmp6                   ? protocol_icmp6
                                                          : protocol_icmp;
    if (has_protocol && packet_.number(Field::protocol) != protocol)
      throw PacketError("the packet's protocol number is not that of its " +
                        std::string(header_name(*transport_)) + " header; leave it out");
    packet_.set(Field::protocol, protocol);
    packet_.set_transport(*transport_);
  } else if (has_protocol && network_) {
    const auto header = transport_of(*network_, packet_.number(Field::protocol));
    if (header) packet_.set_transport(*header);
    if (!header) packet_.set_no_transport();
  }
  if (no_transport_) packet_.set_no_transport();
}

void WordReader::imply_ethernet() {
  if (no_eth_) {
    if (packet_.knows(Field::ethertype) || !packet_.vlans.empty() ||
        packet_.knows(Field::source_mac) || packet_.knows(Field::destination_mac))
      throw PacketError("a packet with 'no-eth' has no hardware addresses, type and tags");
    return packet_.set_header(Header::eth, Truth::no);
  }
  packet_.set_header(Header::eth, Truth::yes);
  if (packet_.knows(Field::ethertype)) return;
  if (!packet_.vlans.empty()) return packet_.set(Field::ethertype, ethertype_vlan);
  if (is_arp_) return packet_.set(Field::ethertype, ethertype_arp);
  if (!network_) return;
  packet_.set(Field::ethertype, *network_ == Header::ipv4 ? ethertype_ipv4 : ethertype_ipv6);
}

}  // namespace qimctl
