#include <cinttypes>

#include "database/base/error.h"
#include "database/codec/codec.h"

namespace tlv {

constinit thread_local uint32_t Level::depth_ = 0;

uint32_t missing(uint32_t argument) {
  return rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, argument);
}

uint32_t refuse_record(const tlvo_table_t* table) {
  if (table == nullptr) {
    return rov::fail_text(ROV_ERR_TLV_TABLE,
                          "a descriptor table is missing: give one for every record");
  }
  return rov::fail_text(ROV_ERR_TLV_DEPTH,
                        "a record of %s is nested deeper than %" PRIu32
                        " records: flatten the data",
                        name_of(*table), kMaxDepth);
}

}  // namespace tlv
