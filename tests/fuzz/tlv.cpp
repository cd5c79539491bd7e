// Every record kind through the codec: what decodes also encodes, and what was encoded decodes to
// the same record again.
#include <cstring>
#include <vector>

#include "mem.h"
#include "qim.h"
#include "tests/fuzz/targets.h"
#include "tlvo.h"

namespace fuzz {
namespace {

void give_back(uint8_t* block) {
  if (block != nullptr) require(mem_free(block, nullptr) == 0, "a block of a record is the pool's");
}

// What hangs in a record, and not the record.
void clear(qim_criterion_t& record) {
  give_back(record.args);
}
void clear(qim_filter_t& record) {
  for (qim_criterion_t* at = record.crit; at != nullptr;) {
    qim_criterion_t* const next = at->next;
    clear(*at);
    give_back(reinterpret_cast<uint8_t*>(at));
    at = next;
  }
}
void clear(qim_action_t& record) {
  give_back(record.args);
}
void clear(qim_def_t& record) {
  give_back(record.args);
}
template <typename Record>
void clear(Record&) {}
void clear(qim_node_t& record) {
  if (record.type == QIM_NODE_FILTER) clear(record.body.filter);
  if (record.type == QIM_NODE_ACTION) clear(record.body.action);
  if (record.type == QIM_NODE_DEF) clear(record.body.def);
}

// A node may come without a body, and can't be written so.
template <typename Record>
bool can_be_encoded(const Record&) {
  return true;
}
bool can_be_encoded(const qim_node_t& record) {
  return record.type != 0;
}

// The functions of one kind.
template <typename Record>
struct Codec {
  uint32_t (*decode)(Record**, const void*, uint32_t, uint32_t);
  uint32_t (*encode)(const Record*, void*, uint32_t, uint32_t*, uint32_t*, uint32_t);
  uint32_t (*encoded_size)(const Record*);
  uint32_t (*record_size)(const void*);
};

using Bytes = std::vector<uint8_t>;

template <typename Record>
Bytes encoded(const Codec<Record>& codec, const Record& record) {
  const uint32_t size = codec.encoded_size(&record);
  require(size != TLVO_SIZE_FAILED, "what was decoded has a size");
  Bytes bytes(size);
  uint32_t len = 0;
  require(codec.encode(&record, bytes.data(), size, &len, nullptr, 0) == 0 && len == size,
          "what was decoded can be encoded in its size");
  Bytes shorter(size == 0 ? 0 : size - 1);
  if (size != 0) {
    require(codec.encode(&record, shorter.data(), size - 1, &len, nullptr, 0) != 0,
            "too little room is told");
  }
  return bytes;
}

// Into a record of the codec's own, with the same result.
template <typename Record>
void decode_anew(const Codec<Record>& codec, const Bytes& input, uint32_t expected) {
  Record* made = nullptr;
  const auto len = static_cast<uint32_t>(input.size());
  const uint32_t status = codec.decode(&made, input.data(), len, 0);
  require(status == expected, "both ways to decode agree");
  if (status != 0) return;
  clear(*made);
  give_back(reinterpret_cast<uint8_t*>(made));
}

template <typename Record>
void run(const Codec<Record>& codec, const Bytes& input) {
  Record record = {};
  Record* at = &record;
  const auto len = static_cast<uint32_t>(input.size());
  const uint32_t status = codec.decode(&at, input.data(), len, TLVO_DEC_IN_PLACE);
  decode_anew(codec, input, status);
  codec.record_size(input.data());
  if (status == 0 && !can_be_encoded(record)) {
    require(codec.encoded_size(&record) == TLVO_SIZE_FAILED, "a node without a body has no size");
  } else if (status == 0) {
    const Bytes bytes = encoded(codec, record);
    Record again = {};
    at = &again;
    require(codec.decode(&at, bytes.data(), static_cast<uint32_t>(bytes.size()),
                         TLVO_DEC_IN_PLACE) == 0,
            "what was encoded decodes");
    require(encoded(codec, again) == bytes, "and encodes to the same bytes");
    clear(again);
  }
  clear(record);
}

}  // namespace

// The first byte is the kind's number in the order of QIM_CODEC_KINDS.
void tlv(const uint8_t* bytes, size_t size) {
  if (size == 0) return;
  const Bytes input(bytes + 1, bytes + size);
  uint32_t kind = bytes[0];
#define RUN(K)                                                                          \
  if (kind-- == 0) {                                                                    \
    run(Codec<qim_##K##_t>{qim_##K##_to_struct, qim_##K##_to_tlv, qim_##K##_get_tlv_sz, \
                           qim_##K##_get_struct_sz},                                    \
        input);                                                                         \
    return;                                                                             \
  }
  QIM_CODEC_KINDS(RUN)
#undef RUN
}

}  // namespace fuzz
