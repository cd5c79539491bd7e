// The words that packets are described with, and entries too.
#include <array>
#include <string_view>
#include <utility>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/explain/topics.h"
#include "policy/trace/vocabulary.h"

namespace qimctl {

namespace {

constexpr const char* of_packets = "word of packets";
constexpr const char* packet_users = "PACKET of qimctl trace; entries in qimctl acl";

// `names` are apart by commas; the first is its own.
struct Word {
  std::string_view names;
  std::string_view meaning;
  std::string_view range;  // "" = none
};

constexpr std::array words{
    Word{"eth", "the Ethernet header, which a packet has unless no-eth says otherwise", ""},
    Word{"vlan", "a tag of a virtual network, the outer one first: vlan N", "0 to 4095"},
    Word{"arp", "an ARP packet: Ethernet type 0x0806, without an IP header", ""},
    Word{"ipv4", "the IPv4 header", ""},
    Word{"ipv6", "the IPv6 header", ""},
    Word{"tcp", "the TCP header; implies protocol 6", ""},
    Word{"udp", "the UDP header; implies protocol 17", ""},
    Word{"icmp", "the ICMP header of IPv4; implies ipv4 and protocol 1", ""},
    Word{"icmp6", "the ICMP header of IPv6; implies ipv6 and protocol 58", ""},
    Word{"no-eth", "there is no Ethernet header", ""},
    Word{"no-ip", "there is no IP header", ""},
    Word{"no-transport", "there is no TCP, UDP or ICMP header", ""},
    Word{"from,to", "where a packet comes from, where it goes to: from ADDRESS port N",
         "an IPv4, IPv6 or hardware address, or any; of entries also a network, 192.0.2.0/24"},
    Word{">,->", "between where a packet comes from and where it goes to: A:PORT > B:PORT", ""},
    Word{"port", "of the end before it; of entries also !=N, <=N, >=N and N-M", "0 to 65535"},
    Word{"any", "an address that is not said, or an entry that every packet matches", ""},
    Word{"entering", "the interface through which the packet comes in", "a name"},
    Word{"leaving", "the interface through which the packet goes out", "a name"},
    Word{"flags", "TCP flags, with commas between them, or none",
         "fin, syn, rst, psh, ack, urg, ece, cwr"},
    Word{"ip-flags", "IPv4 flags, with commas between them, or none", "reserved, fragment, more"},
    Word{"df", "the IPv4 flag that forbids fragments", ""},
    Word{"none", "no flag, or no bytes", ""},
    Word{"fragment",
         "a later fragment, which has no TCP, UDP or ICMP header; as an IPv4 flag, that there may "
         "be "
         "no fragments",
         ""},
    Word{"type", "the ICMP type behind icmp and icmp6, else the Ethernet type",
         "0 to 255; 0 to 65535, or arp, ipv4, ipv6, vlan, lldp"},
    Word{"ethertype", "the Ethernet type", "0 to 65535, or arp, ipv4, ipv6, vlan, lldp"},
    Word{"options", "the TCP options as hexadecimal digits, or none", "1 to 40 bytes"},
    Word{"rest-of-header,rest", "the rest of the ICMP header as hexadecimal digits, or none", ""},
    Word{"only that model decides", "behind a match of another model: nobody here can decide it",
         ""},
};

Topic topic_of(const Word& word) {
  Topic topic{split_at_commas(std::string(word.names)), {}, of_packets, {}};
  topic.facts.emplace_back("meaning", word.meaning);
  if (!word.range.empty()) topic.facts.emplace_back("range", word.range);
  topic.facts.emplace_back("who uses it", packet_users);
  return topic;
}

Topic number_topic(const NumberWord& word) {
  Topic topic{{std::string(word.name)}, {}, of_packets, {}};
  if (!word.alias.empty()) topic.names.emplace_back(word.alias);
  std::string header = word.ipv4 && word.ipv6 ? "ipv4 or ipv6" : word.ipv4 ? "ipv4" : "ipv6";
  if (word.transport != Header::interface) header = header_name(word.transport);
  topic.facts = {{"meaning", "the field " + std::string(word.name) + " of the header " + header +
                                 ", with its value behind it"},
                 {"range", std::to_string(word.least) + " to " + std::to_string(word.most)},
                 {"who uses it", packet_users}};
  return topic;
}

Topic icmp_topic(const IcmpName& name) {
  constexpr uint32_t none = 256;
  std::string range = "icmp6 type " + std::to_string(name.icmp6);
  if (name.icmp != none) range = "icmp type " + std::to_string(name.icmp) + ", " + range;
  return {{std::string(name.name)},
          {},
          "ICMP type",
          {{"meaning", "a type of ICMP messages; stands behind icmp or icmp6"},
           {"range", range},
           {"who uses it", packet_users}}};
}

Topic flag_topic(const FlagName& flag, const char* kind, const char* range) {
  return {{std::string(flag.name)},
          {},
          kind + (" " + hex_number(flag.bit, 2)),
          {{"meaning", "a bit of the field flags; with commas between several"},
           {"range", range},
           {"who uses it", packet_users}}};
}

Topic ethertype_topic(const EthertypeName& name) {
  return {{std::string(name.name)},
          {name.number},
          "Ethernet type " + hex_number(name.number, 4),
          {{"meaning", "what follows the Ethernet header"}, {"who uses it", packet_users}}};
}

Topic operator_topic(const OperatorName& name) {
  constexpr std::array<std::pair<PortOperator, const char*>, 4> signs{
      {{PortOperator::eq, "the port is N; printed as N"},
       {PortOperator::neq, "the port is any but N; printed as !=N"},
       {PortOperator::lte, "the port is N or below it; printed as <=N"},
       {PortOperator::gte, "the port is N or above it; printed as >=N"}}};
  Topic topic{{std::string(name.name)}, {}, "operator of ports", {}};
  for (const auto& [code, meaning] : signs)
    if (code == name.code) topic.facts.emplace_back("meaning", meaning);
  topic.facts.emplace_back("range", "0 to 65535");
  topic.facts.emplace_back("who uses it", "tcp.source-port and the like, qimctl criteria");
  return topic;
}

}  // namespace

std::vector<Topic> packet_topics() {
  std::vector<Topic> topics;
  topics.reserve(words.size());
  for (const Word& word : words) topics.push_back(topic_of(word));
  for (const NumberWord& word : number_words()) topics.push_back(number_topic(word));
  for (const IcmpName& name : icmp_names()) topics.push_back(icmp_topic(name));
  for (const FlagName& flag : flag_names(Encoding::tcp_flags))
    topics.push_back(flag_topic(flag, "TCP flag", "flags syn,ack, or syn alone"));
  for (const FlagName& flag : flag_names(Encoding::ipv4_flags))
    topics.push_back(flag_topic(flag, "IPv4 flag", "ip-flags fragment,more"));
  for (const EthertypeName& name : ethertype_names()) topics.push_back(ethertype_topic(name));
  for (const OperatorName& name : port_operators()) topics.push_back(operator_topic(name));
  return topics;
}

}  // namespace qimctl
