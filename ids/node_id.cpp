// Node identifiers: 32 bits in this library, 16 bytes in network order in the database.
#include <arpa/inet.h>
#include <string.h>

#include "lib/export.h"
#include "qim.h"

namespace {

// class (6 bits) | space (6 bits) | index (20 bits)
constexpr unsigned kClassShift = 26;
constexpr unsigned kSpaceShift = 20;
constexpr uint32_t kSpaceMask = 63;
constexpr uint32_t kIndexMask = 0xfffff;
constexpr uint32_t kPrivateSpace = 3;

}  // namespace

QIM_API qim_node_id_t qim_node_id_priv_create(uint32_t index) {
  return (kPrivateSpace << kSpaceShift) | (index & kIndexMask);
}

QIM_API uint32_t qim_node_id_fields(qim_node_id_t id, uint32_t* space, uint32_t* index) {
  if (space != nullptr) *space = (id >> kSpaceShift) & kSpaceMask;
  if (index != nullptr) *index = id & kIndexMask;
  return id >> kClassShift;
}

// The output is written before the check: a caller that goes on in spite of the status hands the
// database an identifier that names no node, never stale bytes.
QIM_API uint32_t qim_to_rov_node_id(qim_node_id_t id, rov_node_id_t* out) {
  qim_to_rov_node_id_nochk(id, out);
  return id == 0 ? static_cast<uint32_t>(QIM_ERR_INVALID) : 0;
}

// Written in the halves in which callers pass it on by value: a processor that has to put together
// what it loads from several stores waits for all of them.
QIM_API void qim_to_rov_node_id_nochk(qim_node_id_t id, rov_node_id_t* out) {
  const uint64_t first = htonl(id);
  const uint64_t halves[] = {__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? first : first << 32, 0};
  static_assert(sizeof(halves) == sizeof(*out));
  memcpy(out, halves, sizeof(halves));
}

QIM_API qim_node_id_t qim_from_rov_node_id(const rov_node_id_t* in) {
  return ntohl(in->word[0]);
}

// The database converts what it shows and lists by these, without knowing what identifiers mean.
QIM_API void rov_node_id_to_qim(uint32_t* word) {
  *word = ntohl(*word);
}

QIM_API void rov_node_id_from_qim(uint32_t* word) {
  *word = htonl(*word);
}
