#include <gtest/gtest.h>

#include <cstring>

#include "database/memory/pool.h"
#include "mem.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

struct Encoded {
  Bytes bytes;
  uint32_t count;
};

// Encodes with exactly the room that the size function asks for.
Encoded encode(const tlvo_table_t* table, const void* record) {
  const uint32_t size = tlvo_enc_struct_to_tlva_size(table, record);
  EXPECT_NE(size, TLVO_SIZE_FAILED);
  Encoded out{Bytes(size, 0xaa), 0};  // padding must be written, not found
  uint32_t len = 0;
  EXPECT_EQ(tlvo_enc_struct_to_tlva(out.bytes.data(), size, table, record, &len, &out.count, 0),
            ROV_OK);
  EXPECT_EQ(len, size);
  return out;
}

const Ints some_ints = {0xfe, 0x0102, 0x03040506, 0x0708090a0b0c0d0e, 99};

Builder ints_tlva() {
  return Builder()
      .int32(0x210003, 0x03040506)
      .int16(0x210001, 0x0102)
      .int64(0x210002, 0x0708090a0b0c0d0e)
      .int8(0x210004, 0xfe);
}

TEST(TlvEncode, IntegersComeInTableOrderAndPadded) {
  const Encoded out = encode(&ints_table.head, &some_ints);
  EXPECT_EQ(out.bytes, ints_tlva().bytes());
  EXPECT_EQ(out.count, 4u);
  const Bytes first_half = {0x00, 0x21, 0x00, 0x03, 0, 0, 0, 4, 3, 4, 5, 6,
                            0x00, 0x21, 0x00, 0x01, 0, 0, 0, 2, 1, 2, 0, 0};
  EXPECT_EQ(Bytes(out.bytes.begin(), out.bytes.begin() + 24), first_half);
}

TEST(TlvEncode, IntegersAreWrittenEvenWhenTheyAreZero) {
  const Ints ints{};
  EXPECT_EQ(
      encode(&ints_table.head, &ints).bytes,
      Builder().int32(0x210003, 0).int16(0x210001, 0).int64(0x210002, 0).int8(0x210004, 0).bytes());
}

TEST(TlvEncode, AnEmbeddedRecordIsOneAttribute) {
  const Outer outer{1, some_ints, 2};
  const Encoded out = encode(&outer_table.head, &outer);
  EXPECT_EQ(
      out.bytes,
      Builder().int32(0x220001, 1).attribute(0x220002, ints_tlva()).int32(0x220003, 2).bytes());
  EXPECT_EQ(out.count, 3u);
}

TEST(TlvEncode, AnEmptyByteStringHasNoAttribute) {
  Item* item = new_item(5, "");
  const Encoded out = encode(&item_table.head, item);
  EXPECT_EQ(out.bytes, Builder().int32(0x230001, 5).bytes());
  EXPECT_EQ(out.count, 1u);
  release_list(item);
}

TEST(TlvEncode, AByteStringIsPaddedWithZeros) {
  for (const std::string text : {"a", "ab", "abc", "abcd", "abcde"}) {
    Item* item = new_item(5, text);
    EXPECT_EQ(encode(&item_table.head, item).bytes,
              Builder().int32(0x230001, 5).attribute(0x230002, text).bytes());
    release_list(item);
  }
}

TEST(TlvEncode, ARecordWithoutFieldsIsNoBytes) {
  const uint64_t record = 1;
  EXPECT_EQ(encode(&empty_table.head, &record).bytes, Bytes());
  uint32_t len = 7;
  uint32_t count = 7;
  EXPECT_EQ(tlvo_enc_struct_to_tlva(nullptr, 0, &empty_table.head, &record, &len, &count, 0),
            ROV_OK);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(count, 0u);
}

TEST(TlvEncode, EachElementOfAListIsOneAttribute) {
  Owner owner{};
  owner.flags = 9;
  owner.items = new_item(1, "one", new_item(2, "", new_item(3, "three!")));
  const Encoded out = encode(&owner_table.head, &owner);
  EXPECT_EQ(out.bytes,
            Builder()
                .int32(0x240003, 9)
                .attribute(0x240004, Builder().int32(0x230001, 1).attribute(0x230002, "one"))
                .attribute(0x240004, Builder().int32(0x230001, 2))
                .attribute(0x240004, Builder().int32(0x230001, 3).attribute(0x230002, "three!"))
                .bytes());
  EXPECT_EQ(out.count, 4u);
  release(&owner);
}

TEST(TlvEncode, AnyRoomThatIsTooSmallIsRefusedAndNotOverrun) {
  Owner owner{};
  owner.items = new_item(1, "one", new_item(2, "two", new_item(3, "")));
  owner.others = new_item(4, "12345");
  Any any{1, 2, 3, {}};
  const Outer outer{1, some_ints, 2};
  std::memcpy(any.body, &outer, sizeof outer);
  const struct {
    const tlvo_table_t* table;
    const void* record;
  } cases[] = {{&owner_table.head, &owner}, {&any_table.head, &any}};
  for (const auto& [table, record] : cases) {
    const uint32_t size = tlvo_enc_struct_to_tlva_size(table, record);
    ASSERT_GT(size, 40u);
    for (uint32_t room = 0; room < size; ++room) {
      Bytes out(room);  // of the very size, so that the address sanitizer sees an overrun
      uint32_t len = 7;
      uint32_t count = 7;
      ASSERT_EQ(tlvo_enc_struct_to_tlva(out.data(), room, table, record, &len, &count, 0),
                ROV_ERR_TLV_ROOM)
          << room << " of " << size;
      ASSERT_EQ(len, 0u);
      ASSERT_EQ(count, 0u);
    }
    Bytes ample(size + 50, 0xaa);
    uint32_t len = 0;
    ASSERT_EQ(tlvo_enc_struct_to_tlva(ample.data(), size + 50, table, record, &len, nullptr, 0),
              ROV_OK);
    EXPECT_EQ(len, size);
    EXPECT_EQ(Bytes(ample.begin() + size, ample.end()), Bytes(50, 0xaa));
  }
  release(&owner);
}

TEST(TlvEncode, TheBufferMayLieAtAnyAddress) {
  const Outer outer{1, some_ints, 2};
  const Bytes plain = encode(&outer_table.head, &outer).bytes;
  for (size_t shift = 1; shift < 8; ++shift) {
    Bytes out(plain.size() + shift);
    ASSERT_EQ(tlvo_enc_struct_to_tlva(out.data() + shift, static_cast<uint32_t>(plain.size()),
                                      &outer_table.head, &outer, nullptr, nullptr, 0),
              ROV_OK);
    EXPECT_EQ(Bytes(out.begin() + static_cast<ptrdiff_t>(shift), out.end()), plain);
  }
}

TEST(TlvEncode, BadArgumentsAreRefused) {
  Bytes out(100);
  uint32_t len = 7;
  const tlvo_table_t* table = &ints_table.head;
  EXPECT_EQ(tlvo_enc_struct_to_tlva(nullptr, 100, table, &some_ints, &len, nullptr, 0),
            ROV_ERR_INVALID);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(tlvo_enc_struct_to_tlva(out.data(), 100, table, nullptr, &len, nullptr, 0),
            ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_enc_struct_to_tlva(out.data(), 100, table, &some_ints, &len, nullptr, 1),
            ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_enc_struct_to_tlva(out.data(), 100, nullptr, &some_ints, &len, nullptr, 0),
            ROV_ERR_TLV_TABLE);
  EXPECT_EQ(tlvo_enc_struct_to_tlva(nullptr, 0, table, &some_ints, &len, nullptr, 0),
            ROV_ERR_TLV_ROOM);
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(nullptr, &some_ints), TLVO_SIZE_FAILED);
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(table, nullptr), TLVO_SIZE_FAILED);
}

TEST(TlvEncode, AByteStringWithoutBytesButWithALengthIsRefused) {
  Item item{};
  item.args_len = 4;
  Bytes out(100);
  EXPECT_EQ(tlvo_enc_struct_to_tlva(out.data(), 100, &item_table.head, &item, nullptr, nullptr, 0),
            ROV_ERR_INVALID);
}

TEST(TlvEncode, WhatWasEncodedDecodesToTheSame) {
  const size_t before = mem::live_bytes();
  Owner owner{};
  owner.flags = 0x80000001;
  for (uint32_t i = 0; i < 50; ++i) {
    owner.items = new_item(i, std::string(i, static_cast<char>('a' + i % 26)), owner.items);
  }
  const Bytes tlva = encode(&owner_table.head, &owner).bytes;
  Owner copy{};
  void* record = &copy;
  ASSERT_EQ(tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()),
                                    &owner_table.head, TLVO_DEC_IN_PLACE),
            ROV_OK);
  EXPECT_EQ(copy.flags, owner.flags);
  EXPECT_EQ(copy.count, 50u);
  const Item* theirs = copy.items;
  for (const Item* item = owner.items; item != nullptr; item = item->next) {
    ASSERT_NE(theirs, nullptr);
    EXPECT_EQ(theirs->type, item->type);
    EXPECT_EQ(args_of(theirs), args_of(item));
    theirs = theirs->next;
  }
  EXPECT_EQ(theirs, nullptr);
  EXPECT_EQ(encode(&owner_table.head, &copy).bytes, tlva);
  release(&owner);
  release(&copy);
  EXPECT_EQ(mem::live_bytes(), before);
}

}  // namespace
