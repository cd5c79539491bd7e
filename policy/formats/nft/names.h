// What chains, limits and rules are called.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qimctl::nft {

// The name with what is no letter, digit, '-' or '.' written as _XX, so that no two names become the
// same; one that is too long for the kernel ends in a hash.
std::string plain(std::string_view name);

// Mixes a text into a hash of 64 bits (FNV-1a), which begins with `seed`.
inline constexpr uint64_t hash_seed = 0xcbf29ce484222325;
uint64_t mix(uint64_t seed, std::string_view text);
// 16 hexadecimal digits.
std::string hash_text(uint64_t hash);

// By what the rules of an entry are found: their comments begin with it. An empty name stands for what
// no entry matches.
inline constexpr size_t key_length = 16;
std::string entry_key(std::string_view list, std::string_view entry);

// A rule's comment: the key; a hash of the rule, by which a change is seen; and as much of `label` as
// there is room for.
std::string rule_tag(const std::string& key, std::string_view body, const std::string& label);

// What a name of an interface is to the kernel, and to the library that commands go through.
enum class InterfaceName {
  possible,
  impossible,  // the kernel can't have it
  ambiguous,   // the library could take it for something else, such as all that begin so
};
InterfaceName interface_name(std::string_view name);

// As much of a text as `room` bytes hold, with what is no printable ASCII, quotes included, as '?'.
std::string ascii(std::string_view text, size_t room);

}  // namespace qimctl::nft
