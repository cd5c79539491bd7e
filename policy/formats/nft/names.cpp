// Names that the kernel takes, from names of any kind.
#include "policy/formats/nft/names.h"

#include <cctype>

#include "policy/base/names.h"

namespace qimctl::nft {

namespace {

// The kernel takes 255; prefixes need some of them.
constexpr size_t longest_name = 200;
// Of a comment.
constexpr size_t longest_tag = 127;

bool is_plain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.';
}

}  // namespace

std::string plain(std::string_view name) {
  std::string text;
  for (const char c : name) {
    if (is_plain(c)) {
      text += c;
    } else {
      text += '_';
      text += hex_bytes(&c, 1);
    }
  }
  if (text.size() <= longest_name) return text;
  return text.substr(0, longest_name - 18) + "__" + hash_text(mix(hash_seed, name));
}

uint64_t mix(uint64_t seed, std::string_view text) {
  for (const char c : text) seed = (seed ^ static_cast<uint8_t>(c)) * 0x100000001b3;
  return seed;
}

std::string hash_text(uint64_t hash) {
  return hex_number(hash, 16).substr(2);
}

std::string entry_key(std::string_view list, std::string_view entry) {
  const uint64_t of_list = mix(mix(hash_seed, list), std::string_view("\0", 1));
  return hash_text(mix(of_list, entry));
}

std::string rule_tag(const std::string& key, std::string_view body, const std::string& label) {
  const std::string head = key + ' ' + hash_text(mix(hash_seed, body)) + ' ';
  return head + ascii(label, longest_tag - head.size());
}

InterfaceName interface_name(std::string_view name) {
  constexpr size_t longest = 15;
  if (name.empty() || name.size() > longest || name == "." || name == "..")
    return InterfaceName::impossible;
  InterfaceName found = InterfaceName::possible;
  for (const char c : name) {
    if (c == '/' || c == ':' || c == ' ' || (c >= '\t' && c <= '\r') || c == '\0')
      return InterfaceName::impossible;
    if (c < ' ' || c > '~' || c == '*' || c == '"' || c == '\\' || c == '[' || c == ']')
      found = InterfaceName::ambiguous;
  }
  return found;
}

std::string ascii(std::string_view text, size_t room) {
  std::string plain_text;
  for (const char c : text.substr(0, room))
    plain_text += c < ' ' || c > '~' || c == '"' || c == '\\' ? '?' : c;
  return plain_text;
}

}  // namespace qimctl::nft
