#include "database/store/copy_name.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "database/base/error.h"
#include "rov.h"

namespace rov {
namespace {

constexpr const char* kSlash = "%2F";

bool is_plain(unsigned char byte, bool first) {
  if (byte == '.') return !first;
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '-' || byte == '_';
}

// Appends the file name's part for `text`. False when there is no room.
bool append(const char* text, CopyName* out) {
  size_t at = strlen(out->file);
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    const bool plain = is_plain(byte, at == 0);
    const size_t needed = plain ? 1 : 3;
    if (at + needed >= kCopyNameRoom) return false;
    snprintf(out->file + at, kCopyNameRoom - at, plain ? "%c" : "%%%02X", byte);
    at += needed;
  }
  return true;
}

bool is_hex_digit(char digit) {
  return isxdigit(static_cast<unsigned char>(digit)) != 0;
}

bool has_control(const char* text) {
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    if (byte < 0x20 || byte == 0x7f) return true;
  }
  return false;
}

bool is_dots(const char* text, size_t len) {
  return (len == 1 && text[0] == '.') || (len == 2 && text[0] == '.' && text[1] == '.');
}

bool is_good_name(const char* name) {
  const size_t len = strlen(name);
  return len != 0 && !is_dots(name, len) && strchr(name, '/') == nullptr && !has_control(name);
}

bool is_good_uri(const char* uri) {
  const size_t len = strlen(uri);
  if (len == 0 || uri[0] == '/' || uri[len - 1] == '/' || has_control(uri)) return false;
  for (const char* part = uri;;) {
    const char* slash = strchr(part, '/');
    const size_t part_len = slash == nullptr ? strlen(part) : static_cast<size_t>(slash - part);
    if (is_dots(part, part_len)) return false;
    if (slash == nullptr) return true;
    part = slash + 1;
  }
}

uint32_t bad_uri(const char* uri) {
  return fail_text(ROV_ERR_INVALID,
                   "\"%.200s\" cannot be the URI of snapshots: use parts with '/' between them, "
                   "none of them \".\" or \"..\", no '/' at either end, no control characters",
                   uri);
}

uint32_t bad_name(const char* name) {
  return fail_text(ROV_ERR_INVALID,
                   "\"%.200s\" cannot be the name of a snapshot: use one that is not empty, \".\" "
                   "or \"..\", without '/' and control characters",
                   name);
}

}  // namespace

uint32_t copy_name(const char* uri, const char* name, CopyName* out) {
  if (uri != nullptr && !is_good_uri(uri)) return bad_uri(uri);
  if (name != nullptr && !is_good_name(name)) return bad_name(name);
  out->file[0] = '\0';
  bool fits = uri == nullptr || append(uri, out);
  if (fits && uri != nullptr && name != nullptr) fits = append("/", out);
  if (fits && name != nullptr) fits = append(name, out);
  if (fits) return ROV_OK;
  return fail_text(ROV_ERR_LENGTH,
                   "the path of a snapshot has at most %u bytes, where each but letters, digits, "
                   "'-', '_' and '.' counts three: use a shorter one",
                   kCopyNameRoom - 1);
}

bool copy_path(const char* file, char (&path)[kCopyNameRoom]) {
  size_t len = 0;
  for (const char* at = file; *at != '\0'; ++at) {
    if (len + 1 >= kCopyNameRoom) return false;
    unsigned byte = static_cast<unsigned char>(*at);
    if (byte == '%') {
      if (!is_hex_digit(at[1]) || !is_hex_digit(at[2])) return false;
      if (sscanf(at, "%%%2X", &byte) != 1 || byte == 0) return false;
      at += 2;
    }
    path[len++] = static_cast<char>(byte);
  }
  path[len] = '\0';
  CopyName again = {};
  return append(path, &again) && strcmp(again.file, file) == 0;
}

bool copy_is_below(const char* file, const CopyName& name) {
  const size_t len = strlen(name.file);
  if (strncmp(file, name.file, len) != 0) return false;
  return file[len] == '\0' || strncmp(file + len, kSlash, strlen(kSlash)) == 0;
}

}  // namespace rov
