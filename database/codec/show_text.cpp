#include <cstdarg>
#include <cstdio>

#include "database/codec/show.h"
#include "mem.h"

namespace rov {
namespace {

constexpr uint32_t kBytesPerLine = 16;
constexpr uint32_t kHexRoom = 3 * kBytesPerLine + 1;

}  // namespace

void ShowText::indent(uint32_t level) {
  text(prefix());
  for (uint32_t i = 0; i < level; ++i) text("  ");
}

void ShowText::line(uint32_t level, const char* format, ...) {
  char buffer[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  indent(level);
  text(buffer);
  text("\n");
}

void ShowText::bytes(uint32_t level, const char* name, const uint8_t* data, uint32_t len) {
  char hex[kHexRoom];
  if (len <= kBytesPerLine) {
    snprintf_bytes(hex, sizeof hex, data, len, 1);
    line(level, "%s %s", name, len == 0 ? "(no bytes)" : hex);
    return;
  }
  line(level, "%s (%u bytes)", name, len);
  for (uint32_t at = 0; at < len; at += kBytesPerLine) {
    const uint32_t chunk = len - at < kBytesPerLine ? len - at : kBytesPerLine;
    snprintf_bytes(hex, sizeof hex, data + at, chunk, 1);
    line(level + 1, "%s", hex);
  }
}

}  // namespace rov
