// Failures: the thread's last ones, their sentences, and the operating system's errors.
#include "database/base/error.h"

#include <sys/resource.h>

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "database/base/failures.h"
#include "database/base/logger.h"
#include "rov.h"
#include "rov_edit.h"

namespace rov {
namespace {

struct Sentence {
  Note note;
  const char* format;  // of the note's numbers, in their order
};

// In the order of the notes, so that a note is its sentence's place.
constexpr Sentence kSentences[] = {
    {Note::kNone, ""},
    {Note::kNoNode, "node 0x%08" PRIx32
                    " is not in the database as this session sees it: check the identifier, or "
                    "open a new session to see later commits"},
    {Note::kNoLink, "node 0x%08" PRIx32 " has no link in field 0x%" PRIx32},
    {Note::kNoReferrer, "node 0x%08" PRIx32 " has no referrer number %" PRIu32},
    {Note::kNoDataSet, "the database has no data set number %" PRIu32},
    {Note::kNoDataSetName, "no data set of the database has that name"},
    {Note::kNoDataSetOf, "node 0x%08" PRIx32 " and its referrers have no data set number %" PRIu32},
    {Note::kNoMoreNodes, "no node follows node 0x%08" PRIx32},
    {Note::kHandle, "handle 0x%08" PRIx32
                    " names nothing open of the kind that is needed here: it was closed, or is "
                    "another kind of handle, or was never given out"},
    {Note::kReadOnly, "session 0x%08" PRIx32
                      " cannot write: begin a write session with rov_edit_begin on a database that "
                      "was not opened read-only"},
    {Note::kArgument, "argument %" PRIu32 " is missing or out of its range"},
    {Note::kIdentifier,
     "a node identifier must have a first word that is not zero, and zero in words "
     "1 to 3; found 0x%08" PRIx32},
    {Note::kBuffer, "the buffer of %" PRIu32 " bytes is too small for %" PRIu32
                    " bytes: ask for the length first"},
    {Note::kNameLength, "a data-set name has 21 bytes, not %" PRIu32},
    {Note::kNoMemory, "out of memory: %" PRIu32 " bytes were not to be had"},
    {Note::kBadNode,
     "the stored record of node 0x%08" PRIx32
     " is damaged (its checksum or shape is wrong): restore the database from a dump"},
    {Note::kBadReferrers,
     "the stored referrers of node 0x%08" PRIx32
     " are damaged (checksum or shape is wrong): restore the database from a dump"},
    {Note::kBadDataSet,
     "the stored data-set name of node 0x%08" PRIx32
     " is damaged (checksum or shape is wrong): restore the database from a dump"},
    {Note::kBadPrivate, "the stored private data on node 0x%08" PRIx32 " of client 0x%" PRIx32
                        " is damaged (its checksum is wrong): set it anew, or restore the database "
                        "from a dump"},
    {Note::kBadClient, "the stored private data of client 0x%" PRIx32 " under key %" PRIu32
                       " are damaged (checksum or shape is wrong): write them anew"},
    {Note::kNoPrivate, "the client has no private data under key %" PRIu32 " there"},
    {Note::kBadChange,
     "a record of the change log is damaged (checksum or shape is wrong): restore "
     "the database from a dump"},
    {Note::kNoChange, "no change has come since the last one that was read"},
    {Note::kExpired,
     "session 0x%08" PRIx32 " was idle for too long and has expired: close it and open a new one"},
    {Note::kHeld,
     "session 0x%08" PRIx32
     " read one commit for longer than ROV_READ_LIMIT says while the file grew for it: close it "
     "and open a new one"},
};

constexpr bool has_every_note() {
  uint32_t at = 0;
  for (const Sentence& sentence : kSentences) {
    if (sentence.note != static_cast<Note>(at++)) return false;
  }
  return static_cast<Note>(at) == Note::kText;
}
static_assert(has_every_note(), "a note has no sentence, or the sentences are out of order");

constexpr const char* kNoWords =
    "out of memory, also for the words that say what went wrong: free some and try again";

// A failure that there was no memory to remember.
uint32_t without_words(uint32_t status) {
  if (log_wanted()) log_failure(status, kNoWords);
  return status;
}

void word(Failure& f) {
  if (f.note == Note::kText) return;
  // Numbers that a sentence does not name are passed over.
  snprintf(f.text, sizeof f.text, kSentences[static_cast<uint32_t>(f.note)].format, f.a, f.b);
}

}  // namespace

uint32_t fail(uint32_t status, Note note, uint32_t a, uint32_t b) {
  Failure* f = next_failure(status, note);
  if (f == nullptr) return without_words(status);
  f->a = a;
  f->b = b;
  if (log_wanted()) [[unlikely]] {
    word(*f);
    log_failure(status, f->text);
  }
  return status;
}

uint32_t bad_argument(uint32_t number) {
  return fail(ROV_ERR_INVALID, Note::kArgument, number);
}

uint32_t fail_text(uint32_t status, const char* format, ...) {
  Failure* f = next_failure(status, Note::kText);
  if (f == nullptr) return without_words(status);
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(f->text, sizeof f->text, format, arguments);
  va_end(arguments);
  if (log_wanted()) log_failure(status, f->text);
  return status;
}

}  // namespace rov

const char* rov_err_message(void) {
  uint32_t newest = 0;
  rov::Failure* f = rov::find_failure(&newest);
  if (f == nullptr) {
    return rov::unkept_failure() == 0 ? "" : rov::kNoWords;
  }
  rov::word(*f);
  return f->text;
}

uint32_t rov_err_getprev(rov_err_t* err) {
  if (err == nullptr) return rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 1);
  // Looking back is no failure of its own, or it would push out what is looked for.
  if (err->seq == 1) return ROV_ERR_NO_VALUE;
  uint32_t number = err->seq == 0 ? 0 : err->seq - 1;
  rov::Failure* f = rov::find_failure(&number);
  if (f == nullptr) return ROV_ERR_NO_VALUE;
  rov::word(*f);
  err->seq = number;
  err->status = f->status;
  constexpr int kLongest = sizeof err->message - 1;
  snprintf(err->message, sizeof err->message, "%.*s", kLongest, f->text);
  return ROV_OK;
}

namespace rov {

// ---- The operating system's errors --------------------------------------------------------------

namespace {

constexpr ErrorAdvice kRows[] = {
    {ENOMEM, ROV_ERR_NO_MEM, "free memory and try again"},
    {ENOSPC, ROV_ERR_FULL, "free space on the file system and try again; nothing was lost"},
    {EDQUOT, ROV_ERR_FULL, "free space within the quota and try again; nothing was lost"},
    {EFBIG, ROV_ERR_FULL, "use a file system that takes larger files; nothing was lost"},
    {EACCES, ROV_ERR_OPEN, "check the permissions of the directory and its files"},
    {EPERM, ROV_ERR_OPEN, "check the permissions of the directory and its files"},
    {EROFS, ROV_ERR_OPEN, "the file system is read-only: open the database with ROV_DB_RDONLY"},
    {ENOENT, ROV_ERR_OPEN, "check the path; the directory above it must exist"},
    {ENOTDIR, ROV_ERR_OPEN, "check the path: a database is a directory"},
    {ENAMETOOLONG, ROV_ERR_OPEN, "use a shorter path"},
    {EMFILE, ROV_ERR_OPEN, "close files, or raise the process's limit of open files"},
    {ENFILE, ROV_ERR_OPEN, "the system's limit of open files is reached: try again later"},
    // The engine takes a lock that was refused for one that another process has, and then misses
    // what that process would have left in lock.mdb.
    {EINVAL, ROV_ERR_GENERIC,
     "the file system refused a record lock, or lock.mdb is damaged: check the file system, "
     "and remove lock.mdb when no process has the database open"},
    {EAGAIN, ROV_ERR_BUSY, "try again later"},
    {EBUSY, ROV_ERR_BUSY, "try again later"},
    {EIO, ROV_ERR_IO,
     "check the device and the file system's free space; nothing that was committed is "
     "lost"},
};

constexpr ErrorAdvice kOther = {0, ROV_ERR_GENERIC,
                                "check the file system, then restore from a dump"};

const ErrorAdvice& row_of(int error) {
  for (const ErrorAdvice& row : kRows) {
    if (row.error == error) return row;
  }
  return kOther;
}

// The limit that a process is given, in bytes; 0 = none.
unsigned long long file_size_limit() {
  struct rlimit limit;
  if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return 0;
  return limit.rlim_cur;
}

}  // namespace

uint32_t system_fail(int error, const char* path, const char* doing) {
  return system_fail(error, strerror(error), path, doing);
}

uint32_t system_fail(int error, const char* text, const char* path, const char* doing) {
  if (error == 0) return ROV_OK;
  const unsigned long long limit = error == EFBIG ? file_size_limit() : 0;
  if (limit != 0) {
    return fail_text(ROV_ERR_FULL,
                     "cannot %s in database %s: %s; raise the limit of file sizes, which is %llu "
                     "bytes for this process, and try again; nothing was lost",
                     doing, path, text, limit);
  }
  const ErrorAdvice& row = row_of(error);
  return fail_text(row.status, "cannot %s in database %s: %s; %s", doing, path, text, row.advice);
}

}  // namespace rov
