// The four codec functions of every record kind: the codec walks the kind's table.
#include "lib/export.h"
#include "qim.h"
#include "tlvo.h"

namespace {

// A failure and a size share one word; no record is as large as the value that stands for failure.
uint32_t struct_size(const void* tlv, const tlvo_table_t* table) {
  uint32_t size = 0;
  return tlvo_dec_tlva_to_struct_size(&size, tlv, 0, table) == 0 ? size : TLVO_SIZE_FAILED;
}

}  // namespace

#define QIM_DEFINE_CODEC(K)                                                                    \
  QIM_API uint32_t qim_##K##_to_struct(qim_##K##_t** record, const void* tlv, uint32_t len,    \
                                       uint32_t flags) {                                       \
    return tlvo_dec_tlva_to_struct(reinterpret_cast<void**>(record), tlv, len, &qim_##K##_tbl, \
                                   flags);                                                     \
  }                                                                                            \
  QIM_API uint32_t qim_##K##_to_tlv(const qim_##K##_t* record, void* tlv, uint32_t room,       \
                                    uint32_t* len, uint32_t* count, uint32_t flags) {          \
    return tlvo_enc_struct_to_tlva(tlv, room, &qim_##K##_tbl, record, len, count, flags);      \
  }                                                                                            \
  QIM_API uint32_t qim_##K##_get_tlv_sz(const qim_##K##_t* record) {                           \
    return tlvo_enc_struct_to_tlva_size(&qim_##K##_tbl, record);                               \
  }                                                                                            \
  QIM_API uint32_t qim_##K##_get_struct_sz(const void* tlv) {                                  \
    return struct_size(tlv, &qim_##K##_tbl);                                                   \
  }
QIM_CODEC_KINDS(QIM_DEFINE_CODEC)
