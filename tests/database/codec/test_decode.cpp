#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "database/memory/pool.h"
#include "mem.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

template <typename Record>
uint32_t decode(Record* record, const Bytes& tlva, const tlvo_table_t* table) {
  void* at = record;
  return tlvo_dec_tlva_to_struct(&at, tlva.data(), static_cast<uint32_t>(tlva.size()), table,
                                 TLVO_DEC_IN_PLACE);
}

uint32_t decode_ints(const Builder& tlva, Ints* record) {
  return decode(record, tlva.bytes(), &ints_table.head);
}

void expect_ints(const Ints& ints, uint8_t one, uint16_t two, uint32_t four, uint64_t eight) {
  EXPECT_EQ(ints.one, one);
  EXPECT_EQ(ints.two, two);
  EXPECT_EQ(ints.four, four);
  EXPECT_EQ(ints.eight, eight);
}

Builder all_ints() {
  return Builder()
      .int32(0x210003, 0x03040506)
      .int16(0x210001, 0x0102)
      .int64(0x210002, 0x0708090a0b0c0d0e)
      .int8(0x210004, 0xfe);
}

TEST(TlvDecode, IntegersOfEveryWidthComeInNetworkOrder) {
  Ints ints{};
  ASSERT_EQ(decode_ints(all_ints(), &ints), ROV_OK);
  expect_ints(ints, 0xfe, 0x0102, 0x03040506, 0x0708090a0b0c0d0e);
}

TEST(TlvDecode, TheOrderOfAttributesDoesNotMatter) {
  const Bytes part[] = {Builder().int32(0x210003, 3).bytes(), Builder().int16(0x210001, 1).bytes(),
                        Builder().int64(0x210002, 2).bytes(), Builder().int8(0x210004, 4).bytes()};
  size_t order[] = {0, 1, 2, 3};
  do {
    Builder tlva;
    for (const size_t i : order) tlva.raw(part[i]);
    Ints ints{};
    ASSERT_EQ(decode_ints(tlva, &ints), ROV_OK);
    expect_ints(ints, 4, 1, 3, 2);
  } while (std::next_permutation(std::begin(order), std::end(order)));
}

TEST(TlvDecode, AFieldThatIsAbsentStaysAsItIs) {
  Ints ints{1, 2, 3, 4, 5};
  ASSERT_EQ(decode_ints(Builder().int32(0x210003, 9), &ints), ROV_OK);
  expect_ints(ints, 1, 2, 9, 4);
  ASSERT_EQ(decode_ints(Builder(), &ints), ROV_OK);
  expect_ints(ints, 1, 2, 9, 4);
  EXPECT_EQ(ints.untouched, 5u);
}

TEST(TlvDecode, NoDataNeedsNoArray) {
  Ints ints{1, 2, 3, 4, 5};
  void* record = &ints;
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, nullptr, 0, &ints_table.head, TLVO_DEC_IN_PLACE),
            ROV_OK);
  expect_ints(ints, 1, 2, 3, 4);
}

TEST(TlvDecode, ArrayAndRecordMayLieAtAnyAddress) {
  const Bytes tlva = all_ints().bytes();
  for (size_t shift = 0; shift < 8; ++shift) {
    Bytes moved(shift, 0xee);
    moved.insert(moved.end(), tlva.begin(), tlva.end());
    alignas(8) unsigned char room[sizeof(Ints) + 8] = {};
    void* record = room + shift;
    ASSERT_EQ(
        tlvo_dec_tlva_to_struct(&record, moved.data() + shift, static_cast<uint32_t>(tlva.size()),
                                &ints_table.head, TLVO_DEC_IN_PLACE),
        ROV_OK);
    Ints ints;
    std::memcpy(&ints, room + shift, sizeof ints);
    expect_ints(ints, 0xfe, 0x0102, 0x03040506, 0x0708090a0b0c0d0e);
  }
}

TEST(TlvDecode, UnknownTagsAreSkippedWhereverTheyStand) {
  const Bytes unknown[] = {
      Builder().attribute(0x210005, "field that the table lacks").bytes(),
      Builder().attribute(0x210000, "field 0").bytes(),
      Builder().attribute(0x990003, "").bytes(),
      Builder().attribute(0xffffffff, "x").bytes(),
      Builder().attribute(0x000003, "1234").bytes(),
  };
  for (const Bytes& extra : unknown) {
    Ints ints{};
    const Builder tlva = Builder()
                             .raw(extra)
                             .int32(0x210003, 3)
                             .raw(extra)
                             .raw(extra)
                             .int16(0x210001, 1)
                             .int64(0x210002, 2)
                             .int8(0x210004, 4)
                             .raw(extra);
    ASSERT_EQ(decode_ints(tlva, &ints), ROV_OK);
    expect_ints(ints, 4, 1, 3, 2);
  }
}

TEST(TlvDecode, ARecordWithoutFieldsTakesNothing) {
  uint64_t record = 0x1122334455667788;
  EXPECT_EQ(decode(&record, all_ints().bytes(), &empty_table.head), ROV_OK);
  EXPECT_EQ(record, 0x1122334455667788u);
  EXPECT_EQ(decode(&record, Builder().int32(0x260000, 1).bytes(), &empty_table.head), ROV_OK);
  EXPECT_EQ(record, 0x1122334455667788u);
}

TEST(TlvDecode, AnEmbeddedRecordIsFilledInPlace) {
  Outer outer{};
  const Builder tlva =
      Builder().int32(0x220001, 11).attribute(0x220002, all_ints()).int32(0x220003, 22);
  ASSERT_EQ(decode(&outer, tlva.bytes(), &outer_table.head), ROV_OK);
  EXPECT_EQ(outer.before, 11u);
  EXPECT_EQ(outer.after, 22u);
  expect_ints(outer.inner, 0xfe, 0x0102, 0x03040506, 0x0708090a0b0c0d0e);
}

TEST(TlvDecode, AnEmbeddedRecordMayComeLateOrEmpty) {
  Outer outer{};
  ASSERT_EQ(decode(&outer, Builder().int32(0x220003, 22).attribute(0x220002, all_ints()).bytes(),
                   &outer_table.head),
            ROV_OK);
  EXPECT_EQ(outer.inner.four, 0x03040506u);
  outer = Outer{};
  ASSERT_EQ(decode(&outer, Builder().attribute(0x220002, "").int32(0x220003, 22).bytes(),
                   &outer_table.head),
            ROV_OK);
  EXPECT_EQ(outer.after, 22u);
  expect_ints(outer.inner, 0, 0, 0, 0);
}

TEST(TlvDecode, AttributesOfTheEmbeddedRecordMeanNothingOutsideIt) {
  Outer outer{};
  ASSERT_EQ(decode(&outer, all_ints().bytes(), &outer_table.head), ROV_OK);
  expect_ints(outer.inner, 0, 0, 0, 0);
}

TEST(TlvDecode, AByteStringIsCopiedIntoTheRecord) {
  for (const std::string text : {"", "a", "ab", "abc", "abcd", "more than one word"}) {
    Item item{};
    ASSERT_EQ(decode(&item, Builder().int32(0x230001, 7).attribute(0x230002, text).bytes(),
                     &item_table.head),
              ROV_OK);
    EXPECT_EQ(item.type, 7u);
    EXPECT_EQ(item.args_len, text.size());
    EXPECT_EQ(item.args == nullptr, text.empty());
    EXPECT_EQ(args_of(&item), text);
    release(&item);
  }
}

TEST(TlvDecode, WithoutInPlaceTheCodecMakesTheRecord) {
  const size_t before = mem::live_bytes();
  int anything = 0;
  void* record = &anything;
  const Bytes tlva = Builder().int32(0x230001, 7).attribute(0x230002, "text").bytes();
  ASSERT_EQ(tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()),
                                    &item_table.head, 0),
            ROV_OK);
  auto* item = static_cast<Item*>(record);
  EXPECT_EQ(item->type, 7u);
  EXPECT_EQ(item->next, nullptr);
  EXPECT_EQ(args_of(item), "text");
  release_list(item);
  EXPECT_EQ(mem::live_bytes(), before);
}

TEST(TlvDecode, WithoutInPlaceAFailureLeavesNothingBehind) {
  const size_t before = mem::live_bytes();
  const Builder item = Builder().int32(0x230001, 7).attribute(0x230002, "some arguments");
  Builder tlva;
  for (int i = 0; i < 40; ++i) tlva.attribute(0x240004, item).attribute(0x240005, item);
  tlva.attribute(0x240004, Builder().int8(0x230001, 7));
  int anything = 0;
  void* record = &anything;
  EXPECT_EQ(
      tlvo_dec_tlva_to_struct(&record, tlva.bytes().data(),
                              static_cast<uint32_t>(tlva.bytes().size()), &owner_table.head, 0),
      ROV_ERR_TLV_WIDTH);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(mem::live_bytes(), before);
}

// A record whose callback decodes a record of its own, with or without caring for how it went.
struct Holder {
  Item* item;
  uint32_t after;
};

template <bool kCares>
uint32_t decode_item(void* record, const void* value, uint32_t len, void**) {
  void* item = nullptr;
  const uint32_t status = tlvo_dec_tlva_to_struct(&item, value, len, &item_table.head, 0);
  static_cast<Holder*>(record)->item = static_cast<Item*>(item);
  return kCares ? status : uint32_t{ROV_OK};
}

template <bool kCares>
Table<2> holder_table() {
  const tlvo_encode_fn no_encode = [](const void*, void**, void*, uint32_t* len,
                                      uint32_t* done) -> uint32_t {
    *len = 0;
    *done = 1;
    return ROV_OK;
  };
  const tlvo_size_fn no_size = [](const void*) -> uint32_t { return 0; };
  return {table_head("holder", 0x30, sizeof(Holder)),
          {value_field(1, 0, no_encode, decode_item<kCares>, no_size),
           int_field(2, 4, offsetof(Holder, after)), end_field()}};
}

const Builder good_item = Builder().int32(0x230001, 7).attribute(0x230002, "arguments");
const Builder bad_item = Builder().raw(good_item.bytes()).int32(0x230001, 7);

uint32_t decode_new(Holder** holder, const Builder& tlva, const Table<2>& table) {
  void* record = nullptr;
  const uint32_t status = tlvo_dec_tlva_to_struct(
      &record, tlva.bytes().data(), static_cast<uint32_t>(tlva.bytes().size()), &table.head, 0);
  *holder = static_cast<Holder*>(record);
  return status;
}

TEST(TlvDecode, ARecordThatACallbackDecodesLivesOn) {
  const size_t before = mem::live_bytes();
  Holder* holder = nullptr;
  ASSERT_EQ(decode_new(&holder, Builder().attribute(0x300001, good_item).int32(0x300002, 5),
                       holder_table<true>()),
            ROV_OK);
  EXPECT_EQ(args_of(holder->item), "arguments");
  EXPECT_EQ(holder->after, 5u);
  release_list(holder->item);
  EXPECT_EQ(mem_free(holder, nullptr), ROV_OK);
  EXPECT_EQ(mem::live_bytes(), before);
}

TEST(TlvDecode, ARecordThatACallbackDecodesGoesWithAFailedOuterOne) {
  const size_t before = mem::live_bytes();
  Holder* holder = nullptr;
  EXPECT_EQ(decode_new(&holder, Builder().attribute(0x300001, good_item).int16(0x300002, 5),
                       holder_table<true>()),
            ROV_ERR_TLV_WIDTH);
  EXPECT_EQ(holder, nullptr);
  EXPECT_EQ(mem::live_bytes(), before);
}

TEST(TlvDecode, AFailedRecordOfACallbackTakesNothingElseWithIt) {
  const size_t before = mem::live_bytes();
  Holder* holder = nullptr;
  ASSERT_EQ(decode_new(&holder, Builder().attribute(0x300001, bad_item).int32(0x300002, 5),
                       holder_table<false>()),
            ROV_OK);
  ASSERT_NE(holder, nullptr);
  EXPECT_EQ(holder->item, nullptr);
  EXPECT_EQ(holder->after, 5u);
  EXPECT_EQ(mem::live_bytes(), before + sizeof(Holder));
  EXPECT_EQ(mem_free(holder, nullptr), ROV_OK);
}

TEST(TlvDecode, BadArgumentsAreRefused) {
  Ints ints{};
  void* record = &ints;
  void* none = nullptr;
  const tlvo_table_t* table = &ints_table.head;
  EXPECT_EQ(tlvo_dec_tlva_to_struct(nullptr, "", 0, table, TLVO_DEC_IN_PLACE), ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&none, "", 0, table, TLVO_DEC_IN_PLACE), ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, nullptr, 1, table, TLVO_DEC_IN_PLACE),
            ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, "", 0, table, 2), ROV_ERR_INVALID);
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, "", 0, nullptr, TLVO_DEC_IN_PLACE), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, "", 0, nullptr, 0), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(record, nullptr);
  const Table<0> sizeless = {table_head("sizeless", 0x26, 0), {end_field()}};
  EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, "", 0, &sizeless.head, 0), ROV_ERR_TLV_TABLE);
}

}  // namespace
