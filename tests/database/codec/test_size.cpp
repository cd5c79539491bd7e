#include <gtest/gtest.h>

#include "database/memory/pool.h"
#include "mem.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

struct Answer {
  uint32_t status;
  uint32_t size;
  bool operator==(const Answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << std::hex << answer.status << " size " << std::dec << answer.size;
}

// The answer, asked with `size` in the word. Nothing may stay allocated.
Answer ask(const Bytes& tlva, const tlvo_table_t* table, uint32_t size = 0) {
  const size_t before = mem::live_bytes();
  const uint32_t status =
      tlvo_dec_tlva_to_struct_size(&size, tlva.data(), static_cast<uint32_t>(tlva.size()), table);
  EXPECT_EQ(mem::live_bytes(), before);
  return {status, size};
}

Builder item(const std::string& args) {
  return Builder().int32(0x230001, 1).attribute(0x230002, args);
}

TEST(TlvSize, WithoutALengthOnlyTheFixedRecordCounts) {
  EXPECT_EQ(ask({}, &owner_table.head), (Answer{ROV_OK, sizeof(Owner)}));
  uint32_t size = 0;
  const char unread[] = "not TLV data";
  EXPECT_EQ(tlvo_dec_tlva_to_struct_size(&size, unread, 0, &any_table.head), ROV_OK);
  EXPECT_EQ(size, sizeof(Any));
  EXPECT_EQ(tlvo_dec_tlva_to_struct_size(&size, nullptr, 0, &ints_table.head), ROV_OK);
  EXPECT_EQ(size, sizeof(Any) + sizeof(Ints)) << "it is added to the sum";
}

TEST(TlvSize, ByteStringsCountAsTheyAre) {
  EXPECT_EQ(ask(item("12345").bytes(), &item_table.head), (Answer{ROV_OK, sizeof(Item) + 5}));
  EXPECT_EQ(ask(item("").bytes(), &item_table.head), (Answer{ROV_OK, sizeof(Item)}));
}

TEST(TlvSize, ElementsCountWithWhatTheyOwn) {
  const Builder tlva = Builder()
                           .attribute(0x240004, item("123"))
                           .attribute(0x240005, item(""))
                           .attribute(0x240004, item("4567"));
  EXPECT_EQ(ask(tlva.bytes(), &owner_table.head, 1000),
            (Answer{ROV_OK, 1000 + sizeof(Owner) + 3 * sizeof(Item) + 7}));
}

TEST(TlvSize, EmbeddedRecordsAreInTheirOwner) {
  const Builder tlva = Builder().attribute(0x220002, Builder().int32(0x210003, 4));
  EXPECT_EQ(ask(tlva.bytes(), &outer_table.head), (Answer{ROV_OK, sizeof(Outer)}));
}

TEST(TlvSize, AUnionCountsWhatItsMemberOwns) {
  const Builder owner = Builder().attribute(0x240004, item("123456789"));
  const Builder tlva =
      Builder().int32(0x250001, 1).attribute(0x250003, Builder().u32(4).raw(owner.bytes()));
  EXPECT_EQ(ask(tlva.bytes(), &any_table.head), (Answer{ROV_OK, sizeof(Any) + sizeof(Item) + 9}));
}

TEST(TlvSize, DataThatDoesNotDecodeHasNoSize) {
  EXPECT_EQ(ask(Builder().attribute(0x240004, item("12")).u8(0).bytes(), &owner_table.head, 9),
            (Answer{ROV_ERR_TLV_OVERLONG, 9}));
  EXPECT_EQ(ask(Builder().attribute(0x250003, Builder().u32(11)).bytes(), &any_table.head, 9),
            (Answer{ROV_ERR_TLV_UNION, 9}));
}

TEST(TlvSize, ASumThatDoesNotFitIsRefused) {
  constexpr auto kRecord = uint32_t{sizeof(Ints)};
  EXPECT_EQ(ask({}, &ints_table.head, TLVO_SIZE_FAILED - kRecord),
            (Answer{ROV_ERR_LENGTH, TLVO_SIZE_FAILED - kRecord}));
  EXPECT_EQ(ask({}, &ints_table.head, TLVO_SIZE_FAILED - kRecord - 1),
            (Answer{ROV_OK, TLVO_SIZE_FAILED - 1}));
}

TEST(TlvSize, BadArgumentsAreRefused) {
  uint32_t size = 3;
  EXPECT_EQ(tlvo_dec_tlva_to_struct_size(nullptr, "", 0, &ints_table.head), ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_dec_tlva_to_struct_size(&size, nullptr, 8, &ints_table.head), ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_dec_tlva_to_struct_size(&size, "", 0, nullptr), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(size, 3u);
}

}  // namespace
