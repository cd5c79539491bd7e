// Reading packets in words.
#include "policy/trace/packet_words.h"

#include <arpa/inet.h>

#include <algorithm>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/trace/vocabulary.h"

namespace qimctl {

namespace {

std::string shown(const std::string& text) {
  return "'" + printable(text) + "'";
}

// Words are apart by blanks; ">" and "->" are words of their own, and what stands in quotes is one.
std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  bool in_quotes = false;
  const auto end_word = [&] {
    if (!word.empty()) words.push_back(std::move(word));
    word.clear();
  };
  for (const char c : text) {
    if (c == '"') {
      in_quotes = !in_quotes;
    } else if (!in_quotes && (c == ' ' || c == '\t' || c == '\n')) {
      end_word();
    } else if (!in_quotes && c == '>') {
      if (word != "-") end_word();
      word.clear();
      words.emplace_back(">");
    } else {
      word += c;
    }
  }
  end_word();
  return words;
}

std::optional<Wide> parse_address(Header network, const std::string& text) {
  std::array<uint8_t, 16> bytes{};
  const bool is_ipv4 = network == Header::ipv4;
  if (inet_pton(is_ipv4 ? AF_INET : AF_INET6, text.c_str(), bytes.data()) != 1) return {};
  return to_wide(std::span(bytes).first(is_ipv4 ? 4 : 16));
}

std::optional<uint64_t> parse_mac(std::string text) {
  if (text.size() != 17) return {};
  for (size_t i = 2; i < text.size(); i += 3) {
    if (text[i] != ':') return {};
  }
  std::erase(text, ':');
  const auto bytes = bytes_from_hex(text);
  if (!bytes || bytes->size() != 6) return {};
  return to_wide(*bytes).low;
}

std::vector<std::string> split_at_commas(const std::string& text) {
  std::vector<std::string> parts{""};
  for (const char c : text) {
    if (c == ',') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

// One of the two ends of a packet.
struct Side {
  const char* name;
  Field mac;
  Field address;
  Field port;
};
constexpr Side from_side{"from", Field::source_mac, Field::source, Field::source_port};
constexpr Side to_side{"to", Field::destination_mac, Field::destination, Field::destination_port};

class WordReader {
 public:
  explicit WordReader(const std::string& text) : words_(split(text)) {}

  Packet read();

 private:
  [[noreturn]] void fail(size_t word, const std::string& what) const;
  const std::string& need(const std::string& what);
  uint64_t need_number(uint64_t least, uint64_t most);
  bool next_is(std::string_view word) const { return at_ < words_.size() && words_[at_] == word; }

  void read_word();
  bool read_header(const std::string& word);
  bool read_place(const std::string& word);
  bool read_number(const std::string& word);
  bool read_flags(const std::string& word);
  bool read_fragment(const std::string& word);
  bool read_type(const std::string& word);
  bool read_string(const std::string& word);
  bool read_ends(const std::string& word);

  void take_network(Header header);
  void take_transport(Header header);
  void take_side(const Side& side, const std::string& text);
  void take_port(const Side& side, const std::string& digits);
  void take_vlan();
  void take_ethertype();
  void take_tcp_flags(const std::string& list);
  void take_ip_flags(uint8_t bits);
  uint8_t flag_bits(const std::string& list, Encoding encoding) const;
  void set(Field field, Wide value);

  void finish();
  void imply_transport();
  void imply_ethernet();

  std::vector<std::string> words_;
  size_t at_ = 0;
  size_t word_ = 0;  // the one that is being read
  Packet packet_;
  std::optional<Header> network_;
  std::optional<Header> transport_;
  const Side* side_ = nullptr;  // that a "port" is of
  bool is_arp_ = false;
  bool no_eth_ = false;
  bool no_ip_ = false;
  bool no_transport_ = false;
  bool fragment_ = false;
  bool has_ports_ = false;
};

void WordReader::fail(size_t word, const std::string& what) const {
  if (word >= words_.size()) throw PacketError("the packet ends too early: " + what);
  throw PacketError("word " + std::to_string(word + 1) + " of the packet, " + shown(words_[word]) +
                    ": " + what);
}

const std::string& WordReader::need(const std::string& what) {
  if (at_ >= words_.size()) fail(at_, shown(words_[word_]) + " needs " + what);
  return words_[at_++];
}

uint64_t WordReader::need_number(uint64_t least, uint64_t most) {
  const std::string range =
      "a number from " + std::to_string(least) + " to " + std::to_string(most);
  const std::optional<uint64_t> number = parse_number(need(range));
  if (!number || *number < least || *number > most)
    fail(at_ - 1, shown(words_[word_]) + " needs " + range);
  return *number;
}

void WordReader::set(Field field, Wide value) {
  if (packet_.knows(field) && packet_.value(field) != value)
    fail(word_, "says another value than an earlier word; say it once");
  packet_.set(field, value);
}

Packet WordReader::read() {
  if (words_.empty())
    throw PacketError(
        "the packet is empty; say one such as 'tcp 192.0.2.5:4000 > 198.51.100.7:22'");
  while (at_ < words_.size()) read_word();
  finish();
  return std::move(packet_);
}

void WordReader::read_word() {
  word_ = at_++;
  const std::string word = words_[word_];
  if (read_header(word) || read_place(word) || read_number(word) || read_flags(word) ||
      read_fragment(word) || read_type(word) || read_string(word) || read_ends(word))
    return;
  fail(word_,
       "is not understood; say headers (eth, vlan, arp, ipv4, ipv6, tcp, udp, icmp, icmp6), "
       "addresses (192.0.2.5:4000 > 198.51.100.7:22), TCP flags (syn, ack), ICMP types "
       "(echo-request), or a field and its value (ttl 3)");
}

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

bool WordReader::read_place(const std::string& word) {
  if (word == "entering") return packet_.ingress = need("the name of an interface"), true;
  if (word == "leaving") return packet_.egress = need("the name of an interface"), true;
  return false;
}

bool WordReader::read_ends(const std::string& word) {
  if (word == "from" || word == "to") {
    side_ = word == "from" ? &from_side : &to_side;
    take_side(*side_, need("an address"));
    return true;
  }
  if (word == "port") {
    if (side_ == nullptr) fail(word_, "whose? say 'from ADDRESS port N' or 'to ADDRESS port N'");
    take_port(*side_, need("a number"));
    return true;
  }
  if (!next_is(">")) {
    const bool is_end = word == ">" || word == "any" || parse_mac(word) ||
                        word.find_first_of(".:") != std::string::npos;
    if (!is_end) return false;
    fail(word_,
         "say both ends with '>' between them, such as '192.0.2.5 > 198.51.100.7'; in a "
         "shell, put the packet in quotes");
  }
  take_side(from_side, word);
  at_++;
  const size_t second = at_;
  const std::string& other = need("an address behind '>'");
  word_ = second;
  take_side(to_side, other);
  return true;
}

// An address, a hardware address, "any", or an address with a port: "192.0.2.1:22", "any:22",
// "[2001:db8::1]:22".
void WordReader::take_side(const Side& side, const std::string& text) {
  if (text == "any") return;
  if (const auto mac = parse_mac(text)) return set(side.mac, {0, *mac});
  std::string address = text;
  if (const auto whole = parse_address(Header::ipv6, address)) {
    take_network(Header::ipv6);
    return set(side.address, *whole);
  }
  const size_t colon = address.rfind(':');
  if (colon != std::string::npos) {
    const std::string digits = address.substr(colon + 1);
    address.erase(colon);
    take_port(side, digits);
  }
  if (address == "any") return;
  const bool in_brackets = address.size() > 2 && address.front() == '[' && address.back() == ']';
  const Header network = in_brackets ? Header::ipv6 : Header::ipv4;
  const auto value =
      parse_address(network, in_brackets ? address.substr(1, address.size() - 2) : address);
  if (!value)
    fail(word_, shown(address) +
                    " is no address; say 192.0.2.1, 192.0.2.1:22, 2001:db8::1, [2001:db8::1]:22, "
                    "00:00:5e:00:53:01 or any");
  // No criterion asks for what an ARP packet says.
  if (is_arp_) return;
  take_network(network);
  set(side.address, *value);
}

void WordReader::take_port(const Side& side, const std::string& digits) {
  const std::optional<uint64_t> port = parse_number(digits);
  if (!port || *port > UINT16_MAX)
    fail(word_, shown(digits) + " is no port; ports are numbers from 0 to 65535");
  has_ports_ = true;
  set(side.port, {0, *port});
}

bool WordReader::read_number(const std::string& word) {
  for (const NumberWord& known : number_words()) {
    if (word != known.name && (known.alias.empty() || word != known.alias)) continue;
    if (!known.ipv6) take_network(Header::ipv4);
    if (!known.ipv4) take_network(Header::ipv6);
    if (known.transport != Header::interface) take_transport(known.transport);
    set(known.field, {0, need_number(known.least, known.most)});
    return true;
  }
  return false;
}

uint8_t WordReader::flag_bits(const std::string& list, Encoding encoding) const {
  uint8_t bits = 0;
  if (list == "none") return bits;
  std::string names;
  for (const FlagName& flag : flag_names(encoding)) names += std::string(flag.name) + ", ";
  for (const std::string& part : split_at_commas(list)) {
    const auto flags = flag_names(encoding);
    const auto found = std::find_if(flags.begin(), flags.end(),
                                    [&part](const FlagName& flag) { return flag.name == part; });
    if (found == flags.end())
      fail(at_ - 1, shown(part) + " is no flag; known are " + names + "and none for no flag");
    bits |= found->bit;
  }
  return bits;
}

void WordReader::take_tcp_flags(const std::string& list) {
  take_transport(Header::tcp);
  const uint8_t bits = flag_bits(list, Encoding::tcp_flags);
  const uint64_t before = packet_.knows(Field::tcp_flags) ? packet_.number(Field::tcp_flags) : 0;
  packet_.set(Field::tcp_flags, before | bits);
}

void WordReader::take_ip_flags(uint8_t bits) {
  take_network(Header::ipv4);
  const uint64_t before = packet_.knows(Field::ip_flags) ? packet_.number(Field::ip_flags) : 0;
  packet_.set(Field::ip_flags, before | bits);
}

bool WordReader::read_flags(const std::string& word) {
  if (word == "flags") {
    take_tcp_flags(need("TCP flags"));
    return true;
  }
  if (word == "ip-flags") {
    take_ip_flags(flag_bits(need("IPv4 flags"), Encoding::ipv4_flags));
    return true;
  }
  if (word == "df" || word == "more") {
    take_ip_flags(word == "df" ? ip_dont_fragment : ip_more_fragments);
    return true;
  }
  const std::string first = split_at_commas(word)[0];
  const auto flags = flag_names(Encoding::tcp_flags);
  if (std::none_of(flags.begin(), flags.end(),
                   [&first](const FlagName& flag) { return flag.name == first; }))
    return false;
  take_tcp_flags(word);
  return true;
}

bool WordReader::read_fragment(const std::string& word) {
  return word == "fragment" && (fragment_ = true);
}

void WordReader::take_ethertype() {
  const std::string& word = need("an Ethernet type");
  for (const EthertypeName& known : ethertype_names())
    if (known.name == word) return set(Field::ethertype, {0, known.number});
  at_--;
  set(Field::ethertype, {0, need_number(0, UINT16_MAX)});
}

// "type" is of Ethernet until an ICMP header was named.
bool WordReader::read_type(const std::string& word) {
  const bool is_icmp = transport_ == Header::icmp;
  if (word == "ethertype" || (word == "type" && !is_icmp)) {
    take_ethertype();
    return true;
  }
  if (word == "type") {
    set(Field::icmp_type, {0, need_number(0, 255)});
    return true;
  }
  for (const IcmpName& known : icmp_names()) {
    if (word != known.name) continue;
    if (!is_icmp) fail(word_, "is a type of ICMP messages; say icmp or icmp6 before it");
    const uint32_t number = network_ == Header::ipv4 ? known.icmp : known.icmp6;
    if (number > 255) fail(word_, "is a type of icmp6 only");
    set(Field::icmp_type, {0, number});
    return true;
  }
  return false;
}

bool WordReader::read_string(const std::string& word) {
  const bool is_options = word == "options";
  if (!is_options && word != "rest-of-header" && word != "rest") return false;
  take_transport(is_options ? Header::tcp : Header::icmp);
  const std::string& digits = need("hexadecimal digits, or none");
  auto bytes = bytes_from_hex(digits == "none" ? "" : digits);
  if (!bytes) fail(at_ - 1, "needs pairs of hexadecimal digits, or none");
  (is_options ? packet_.tcp_options : packet_.icmp_rest) = std::move(bytes);
  return true;
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

}  // namespace

Packet packet_from_words(const std::string& text) {
  return WordReader(text).read();
}

}  // namespace qimctl
