// Standard output as a terminal.
#include "tools/base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "policy/base/eight_bytes.h"

namespace qimctl {

namespace {

constexpr const char* style_end = "\033[0m";

bool is_set(const char* name) {
  const char* value = getenv(name);
  return value != nullptr && *value != '\0';
}

Terminal look_at_output() {
  Terminal found;
  if (isatty(STDOUT_FILENO) != 1) return found;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) found.width = size.ws_col;
  found.colour = is_set("TERM") && strcmp(getenv("TERM"), "dumb") != 0 && !is_set("NO_COLOR");
  return found;
}

const char* style_begin(Style style) {
  switch (style) {
    case Style::head:
      return "\033[1m";
    case Style::good:
      return "\033[32m";
    case Style::bad:
      return "\033[31m";
    case Style::note:
      return "\033[2m";
    case Style::plain:
      break;
  }
  return "";
}

// Where what begins at `at` ends: a character or a style, which takes no column.
size_t end_of(const std::string& text, size_t at, bool& is_style) {
  is_style = text[at] == '\033';
  if (is_style) return text.find('m', at) + 1;
  size_t end = at + 1;
  while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xc0u) == 0x80u) end++;
  return end;
}

// Is every byte a column?
bool is_plain(const std::string& text) {
  size_t at = 0;
  for (; at + EightBytes::size <= text.size(); at += EightBytes::size) {
    const EightBytes bytes(text.data() + at);
    if (!bytes.is_ascii() || bytes.may_have('\033')) return false;
  }
  return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(),
                     [](char c) { return c != '\033' && (c & 0x80) == 0; });
}

}  // namespace

const Terminal& terminal() {
  static const Terminal found = look_at_output();
  return found;
}

std::string styled(Style style, const std::string& text) {
  if (!terminal().colour || style == Style::plain || text.empty()) return text;
  return style_begin(style) + text + style_end;
}

size_t width_of(const std::string& text) {
  if (is_plain(text)) return text.size();
  size_t width = 0;
  for (size_t at = 0; at < text.size(); at++) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte == '\033') {
      at = std::min(text.find('m', at), text.size());
    } else if ((byte & 0xc0u) != 0x80u) {
      width++;
    }
  }
  return width;
}

std::string cut(const std::string& text, size_t width) {
  if (width == 0 || width_of(text) <= width) return text;
  size_t taken = 0;
  bool is_style = false;
  bool open = false;
  size_t at = 0;
  while (true) {
    const size_t end = end_of(text, at, is_style);
    if (is_style) open = text.compare(at, end - at, style_end) != 0;
    if (!is_style && ++taken == width) break;
    at = end;
  }
  return text.substr(0, at) + (open ? style_end : "") + "…";
}

}  // namespace qimctl
