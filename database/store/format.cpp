// The format file: what wrote the database, in words that every build can read.
//
//   node database
//   format 2
//   word-bits 64
//   byte-order little
//   check 0f1e2d3c        CRC-32C of the lines before, in hexadecimal
//
// The engine's own file can't be read by a process of another word size or byte order, and does not
// say so; hence this file beside it, read first.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "database/base/crc32c.h"
#include "database/base/error.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

constexpr unsigned kFormat = 2;
constexpr unsigned kWordBits = sizeof(size_t) * 8;
constexpr const char* kByteOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "little" : "big";
constexpr size_t kMaxBytes = 256;

struct Format {
  unsigned format = 0;
  unsigned word_bits = 0;
  char byte_order[8] = "";
  unsigned check = 0;
};

int format_text(char* text, size_t room) {
  int len = snprintf(text, room, "node database\nformat %u\nword-bits %u\nbyte-order %s\n", kFormat,
                     kWordBits, kByteOrder);
  const uint32_t check = crc32c(0, text, static_cast<size_t>(len));
  len += snprintf(text + len, room - static_cast<size_t>(len), "check %08x\n",
                  static_cast<unsigned>(check));
  return len;
}

// False when the text is not what format_text writes, in any format version.
bool parse(const char* text, Format* format) {
  const char* check = strstr(text, "check ");
  if (check == nullptr) return false;
  if (sscanf(text, "node database format %u word-bits %u byte-order %7s check %8x", &format->format,
             &format->word_bits, format->byte_order, &format->check) != 4) {
    return false;
  }
  return crc32c(0, text, static_cast<size_t>(check - text)) == format->check;
}

uint32_t compare_format(const Format& found, const char* path) {
  if (found.format != kFormat) {
    return fail_text(
        ROV_ERR_FORMAT,
        "database %s has format %u, this library reads format %u: use the version that "
        "wrote it, or dump it there and restore the dump here",
        path, found.format, kFormat);
  }
  if (found.word_bits != kWordBits) {
    return fail_text(
        ROV_ERR_WORD_SIZE,
        "database %s was written by a %u-bit process, this is a %u-bit process: dump it "
        "there and restore the dump here",
        path, found.word_bits, kWordBits);
  }
  if (strcmp(found.byte_order, kByteOrder) != 0) {
    return fail_text(ROV_ERR_BYTE_ORDER,
                     "database %s was written by a %s-endian process, this is a %s-endian process: "
                     "dump it there and restore the dump here",
                     path, found.byte_order, kByteOrder);
  }
  return ROV_OK;
}

// Writes all of `text`; 0 or errno.
int write_all(int file, const char* text, size_t len) {
  while (len > 0) {
    const ssize_t wrote = write(file, text, len);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return wrote < 0 ? errno : ENOSPC;
    text += wrote;
    len -= static_cast<size_t>(wrote);
  }
  return 0;
}

}  // namespace

uint32_t format_check(int directory, const char* path) {
  const int file = openat(directory, "format", O_RDONLY | O_CLOEXEC);
  if (file < 0 && errno == ENOENT) return ROV_ERR_NO_ITEM;
  if (file < 0) return engine_fail_at(errno, path, "open the format file");
  char text[kMaxBytes + 1];
  ssize_t len = 0;
  do {
    len = read(file, text, kMaxBytes);
  } while (len < 0 && errno == EINTR);
  const int error = errno;
  close(file);
  if (len < 0) return engine_fail_at(error, path, "read the format file");
  text[len] = '\0';
  Format found;
  if (!parse(text, &found)) {
    return fail_text(ROV_ERR_FORMAT,
                     "the format file of database %s is damaged: restore the database from a dump",
                     path);
  }
  return compare_format(found, path);
}

uint32_t format_write(int directory, const char* name, const char* path) {
  char text[kMaxBytes];
  const int len = format_text(text, sizeof text);
  const int file = openat(directory, name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664);
  if (file < 0) return engine_fail_at(errno, path, "make the format file");
  int error = write_all(file, text, static_cast<size_t>(len));
  if (error == 0 && fsync(file) != 0) error = errno;
  if (close(file) != 0 && error == 0) error = errno;
  return engine_fail_at(error, path, "write the format file");
}

}  // namespace rov
