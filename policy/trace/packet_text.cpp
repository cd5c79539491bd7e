// Writing packets in words.
#include <algorithm>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/model/words.h"
#include "policy/trace/packet_words.h"
#include "policy/trace/vocabulary.h"

namespace qimctl {

namespace {

class WordWriter {
 public:
  explicit WordWriter(const Packet& packet) : packet_(packet) {
    if (packet.has(Header::ipv4) == Truth::yes) network_ = Header::ipv4;
    if (packet.has(Header::ipv6) == Truth::yes) network_ = Header::ipv6;
    for (const Header header : {Header::tcp, Header::udp, Header::icmp})
      if (packet.has(header) == Truth::yes) transport_ = header;
  }

  void say_interfaces();
  void say_ethernet();
  void say_ethertype();
  void say_headers();
  void say_ends();
  void say_tcp_flags();
  void say_fields();
  void say_strings();
  std::string text() const { return text_; }

 private:
  void say(const std::string& word) { text_ += (text_.empty() ? "" : " ") + word; }
  bool knows(Field field) const { return packet_.knows(field); }
  uint64_t implied_ethertype() const;
  std::string side_text(Field address, Field port, bool in_brackets) const;
  bool is_said_by_header(const NumberWord& word) const;

  const Packet& packet_;
  std::optional<Header> network_;
  std::optional<Header> transport_;
  std::string text_;
};

void WordWriter::say_interfaces() {
  if (!packet_.ingress.empty()) say("entering " + name_word(packet_.ingress));
  if (!packet_.egress.empty()) say("leaving " + name_word(packet_.egress));
}

// What a reader takes the Ethernet type for when no word says it; a number that is none, when nothing.
uint64_t WordWriter::implied_ethertype() const {
  if (!packet_.vlans.empty()) return ethertype_vlan;
  if (!network_) return UINT64_MAX;
  return *network_ == Header::ipv4 ? ethertype_ipv4 : ethertype_ipv6;
}

void WordWriter::say_ethernet() {
  if (packet_.has(Header::eth) == Truth::no) return say("no-eth");
  if (knows(Field::source_mac) || knows(Field::destination_mac)) {
    say("eth");
    if (knows(Field::source_mac)) say("from " + mac_text(packet_.number(Field::source_mac)));
    if (knows(Field::destination_mac))
      say("to " + mac_text(packet_.number(Field::destination_mac)));
  }
  say_ethertype();
  for (const uint16_t vlan : packet_.vlans) say("vlan " + std::to_string(vlan));
}

void WordWriter::say_ethertype() {
  if (!knows(Field::ethertype)) return;
  const uint64_t type = packet_.number(Field::ethertype);
  if (type == implied_ethertype()) return;
  say(type == ethertype_arp ? "arp" : "ethertype " + hex_number(type, 4));
}

void WordWriter::say_headers() {
  const bool both = knows(Field::source) && knows(Field::destination);
  const bool is_icmp = transport_ == Header::icmp;
  if (network_ && (!both || !transport_) && !is_icmp) say(std::string(header_name(*network_)));
  if (is_icmp && network_) return say(network_ == Header::ipv4 ? "icmp" : "icmp6");
  if (transport_) return say(std::string(header_name(*transport_)));
  const bool none =
      packet_.has(Header::ipv4) == Truth::no && packet_.has(Header::ipv6) == Truth::no;
  const uint64_t type = knows(Field::ethertype) ? packet_.number(Field::ethertype) : UINT64_MAX;
  const bool could_be_ip = type == ethertype_ipv4 || type == ethertype_ipv6 ||
                           type == ethertype_vlan || type == ethertype_provider_vlan ||
                           type == UINT64_MAX;
  if (none && could_be_ip) say("no-ip");
}

std::string WordWriter::side_text(Field address, Field port, bool in_brackets) const {
  std::string text =
      knows(address) && network_ ? address_text(*network_, packet_.value(address)) : "any";
  if (!knows(port)) return text;
  if (in_brackets && text != "any") text = "[" + text + "]";
  return text + ":" + std::to_string(packet_.number(port));
}

void WordWriter::say_ends() {
  const bool any = knows(Field::source) || knows(Field::destination) || knows(Field::source_port) ||
                   knows(Field::destination_port);
  if (!any) return;
  const bool in_brackets = network_ == Header::ipv6;
  say(side_text(Field::source, Field::source_port, in_brackets) + " > " +
      side_text(Field::destination, Field::destination_port, in_brackets));
}

void WordWriter::say_tcp_flags() {
  if (!knows(Field::tcp_flags)) return;
  const auto flags = static_cast<uint8_t>(packet_.number(Field::tcp_flags));
  const std::string text = criterion_text(0x0505, {&flags, 1});
  const std::string names = text.substr(text.find(' ') + 1);
  say(names == "none" ? "flags none" : names);
}

// The protocol of the header that was named, and that the packet is no later fragment.
bool WordWriter::is_said_by_header(const NumberWord& word) const {
  if (word.field == Field::protocol) return transport_.has_value();
  return word.field == Field::offset && packet_.number(word.field) == 0;
}

void WordWriter::say_fields() {
  if (knows(Field::icmp_type)) say("type " + std::to_string(packet_.number(Field::icmp_type)));
  for (const NumberWord& word : number_words()) {
    if (!knows(word.field) || is_said_by_header(word)) continue;
    say(std::string(word.name) + " " + std::to_string(packet_.number(word.field)));
  }
  if (knows(Field::ip_flags)) {
    const auto flags = static_cast<uint8_t>(packet_.number(Field::ip_flags));
    say("ip-flags " +
        criterion_text(0x0307, {&flags, 1}).substr(std::string("ipv4.flags ").size()));
  }
  // A packet without the header that its protocol stands for, or whose protocol is not known.
  const bool none = network_ && packet_.has(Header::tcp) == Truth::no && !transport_;
  const bool later = knows(Field::offset) && packet_.number(Field::offset) != 0;
  const bool expected = !knows(Field::protocol) ||
                        (network_ && transport_of(*network_, packet_.number(Field::protocol)));
  if (!none || later || !expected) return;
  say(network_ == Header::ipv4 && knows(Field::offset) ? "no-transport" : "fragment");
}

void WordWriter::say_strings() {
  const auto say_bytes = [this](const char* word, const std::vector<uint8_t>& bytes) {
    say(std::string(word) + " " + (bytes.empty() ? "none" : hex_bytes(bytes)));
  };
  if (packet_.tcp_options) say_bytes("options", *packet_.tcp_options);
  if (packet_.icmp_rest) say_bytes("rest-of-header", *packet_.icmp_rest);
}

}  // namespace

std::string packet_words(const Packet& packet) {
  WordWriter writer(packet);
  writer.say_interfaces();
  writer.say_ethernet();
  writer.say_headers();
  writer.say_ends();
  writer.say_tcp_flags();
  writer.say_fields();
  writer.say_strings();
  return writer.text().empty() ? "eth" : writer.text();
}

std::string packet_summary(const Packet& packet) {
  WordWriter writer(packet);
  writer.say_ethertype();
  writer.say_headers();
  writer.say_ends();
  writer.say_tcp_flags();
  return writer.text().empty() ? "eth" : writer.text();
}

}  // namespace qimctl
