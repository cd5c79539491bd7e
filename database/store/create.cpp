// Making a database: in a temporary place, synced, then moved into position, so that a directory
// holds either a whole database or none.
//
// The format file says what wrote the database, in words that every build can read:
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
#include <lmdb.h>
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

}  // namespace

uint32_t format_check(int directory, const char* path) {
  const int file = open_regular(directory, "format", O_RDONLY);
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
int fill_engine_file(const char* place) {
  MDB_env* engine = nullptr;
  int error = mdb_env_create(&engine);
  if (error != 0) return error;
  error = mdb_env_set_maxdbs(engine, kTables);
  if (error == 0) error = mdb_env_set_mapsize(engine, kMapStart);
  if (error == 0) error = mdb_env_open(engine, place, MDB_NOTLS, 0600);
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

uint32_t make_in(int making, const char* place, const char* path) {
  int error = make_empty(making, "data.mdb");
  if (error == 0) error = make_empty(making, "lock.mdb");
  if (error == 0) error = fill_engine_file(place);
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
  const size_t room = strlen(path) + strlen(kMakingPlace) + 2;
  auto* place = static_cast<char*>(malloc(room));
  uint32_t status = ROV_OK;
  if (place == nullptr) {
    status = fail(ROV_ERR_NO_MEM, Note::kNoMemory, static_cast<uint32_t>(room));
  } else {
    snprintf(place, room, "%s/%s", path, kMakingPlace);
    status = make_in(making, place, path);
    free(place);
  }
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
void sync_parent(const char* path) {
  const int parent = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (parent < 0) return;
  const int above = openat(parent, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (above >= 0) {
    fsync(above);
    close(above);
  }
  close(parent);
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
  sync_parent(path);
  return ROV_OK;
}

uint32_t prepare_in(int directory, const char* path, bool create) {
  if (has_data(directory)) {
    const uint32_t status = format_check(directory, path);
    if (status != ROV_ERR_NO_ITEM) return status;
    // Databases come with the format file first and go with the data file first: one that lost both
    // since is gone.
    if (!has_data(directory)) return no_database(path);
    return fail_text(
        ROV_ERR_FORMAT,
        "%s holds a data.mdb without a format file: it is no node database, or half of one; "
        "restore it from a dump",
        path);
  }
  return create ? make_database(directory, path) : no_database(path);
}

// Makes the database in a directory that is the caller's alone as long as it holds the lock.
uint32_t prepare_alone(int directory, const char* path, gid_t group) {
  // One maker at a time; whoever waited finds the database made.
  const DirectoryLock lock(directory, path);
  if (lock.status() != ROV_OK) return lock.status();
  if (group != 0 && !has_data(directory)) {
    const int error = set_directory_mode(directory, group);
    if (error != 0) return engine_fail_at(error, path, "give the directory to its group");
  }
  return prepare_in(directory, path, true);
}

}  // namespace

uint32_t store_prepare(const char* path, const OpenOptions& wanted, int* directory) {
  uint32_t status = open_directory(path, wanted.creates(), directory);
  if (status != ROV_OK) return status;
  status = check_trusted(*directory, path);
  if (status == ROV_OK) {
    status = wanted.creates() && !has_data(*directory)
                 ? prepare_alone(*directory, path, wanted.group)
                 : prepare_in(*directory, path, wanted.creates());
  }
  if (status != ROV_OK) close(*directory);
  return status;
}

}  // namespace rov
