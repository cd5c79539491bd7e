// Making a database: in a temporary place, synced, then moved into position, so that a directory
// holds either a whole database or none.
//
// The format file says what wrote the database, in words that every build can read:
//
//   node database
//   format 3
//   word-bits 64
//   byte-order little
//   identity 00112233445566778899aabbccddeeff        drawn at random
//   check 0f1e2d3c        CRC-32C of the lines before, in hexadecimal
//
// The engine's own file can't be read by a process of another word size or byte order, and does not
// say so; hence this file beside it, read first.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "database/base/crc32c.h"
#include "database/base/error.h"
#include "database/store/engine.h"
#include "rov.h"
#include "rov_edit.h"

namespace rov {

// ---- The format file ----------------------------------------------------------------------------

namespace {

constexpr unsigned kFormat = ROV_FORMAT;
constexpr unsigned kWordBits = sizeof(size_t) * 8;
constexpr const char* kByteOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "little" : "big";
constexpr size_t kMaxBytes = 256;

struct Format {
  unsigned format = 0;
  unsigned word_bits = 0;
  char byte_order[8] = "";
  Identity identity;
  unsigned check = 0;
};

struct IdentityText {
  char text[2 * sizeof(Identity) + 1] = "";
};

IdentityText text_of(const Identity& identity) {
  IdentityText text;
  char* at = text.text;
  for (const uint8_t byte : identity.bytes) at += snprintf(at, 3, "%02x", byte);
  return text;
}

Identity identity_of(const IdentityText& text) {
  Identity identity;
  const char* at = text.text;
  for (uint8_t& byte : identity.bytes) {
    unsigned value = 0;
    if (sscanf(at, "%2x", &value) != 1) return {};
    byte = static_cast<uint8_t>(value);
    at += 2;
  }
  return identity;
}

int format_text(const Identity& identity, char* text, size_t room) {
  int len =
      snprintf(text, room, "node database\nformat %u\nword-bits %u\nbyte-order %s\nidentity %s\n",
               kFormat, kWordBits, kByteOrder, text_of(identity).text);
  const uint32_t check = crc32c(0, text, static_cast<size_t>(len));
  len += snprintf(text + len, room - static_cast<size_t>(len), "check %08x\n",
                  static_cast<unsigned>(check));
  return len;
}

// False when the text is not what format_text writes, in any format version; earlier ones have no
// identity.
bool parse(const char* text, Format* format) {
  const char* check = strstr(text, "check ");
  if (check == nullptr || sscanf(check, "check %8x", &format->check) != 1) return false;
  if (sscanf(text, "node database format %u word-bits %u byte-order %7s", &format->format,
             &format->word_bits, format->byte_order) != 3) {
    return false;
  }
  IdentityText identity;
  const char* line = strstr(text, "identity ");
  if (line != nullptr && sscanf(line, "identity %32s", identity.text) == 1) {
    format->identity = identity_of(identity);
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

}  // namespace

uint32_t format_check(const char* path, OpenDirectory* directory) {
  const int file = open_regular(directory->file, "format", O_RDONLY);
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
  directory->identity = found.identity;
  return compare_format(found, path);
}

uint32_t format_write(int directory, const char* name, const char* path) {
  Identity identity;
  if (getrandom(&identity, sizeof identity, 0) != static_cast<ssize_t>(sizeof identity)) {
    return engine_fail_at(errno, path, "draw an identity");
  }
  char text[kMaxBytes];
  const int len = format_text(identity, text, sizeof text);
  const int file = make_regular(directory, name, O_WRONLY);
  if (file < 0) return engine_fail_at(errno, path, "make the format file");
  int error = write_all(file, text, static_cast<size_t>(len));
  if (error == 0 && fsync(file) != 0) error = errno;
  if (close(file) != 0 && error == 0) error = errno;
  return engine_fail_at(error, path, "write the format file");
}

// ---- Databases ----------------------------------------------------------------------------------

namespace {

constexpr const char* kMakingPlace =
    "making.tmp";  // the temporary place, within the database's directory

uint32_t no_database(const char* path) {
  return fail_text(ROV_ERR_OPEN,
                   "there is no node database in %s: check the path, or open it without "
                   "ROV_DB_NO_CREATE to make one",
                   path);
}

// Makes the engine's file with its empty tables in `place`, where empty files wait for it, and makes
// it durable.
int fill_engine_file(int place) {
  MDB_env* engine = nullptr;
  int error = mdb_env_create(&engine);
  if (error != 0) return error;
  error = mdb_env_set_maxdbs(engine, kTables);
  if (error == 0) error = mdb_env_set_mapsize(engine, kMapStart);
  if (error == 0) error = mdb_env_open(engine, EnginePlace(place).path, MDB_NOTLS, 0600);
  if (error == 0) error = tables_make(engine);
  if (error == 0) error = mdb_env_sync(engine, 1);
  mdb_env_close(engine);
  return error;
}

// Files that the engine makes by itself would have what rights the umask leaves them.
int make_empty(int making, const char* name) {
  const int file = make_regular(making, name, O_RDWR);
  return file >= 0 && close(file) == 0 ? 0 : errno;
}

uint32_t make_in(int making, const char* path) {
  int error = make_empty(making, "data.mdb");
  if (error == 0) error = make_empty(making, "lock.mdb");
  if (error == 0) error = fill_engine_file(making);
  if (error != 0) return engine_fail_at(error, path, "make the data file");
  return format_write(making, "format", path);
}

int move_into_place(int making, int directory) {
  // The format file first: where there is a data file there is a format file.
  const int error = move_durably(making, "format", directory, "format");
  return error == 0 ? move_durably(making, "data.mdb", directory, "data.mdb") : error;
}

// The caller holds the directory's lock.
uint32_t make_database(int directory, const char* path) {
  int error = remove_tree(directory, kMakingPlace);  // what an earlier attempt left
  if (error == 0) error = make_directory(directory, kMakingPlace);
  if (error != 0) return engine_fail_at(error, path, "make a temporary directory");
  const int making = open_subdirectory(directory, kMakingPlace);
  if (making < 0) return engine_fail_at(errno, path, "open the temporary directory");
  uint32_t status = make_in(making, path);
  if (status == ROV_OK) {
    error = move_into_place(making, directory);
    if (error != 0) status = engine_fail_at(error, path, "move the new database into place");
  }
  close(making);
  remove_tree(directory, kMakingPlace);
  return status;
}

bool has_data(int directory) {
  return faccessat(directory, "data.mdb", F_OK, 0) == 0;
}

// Makes the directory's entry in the one above durable.
void sync_parent(int directory) {
  const int above = openat(directory, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (above < 0) return;
  fsync(above);
  close(above);
}

uint32_t open_directory(const char* path, bool create, int* directory) {
  const bool is_new = create && mkdir(path, 0700) == 0;
  *directory = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (*directory < 0) {
    if (errno == ENOENT && !create) return no_database(path);
    return engine_fail_at(errno, path,
                          create ? "make or open the directory" : "open the directory");
  }
  if (!is_new) return ROV_OK;
  set_directory_mode(*directory, 0);  // whatever the umask took from it
  sync_parent(*directory);
  return ROV_OK;
}

uint32_t prepare_in(const char* path, bool create, OpenDirectory* directory) {
  if (has_data(directory->file)) {
    const uint32_t status = format_check(path, directory);
    if (status != ROV_ERR_NO_ITEM) return status;
    // Databases come with the format file first and go with the data file first: one that lost both
    // since is gone.
    if (!has_data(directory->file)) return no_database(path);
    return fail_text(
        ROV_ERR_FORMAT,
        "%s holds a data.mdb without a format file: it is no node database, or half of one; "
        "restore it from a dump",
        path);
  }
  if (!create) return no_database(path);
  const uint32_t status = make_database(directory->file, path);
  return status == ROV_OK ? format_check(path, directory) : status;
}

// Makes the database in a directory that is the caller's alone as long as it holds the lock.
uint32_t prepare_alone(const char* path, gid_t group, OpenDirectory* directory) {
  // One maker at a time; whoever waited finds the database made.
  const DirectoryLock lock(directory->file, path);
  if (lock.status() != ROV_OK) return lock.status();
  if (group != 0 && !has_data(directory->file)) {
    const int error = set_directory_mode(directory->file, group);
    if (error != 0) return engine_fail_at(error, path, "give the directory to its group");
  }
  return prepare_in(path, true, directory);
}

}  // namespace

uint32_t store_prepare(const char* path, const OpenOptions& wanted, OpenDirectory* directory) {
  uint32_t status = open_directory(path, wanted.creates(), &directory->file);
  if (status != ROV_OK) return status;
  status = check_trusted(directory->file, path);
  if (status == ROV_OK) {
    status = wanted.creates() && !has_data(directory->file)
                 ? prepare_alone(path, wanted.group, directory)
                 : prepare_in(path, wanted.creates(), directory);
  }
  if (status != ROV_OK) close(directory->file);
  return status;
}

uint32_t store_prepare_open(const char* path, OpenDirectory* directory) {
  const uint32_t status = check_trusted(directory->file, path);
  return status == ROV_OK ? prepare_in(path, false, directory) : status;
}

}  // namespace rov
