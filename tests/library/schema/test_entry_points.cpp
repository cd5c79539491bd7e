// The 48 codec functions: each hands its arguments and its own table to the codec, and the codec's
// answer back.

#include <ostream>

#include "rov.h"
#include "tests/support/fake/fixture.h"
#include "tlvo.h"

namespace {

using fake::call;

// The functions of one record kind with the record's type taken away.
struct RecordKind {
  const char* name;
  const tlvo_table_t* table;
  std::uint32_t (*to_struct)(void** record, const void* tlv, std::uint32_t len,
                             std::uint32_t flags);
  std::uint32_t (*to_tlv)(const void* record, void* tlv, std::uint32_t room, std::uint32_t* len,
                          std::uint32_t* count, std::uint32_t flags);
  std::uint32_t (*get_tlv_sz)(const void* record);
  std::uint32_t (*get_struct_sz)(const void* tlv);
};
void PrintTo(const RecordKind& kind, std::ostream* os) {
  *os << kind.name;
}

#define KIND(K)                                                                          \
  RecordKind {                                                                           \
#K,                                                                                    \
       &qim_##K##_tbl,                                                                        \
       [](void** record, const void* tlv, std::uint32_t len, std::uint32_t flags) {           \
         return qim_##K##_to_struct(reinterpret_cast<qim_##K##_t**>(record), tlv, len, flags); \
       },                                                                                     \
       [](const void* record, void* tlv, std::uint32_t room, std::uint32_t* len,              \
          std::uint32_t* count, std::uint32_t flags) {                                        \
         return qim_##K##_to_tlv(static_cast<const qim_##K##_t*>(record), tlv, room, len,     \
                                 count, flags);                                               \
       },                                                                                     \
       [](const void* record) {                                                               \
         return qim_##K##_get_tlv_sz(static_cast<const qim_##K##_t*>(record));                \
       },                                                                                     \
       [](const void* tlv) { return qim_##K##_get_struct_sz(tlv); } \
  }

class EntryPoints : public testing::TestWithParam<RecordKind> {
 protected:
  void SetUp() override {
    fake::reset();
    *qim_lib_get() = qim_lib_ctx_t{};
    fake::report_everything(qim_lib_get());
  }
  void TearDown() override {
    EXPECT_EQ(fake::reports().size(), 0u) << "they report nothing";
    *qim_lib_get() = qim_lib_ctx_t{};
    fake::reset();
  }

  static void answer(const char* function, std::uint32_t word) {
    fake::script(function, [word](const fake::Call&) { return word; });
  }

  const RecordKind& kind_ = GetParam();
  std::uint8_t buffer_[8] = {};
  std::uint32_t word_[2] = {};
};

TEST_P(EntryPoints, to_struct_puts_the_table_before_the_flags) {
  answer("tlvo_dec_tlva_to_struct", 0x41170021);
  void* record = nullptr;
  EXPECT_EQ(kind_.to_struct(&record, buffer_, 8, 0xf1a6), 0x41170021u);
  EXPECT_EQ(
      fake::calls(),
      (fake::Calls{call("tlvo_dec_tlva_to_struct", &record, buffer_, 8, kind_.table, 0xf1a6)}));
}

TEST_P(EntryPoints, to_tlv_puts_its_record_fourth) {
  answer("tlvo_enc_struct_to_tlva", 0x41170028);
  EXPECT_EQ(kind_.to_tlv(buffer_ + 1, buffer_, 0x4444, &word_[0], &word_[1], 0xf1a6), 0x41170028u);
  EXPECT_EQ(fake::calls(),
            (fake::Calls{call("tlvo_enc_struct_to_tlva", buffer_, 0x4444, kind_.table, buffer_ + 1,
                              &word_[0], &word_[1], 0xf1a6)}));
}

TEST_P(EntryPoints, get_tlv_sz_gives_the_codecs_size_and_failure_alike) {
  answer("tlvo_enc_struct_to_tlva_size", 0x1234);
  EXPECT_EQ(kind_.get_tlv_sz(buffer_), 0x1234u);
  answer("tlvo_enc_struct_to_tlva_size", 0xffffffff);
  EXPECT_EQ(kind_.get_tlv_sz(buffer_), 0xffffffffu);
  EXPECT_EQ(fake::calls()[0], call("tlvo_enc_struct_to_tlva_size", kind_.table, buffer_));
}

TEST_P(EntryPoints, get_struct_sz_starts_from_0_and_names_no_length) {
  fake::script("tlvo_dec_tlva_to_struct_size", [](const fake::Call& made) {
    EXPECT_EQ(*made.pointer<std::uint32_t>(0), 0u);
    *made.pointer<std::uint32_t>(0) = 0x4321;
    return 0u;
  });
  EXPECT_EQ(kind_.get_struct_sz(buffer_), 0x4321u);
  EXPECT_EQ(
      fake::calls(),
      (fake::Calls{call("tlvo_dec_tlva_to_struct_size", fake::any, buffer_, 0, kind_.table)}));
}

TEST_P(EntryPoints, get_struct_sz_folds_every_failure_into_one_word) {
  for (const std::uint32_t status : {1u, 0x41170020u, 0xffffffffu}) {
    fake::script("tlvo_dec_tlva_to_struct_size", [status](const fake::Call& made) {
      *made.pointer<std::uint32_t>(0) = 12;
      return status;
    });
    EXPECT_EQ(kind_.get_struct_sz(buffer_), 0xffffffffu);
  }
}

TEST_P(EntryPoints, get_struct_sz_gives_a_size_of_0_as_0) {
  answer("tlvo_dec_tlva_to_struct_size", 0);
  EXPECT_EQ(kind_.get_struct_sz(buffer_), 0u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, EntryPoints,
                         testing::Values(KIND(criterion), KIND(filter), KIND(hfilter), KIND(action),
                                         KIND(haction), KIND(action_bw), KIND(police), KIND(ifelse),
                                         KIND(def), KIND(group), KIND(pinst), KIND(node)),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
