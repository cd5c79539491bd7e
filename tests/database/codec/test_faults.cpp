// Decoding when the system has no memory.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

#include "database/memory/pool.h"
#include "mem.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"
#include "tests/database/failing_malloc.h"

namespace {

using namespace tlv_test;

constexpr int kNever = failing_malloc::kNever;

// Arguments that are too long for the pool's size classes, so that every decode asks the system.
Bytes owner_tlva() {
  Builder tlva;
  for (uint32_t i = 0; i < 20; ++i) {
    const Builder item = Builder().int32(0x230001, i).attribute(0x230002, std::string(5000, 'a'));
    tlva.attribute(i % 2 == 0 ? 0x240004 : 0x240005, item);
  }
  return tlva.bytes();
}

struct Outcome {
  uint32_t status;
  int calls;
};

Outcome run(const std::function<uint32_t()>& decode, int from, int until) {
  Outcome outcome{};
  std::thread([&] {
    failing_malloc::begin(from, until);
    outcome.status = decode();
    outcome.calls = failing_malloc::end();
  }).join();
  return outcome;
}

// Fails each call of a clean run in turn.
void sweep(const std::function<uint32_t()>& decode) {
  const size_t before = mem::live_bytes();
  const Outcome clean = run(decode, kNever, kNever);
  ASSERT_EQ(clean.status, ROV_OK);
  ASSERT_GT(clean.calls, 20);
  int failed = 0;
  for (int call = 0; call < clean.calls; ++call) {
    const uint32_t status = run(decode, call, call + 1).status;
    // A thread does without a cache, and the pool may have a block at hand: not every refusal
    // shows.
    if (status != ROV_OK) {
      ASSERT_EQ(status, ROV_ERR_NO_MEM) << "call " << call;
      ++failed;
    }
    ASSERT_EQ(mem::live_bytes(), before) << "call " << call;
    ASSERT_EQ(run(decode, kNever, kNever).status, ROV_OK) << "after call " << call;
  }
  EXPECT_GE(failed, 20);
}

TEST(TlvFaults, DecodingInPlaceLeavesWhatItMadeInTheRecord) {
  const Bytes tlva = owner_tlva();
  sweep([&] {
    Owner owner{};
    void* record = &owner;
    const uint32_t status =
        tlvo_dec_tlva_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()),
                                &owner_table.head, TLVO_DEC_IN_PLACE);
    release(&owner);
    return status;
  });
}

TEST(TlvFaults, DecodingIntoANewRecordLeavesNothing) {
  const Bytes tlva = owner_tlva();
  sweep([&] {
    void* record = nullptr;
    const uint32_t status = tlvo_dec_tlva_to_struct(
        &record, tlva.data(), static_cast<uint32_t>(tlva.size()), &owner_table.head, 0);
    EXPECT_EQ(record != nullptr, status == ROV_OK);
    if (record != nullptr) {
      release(static_cast<Owner*>(record));
      mem_free(record, nullptr);
    }
    return status;
  });
}

TEST(TlvFaults, AskingForTheSizeLeavesNothing) {
  const Bytes tlva = owner_tlva();
  sweep([&] {
    uint32_t size = 5;
    const uint32_t status = tlvo_dec_tlva_to_struct_size(
        &size, tlva.data(), static_cast<uint32_t>(tlva.size()), &owner_table.head);
    EXPECT_EQ(size == 5, status != ROV_OK);
    return status;
  });
}

}  // namespace
