#include <gtest/gtest.h>

#include "database/memory/pool.h"
#include "mem.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

Builder item(uint32_t type, const std::string& args) {
  return Builder().int32(0x230001, type).attribute(0x230002, args);
}

uint32_t decode(Owner* owner, const Builder& tlva) {
  void* record = owner;
  return tlvo_dec_tlva_to_struct(&record, tlva.bytes().data(),
                                 static_cast<uint32_t>(tlva.bytes().size()), &owner_table.head,
                                 TLVO_DEC_IN_PLACE);
}

std::string types_of(const Item* first) {
  std::string types;
  for (; first != nullptr; first = first->next) types += std::to_string(first->type) + " ";
  return types;
}

class TlvList : public testing::Test {
 protected:
  ~TlvList() override {
    release(&owner_);
    EXPECT_EQ(mem::live_bytes(), live_before_);
  }

  size_t live_before_ = mem::live_bytes();
  Owner owner_{};
};

TEST_F(TlvList, ElementsAreAppendedInOrderAndCounted) {
  Builder tlva;
  for (uint32_t i = 1; i <= 5; ++i) tlva.attribute(0x240004, item(i, std::string(i, 'x')));
  ASSERT_EQ(decode(&owner_, tlva), ROV_OK);
  EXPECT_EQ(types_of(owner_.items), "1 2 3 4 5 ");
  EXPECT_EQ(owner_.count, 5u);
  EXPECT_EQ(owner_.others, nullptr);
  EXPECT_EQ(owner_.count2, 0u);
  EXPECT_EQ(args_of(owner_.items->next), "xx");
}

TEST_F(TlvList, ListsMayBeInterleaved) {
  ASSERT_EQ(decode(&owner_, Builder()
                                .attribute(0x240005, item(1, ""))
                                .attribute(0x240004, item(2, ""))
                                .attribute(0x240005, item(3, ""))
                                .int32(0x240003, 7)
                                .attribute(0x240004, item(4, ""))
                                .attribute(0x240005, item(5, ""))),
            ROV_OK);
  EXPECT_EQ(types_of(owner_.items), "2 4 ");
  EXPECT_EQ(types_of(owner_.others), "1 3 5 ");
  EXPECT_EQ(owner_.count, 2u);
  EXPECT_EQ(owner_.count2, 3u);
  EXPECT_EQ(owner_.flags, 7u);
}

// A list whose elements say how many were counted before, by the callback's own place.
uint32_t g_starts;
uint32_t count_any(const void*) {
  return 1;
}
uint32_t encode_none(const void*, void**, void*, uint32_t* len, uint32_t* done) {
  *len = 0;
  *done = 1;
  return ROV_OK;
}
uint32_t decode_counted(void* record, const void*, uint32_t, void** iter) {
  if (*iter == nullptr) ++g_starts;
  *iter = record;
  return ROV_OK;
}
uint32_t size_none(const void*) {
  return 0;
}

TEST_F(TlvList, ACallbackKeepsItsPlaceWhateverComesBetweenElements) {
  static const Table<2> table = {table_head("counted", 0x27, 8),
                                 {list_field(1, count_any, encode_none, decode_counted, size_none),
                                  int_field(2, 4, 0), end_field()}};
  const Builder none;
  const Builder cases[] = {
      Builder().attribute(0x270001, none).attribute(0x270001, none),
      Builder().attribute(0x270001, none).int32(0x270002, 1).attribute(0x270001, none),
      Builder().int32(0x270002, 1).attribute(0x270001, none).attribute(0x270001, none),
      Builder().attribute(0x270001, none).attribute(0x990001, "?").attribute(0x270001, none),
      Builder().attribute(0x270001, none).attribute(0x270001, "odd").attribute(0x270001, none)};
  for (const Builder& tlva : cases) {
    uint32_t words[2] = {};
    void* record = words;
    g_starts = 0;
    ASSERT_EQ(tlvo_dec_tlva_to_struct(&record, tlva.bytes().data(),
                                      static_cast<uint32_t>(tlva.bytes().size()), &table.head,
                                      TLVO_DEC_IN_PLACE),
              ROV_OK);
    EXPECT_EQ(g_starts, 1u);
  }
}

TEST_F(TlvList, AnEmptyElementIsAnElement) {
  ASSERT_EQ(decode(&owner_, Builder().attribute(0x240004, "").attribute(0x240004, "")), ROV_OK);
  EXPECT_EQ(types_of(owner_.items), "0 0 ");
}

TEST_F(TlvList, ARecordThatHasElementsKeepsThem) {
  owner_.items = new_item(1, "", new_item(2, ""));
  ASSERT_EQ(decode(&owner_, Builder().attribute(0x240004, item(3, ""))), ROV_OK);
  EXPECT_EQ(types_of(owner_.items), "1 2 3 ");
}

TEST_F(TlvList, WhatAFailedDecodeMadeHangsInTheRecord) {
  EXPECT_EQ(
      decode(&owner_,
             Builder()
                 .attribute(0x240004, item(1, "abc"))
                 .attribute(0x240004,
                            Builder().attribute(0x230002, "defg").attribute(0x230002, "second"))),
      ROV_ERR_TLV_DUPLICATE);
  EXPECT_EQ(types_of(owner_.items), "1 0 ");
  EXPECT_EQ(owner_.count, 2u);
  EXPECT_EQ(args_of(owner_.items->next), "defg");
}

TEST_F(TlvList, SizeAndCountFollowTheElements) {
  EXPECT_EQ(rov_tlv_listptr_nels(&items_list, &owner_), 0u);
  EXPECT_EQ(rov_tlv_listel_tlvsize(&items_list, &owner_), 0u);
  owner_.items = new_item(1, "12345", new_item(2, ""));
  EXPECT_EQ(rov_tlv_listptr_nels(&items_list, &owner_), 2u);
  EXPECT_EQ(rov_tlv_listel_tlvsize(&items_list, &owner_), (8u + 12 + 8 + 8) + (8 + 12));
}

TEST_F(TlvList, EncodingStepsThroughTheElements) {
  owner_.items = new_item(1, "", new_item(2, ""));
  unsigned char out[100];
  void* iter = nullptr;
  uint32_t len = sizeof out;
  uint32_t done = 0;
  ASSERT_EQ(rov_tlv_from_listel(&items_list, &owner_, &iter, out, &len, &done), ROV_OK);
  EXPECT_EQ(Bytes(out, out + len), Builder().int32(0x230001, 1).bytes());
  EXPECT_EQ(done, 0u);
  len = sizeof out;
  ASSERT_EQ(rov_tlv_from_listel(&items_list, &owner_, &iter, out, &len, &done), ROV_OK);
  EXPECT_EQ(Bytes(out, out + len), Builder().int32(0x230001, 2).bytes());
  EXPECT_EQ(done, 1u);
}

TEST_F(TlvList, EncodingAnEmptyListIsDoneAtOnce) {
  unsigned char out[8];
  void* iter = nullptr;
  uint32_t len = sizeof out;
  uint32_t done = 0;
  EXPECT_EQ(rov_tlv_from_listel(&items_list, &owner_, &iter, out, &len, &done), ROV_OK);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(done, 1u);
}

TEST_F(TlvList, ADescriptorThatLacksAPartCannotBeFollowed) {
  tlvo_list_t broken[5];
  for (tlvo_list_t& list : broken) list = items_list;
  tlvo_list_t link = *items_list.link;
  link.head = nullptr;
  broken[0].head = nullptr;
  broken[1].element = nullptr;
  broken[2].link = nullptr;
  broken[3].link = &link;
  broken[4].alloc = nullptr;
  void* iter = nullptr;
  unsigned char out[8];
  uint32_t done = 0;
  for (const tlvo_list_t& list : broken) {
    EXPECT_EQ(rov_tlv_to_listel(&list, &owner_, "", 0, &iter), ROV_ERR_TLV_TABLE);
    if (&list == &broken[4]) break;  // only decoding allocates
    uint32_t len = sizeof out;
    EXPECT_EQ(rov_tlv_from_listel(&list, &owner_, &iter, out, &len, &done), ROV_ERR_TLV_TABLE);
    EXPECT_EQ(rov_tlv_listel_tlvsize(&list, &owner_), TLVO_SIZE_FAILED);
    EXPECT_EQ(rov_tlv_listptr_nels(&list, &owner_), 0u);
  }
  EXPECT_EQ(rov_tlv_to_listel(nullptr, &owner_, "", 0, &iter), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(owner_.items, nullptr);
}

TEST_F(TlvList, AnAllocatorsFailureIsPassedOnAndItsEmptyHandsAreSeen) {
  tlvo_list_t list = items_list;
  void* iter = nullptr;
  list.alloc = [](void*, void**, void*, uint32_t*) -> uint32_t { return 0x41170123; };
  EXPECT_EQ(rov_tlv_to_listel(&list, &owner_, "", 0, &iter), 0x41170123u);
  list.alloc = [](void*, void** out, void*, uint32_t*) -> uint32_t {
    *out = nullptr;
    return ROV_OK;
  };
  EXPECT_EQ(rov_tlv_to_listel(&list, &owner_, "", 0, &iter), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(owner_.items, nullptr);
  EXPECT_EQ(owner_.count, 0u);
}

TEST_F(TlvList, WithoutABookkeepingWordNothingIsCounted) {
  tlvo_list_t list = items_list;
  list.aux = nullptr;
  void* iter = nullptr;
  EXPECT_EQ(rov_tlv_to_listel(&list, &owner_, "", 0, &iter), ROV_OK);
  EXPECT_EQ(iter, owner_.items);
  EXPECT_EQ(owner_.count, 0u);
}

TEST_F(TlvList, BadArgumentsAreRefused) {
  void* iter = nullptr;
  unsigned char out[8];
  uint32_t len = sizeof out;
  uint32_t done = 0;
  EXPECT_EQ(rov_tlv_to_listel(&items_list, nullptr, "", 0, &iter), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_to_listel(&items_list, &owner_, nullptr, 1, &iter), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_to_listel(&items_list, &owner_, "", 0, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_from_listel(&items_list, nullptr, &iter, out, &len, &done), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_from_listel(&items_list, &owner_, nullptr, out, &len, &done), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_from_listel(&items_list, &owner_, &iter, nullptr, &len, &done),
            ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_from_listel(&items_list, &owner_, &iter, out, nullptr, &done), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_from_listel(&items_list, &owner_, &iter, out, &len, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_listel_tlvsize(&items_list, nullptr), TLVO_SIZE_FAILED);
  EXPECT_EQ(rov_tlv_listptr_nels(&items_list, nullptr), 0u);
}

TEST_F(TlvList, TheBufferHelpersSayWhatTheyTake) {
  unsigned char out[4];
  uint32_t len = 3;
  uint32_t done = 0;
  EXPECT_EQ(rov_cpy_fld_to_tlv("abcd", 4, out, &len, &done), ROV_ERR_TLV_ROOM);
  EXPECT_EQ(len, 3u);
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(rov_cpy_fld_to_tlv(nullptr, 1, out, &len, &done), ROV_ERR_INVALID);
  EXPECT_EQ(rov_cpy_fld_to_tlv("a", 1, nullptr, &len, &done), ROV_ERR_INVALID);
  EXPECT_EQ(rov_cpy_fld_to_tlv("a", 1, out, nullptr, &done), ROV_ERR_INVALID);
  EXPECT_EQ(rov_cpy_fld_to_tlv("a", 1, out, &len, nullptr), ROV_ERR_INVALID);
  EXPECT_EQ(rov_cpy_fld_to_tlv("abc", 3, out, &len, &done), ROV_OK);
  EXPECT_EQ(len, 3u);
  EXPECT_EQ(done, 1u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(out), 3), "abc");
  EXPECT_EQ(rov_cpy_fld_to_tlv(nullptr, 0, nullptr, &len, &done), ROV_OK);
  EXPECT_EQ(len, 0u);

  int anything = 0;
  void* buf = &anything;
  uint32_t buf_len = 77;
  EXPECT_EQ(rov_tlv_to_bufptr(nullptr, &buf_len, nullptr, "a", 1), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_to_bufptr(&buf, nullptr, nullptr, "a", 1), ROV_ERR_INVALID);
  EXPECT_EQ(rov_tlv_to_bufptr(&buf, &buf_len, nullptr, nullptr, 1), ROV_ERR_INVALID);
  rov_mem_ctx_t full{nullptr, static_cast<uint32_t>(mem::live_bytes()) + 2, 0};
  EXPECT_EQ(rov_tlv_to_bufptr(&buf, &buf_len, &full, "abc", 3), ROV_ERR_NO_MEM);
  EXPECT_EQ(buf, &anything);
  EXPECT_EQ(buf_len, 77u);
  EXPECT_EQ(rov_tlv_to_bufptr(&buf, &buf_len, nullptr, nullptr, 0), ROV_OK);
  EXPECT_EQ(buf, nullptr);
  EXPECT_EQ(buf_len, 0u);
}

}  // namespace
