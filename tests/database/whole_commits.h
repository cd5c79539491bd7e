// Transactions that write one value everywhere, so that a reader can tell whether it sees whole
// ones.
#ifndef TESTS_DATABASE_WHOLE_COMMITS_H
#define TESTS_DATABASE_WHOLE_COMMITS_H

#include "tests/database/database_fixture.h"

namespace testing_rov {

inline constexpr uint32_t kWholeNodes = 16;

inline Bytes whole_tlv(uint32_t value) {
  Bytes tlv = pattern(value, 300);
  rov::store(tlv.data(), value);
  return tlv;
}

// Writes the same contents, made of `value`, into all nodes of a write session.
inline bool put_all(uint32_t ses, uint32_t value) {
  const Bytes tlv = whole_tlv(value);
  for (uint32_t node = 1; node <= kWholeNodes; ++node) {
    if (put_node(ses, node, tlv) != ROV_OK) return false;
    const auto field = static_cast<uint16_t>(1 + value % 3);
    if (put_link(ses, node, field, 1 + value % kWholeNodes) != ROV_OK) return false;
  }
  return true;
}

inline bool write_all(uint32_t db, uint32_t value) {
  uint32_t ses = 0;
  if (rov_edit_begin(db, &ses) != ROV_OK) return false;
  return put_all(ses, value) && rov_edit_commit(ses) == ROV_OK;
}

// Whether all nodes hold the same contents, and which.
inline bool is_whole(uint32_t ses, uint32_t* value) {
  uint8_t tlv[300];
  for (uint32_t node = 1; node <= kWholeNodes; ++node) {
    const uint32_t status =
        rov_node_data_get(ses, id(node), sizeof tlv, tlv, 0, nullptr, 0, nullptr);
    if (status != ROV_OK) return false;
    if (node == 1) *value = rov::load<uint32_t>(tlv);
    const Bytes expected = whole_tlv(*value);
    if (memcmp(tlv, expected.data(), expected.size()) != 0) return false;
  }
  return true;
}

}  // namespace testing_rov

#endif
