// Text that is safe to print.
#include "policy/base/text.h"

#include "policy/base/names.h"

namespace qimctl {

namespace {

// How many bytes the character that begins here takes; 0 when it is not sound UTF-8 (RFC 3629).
size_t character_length(const std::string& text, size_t at) {
  const auto byte = [&text](size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
  };
  const auto follows = [&byte](size_t i) { return (byte(i) & 0xc0u) == 0x80u; };
  const unsigned first = byte(at);
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first < 0xe0 && follows(at + 1)) return 2;
  if ((first & 0xf0u) == 0xe0u && follows(at + 1) && follows(at + 2)) {
    const bool too_long = first == 0xe0 && byte(at + 1) < 0xa0;
    const bool surrogate = first == 0xed && byte(at + 1) >= 0xa0;
    return too_long || surrogate ? 0 : 3;
  }
  const bool in_plane = (first == 0xf0 && byte(at + 1) >= 0x90) || (first > 0xf0 && first < 0xf4) ||
                        (first == 0xf4 && byte(at + 1) < 0x90);
  return in_plane && follows(at + 1) && follows(at + 2) && follows(at + 3) ? 4 : 0;
}

// C0 and C1 controls, DEL, and the escape character itself.
bool is_plain(const std::string& text, size_t at, size_t length) {
  const auto first = static_cast<unsigned char>(text[at]);
  if (length == 1) return first >= 0x20 && first != 0x7f && first != '\\';
  return !(length == 2 && first == 0xc2 && static_cast<unsigned char>(text[at + 1]) < 0xa0);
}

}  // namespace

std::string printable(const std::string& text) {
  std::string clean;
  for (size_t at = 0; at < text.size();) {
    const size_t length = character_length(text, at);
    if (length != 0 && is_plain(text, at, length)) {
      clean.append(text, at, length);
      at += length;
    } else {
      clean += "\\x" + hex_bytes(&text[at], 1);
      at++;
    }
  }
  return clean;
}

}  // namespace qimctl
