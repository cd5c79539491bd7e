// Reading a packet in words: the state that all kinds of words share.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/criteria.h"
#include "policy/trace/packet.h"

namespace qimctl {

// One of the two ends of a packet.
struct Side {
  const char* name;
  Field mac;
  Field address;
  Field port;
};
constexpr Side from_side{"from", Field::source_mac, Field::source, Field::source_port};
constexpr Side to_side{"to", Field::destination_mac, Field::destination, Field::destination_port};

// Reads a packet from its first word to its last, and then adds what they imply.
class WordReader {
 public:
  explicit WordReader(const std::string& text);

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

// A word in single quotes, as messages show it.
std::string shown_word(const std::string& text);

}  // namespace qimctl
