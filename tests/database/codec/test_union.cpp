#include <gtest/gtest.h>

#include <cstring>

#include "mem.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

uint32_t decode(Any* any, const Bytes& tlva) {
  void* record = any;
  return tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()),
                                 &any_table.head, TLVO_DEC_IN_PLACE);
}

Builder value_of(uint32_t type, const Builder& member = Builder()) {
  return Builder().u32(type).raw(member.bytes());
}

TEST(TlvUnion, TheDiscriminatorSelectsTheMember) {
  const Builder ints = Builder().int32(0x210003, 3).int16(0x210001, 1);
  Any any{};
  ASSERT_EQ(
      decode(&any, Builder().int32(0x250001, 8).attribute(0x250003, value_of(1, ints)).bytes()),
      ROV_OK);
  EXPECT_EQ(any.group, 8u);
  EXPECT_EQ(any.type, 1u);
  Ints body;
  std::memcpy(&body, any.body, sizeof body);
  EXPECT_EQ(body.four, 3u);
  EXPECT_EQ(body.two, 1u);

  any = Any{};
  ASSERT_EQ(
      decode(
          &any,
          Builder().attribute(0x250003, value_of(2, Builder().attribute(0x220002, ints))).bytes()),
      ROV_OK);
  EXPECT_EQ(any.type, 2u);
  Outer outer;
  std::memcpy(&outer, any.body, sizeof outer);
  EXPECT_EQ(outer.inner.four, 3u);
}

TEST(TlvUnion, EveryMemberIsFoundAndNothingElse) {
  for (uint32_t type = 0; type <= 40; ++type) {
    Any any{};
    any.type = 77;
    const bool known = type >= 1 && type <= 10;
    EXPECT_EQ(decode(&any, Builder().attribute(0x250003, value_of(type)).bytes()),
              known ? ROV_OK : ROV_ERR_TLV_UNION)
        << type;
    EXPECT_EQ(any.type, known ? type : 77);
  }
  Any any{};
  EXPECT_EQ(decode(&any, Builder().attribute(0x250003, value_of(0x01000000)).bytes()),
            ROV_ERR_TLV_UNION);
}

TEST(TlvUnion, AMemberWithoutFieldsFillsNothing) {
  Any any{};
  std::memset(any.body, 0x55, sizeof any.body);
  const Builder ints = Builder().int32(0x210003, 3);
  ASSERT_EQ(decode(&any, Builder().attribute(0x250003, value_of(9, ints)).bytes()), ROV_OK);
  EXPECT_EQ(any.type, 9u);
  for (const unsigned char byte : any.body) ASSERT_EQ(byte, 0x55);
}

TEST(TlvUnion, AValueWithoutAWholeDiscriminatorIsTruncated) {
  for (size_t len = 0; len < 4; ++len) {
    Any any{};
    EXPECT_EQ(decode(&any, Builder().attribute(0x250003, Bytes(len, 0)).bytes()),
              ROV_ERR_TLV_TRUNCATED);
  }
}

TEST(TlvUnion, ASecondUnionIsADuplicate) {
  Any any{};
  EXPECT_EQ(
      decode(&any,
             Builder().attribute(0x250003, value_of(5)).attribute(0x250003, value_of(6)).bytes()),
      ROV_ERR_TLV_DUPLICATE);
  EXPECT_EQ(any.type, 5u);
}

TEST(TlvUnion, ErrorsOfTheMemberComeThrough) {
  Any any{};
  EXPECT_EQ(
      decode(&any, Builder().attribute(0x250003, value_of(1, Builder().int8(0x210003, 3))).bytes()),
      ROV_ERR_TLV_WIDTH);
  EXPECT_EQ(
      decode(&any, Builder().attribute(0x250003, value_of(1, Builder().u32(0x210003))).bytes()),
      ROV_ERR_TLV_TRUNCATED);
}

TEST(TlvUnion, EncodesTheDiscriminatorAndTheMember) {
  Any any{1, 1, 2, {}};
  const Ints ints = {4, 3, 2, 1, 0};
  std::memcpy(any.body, &ints, sizeof ints);
  const Bytes expected = Builder()
                             .int32(0x250002, 2)
                             .int32(0x250001, 1)
                             .attribute(0x250003, value_of(1, Builder()
                                                                  .int32(0x210003, 2)
                                                                  .int16(0x210001, 3)
                                                                  .int64(0x210002, 1)
                                                                  .int8(0x210004, 4)))
                             .bytes();
  Bytes out(expected.size());
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&any_table.head, &any), expected.size());
  uint32_t count = 0;
  ASSERT_EQ(tlvo_enc_struct_to_tlva(out.data(), static_cast<uint32_t>(out.size()), &any_table.head,
                                    &any, nullptr, &count, 0),
            ROV_OK);
  EXPECT_EQ(out, expected);
  EXPECT_EQ(count, 3u);
}

TEST(TlvUnion, AnUnknownTypeCannotBeEncoded) {
  Any any{};
  any.type = 11;
  Bytes out(200);
  EXPECT_EQ(tlvo_enc_struct_to_tlva(out.data(), 200, &any_table.head, &any, nullptr, nullptr, 0),
            ROV_ERR_TLV_UNION);
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&any_table.head, &any), TLVO_SIZE_FAILED);
  EXPECT_EQ(rov_tlva_union_siz(11, any_members, any.body), TLVO_SIZE_FAILED);
}

TEST(TlvUnion, TheHelpersSayWhatTheyTake) {
  Any any{};
  unsigned char out[4] = {};
  uint32_t len = 3;
  EXPECT_EQ(rov_tlva_from_union(5, any_members, any.body, &len, out), ROV_ERR_TLV_ROOM);
  EXPECT_EQ(len, 3u);
  len = 4;
  EXPECT_EQ(rov_tlva_from_union(5, any_members, any.body, &len, out), ROV_OK);
  EXPECT_EQ(len, 4u);
  EXPECT_EQ(Bytes(out, out + 4), (Bytes{0, 0, 0, 5}));
  EXPECT_EQ(rov_tlva_union_siz(5, any_members, any.body), 4u);

  EXPECT_EQ(rov_tlva_from_union(5, nullptr, any.body, &len, out), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_from_union(5, any_members, nullptr, &len, out), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_from_union(5, any_members, any.body, nullptr, out), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_from_union(5, any_members, any.body, &len, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_to_union(4, nullptr, any_members, &any.type, any.body), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_to_union(4, out, nullptr, &any.type, any.body), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_to_union(4, out, any_members, nullptr, any.body), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_to_union(4, out, any_members, &any.type, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlva_union_siz(5, nullptr, any.body), TLVO_SIZE_FAILED);
  EXPECT_EQ(rov_tlva_union_siz(5, any_members, nullptr), TLVO_SIZE_FAILED);
}

TEST(TlvUnion, AMemberWithoutATableCannotBeFollowed) {
  tlvo_union_t members[TLVO_UNION_MEMBERS];
  std::memcpy(members, any_members, sizeof members);
  members[9].table = nullptr;
  Any any{};
  unsigned char out[8] = {0, 0, 0, 10};
  uint32_t len = 8;
  EXPECT_EQ(rov_tlva_to_union(4, out, members, &any.type, any.body), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(rov_tlva_from_union(10, members, any.body, &len, out), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(rov_tlva_union_siz(10, members, any.body), TLVO_SIZE_FAILED);
}

}  // namespace
