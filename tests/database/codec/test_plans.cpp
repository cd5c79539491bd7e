// Tables that the codec follows by a plan, beside the same tables without one.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <thread>

#include "database/codec/plan.h"
#include "database/memory/pool.h"
#include "mem.h"
#include "rov_edit.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"
#include "tests/database/random.h"

namespace {

using namespace tlv_test;
using testing_rov::Random;

TEST(TlvPlans, OnlyConstantTablesGetOne) {
  const Bytes tlva = Builder().int32(0x210003, 5).bytes();
  Ints ints{};
  ASSERT_EQ(decode(&ints, tlva, &constant_tables.ints.head), ROV_OK);
  ASSERT_EQ(decode(&ints, tlva, &writable_tables.ints.head), ROV_OK);
  const tlv::Step* plan = tlv::ready_plan(&constant_tables.ints.head);
  ASSERT_NE(plan, nullptr);
  EXPECT_EQ(tlv::make_plan(&constant_tables.ints.head), plan);
  EXPECT_EQ(tlv::ready_plan(&writable_tables.ints.head), nullptr);
  EXPECT_EQ(tlv::make_plan(&writable_tables.ints.head), nullptr);
}

TEST(TlvPlans, AWritableTableMayBecomeAnother) {
  Table<1> table = {table_head("first", 0x60, 8), {int_field(1, 4, 0), end_field()}};
  uint32_t record[2] = {};
  ASSERT_EQ(decode(record, Builder().int32(0x600001, 7).bytes(), &table.head), ROV_OK);
  EXPECT_EQ(record[0], 7u);
  table = {table_head("second", 0x61, 8), {int_field(2, 4, 4), end_field()}};
  ASSERT_EQ(decode(record, Builder().int32(0x610002, 8).int32(0x600001, 9).bytes(), &table.head),
            ROV_OK);
  EXPECT_EQ(record[0], 7u);
  EXPECT_EQ(record[1], 8u);
}

constinit const Table<1> long_id = {table_head("long", 0x10060, 4),
                                    {int_field(1, 4, 0), end_field()}};
constinit const Table<1> unsound = {table_head("unsound", 0x62, 4),
                                    {int_field(1, 4, 1), end_field()}};
constinit const Table<1> embeds_writable = {
    table_head("embeds", 0x63, sizeof(Ints)),
    {record_field(1, 0, sizeof(Ints), &writable_tables.ints.head), end_field()}};
constinit const Table<65> wide = [] {
  Table<65> table{table_head("wide", 0x64, 4), {}};
  for (uint32_t i = 0; i < 65; ++i) table.field[i] = int_field(i + 1, 4, 0);
  table.field[65] = end_field();
  return table;
}();

TEST(TlvPlans, TablesThatNeedALookAtEachFieldGetNone) {
  for (const tlvo_table_t* table :
       {&long_id.head, &unsound.head, &embeds_writable.head, &wide.head}) {
    EXPECT_EQ(tlv::make_plan(table), nullptr) << table->name;
    EXPECT_EQ(tlv::make_plan(table), nullptr) << table->name;
  }
  uint32_t record = 0;
  EXPECT_EQ(decode(&record, Builder().int32(0x620001, 1).bytes(), &unsound.head),
            ROV_ERR_TLV_TABLE);
  Ints ints{};
  const Builder inner = Builder().int32(0x210003, 5);
  EXPECT_EQ(decode(&ints, Builder().attribute(0x630001, inner).bytes(), &embeds_writable.head),
            ROV_OK);
  EXPECT_EQ(ints.four, 5u);
}

constinit const Table<1> raced[] = {
    {table_head("raced", 0x70, 4), {int_field(1, 4, 0), end_field()}},
    {table_head("raced", 0x71, 4), {int_field(1, 4, 0), end_field()}},
    {table_head("raced", 0x72, 4), {int_field(1, 4, 0), end_field()}},
    {table_head("raced", 0x73, 4), {int_field(1, 4, 0), end_field()}}};

TEST(TlvPlans, ThreadsMayBeTheFirstToUseATableTogether) {
  std::atomic<int> ready{0};
  std::atomic<int> failed{0};
  const auto work = [&] {
    ++ready;
    while (ready.load() < 4) std::this_thread::yield();
    for (uint32_t round = 0; round < 100; ++round) {
      for (uint32_t i = 0; i < std::size(raced); ++i) {
        uint32_t value = 0;
        const Bytes tlva = Builder().int32((0x70 + i) << 16 | 1, round).bytes();
        if (decode(&value, tlva, &raced[i].head) != ROV_OK || value != round) ++failed;
      }
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed.load(), 0);
  for (const Table<1>& table : raced) EXPECT_NE(tlv::ready_plan(&table.head), nullptr);
}

// ---- With and without a plan ----

std::string hex(const void* bytes, size_t len) {
  std::string text;
  char digits[3];
  for (size_t i = 0; i < len; ++i) {
    std::snprintf(digits, sizeof digits, "%02x", static_cast<const uint8_t*>(bytes)[i]);
    text += digits;
  }
  return text;
}

std::string text_of(const Item* item) {
  std::string text;
  for (; item != nullptr; item = item->next) {
    text += " {" + std::to_string(item->type) + " " + hex(item->args, item->args_len) + "}";
  }
  return text;
}

// What a record holds, whatever its memory's addresses are.
std::string text_of(const Any& any) {
  std::string text = std::to_string(any.group) + " " + std::to_string(any.type) + " " +
                     std::to_string(any.flags) + ":";
  if (any.type == 3) return text + text_of(reinterpret_cast<const Item*>(any.body));
  if (any.type != 4) return text + hex(any.body, sizeof any.body);
  const auto* owner = reinterpret_cast<const Owner*>(any.body);
  return text + std::to_string(owner->flags) + " " + std::to_string(owner->count) + " " +
         std::to_string(owner->count2) + text_of(owner->items) + " |" + text_of(owner->others);
}

// Decodes, encodes again into any room, and tells everything that comes of it.
std::string trace(const Tables& followed, const Bytes& tlva) {
  use_tables(followed);
  const size_t before = mem::live_bytes();
  Any any{};
  uint32_t status = decode(&any, tlva, &followed.any.head);
  std::string text = std::to_string(status) + " " + text_of(any);
  if (status != ROV_OK) text += rov_err_message();
  const uint32_t size = tlvo_enc_struct_to_tlva_size(&followed.any.head, &any);
  text += " size " + std::to_string(size);
  for (uint32_t room = 0; room <= size + 4 && size != TLVO_SIZE_FAILED; room += 3) {
    Bytes out(room + 1, 0xee);
    uint32_t len = 1;
    uint32_t count = 1;
    status = tlvo_enc_struct_to_tlva(out.data(), room, &followed.any.head, &any, &len, &count, 0);
    text += "\n" + std::to_string(status) + " " + std::to_string(count) + " " +
            hex(out.data(), len) + (out[room] == 0xee ? "" : " beyond its room");
    if (status != ROV_OK) text += rov_err_message();
  }
  release(&any);
  EXPECT_EQ(mem::live_bytes(), before);
  return text;
}

void expect_alike(const Bytes& tlva) {
  const std::string planned = trace(constant_tables, tlva);
  const std::string unplanned = trace(writable_tables, tlva);
  use_tables(tables);
  ASSERT_EQ(planned, unplanned) << hex(tlva.data(), tlva.size());
}

Bytes random_bytes(Random& random, uint32_t most) {
  Bytes bytes(random.below(most + 1));
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

// Attributes of a record of that struct id, mostly in order and mostly right.
Bytes random_record(Random& random, uint32_t struct_id, int depth);

Bytes random_field(Random& random, uint32_t struct_id, uint32_t id, int depth) {
  const uint32_t tag = struct_id << 16 | id;
  if (random.below(40) == 0) return Builder().attribute(tag, random_bytes(random, 12)).bytes();
  const auto inner = [&](uint32_t record) { return random_record(random, record, depth + 1); };
  switch (tag) {
    case 0x210001:
      return Builder().int16(tag, random()).bytes();
    case 0x210002:
      return Builder().int64(tag, random()).bytes();
    case 0x210004:
      return Builder().int8(tag, random()).bytes();
    case 0x220002:
      return Builder().attribute(tag, inner(0x21)).bytes();
    case 0x230002:
      return Builder().attribute(tag, random_bytes(random, 20)).bytes();
    case 0x240004:
    case 0x240005: {
      Builder elements;
      for (uint32_t i = random.below(4); i > 0; --i) elements.attribute(tag, inner(0x23));
      return elements.bytes();
    }
    case 0x250003: {
      const uint32_t type = random.below(12);
      const uint32_t record[] = {0x26, 0x21, 0x22, 0x23, 0x24};
      return Builder().attribute(tag, Builder().u32(type).raw(inner(record[type % 5]))).bytes();
    }
    default:
      return Builder().int32(tag, random()).bytes();
  }
}

Bytes random_record(Random& random, uint32_t struct_id, int depth) {
  const std::vector<uint32_t> order[] = {{3, 1, 2, 4}, {1, 2, 3}, {1, 2}, {3, 4, 5}, {2, 1, 3}, {}};
  Builder tlva;
  for (const uint32_t id : order[struct_id - 0x21]) {
    if (random.below(12) == 0) continue;
    tlva.raw(random_field(random, struct_id, id, depth));
    if (random.below(20) == 0) tlva.raw(random_field(random, struct_id, random.below(6), depth));
    if (random.below(30) == 0) tlva.attribute(0x990001, random_bytes(random, 5));
  }
  return tlva.bytes();
}

TEST(TlvPlans, ARecordIsCodedAlikeWithAndWithoutOne) {
  Random random(20);
  size_t whole = 0;
  for (int round = 0; round < 3000; ++round) {
    const Bytes tlva = random_record(random, 0x25, 0);
    expect_alike(tlva);
    Any any{};
    if (decode(&any, tlva, &constant_tables.any.head) == ROV_OK) ++whole;
    release(&any);
  }
  EXPECT_GT(whole, 1000u);
}

TEST(TlvPlans, DamagedDataAreRefusedAlike) {
  Random random(21);
  for (int round = 0; round < 3000; ++round) {
    Bytes tlva = random_record(random, 0x25, 0);
    if (tlva.empty()) continue;
    for (uint32_t changes = 1 + random.below(2); changes > 0; --changes) {
      const size_t at = random.below(static_cast<uint32_t>(tlva.size()));
      tlva[at] =
          static_cast<uint8_t>(random.below(3) == 0 ? random() : tlva[at] ^ 1u << random.below(8));
    }
    if (random.below(3) == 0) tlva.resize(random.below(static_cast<uint32_t>(tlva.size())));
    expect_alike(tlva);
  }
}

// ---- Runs of integers, alone and embedded ----

struct Rate {
  uint32_t unit;
  uint32_t gap;
  uint64_t rate;
  uint32_t burst_unit;
  uint32_t gap2;
  uint64_t burst;
};

struct Rates {
  uint32_t flags;
  uint32_t gap;
  Rate first;
  Rate second;
};

constexpr Table<4> make_rate_table() {
  return {table_head("rate", 0x67, sizeof(Rate)),
          {int_field(1, 4, offsetof(Rate, unit)), int_field(2, 8, offsetof(Rate, rate)),
           int_field(3, 4, offsetof(Rate, burst_unit)), int_field(4, 8, offsetof(Rate, burst)),
           end_field()}};
}

constexpr Table<3> make_rates_table(const tlvo_table_t* rate) {
  return {table_head("rates", 0x68, sizeof(Rates)),
          {record_field(1, offsetof(Rates, first), sizeof(Rate), rate),
           record_field(2, offsetof(Rates, second), sizeof(Rate), rate),
           int_field(3, 4, offsetof(Rates, flags)), end_field()}};
}

constinit const Table<4> rate_table = make_rate_table();
constinit const Table<3> rates_table = make_rates_table(&rate_table.head);
constinit Table<4> writable_rate_table = make_rate_table();
constinit Table<3> writable_rates_table = make_rates_table(&writable_rate_table.head);

template <typename Record>
std::string trace_plain(const tlvo_table_t* table, const Bytes& tlva) {
  Record record{};
  uint32_t status = decode(&record, tlva, table);
  std::string text = std::to_string(status) + " " + hex(&record, sizeof record);
  if (status != ROV_OK) text += rov_err_message();
  for (uint32_t room = 0; room <= tlvo_enc_struct_to_tlva_size(table, &record) + 4; ++room) {
    Bytes out(room + 1, 0xee);
    uint32_t len = 1;
    status = tlvo_enc_struct_to_tlva(out.data(), room, table, &record, &len, nullptr, 0);
    text += "\n" + std::to_string(status) + " " + hex(out.data(), len);
    if (status != ROV_OK) text += rov_err_message();
    if (out[room] != 0xee) text += " beyond its room";
  }
  return text;
}

TEST(TlvPlans, RunsOfIntegersAreCodedAlikeWithAndWithoutOne) {
  const Builder rate = Builder()
                           .int32(0x670001, 1)
                           .int64(0x670002, 1ull << 40)
                           .int32(0x670003, 3)
                           .int64(0x670004, 4);
  const Bytes rates =
      Builder().attribute(0x680001, rate).attribute(0x680002, rate).int32(0x680003, 5).bytes();
  const auto expect_rates_alike = [](const Bytes& tlva) {
    ASSERT_EQ(trace_plain<Rates>(&rates_table.head, tlva),
              trace_plain<Rates>(&writable_rates_table.head, tlva));
    ASSERT_EQ(trace_plain<Rate>(&rate_table.head, tlva),
              trace_plain<Rate>(&writable_rate_table.head, tlva));
  };
  for (const Bytes& whole : {rates, rate.bytes()}) {
    for (size_t at = 0; at <= whole.size(); ++at) {
      expect_rates_alike(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(at)));
      if (at == whole.size()) break;
      Bytes damaged = whole;
      damaged[at] ^= 2;
      expect_rates_alike(damaged);
    }
  }
  EXPECT_NE(tlv::ready_plan(&rates_table.head), nullptr);
  EXPECT_EQ(tlv::ready_plan(&writable_rates_table.head), nullptr);
}

// Values between integers: of the record's first byte as many bytes as it says.
uint32_t put_bytes(const void* record, void**, void* out, uint32_t* len, uint32_t* done) {
  const uint8_t count = *static_cast<const uint8_t*>(record);
  return rov_cpy_fld_to_tlv("0123456789", count, out, len, done);
}
uint32_t take_bytes(void* record, const void*, uint32_t len, void**) {
  *static_cast<uint8_t*>(record) = static_cast<uint8_t>(len);
  return ROV_OK;
}
uint32_t count_bytes(const void* record) {
  return *static_cast<const uint8_t*>(record);
}

constexpr Table<4> make_mixed_table() {
  return {table_head("mixed", 0x69, 12),
          {value_field(1, 0, put_bytes, take_bytes, count_bytes), int_field(2, 4, 4),
           value_field(3, 0, put_bytes, take_bytes, count_bytes), int_field(4, 4, 8), end_field()}};
}

constinit const Table<4> mixed_table = make_mixed_table();
constinit Table<4> writable_mixed_table = make_mixed_table();

TEST(TlvPlans, ValuesBetweenIntegersAreCodedAlikeWithAndWithoutOne) {
  using Mixed = std::array<uint8_t, 12>;
  for (uint32_t count = 0; count <= 10; ++count) {
    const Bytes value(count, 'x');
    const Bytes tlva = Builder()
                           .attribute(0x690001, value)
                           .int32(0x690002, 2)
                           .attribute(0x690003, value)
                           .int32(0x690004, 4)
                           .bytes();
    EXPECT_EQ(trace_plain<Mixed>(&mixed_table.head, tlva),
              trace_plain<Mixed>(&writable_mixed_table.head, tlva));
  }
  EXPECT_NE(tlv::ready_plan(&mixed_table.head), nullptr);
}

// ---- Callbacks that misbehave, with a plan ----

uint32_t one(const void*) {
  return 1;
}
uint32_t no_decode(void*, const void*, uint32_t, void**) {
  return 0x5678;
}
// Claims as many bytes beyond its room as the record says; -1: fails.
uint32_t claim(const void* record, void**, void*, uint32_t* len, uint32_t* done) {
  int32_t beyond = 0;
  std::memcpy(&beyond, record, sizeof beyond);
  if (beyond < 0) return 0x1234;
  *len += static_cast<uint32_t>(beyond);
  *done = 1;
  return ROV_OK;
}

constinit const Table<1> value_table = {table_head("value", 0x65, 4),
                                        {value_field(1, 0, claim, no_decode, one), end_field()}};
constinit const Table<1> list_table = {table_head("list", 0x66, 4),
                                       {list_field(1, one, claim, no_decode, one), end_field()}};

TEST(TlvPlans, StatusesOfCallbacksPassAndTheirClaimsAreChecked) {
  for (const tlvo_table_t* table : {&value_table.head, &list_table.head}) {
    const auto encode = [table](int32_t beyond, uint32_t room) {
      uint8_t out[64];
      return tlvo_enc_struct_to_tlva(out, room, table, &beyond, nullptr, nullptr, 0);
    };
    EXPECT_EQ(encode(0, 40), ROV_OK);
    EXPECT_EQ(encode(0, 41), ROV_ERR_TLV_ROOM) << "there is no room for padding";
    EXPECT_EQ(encode(1, 40), ROV_ERR_TLV_TABLE);
    EXPECT_EQ(encode(-1, 40), 0x1234u);
    EXPECT_EQ(encode(0, 7), ROV_ERR_TLV_ROOM);
    uint32_t record = 0;
    const Bytes tlva = Builder().attribute(table->struct_id << 16 | 1, "1234").bytes();
    EXPECT_EQ(decode(&record, tlva, table), 0x5678u);
    EXPECT_NE(tlv::ready_plan(table), nullptr);
  }
}

// Records embedded in one another as deep as they may be, and deeper.
constinit const Table<1> nest[9] = {
    {table_head("nest", 0x40, 4), {int_field(1, 4, 0), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[0].head), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[1].head), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[2].head), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[3].head), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[4].head), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[5].head), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[6].head), end_field()}},
    {table_head("nest", 0x40, 4), {record_field(1, 0, 4, &nest[7].head), end_field()}}};

TEST(TlvPlans, EightLevelsOfRecordsAreTheMost) {
  Bytes tlva = Builder().int32(0x400001, 42).bytes();
  for (size_t levels = 1; levels <= std::size(nest); ++levels) {
    const tlvo_table_t* table = &nest[levels - 1].head;
    const uint32_t expected = levels <= 8 ? ROV_OK : ROV_ERR_TLV_DEPTH;
    uint32_t record = 0;
    EXPECT_EQ(decode(&record, tlva, table), expected) << levels;
    EXPECT_EQ(record, levels <= 8 ? 42u : 0u);
    uint8_t out[200];
    uint32_t len = 0;
    EXPECT_EQ(tlvo_enc_struct_to_tlva(out, sizeof out, table, &record, &len, nullptr, 0), expected);
    EXPECT_EQ(Bytes(out, out + len), levels <= 8 ? tlva : Bytes());
    EXPECT_NE(tlv::ready_plan(table), nullptr);
    tlva = Builder().attribute(0x400001, tlva).bytes();
  }
}

}  // namespace
