// The calling thread's last failure, in words, and the operating system's errors as failures.
//
// Many failures are ordinary answers (a node without that link, say) and happen on the read path.
// So a failure only notes what happened; the sentence is made when somebody asks for it.
#pragma once

#include <cstdint>

namespace rov {

// What a failure was about. The comments name the two numbers that go with it.
enum class Note : uint8_t {
  kNone,
  kNoNode,         // node
  kNoLink,         // node, field
  kNoReferrer,     // node, index
  kNoDataSet,      // selector
  kNoDataSetName,  //
  kNoDataSetOf,    // node, selector
  kNoMoreNodes,    // node after which none follows
  kHandle,         // handle
  kReadOnly,       // handle
  kArgument,       // number of the argument, counted from 1
  kIdentifier,     // word that is not zero though it must be, or first word
  kBuffer,         // bytes of the buffer, bytes of the data
  kNameLength,     // bytes given
  kNoMemory,       // bytes asked for
  kBadNode,        // node
  kBadReferrers,   // node
  kBadDataSet,     // node
  kBadPrivate,     // node, client
  kBadClient,      // client, key
  kNoPrivate,      // key
  kBadChange,      //
  kNoChange,       //
  kExpired,        // handle
  kHeld,           // handle
  kText            // the sentence itself was given
};

// Notes a failure and returns `status`.
uint32_t fail(uint32_t status, Note note, uint32_t a = 0, uint32_t b = 0);

// Notes that an argument, counted from 1, is missing or out of its range; ROV_ERR_INVALID.
uint32_t bad_argument(uint32_t number);

// Notes a failure with its sentence: what, where, what to do about it. Not for the read path.
[[gnu::format(printf, 2, 3)]] uint32_t fail_text(uint32_t status, const char* format, ...);

// What an error of the operating system or of the engine stands for, and what to do about it.
struct ErrorAdvice {
  int error;
  uint32_t status;
  const char* advice;
};

// Notes an error and returns the status that stands for it; 0 is ROV_OK. `path`: of the database.
// `doing` completes the sentence "cannot ...".
uint32_t system_fail(int error, const char* path, const char* doing);
// Same, of an error with a text of its own.
uint32_t system_fail(int error, const char* text, const char* path, const char* doing);

}  // namespace rov
