// The calling thread's last failure, in words.
//
// Many failures are ordinary answers (a node without that link, say) and happen on the read path.
// So a failure only notes what happened; the sentence is made when somebody asks for it.
#ifndef DATABASE_BASE_ERROR_H
#define DATABASE_BASE_ERROR_H

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
  kText            // the sentence itself was given
};

// Notes a failure and returns `status`.
uint32_t fail(uint32_t status, Note note, uint32_t a = 0, uint32_t b = 0);

// Notes a failure with its sentence: what, where, what to do about it. Not for the read path.
[[gnu::format(printf, 2, 3)]] uint32_t fail_text(uint32_t status, const char* format, ...);

}  // namespace rov

#endif
