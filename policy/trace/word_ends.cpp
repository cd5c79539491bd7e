// Reading packets in words: where from and where to.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <span>

#include "policy/base/names.h"
#include "policy/trace/word_reader.h"

namespace qimctl {

namespace {

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

}  // namespace

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
    fail(word_, shown_word(address) +
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
    fail(word_, shown_word(digits) + " is no port; ports are numbers from 0 to 65535");
  has_ports_ = true;
  set(side.port, {0, *port});
}

}  // namespace qimctl
