// Files and directories of a database: opening and making them so that nothing else is met in their
// place, removing and moving them, and locks that are waited for with a limit.
//
// Whoever may write to a database's directory is trusted with it. Others may lie in wait there: a
// link or a FIFO in a file's place is refused, whatever it leads to, and so is a directory that
// anybody can write to. What is made belongs to the directory's owner alone, or to the directory's
// group as well when the database was made for a group: the directory then has the set-group-ID bit
// and can be written by its group. The process's umask has no say.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace rov {

// The error of something that is no regular file where one should be.
constexpr int kNotRegular = -30600;

// What such an error is, or one of the system's, in words.
const char* file_error_text(int error);

// Opens a regular file; `how` as for openat, without O_CREAT. -1 with errno, or kNotRegular there.
int open_regular(int at, const char* name, int how);
// Makes an empty one, which must not be there.
int make_regular(int at, const char* name, int how);
// Opens it, made when it is not there.
int open_or_make(int at, const char* name, int how);
// Makes a directory, as private as the one that it is in. 0 or errno.
int make_directory(int at, const char* name);
// Opens a directory that is no link. -1 with errno.
int open_subdirectory(int at, const char* name);
// Makes an open directory, which may be new, one for its owner alone, or for a group (not 0) as
// well. 0 or errno.
int set_directory_mode(int directory, gid_t group);
// Notes that others may write to a database's directory: ROV_ERR_OPEN. `path`: of the database.
[[nodiscard]] uint32_t check_trusted(int directory, const char* path);

// Removes the directory `name` in the directory `at` with all that is in it; it need not be there.
// 0 or errno.
int remove_tree(int at, const char* name);
// Writes all of `text`. 0 or errno.
int write_all(int file, const char* text, size_t len);
// Moves directory `from`/name to directory `to`/new_name, and makes that durable. 0 or errno.
int move_durably(int from, const char* name, int to, const char* new_name);

// One process at a time holds a directory's lock, as long as such an object lives. It is waited for
// as long as ROV_LOCK_WAIT says.
class DirectoryLock {
 public:
  // path: of the database, for the sentence that tells of a failure.
  DirectoryLock(int directory, const char* path);
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  // ROV_OK, or ROV_ERR_BUSY, noted with who holds it.
  uint32_t status() const { return status_; }

 private:
  int directory_;
  uint32_t status_;
};

// Sets or clears the system's lock on one byte of a file. 0 or errno.
int set_record_lock(int file, short type, off_t at);
// The same, waiting for others for at most so long.
int await_record_lock(int file, short type, off_t at, uint32_t wait_ms);
// The process that has a lock on that byte which is in the way of one of that type; 0 when there is
// none, or it can't be told.
uint32_t record_lock_holder(int file, short type, off_t at);

// Processes are known by their numbers, which are below the first of these. Where one of that number is
// there already, in a namespace of its own, the next takes its number a round further on.
constexpr off_t kNumbers = off_t{1} << 22;
constexpr off_t kRounds = 64;

// Marks an open file as in use by this process, by a lock that only those can take who may write to
// the file, and that belongs to the open file: neither another of the process's descriptors nor a
// forked child takes it away. 0 or errno.
int take_presence(int file);
void end_presence(int file);
// A process that has the file marked through another open file; 0 when there is none.
uint32_t find_presence(int file);

// "process 17", or "another process" for 0.
struct HolderName {
  char text[24];
};
HolderName name_of_holder(uint32_t process);

}  // namespace rov
