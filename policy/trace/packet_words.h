// Packets in words, in the vocabulary in which entries are shown.
//
//   tcp 192.0.2.5:4000 > 198.51.100.7:22 syn
//   ipv4 tcp from 192.0.2.5 port 4000 to any port 22 flags syn,ack ttl 3
//   udp [2001:db8::1]:53 > [2001:db8::2]:5000 dscp 10 length 400
//   icmp6 2001:db8::1 > 2001:db8::2 echo-request
//   ipv4 192.0.2.5 > 198.51.100.7 protocol 6 fragment
//   vlan 5 arp
//   eth from 00:00:5e:00:53:01 type 0x88cc
//
// Headers come first, from the outer to the inner, then where from and where to, then all else in any
// order. What no word says is not known, but for this: a packet has an Ethernet header, whose type is
// that of its first tag or of what follows, unless "no-eth" says otherwise; "tcp", "udp", "icmp" and
// "icmp6" imply the protocol, the last two the header below; a protocol number implies the header of
// that protocol, or that there is none; and a packet is no later fragment unless "fragment" or
// "offset" says so, which has no such header.
#pragma once

#include <stdexcept>
#include <string>

#include "policy/trace/packet.h"

namespace qimctl {

// What is wrong with a packet in words: which word, and what would be understood.
class PacketError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws PacketError.
Packet packet_from_words(const std::string& text);

// The same packet in words: reading them gives it again, as far as words can say it. Not said is what
// follows from the words anyway.
std::string packet_words(const Packet& packet);

// Headers, addresses, ports and TCP flags only.
std::string packet_summary(const Packet& packet);

}  // namespace qimctl
