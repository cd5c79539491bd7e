// Reading packets in words: the words one after the other.
#include "policy/trace/packet_words.h"

#include <optional>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/trace/vocabulary.h"
#include "policy/trace/word_reader.h"

namespace qimctl {

namespace {

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

void append_utf8(uint64_t code, std::string& text) {
  const auto tail = [&](uint32_t shift) {
    text += static_cast<char>(0x80 | (code >> shift & 0x3f));
  };
  if (code < 0x80) {
    text += static_cast<char>(code);
  } else if (code < 0x800) {
    text += static_cast<char>(0xc0 | code >> 6);
    tail(0);
  } else if (code < 0x10000) {
    text += static_cast<char>(0xe0 | code >> 12);
    tail(6), tail(0);
  } else {
    text += static_cast<char>(0xf0 | (code >> 18 & 7));
    tail(12), tail(6), tail(0);
  }
}

// The name that is printed so: "\xNN" is a byte, "\u{N}" a character.
std::string name_of(const std::string& word) {
  std::string name;
  for (size_t i = 0; i < word.size(); i++) {
    const bool is_byte = word.compare(i, 2, "\\x") == 0;
    const bool is_character = word.compare(i, 3, "\\u{") == 0;
    const size_t first = i + (is_byte ? 2 : 3);
    const size_t last = is_byte ? first + 2 : is_character ? word.find('}', first) : word.npos;
    const bool whole = last <= word.size() && last - first >= 1 && last - first <= 6;
    const auto code = whole ? parse_number("0x" + word.substr(first, last - first)) : std::nullopt;
    if (!code) {
      name += word[i];
      continue;
    }
    is_byte ? name.push_back(static_cast<char>(*code)) : append_utf8(*code, name);
    i = is_byte ? last - 1 : last;
  }
  return name;
}

}  // namespace

std::string shown_word(const std::string& text) {
  return "'" + printable(text) + "'";
}

WordReader::WordReader(const std::string& text) : words_(split(text)) {}

void WordReader::fail(size_t word, const std::string& what) const {
  if (word >= words_.size()) throw PacketError("the packet ends too early: " + what);
  throw PacketError("word " + std::to_string(word + 1) + " of the packet, " +
                    shown_word(words_[word]) + ": " + what);
}

const std::string& WordReader::need(const std::string& what) {
  if (at_ >= words_.size()) fail(at_, shown_word(words_[word_]) + " needs " + what);
  return words_[at_++];
}

uint64_t WordReader::need_number(uint64_t least, uint64_t most) {
  const std::string range =
      "a number from " + std::to_string(least) + " to " + std::to_string(most);
  const std::optional<uint64_t> number = parse_number(need(range));
  if (!number || *number < least || *number > most)
    fail(at_ - 1, shown_word(words_[word_]) + " needs " + range);
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

bool WordReader::read_place(const std::string& word) {
  if (word == "entering") return packet_.ingress = name_of(need("the name of an interface")), true;
  if (word == "leaving") return packet_.egress = name_of(need("the name of an interface")), true;
  return false;
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

Packet packet_from_words(const std::string& text) {
  return WordReader(text).read();
}

}  // namespace qimctl
