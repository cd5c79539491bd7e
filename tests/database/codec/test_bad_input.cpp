// Data that is cut off, too long, or otherwise not what the codec writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "database/memory/pool.h"
#include "mem.h"
#include "rov_edit.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

uint32_t decode_ints(const Builder& tlva) {
  Ints ints{};
  return decode(&ints, tlva.bytes(), &ints_table.head);
}

// A record of everything, in pieces that each end where an attribute ends.
std::vector<Bytes> pieces() {
  const Builder item = Builder().int32(0x230001, 7).attribute(0x230002, "arguments");
  const Builder owner = Builder()
                            .int32(0x240003, 5)
                            .attribute(0x240004, item)
                            .attribute(0x240005, item)
                            .attribute(0x240004, item);
  return {Builder().int32(0x250002, 1).bytes(), Builder().int32(0x250001, 2).bytes(),
          Builder().attribute(0x777777, "unknown").bytes(),
          Builder().attribute(0x250003, Builder().u32(4).raw(owner.bytes())).bytes()};
}

Bytes whole() {
  Builder tlva;
  for (const Bytes& piece : pieces()) tlva.raw(piece);
  return tlva.bytes();
}

TEST(TlvBadInput, EveryPrefixIsToldFromTheWhole) {
  const Bytes tlva = whole();
  std::set<size_t> ends = {0};
  for (const Bytes& piece : pieces()) ends.insert(*ends.rbegin() + piece.size());
  for (size_t len = 0; len <= tlva.size(); ++len) {
    const size_t since_end = len - *--ends.upper_bound(len);
    uint32_t expected = ROV_ERR_TLV_TRUNCATED;
    if (since_end == 0) expected = ROV_OK;
    if (since_end > 0 && since_end < 8 && len > 8) expected = ROV_ERR_TLV_OVERLONG;
    // A copy of its own, so that the address sanitizer sees a read beyond it.
    const Bytes prefix(tlva.begin(), tlva.begin() + static_cast<ptrdiff_t>(len));
    const size_t before = mem::live_bytes();
    Any any{};
    EXPECT_EQ(decode(&any, prefix, &any_table.head), expected) << len;
    release(&any);
    EXPECT_EQ(mem::live_bytes(), before);
  }
}

TEST(TlvBadInput, EveryPrefixOfANestedRecordToo) {
  const Builder ints = Builder().int32(0x210003, 1).int64(0x210002, 2);
  for (size_t len = 0; len <= ints.bytes().size(); ++len) {
    const Bytes prefix(ints.bytes().begin(), ints.bytes().begin() + static_cast<ptrdiff_t>(len));
    uint32_t expected = ROV_ERR_TLV_TRUNCATED;
    if (len == 0 || len == 12 || len == 28) expected = ROV_OK;
    if (len > 12 && len < 20) expected = ROV_ERR_TLV_OVERLONG;
    Outer outer{};
    EXPECT_EQ(decode(&outer, Builder().attribute(0x220002, prefix).int32(0x220003, 3).bytes(),
                     &outer_table.head),
              expected)
        << len;
  }
}

// The fields come as the table has them, each cut at every byte, in memory that ends there.
TEST(TlvBadInput, EveryPrefixOfAnArrayInTableOrderToo) {
  const Builder ints =
      Builder().int32(0x210003, 1).int16(0x210001, 2).int64(0x210002, 3).int8(0x210004, 4);
  const Builder outer = Builder().int32(0x220001, 1).attribute(0x220002, ints).int32(0x220003, 3);
  const Builder any = Builder()
                          .int32(0x250002, 1)
                          .int32(0x250001, 2)
                          .attribute(0x250003, Builder().u32(2).raw(outer.bytes()));
  const struct {
    const tlvo_table_t* table;
    Bytes tlva;
    std::set<size_t> ends;
  } cases[] = {{&ints_table.head, ints.bytes(), {0, 12, 24, 40, 52}},
               {&outer_table.head, outer.bytes(), {0, 12, 72, 84}},
               {&any_table.head, any.bytes(), {0, 12, 24, 120}}};
  for (const auto& [table, tlva, ends] : cases) {
    ASSERT_EQ(tlva.size(), *ends.rbegin());
    for (size_t len = 0; len <= tlva.size(); ++len) {
      const size_t since_end = len - *--ends.upper_bound(len);
      uint32_t expected = ROV_ERR_TLV_TRUNCATED;
      if (since_end == 0) expected = ROV_OK;
      if (since_end > 0 && since_end < 8 && len > 8) expected = ROV_ERR_TLV_OVERLONG;
      const Bytes prefix(tlva.begin(), tlva.begin() + static_cast<ptrdiff_t>(len));
      alignas(8) unsigned char record[128] = {};
      EXPECT_EQ(decode(record, prefix, table), expected) << table->name << " " << len;
    }
  }
}

TEST(TlvBadInput, BytesAfterTheLastAttributeAreTooMany) {
  for (size_t extra = 1; extra < 8; ++extra) {
    EXPECT_EQ(decode_ints(Builder().int32(0x210003, 1).raw(Bytes(extra, 0))), ROV_ERR_TLV_OVERLONG);
    EXPECT_EQ(decode_ints(Builder().raw(Bytes(extra, 0))), ROV_ERR_TLV_TRUNCATED);
  }
}

TEST(TlvBadInput, AValueBeyondTheEndIsTruncatedUnknownOrNot) {
  for (const uint32_t tag : {0x210003u, 0x210001u, 0x999999u}) {
    for (const uint32_t len :
         {5u, 8u, 0x7fffffffu, 0x80000000u, 0xfffffff8u, 0xfffffffcu, 0xfffffffdu, 0xffffffffu}) {
      EXPECT_EQ(decode_ints(Builder().u32(tag).u32(len).u32(0)), ROV_ERR_TLV_TRUNCATED) << len;
    }
  }
}

TEST(TlvBadInput, PaddingMustBeThereAndZero) {
  EXPECT_EQ(decode_ints(Builder().u32(0x210001).u32(2).u16(1)), ROV_ERR_TLV_TRUNCATED);
  EXPECT_EQ(decode_ints(Builder().u32(0x210001).u32(2).u16(1).u8(0)), ROV_ERR_TLV_TRUNCATED);
  EXPECT_EQ(decode_ints(Builder().u32(0x210001).u32(2).u16(1).u16(0)), ROV_OK);
  EXPECT_EQ(decode_ints(Builder().u32(0x210001).u32(2).u16(1).u16(1)), ROV_ERR_TLV_PADDING);
  EXPECT_EQ(decode_ints(Builder().u32(0x210001).u32(2).u16(1).u16(0x100)), ROV_ERR_TLV_PADDING);
  EXPECT_EQ(decode_ints(Builder().u32(0x999999).u32(1).u8(9).u8(0).u8(0).u8(1)),
            ROV_ERR_TLV_PADDING);
  Item item{};
  EXPECT_EQ(decode(&item, Builder().u32(0x230002).u32(3).u32(0x61626301).bytes(), &item_table.head),
            ROV_ERR_TLV_PADDING);
  EXPECT_EQ(item.args, nullptr);
}

TEST(TlvBadInput, AnIntegerMustHaveTheWidthOfItsField) {
  const struct {
    uint32_t tag;
    size_t width;
  } fields[] = {{0x210004, 1}, {0x210001, 2}, {0x210003, 4}, {0x210002, 8}};
  for (const auto& [tag, width] : fields) {
    for (size_t len = 0; len <= 12; ++len) {
      EXPECT_EQ(decode_ints(Builder().attribute(tag, Bytes(len, 0))),
                len == width ? ROV_OK : ROV_ERR_TLV_WIDTH)
          << tag << " of " << len;
    }
  }
}

TEST(TlvBadInput, EveryFieldButAListMayComeOnce) {
  const Builder ints = Builder().int32(0x210003, 1);
  EXPECT_EQ(decode_ints(Builder().int32(0x210003, 1).int32(0x210003, 1)), ROV_ERR_TLV_DUPLICATE);
  EXPECT_EQ(decode_ints(Builder().int64(0x210002, 1).int32(0x210003, 1).int64(0x210002, 1)),
            ROV_ERR_TLV_DUPLICATE);
  Outer outer{};
  EXPECT_EQ(decode(&outer, Builder().attribute(0x220002, ints).attribute(0x220002, ints).bytes(),
                   &outer_table.head),
            ROV_ERR_TLV_DUPLICATE);
  Item item{};
  EXPECT_EQ(decode(&item, Builder().attribute(0x230002, "abc").attribute(0x230002, "").bytes(),
                   &item_table.head),
            ROV_ERR_TLV_DUPLICATE);
  EXPECT_EQ(args_of(&item), "abc");
  release(&item);
  // The same field of two embedded records is no duplicate.
  const Builder each = Builder().attribute(0x220002, ints);
  EXPECT_EQ(decode(&outer, each.bytes(), &outer_table.head), ROV_OK);
  EXPECT_EQ(decode(&outer, each.bytes(), &outer_table.head), ROV_OK);
}

// Whatever the bytes are: no crash, nothing leaked, and what decodes can be encoded and decoded
// again.
void survive(const Bytes& tlva) {
  const size_t before = mem::live_bytes();
  Any any{};
  const uint32_t status = decode(&any, tlva, &any_table.head);
  if (status == ROV_OK && any.type != 0) {
    const uint32_t size = tlvo_enc_struct_to_tlva_size(&any_table.head, &any);
    ASSERT_NE(size, TLVO_SIZE_FAILED);
    Bytes again(size);
    ASSERT_EQ(
        tlvo_enc_struct_to_tlva(again.data(), size, &any_table.head, &any, nullptr, nullptr, 0),
        ROV_OK);
    Any copy{};
    ASSERT_EQ(decode(&copy, again, &any_table.head), ROV_OK);
    Bytes third(size);
    ASSERT_EQ(
        tlvo_enc_struct_to_tlva(third.data(), size, &any_table.head, &copy, nullptr, nullptr, 0),
        ROV_OK);
    ASSERT_EQ(third, again);
    release(&copy);
  }
  release(&any);
  ASSERT_EQ(mem::live_bytes(), before);

  void* record = nullptr;
  ASSERT_EQ(tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()),
                                    &any_table.head, 0),
            status);
  ASSERT_EQ(record != nullptr, status == ROV_OK);
  if (record != nullptr) {
    release(static_cast<Any*>(record));
    mem_free(record, nullptr);
  }
  ASSERT_EQ(mem::live_bytes(), before);
}

TEST(TlvBadInput, EveryValueOfEveryByteIsSurvived) {
  Bytes tlva = whole();
  for (uint8_t& byte : tlva) {
    const uint8_t good = byte;
    for (int value = 0; value < 256; ++value) {
      byte = static_cast<uint8_t>(value);
      survive(tlva);
      if (HasFatalFailure()) {
        FAIL() << "byte " << &byte - tlva.data() << " value " << value;
      }
    }
    byte = good;
  }
}

TEST(TlvBadInput, RandomDamageIsSurvived) {
  const unsigned seed = 20010;
  std::mt19937 random(seed);
  const Bytes good = whole();
  for (int round = 0; round < 20000; ++round) {
    Bytes tlva = good;
    for (unsigned n = 1 + random() % 4; n > 0; --n) {
      const auto at = static_cast<ptrdiff_t>(random() % tlva.size());
      switch (random() % 4) {
        case 0:
          tlva[static_cast<size_t>(at)] = static_cast<uint8_t>(random());
          break;
        case 1:
          tlva.insert(tlva.begin() + at, static_cast<uint8_t>(random() % 5));
          break;
        case 2:
          tlva.erase(tlva.begin() + at);
          break;
        default:
          tlva.resize(tlva.size() / 4 * 4);
          std::rotate(tlva.begin(), tlva.begin() + at / 4 * 4, tlva.end());
      }
    }
    survive(tlva);
    if (HasFatalFailure()) {
      FAIL() << "seed " << seed << " round " << round;
    }
  }
}

TEST(TlvBadInput, TheMessageNamesThePlace) {
  EXPECT_EQ(decode_ints(Builder().int32(0x210003, 1).int32(0x210001, 1)), ROV_ERR_TLV_WIDTH);
  const std::string message = rov_err_message();
  EXPECT_NE(message.find("ints"), std::string::npos) << message;
  EXPECT_NE(message.find("0x00210001"), std::string::npos) << message;
  EXPECT_NE(message.find("byte 12 of 24"), std::string::npos) << message;
  EXPECT_NE(message.find(rov_status_text(ROV_ERR_TLV_WIDTH)), std::string::npos) << message;
}

TEST(TlvBadInput, ATableWithoutANameIsReportedAllTheSame) {
  Table<4> nameless = ints_table;
  nameless.head.name = nullptr;
  Ints ints{};
  EXPECT_EQ(decode(&ints, Builder().int8(0x210001, 1).bytes(), &nameless.head), ROV_ERR_TLV_WIDTH);
  EXPECT_NE(std::string(rov_err_message()).find("0x00210001"), std::string::npos);
}

}  // namespace
