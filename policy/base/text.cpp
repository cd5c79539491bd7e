// Text that is safe to print.
#include "policy/base/text.h"

#include <algorithm>
#include <cstring>

#include "policy/base/names.h"

namespace qimctl {

namespace {

// How many bytes the character that begins here takes; 0 when it is not sound UTF-8 (RFC 3629).
size_t character_length(std::string_view text, size_t at) {
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

// No C0 and C1 controls, and no DEL.
bool is_plain(const std::string& text, size_t at, size_t length) {
  const auto first = static_cast<unsigned char>(text[at]);
  if (length == 1) return first >= 0x20 && first != 0x7f;
  return !(length == 2 && first == 0xc2 && static_cast<unsigned char>(text[at + 1]) < 0xa0);
}

// The code point of a sound character of more than one byte.
uint32_t code_point(const std::string& text, size_t at, size_t length) {
  uint32_t code = static_cast<unsigned char>(text[at]) & (0x7fu >> length);
  for (size_t i = 1; i < length; i++) {
    code = code << 6 | (static_cast<unsigned char>(text[at + i]) & 0x3fu);
  }
  return code;
}

// Is it a character that shows nothing by itself, or turns the direction in which others are shown
// (Unicode: format controls, fillers, separators of lines, selectors of variants, tags)?
bool is_hidden(uint32_t code) {
  struct Range {
    uint32_t first;
    uint32_t last;
  };
  constexpr Range hidden[] = {
      {0xad, 0xad},       {0x34f, 0x34f},    {0x61c, 0x61c},   {0x115f, 0x1160}, {0x17b4, 0x17b5},
      {0x180b, 0x180f},   {0x200b, 0x200f},  {0x2028, 0x202e}, {0x2060, 0x206f}, {0x3164, 0x3164},
      {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},  {0xffa0, 0xffa0}, {0xfff0, 0xfffb}, {0x1bca0, 0x1bca3},
      {0x1d173, 0x1d17a}, {0xe0000, 0xe0fff}};
  for (const Range& range : hidden) {
    if (code >= range.first && code <= range.last) return true;
  }
  return false;
}

bool needs_no_escape(const std::string& text, std::string_view more) {
  return std::all_of(text.begin(), text.end(),
                     [more](char c) { return c >= 0x20 && c < 0x7f && more.find(c) == more.npos; });
}

// Escapes what is not plain, and the ASCII characters of `more`.
std::string escaped(const std::string& text, std::string_view more) {
  if (needs_no_escape(text, more)) return text;  // as nearly all are
  std::string clean;
  for (size_t at = 0; at < text.size();) {
    const size_t length = character_length(text, at);
    const bool plain =
        length != 0 && is_plain(text, at, length) && more.find(text[at]) == more.npos;
    const uint32_t code = plain && length > 1 ? code_point(text, at, length) : 0;
    if (is_hidden(code)) {
      clean += "\\u{" + hex_number(code, 4).substr(2) + "}";
      at += length;
    } else if (plain) {
      clean.append(text, at, length);
      at += length;
    } else {
      clean += "\\x" + hex_bytes(&text[at], 1);
      at++;
    }
  }
  return clean;
}

}  // namespace

std::string printable(const std::string& text) {
  return escaped(text, "\\");
}

std::string harmless(const std::string& text) {
  return escaped(text, "");
}

std::string bare_name(const std::string& text) {
  return escaped(text, "\\\"");
}

std::string quoted(const std::string& text) {
  return '"' + bare_name(text) + '"';
}

std::string with_escapes(std::string document) {
  const auto is_plain_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x7f; };
  if (std::all_of(document.begin(), document.end(), is_plain_ascii)) return document;
  std::string clean;
  for (size_t at = 0, length = 0; at < document.size(); at += length) {
    length = std::max<size_t>(character_length(document, at), 1);
    const uint32_t code =
        length > 1 ? code_point(document, at, length) : static_cast<unsigned char>(document[at]);
    const bool is_control = code >= 0x7f && code < 0xa0;
    if (is_control || (is_hidden(code) && code < 0x10000)) {
      clean += "\\u" + hex_number(code, 4).substr(2);
    } else {
      clean.append(document, at, length);
    }
  }
  return clean;
}

bool is_utf8(std::string_view text) {
  uint64_t eight;
  for (size_t at = 0; at < text.size();) {
    // Nearly all texts are ASCII, nearly everywhere.
    if (text.size() - at >= sizeof(eight)) {
      memcpy(&eight, &text[at], sizeof(eight));
      if ((eight & 0x8080808080808080u) == 0) {
        at += sizeof(eight);
        continue;
      }
    }
    const size_t length = character_length(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

bool reads_as_text(const std::string& bytes) {
  size_t shown = 0;
  size_t controls = 0;
  for (size_t at = 0; at < bytes.size();) {
    const size_t length = character_length(bytes, at);
    if (length == 0 || bytes[at] == 0) return false;
    is_plain(bytes, at, length) ? shown++ : controls++;
    at += length;
  }
  return shown != 0 && shown >= controls;
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

std::string joined(const std::vector<std::string>& pieces) {
  std::string text;
  for (const std::string& piece : pieces) text += piece;
  return text;
}

}  // namespace qimctl
