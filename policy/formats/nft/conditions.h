// What an entry asks of packets, as matches of the packet filter.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "policy/formats/nft/expressions.h"
#include "policy/model/model.h"
#include "policy/trace/condition.h"

namespace qimctl::nft {

// What is certain of packets, by which they are sorted.
enum class Kind {
  whole,      // IP, and TCP, UDP or ICMP whole behind it
  bare,       // IP without any of these
  other,      // no IP
  unsure_l4,  // IP, and whether there is a header behind it, and of which protocol, may be open
  unsure_l3,  // whether there is IP is open
};
inline constexpr Kind kinds[] = {Kind::whole, Kind::bare, Kind::other, Kind::unsure_l4,
                                 Kind::unsure_l3};
inline constexpr char kind_letters[] = "wboxy";

// Can packets of a kind match an entry?
enum class Answer {
  no,
  yes,   // those that meet the matches
  open,  // nobody can say, for those that meet the matches
};
struct Asked {
  Answer answer = Answer::no;
  std::vector<std::string> matches;  // JSON
};

// Numbers that an entry asks for in a field of its own bytes.
struct Span {
  Bits bits;
  uint64_t first = 0;
  uint64_t last = 0;
};

// An entry taken apart.
class EntryConditions {
 public:
  // At egress or ingress only: which other interface a packet passes is known nowhere.
  EntryConditions(const Entry& entry, bool at_ingress, bool at_egress);

  // What the kernel can't do, "" = nothing.
  const std::string& obstacle() const { return obstacle_; }
  // Ports and addresses of IPv4.
  const std::vector<Span>& spans() const { return spans_; }
  bool wants_tcp_options() const { return wants_tcp_options_; }
  uint32_t icmp_bytes() const { return icmp_bytes_; }
  // "ip" or "ip6" where it asks for one, else "".
  std::string network_text() const;
  Asked ask(Kind kind) const;

 private:
  void add(const Criterion& criterion, bool at_ingress, bool at_egress);
  void add_header(Header header);
  void add_bytes(const Condition& condition, const Bits& begin);
  void add_options(const Condition& condition);
  void add_rest(const Condition& condition, const std::string& text);
  void add_protocol(uint32_t number);
  void settle_protocol();
  void add_protocol_match(std::vector<std::string>& matches) const;
  void add_number(const Condition& condition, uint32_t type);
  std::vector<std::string> network_matches() const;

  std::string obstacle_;
  bool never_ = false;        // no packet can match
  bool never_whole_ = false;  // none whose headers are whole can
  bool wants_tcp_options_ = false;
  uint32_t icmp_bytes_ = 0;  // behind the checksum
  std::optional<Header> network_;
  std::optional<Header> transport_;
  std::vector<std::string> interface_;
  std::vector<std::string> eth_;
  std::vector<std::string> ip_;
  std::optional<uint32_t> protocol_;
  std::vector<std::string> l4_;
  std::vector<Span> spans_;
};

}  // namespace qimctl::nft
