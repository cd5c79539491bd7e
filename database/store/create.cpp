// Making a database: in a temporary place, synced, then moved into position, so that a directory
// holds either a whole database or none.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "database/base/error.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

constexpr const char* kMaking =
    "making.tmp";  // the temporary place, within the database's directory

uint32_t no_database(const char* path) {
  return fail_text(ROV_ERR_OPEN,
                   "there is no node database in %s: check the path, or open it without "
                   "ROV_DB_NO_CREATE to make one",
                   path);
}

// Makes the engine's file with its empty tables in `place` and makes it durable.
int make_engine_file(const char* place) {
  MDB_env* engine = nullptr;
  int error = mdb_env_create(&engine);
  if (error != 0) return error;
  error = mdb_env_set_maxdbs(engine, kTables);
  if (error == 0) error = mdb_env_set_mapsize(engine, kMapStart);
  if (error == 0) error = mdb_env_open(engine, place, MDB_NOTLS, 0664);
  if (error == 0) error = tables_make(engine);
  if (error == 0) error = mdb_env_sync(engine, 1);
  mdb_env_close(engine);
  return error;
}

uint32_t make_in(int making, const char* place, const char* path) {
  const int error = make_engine_file(place);
  if (error != 0) return engine_fail_at(error, path, "make the data file");
  return format_write(making, "format", path);
}

int move_into_place(int making, int directory) {
  // The format file first: where there is a data file there is a format file.
  if (renameat(making, "format", directory, "format") != 0) return errno;
  if (fsync(directory) != 0) return errno;
  if (renameat(making, "data.mdb", directory, "data.mdb") != 0) return errno;
  return fsync(directory) == 0 ? 0 : errno;
}

// The caller holds the directory's lock.
uint32_t make_database(int directory, const char* path) {
  int error = remove_tree(directory, kMaking);  // what an earlier attempt left
  if (error == 0 && mkdirat(directory, kMaking, 0775) != 0) error = errno;
  if (error != 0) return engine_fail_at(error, path, "make a temporary directory");
  const int making = openat(directory, kMaking, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (making < 0) return engine_fail_at(errno, path, "open the temporary directory");
  const size_t room = strlen(path) + strlen(kMaking) + 2;
  auto* place = static_cast<char*>(malloc(room));
  uint32_t status = ROV_OK;
  if (place == nullptr) {
    status = fail(ROV_ERR_NO_MEM, Note::kNoMemory, static_cast<uint32_t>(room));
  } else {
    snprintf(place, room, "%s/%s", path, kMaking);
    status = make_in(making, place, path);
    free(place);
  }
  if (status == ROV_OK) {
    error = move_into_place(making, directory);
    if (error != 0) status = engine_fail_at(error, path, "move the new database into place");
  }
  close(making);
  remove_tree(directory, kMaking);
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
  if (create && mkdir(path, 0775) == 0) sync_parent(path);
  *directory = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (*directory >= 0) return ROV_OK;
  if (errno == ENOENT && !create) return no_database(path);
  return engine_fail_at(errno, path, create ? "make or open the directory" : "open the directory");
}

uint32_t prepare_in(int directory, const char* path, bool create) {
  if (has_data(directory)) {
    const uint32_t status = format_check(directory, path);
    if (status != ROV_ERR_NO_ITEM) return status;
    return fail_text(
        ROV_ERR_FORMAT,
        "%s holds a data.mdb without a format file: it is no node database, or half of one; "
        "restore it from a dump",
        path);
  }
  return create ? make_database(directory, path) : no_database(path);
}

}  // namespace

uint32_t store_prepare(const char* path, bool create, int* directory) {
  uint32_t status = open_directory(path, create, directory);
  if (status != ROV_OK) return status;
  // One maker at a time; whoever waited finds the database made.
  if (!has_data(*directory) && create) {
    while (flock(*directory, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  status = prepare_in(*directory, path, create);
  flock(*directory, LOCK_UN);
  if (status != ROV_OK) close(*directory);
  return status;
}

}  // namespace rov
