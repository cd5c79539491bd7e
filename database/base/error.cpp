#include "database/base/error.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "database/base/logger.h"
#include "rov.h"
#include "rov_edit.h"

namespace rov {
namespace {

struct Failure {
  uint32_t status;
  Note note;
  uint32_t a;
  uint32_t b;
  char text[512];
};

// The thread's failures, the newest at t_count % kKept; t_count is its number, counted from 1.
constexpr uint32_t kKept = 16;
constinit thread_local Failure t_failures[kKept] = {};
constinit thread_local uint32_t t_count = 0;

Failure& newest() {
  return t_failures[t_count % kKept];
}

// Makes room for another failure.
Failure& next(uint32_t status, Note note) {
  ++t_count;
  Failure& f = newest();
  f.status = status;
  f.note = note;
  return f;
}

// The sentences. %1$ and %2$ are the two numbers of the note.
constexpr const char* kNoNode =
    "node 0x%08" PRIx32
    " is not in the database as this session sees it: check the identifier, or "
    "open a new session to see later commits";
constexpr const char* kNoLink = "node 0x%08" PRIx32 " has no link in field 0x%" PRIx32;
constexpr const char* kNoReferrer = "node 0x%08" PRIx32 " has no referrer number %" PRIu32;
constexpr const char* kNoDataSet = "the database has no data set number %" PRIu32;
constexpr const char* kNoDataSetOf =
    "node 0x%08" PRIx32 " and its referrers have no data set number %" PRIu32;
constexpr const char* kNoMoreNodes = "no node follows node 0x%08" PRIx32;
constexpr const char* kHandle =
    "handle 0x%08" PRIx32
    " names nothing open of the kind that is needed here: it was closed, or is "
    "another kind of handle, or was never given out";
constexpr const char* kReadOnly =
    "session 0x%08" PRIx32
    " cannot write: begin a write session with rov_edit_begin on a database "
    "that was not opened read-only";
constexpr const char* kArgument = "argument %" PRIu32 " is missing or out of its range";
constexpr const char* kIdentifier =
    "a node identifier must have a first word that is not zero, and zero in words 1 to 3; found "
    "0x%08" PRIx32;
constexpr const char* kBuffer =
    "the buffer of %" PRIu32 " bytes is too small for %" PRIu32 " bytes: ask for the length first";
constexpr const char* kNameLength = "a data-set name has 21 bytes, not %" PRIu32;
constexpr const char* kNoMemory = "out of memory: %" PRIu32 " bytes were not to be had";
constexpr const char* kBadNode = "the stored record of node 0x%08" PRIx32
                                 " is damaged (its checksum or shape is wrong): restore "
                                 "the database from a dump";
constexpr const char* kBadReferrers = "the stored referrers of node 0x%08" PRIx32
                                      " are damaged (checksum or shape is wrong): restore "
                                      "the database from a dump";
constexpr const char* kBadDataSet = "the stored data-set name of node 0x%08" PRIx32
                                    " is damaged (checksum or shape is wrong): "
                                    "restore the database from a dump";
constexpr const char* kBadPrivate =
    "the stored private data on node 0x%08" PRIx32 " of client 0x%" PRIx32
    " is damaged (its checksum "
    "is wrong): set it anew, or restore the database from a dump";
constexpr const char* kBadClient =
    "the stored private data of client 0x%" PRIx32 " under key %" PRIu32
    " are damaged (checksum or shape is wrong): write them anew";
constexpr const char* kBadChange =
    "a record of the change log is damaged (checksum or shape is wrong): restore the database from "
    "a dump";
constexpr const char* kNoPrivate = "the client has no private data under key %" PRIu32 " there";
constexpr const char* kExpired =
    "session 0x%08" PRIx32 " was idle for too long and has expired: close it and open a new one";

#define ROV_SAY0(format) snprintf(f.text, sizeof f.text, format)
#define ROV_SAY1(format) snprintf(f.text, sizeof f.text, format, f.a)
#define ROV_SAY2(format) snprintf(f.text, sizeof f.text, format, f.a, f.b)

void word_lookup(Failure& f) {
  switch (f.note) {
    case Note::kNoNode:
      ROV_SAY1(kNoNode);
      break;
    case Note::kNoLink:
      ROV_SAY2(kNoLink);
      break;
    case Note::kNoReferrer:
      ROV_SAY2(kNoReferrer);
      break;
    case Note::kNoDataSet:
      ROV_SAY1(kNoDataSet);
      break;
    case Note::kNoDataSetName:
      ROV_SAY0("no data set of the database has that name");
      break;
    case Note::kNoDataSetOf:
      ROV_SAY2(kNoDataSetOf);
      break;
    case Note::kNoMoreNodes:
      ROV_SAY1(kNoMoreNodes);
      break;
    default:
      break;
  }
}

void word(Failure& f) {
  switch (f.note) {
    case Note::kNone:
      f.text[0] = '\0';
      break;
    case Note::kText:
      break;
    case Note::kHandle:
      ROV_SAY1(kHandle);
      break;
    case Note::kReadOnly:
      ROV_SAY1(kReadOnly);
      break;
    case Note::kArgument:
      ROV_SAY1(kArgument);
      break;
    case Note::kIdentifier:
      ROV_SAY1(kIdentifier);
      break;
    case Note::kBuffer:
      ROV_SAY2(kBuffer);
      break;
    case Note::kNameLength:
      ROV_SAY1(kNameLength);
      break;
    case Note::kNoMemory:
      ROV_SAY1(kNoMemory);
      break;
    case Note::kBadNode:
      ROV_SAY1(kBadNode);
      break;
    case Note::kBadReferrers:
      ROV_SAY1(kBadReferrers);
      break;
    case Note::kBadDataSet:
      ROV_SAY1(kBadDataSet);
      break;
    case Note::kBadPrivate:
      ROV_SAY2(kBadPrivate);
      break;
    case Note::kBadClient:
      ROV_SAY2(kBadClient);
      break;
    case Note::kNoChange:
      ROV_SAY0("no change has come since the last one that was read");
      break;
    case Note::kBadChange:
      ROV_SAY0(kBadChange);
      break;
    case Note::kNoPrivate:
      ROV_SAY1(kNoPrivate);
      break;
    case Note::kExpired:
      ROV_SAY1(kExpired);
      break;
    default:
      word_lookup(f);
      break;
  }
}

}  // namespace

uint32_t fail(uint32_t status, Note note, uint32_t a, uint32_t b) {
  Failure& f = next(status, note);
  f.a = a;
  f.b = b;
  if (log_wanted()) [[unlikely]] {
    word(f);
    log_failure(status, f.text);
  }
  return status;
}

uint32_t fail_text(uint32_t status, const char* format, ...) {
  Failure& f = next(status, Note::kText);
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(f.text, sizeof f.text, format, arguments);
  va_end(arguments);
  if (log_wanted()) log_failure(status, f.text);
  return status;
}

}  // namespace rov

const char* rov_err_message(void) {
  if (rov::t_count == 0) return "";
  rov::word(rov::newest());
  return rov::newest().text;
}

uint32_t rov_err_getprev(rov_err_t* err) {
  if (err == nullptr) return rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 1);
  const uint32_t newest = rov::t_count;
  const uint32_t wanted = err->seq == 0 ? newest : err->seq - 1;
  // Looking back is no failure of its own, or it would push out what is looked for.
  if (wanted == 0 || wanted > newest || newest - wanted >= rov::kKept) return ROV_ERR_NO_VALUE;
  rov::Failure& f = rov::t_failures[wanted % rov::kKept];
  rov::word(f);
  err->seq = wanted;
  err->status = f.status;
  constexpr int kLongest = sizeof err->message - 1;
  snprintf(err->message, sizeof err->message, "%.*s", kLongest, f.text);
  return ROV_OK;
}
