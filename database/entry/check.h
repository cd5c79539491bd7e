// Checks of arguments that several C entries make.
#pragma once

#include "database/base/error.h"
#include "database/record/keys.h"
#include "rov.h"

namespace rov {

// Refuses more private data than a record may have.
[[nodiscard]] inline uint32_t check_private_length(uint32_t len) {
  if (len <= kMaxPrivate) return ROV_OK;
  return fail_text(ROV_ERR_LENGTH, "private data have at most %u bytes, not %u", kMaxPrivate, len);
}

}  // namespace rov
