// Statuses in words, and the end of a session.
#include "qim_acl.h"
#include "rov.h"

namespace {

struct Status {
  uint32_t code;
  const char* name;
  const char* text;
};

#define STATUS(name, text) \
  { name, #name, text }

// Those of libqimcommon; the database has words for its own.
constexpr Status kStatuses[] = {
    STATUS(QIM_ERR_GENERIC, "the policy library failed without saying why"),
    STATUS(QIM_ERR_NOT_SUPPORTED, "the policy library does not offer this"),
    STATUS(QIM_ERR_NODE_TYPE, "the node is of another type, or of none that is known"),
    STATUS(QIM_ERR_INTERNAL,
           "the node contradicts itself, such as a slot for a bare link that holds more; "
           "import it again"),
    STATUS(QIM_ERR_THREAD, "the thread has no library context and cannot get one"),
    STATUS(QIM_ERR_INVALID, "an argument is not valid; node identifiers are not 0"),
    STATUS(QIM_ERR_NO_EDEST, "the policy instance is not enforced there"),
    STATUS(QIM_ERR_VDC_RANGE,
           "the database's parameters carry a VDC number above 63; correct them"),
    STATUS(QIM_ERR_BUF_SMALL,
           "the buffer is too small, or the node grew while it was read; try again"),
    STATUS(QIM_ERR_NOT_INIT, "the library was not started"),
    STATUS(QIM_ERR_DEST_FMT, "the destination is no interface"),
    STATUS(QIM_ERR_NO_MEM, "out of memory; free some and try again"),
};

#undef STATUS

const Status* find(uint32_t code) {
  for (const Status& status : kStatuses) {
    if (status.code == code) return &status;
  }
  return nullptr;
}

}  // namespace

const char* qim_status_name(uint32_t status) {
  const Status* known = find(status);
  return known != nullptr ? known->name : rov_status_name(status);
}

const char* qim_status_text(uint32_t status) {
  const Status* known = find(status);
  return known != nullptr ? known->text : rov_status_text(status);
}

uint32_t qim_ses_close(uint32_t ses) {
  return rov_ses_close(ses);
}
