// Entries in words: one short line, in the vocabulary in which packets are written too.
//
//   any
//   ipv4 tcp from 10.0.0.0/8 port 1024-65535 to 192.0.2.1 port 22 flags syn
//   eth from 00:11:22:33:44:55 type arp
//   ipv6 icmp6 to 2001:db8::/32 type 128
//   entering eth0 udp to any port !=53
//   ietf-acldns ipv4/dst-dnsname "example.com" (only that model decides)
//
// Headers come first, from the outer to the inner; then where from and where to, each with its port;
// then the other fields by their names. An address without a length is a single one; "any" stands for
// an address that the entry does not ask for. A protocol number that the header behind it tells is
// left out. What has no place in this order, such as fields of a header beside another one of its
// layer, types that are not known and damaged arguments, comes last with commas in front, as
// criterion_text() has it.
#pragma once

#include <string>
#include <string_view>

#include "policy/model/model.h"

namespace qimctl {

std::string criteria_words(const Entry& entry);

// "accept", "drop log", "accept police gold"
std::string action_words(const Entry& entry);

// What becomes of packets that no entry matches: "drop"
std::string default_words(const AccessList& list);

// The kinds of headers that a list may match on: "ipv4", "eth+ipv6", "any" when it does not say.
std::string list_type_words(uint32_t type);

// "64000 bytes/s burst 8000 peak 128000 bytes/s"; what is not limited is left out.
std::string policer_words(const Policer& policer);

// A name as one word: in quotes when it has blanks or anything that could be taken for more.
std::string name_word(const std::string& name);

}  // namespace qimctl
