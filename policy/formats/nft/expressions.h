// The pieces that rules of the kernel's packet filter are made of, as text in libnftables' JSON.
//
// Fields are named by where they lie, never by protocol and name: of a name the filter's library
// concludes what else must hold, and it concludes otherwise for frames with tags.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qimctl::nft {

// What an offset counts from. The link layer's is the frame as it was on the wire, tags included; the
// network layer's header lies behind one tag at most.
enum class Base { link, network, transport };

// Bits from `offset` on, counted from the first bit of the header.
struct Bits {
  Base base = Base::network;
  uint32_t offset = 0;
  uint32_t length = 0;
};

std::string payload(const Bits& bits);
std::string meta(std::string_view key);
std::string range(uint64_t first, uint64_t last);
std::string number(uint64_t value);
// Of texts or numbers, which are JSON already.
std::string set_of(const std::vector<std::string>& elements);
std::string concat(const std::vector<std::string>& parts);

std::string equal(const std::string& left, const std::string& right);
std::string differs(const std::string& left, const std::string& right);
std::string masked(const std::string& left, uint64_t mask);

// Holds when the bits lie inside the packet, whatever they are.
std::string lies_within(const Bits& bits);

// What a rule ends with.
std::string counter();
std::string verdict(std::string_view name);  // "accept", "drop"
std::string jump(const std::string& chain);
std::string go_to(const std::string& chain);
std::string reject();
std::string log(const std::string& prefix);
std::string over_limit(const std::string& limit);

// Expressions as the member "expr" of a rule.
std::string expressions(const std::vector<std::string>& all);

}  // namespace qimctl::nft
