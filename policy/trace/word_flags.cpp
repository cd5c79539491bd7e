// Reading packets in words: flags, and types of frames and messages.
#include <algorithm>

#include "policy/base/criteria.h"
#include "policy/base/text.h"
#include "policy/trace/vocabulary.h"
#include "policy/trace/word_reader.h"

namespace qimctl {

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
      fail(at_ - 1, shown_word(part) + " is no flag; known are " + names + "and none for no flag");
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

}  // namespace qimctl
