// The four codec functions of every record kind.

#include <gtest/gtest.h>

#include <memory>

#include "qim.h"
#include "tests/library/query/support.h"
#include "tests/system/sweep/cases.h"
#include "tlvo.h"

namespace sweep_test {
namespace {

using fake::Hit;
using query_test::Bytes;

std::uint8_t args[] = {1, 2, 3};

// ---- What a record of a kind holds, and what decoding one allocates --------------------------

template <class T>
void dress(T&) {}
template <class T>
void undress(T&) {}

void dress(qim_criterion_t& criterion) {
  criterion.type = 5;
  criterion.args = args;
  criterion.args_len = sizeof args;
}
void dress(qim_action_t& action) {
  action.args = args;
  action.args_len = sizeof args;
}
void dress(qim_def_t& def) {
  def.args = args;
  def.args_len = sizeof args;
}
void dress(qim_filter_t& filter) {
  static qim_criterion_t criteria[2];
  for (qim_criterion_t& criterion : criteria) dress(criterion);
  criteria[0].next = &criteria[1];
  filter.crit = criteria;
}
void dress(qim_node_t& node) {
  node.type = QIM_NODE_FILTER;
  dress(node.body.filter);
}

void release(void* block) {
  if (block != nullptr) fake::release(block);
}
void undress(qim_criterion_t& criterion) {
  release(criterion.args);
}
void undress(qim_action_t& action) {
  release(action.args);
}
void undress(qim_def_t& def) {
  release(def.args);
}
void undress(qim_filter_t& filter) {
  for (qim_criterion_t* at = filter.crit; at != nullptr;) {
    qim_criterion_t* const next = at->next;
    undress(*at);
    release(at);
    at = next;
  }
}
void undress(qim_node_t& node) {
  if (node.type == QIM_NODE_FILTER) undress(node.body.filter);
}

// ---- A kind's functions ----------------------------------------------------------------------

template <class T>
struct Codec {
  const char* kind;
  std::uint32_t (*to_struct)(T** record, const void* tlv, std::uint32_t len, std::uint32_t flags);
  std::uint32_t (*to_tlv)(const T* record, void* tlv, std::uint32_t room, std::uint32_t* len,
                          std::uint32_t* count, std::uint32_t flags);
  std::uint32_t (*tlv_size)(const T* record);
  std::uint32_t (*struct_size)(const void* tlv);

  std::string function(const char* suffix) const { return std::string("qim_") + kind + suffix; }

  static T record() {
    T made{};
    dress(made);
    return made;
  }
  Bytes encoded(const T& from) const {
    Bytes tlv(4096);
    std::uint32_t len = 0;
    const auto room = static_cast<std::uint32_t>(tlv.size());
    EXPECT_EQ(to_tlv(&from, tlv.data(), room, &len, nullptr, 0), 0u) << kind;
    tlv.resize(len);
    return tlv;
  }
};

template <class T>
Case encoding(const Codec<T>& codec) {
  const auto tlv = std::make_shared<Bytes>();
  const auto run = [codec, tlv] {
    const T record = codec.record();
    tlv->assign(4096, 0xee);
    std::uint32_t len = 0;
    const auto room = static_cast<std::uint32_t>(tlv->size());
    const std::uint32_t status = codec.to_tlv(&record, tlv->data(), room, &len, nullptr, 0);
    tlv->resize(len);
    return status;
  };
  const auto check = [codec, tlv](std::uint32_t returned, const Hit&) {
    if (returned == 0) {
      EXPECT_EQ(*tlv, codec.encoded(codec.record()));
    }
  };
  return failing(codec.function("_to_tlv"), {.prepare = [] {}, .run = run, .check = check});
}

// Whatever was decoded before the failure is in the record and the caller's.
template <class T>
Case decoding(const Codec<T>& codec) {
  const auto tlv = std::make_shared<Bytes>();
  const auto record = std::make_shared<T>();
  const auto run = [codec, tlv, record] {
    *record = T{};
    T* at = record.get();
    const auto len = static_cast<std::uint32_t>(tlv->size());
    return codec.to_struct(&at, tlv->data(), len, TLVO_DEC_IN_PLACE);
  };
  const auto check = [codec, tlv, record](std::uint32_t returned, const Hit&) {
    if (returned == 0) {
      EXPECT_EQ(codec.encoded(*record), *tlv);
    }
    undress(*record);
  };
  const auto prepare = [codec, tlv] { *tlv = codec.encoded(codec.record()); };
  return failing(codec.function("_to_struct"), {.prepare = prepare, .run = run, .check = check});
}

template <class T>
Case struct_sizing(const Codec<T>& codec) {
  const auto run = [codec]() -> std::uint32_t {
    const std::uint8_t tlv[8] = {};
    const std::uint32_t size = codec.struct_size(tlv);
    return size == sizeof(T) ? 0 : size;
  };
  return failing(codec.function("_get_struct_sz"),
                 {.prepare = [] {},
                  .run = run,
                  .check = [](std::uint32_t, const Hit&) {},
                  .expected = [](const Hit&, std::uint32_t) { return TLVO_SIZE_FAILED; }});
}

template <class T>
void add_cases(const Codec<T>& codec, Cases* cases) {
  cases->push_back(encoding(codec));
  cases->push_back(decoding(codec));
  cases->push_back(struct_sizing(codec));
  cases->push_back(sizing(codec.function("_get_tlv_sz"), [codec] {
    const T record = codec.record();
    return codec.tlv_size(&record);
  }));
}

}  // namespace

Cases codec_cases() {
  Cases cases;
#define ADD_CASES(K)                                                                            \
  add_cases(Codec<qim_##K##_t>{#K, qim_##K##_to_struct, qim_##K##_to_tlv, qim_##K##_get_tlv_sz, \
                               qim_##K##_get_struct_sz},                                        \
            &cases);
  QIM_CODEC_KINDS(ADD_CASES)
#undef ADD_CASES
  return cases;
}

}  // namespace sweep_test
