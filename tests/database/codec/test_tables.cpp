// Tables that can't be followed, and how deep and how wide those may be that can.
#include <gtest/gtest.h>

#include <vector>

#include "database/memory/pool.h"
#include "mem.h"
#include "tests/database/codec/tlv_builder.h"
#include "tests/database/codec/tlv_records.h"

namespace {

using namespace tlv_test;

uint32_t encode(const void* record, const tlvo_table_t* table) {
  Bytes out(4000);
  return tlvo_enc_struct_to_tlva(out.data(), static_cast<uint32_t>(out.size()), table, record,
                                 nullptr, nullptr, 0);
}

uint32_t no_bytes(const void*) {
  return 0;
}
uint32_t no_decode(void*, const void*, uint32_t, void**) {
  return ROV_OK;
}
uint32_t no_encode(const void*, void**, void*, uint32_t* len, uint32_t* done) {
  *len = 0;
  *done = 1;
  return ROV_OK;
}

std::vector<tlvo_field_t> unsound_fields() {
  std::vector<tlvo_field_t> fields;
  for (const size_t width : {0u, 3u, 5u, 16u}) fields.push_back(int_field(1, width, 0));
  for (const size_t width : {1u, 2u, 4u, 8u}) fields.push_back(int_field(1, width, 65 - width));
  fields.push_back(int_field(1, 4, 0xfffffffe));
  fields.push_back(int_field(0x10001, 4, 0));

  fields.push_back(record_field(1, 0, sizeof(Ints), &ints_table.head));
  fields.back().record = nullptr;
  fields.push_back(record_field(1, 0, sizeof(Ints), &ints_table.head));
  fields.back().width -= 1;
  fields.push_back(record_field(1, 65 - sizeof(Ints), sizeof(Ints), &ints_table.head));

  const tlvo_field_t value = value_field(1, 0, no_encode, no_decode, no_bytes);
  const tlvo_field_t list = list_field(1, no_bytes, no_encode, no_decode, no_bytes);
  fields.insert(fields.end(), 3, value);
  fields.insert(fields.end(), 4, list);
  fields[fields.size() - 7].encode = nullptr;
  fields[fields.size() - 6].decode = nullptr;
  fields[fields.size() - 5].size = nullptr;
  fields[fields.size() - 4].encode = nullptr;
  fields[fields.size() - 3].decode = nullptr;
  fields[fields.size() - 2].size = nullptr;
  fields[fields.size() - 1].count = nullptr;

  for (const uint32_t kind : {0u, 1u, 0xc2u, 0x18du, 0xffffffffu}) {
    fields.push_back(int_field(1, 4, 0));
    fields.back().kind = kind;
  }
  return fields;
}

TEST(TlvTables, FieldsThatCannotBeFollowedAreRefused) {
  alignas(8) unsigned char record[64] = {};
  const Bytes tlva = Builder().attribute(0x310001, Bytes(8, 0)).bytes();
  const std::vector<tlvo_field_t> fields = unsound_fields();
  for (size_t i = 0; i < fields.size(); ++i) {
    const Table<1> table = {table_head("unsound", 0x31, sizeof record), {fields[i], end_field()}};
    if (fields[i].id == 1) {
      EXPECT_EQ(decode(record, tlva, &table.head), ROV_ERR_TLV_TABLE) << "field " << i;
    }
    EXPECT_EQ(encode(record, &table.head), ROV_ERR_TLV_TABLE) << "field " << i;
    EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, record), TLVO_SIZE_FAILED) << "field " << i;
    for (const unsigned char byte : record) ASSERT_EQ(byte, 0) << "field " << i;
  }
}

TEST(TlvTables, AFieldMayFillItsRecordToTheLastByte) {
  alignas(8) unsigned char record[64] = {};
  for (const size_t width : {1u, 2u, 4u, 8u}) {
    const Table<1> table = {table_head("full", 0x31, sizeof record),
                            {int_field(1, width, sizeof record - width), end_field()}};
    EXPECT_EQ(
        decode(record, Builder().attribute(0x310001, Bytes(width, 0xab)).bytes(), &table.head),
        ROV_OK);
    EXPECT_EQ(record[sizeof record - width], 0xab);
    EXPECT_EQ(encode(record, &table.head), ROV_OK);
  }
}

TEST(TlvTables, ATableOfSixtyFourFieldsIsTheLargest) {
  constexpr size_t kMost = 64;
  uint32_t record[kMost + 1] = {};
  Table<kMost + 1> table = {table_head("wide", 0x32, sizeof record), {}};
  for (uint32_t i = 0; i <= kMost; ++i) table.field[i] = int_field(i + 1, 4, i * 4);
  table.field[kMost + 1] = end_field();
  Builder reversed;
  for (uint32_t i = kMost; i > 0; --i) reversed.int32(0x320000 | i, i);
  const Bytes twice = Builder().raw(reversed.bytes()).int32(0x320040, 1).bytes();
  const Bytes unknown = Builder().int32(0x320077, 1).bytes();

  EXPECT_EQ(decode(record, unknown, &table.head), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(decode(record, Builder().int16(0x320041, 1).bytes(), &table.head), ROV_ERR_TLV_TABLE);
  Builder in_order;
  for (uint32_t i = 1; i <= kMost + 1; ++i) in_order.int32(0x320000 | i, i);
  EXPECT_EQ(decode(record, in_order.int32(0x320001, 1).bytes(), &table.head), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(encode(record, &table.head), ROV_ERR_TLV_TABLE);
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, record), TLVO_SIZE_FAILED);

  table.field[kMost] = end_field();
  EXPECT_EQ(decode(record, reversed.bytes(), &table.head), ROV_OK);
  for (uint32_t i = 0; i < kMost; ++i) EXPECT_EQ(record[i], i + 1);
  EXPECT_EQ(decode(record, twice, &table.head), ROV_ERR_TLV_DUPLICATE);
  EXPECT_EQ(decode(record, unknown, &table.head), ROV_OK);
  EXPECT_EQ(encode(record, &table.head), ROV_OK);
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, record), kMost * 12);
}

TEST(TlvTables, FieldsInOrderAreTakenOnceTooWhenThereAreManyOfThem) {
  uint32_t record[64] = {};
  Table<64> table = {table_head("wide", 0x32, sizeof record), {}};
  Builder tlva;
  for (uint32_t i = 0; i < 64; ++i) {
    table.field[i] = int_field(i + 1, 4, i * 4);
    tlva.int32(0x320001 + i, i);
  }
  table.field[64] = end_field();
  for (uint32_t again = 1; again <= 64; ++again) {
    EXPECT_EQ(
        decode(record, Builder().raw(tlva.bytes()).int32(0x320000 | again, 0).bytes(), &table.head),
        ROV_ERR_TLV_DUPLICATE)
        << again;
  }
}

TEST(TlvTables, EveryOrderOfThreeAttributesFindsItsDuplicates) {
  uint32_t record[3] = {};
  Table<3> table = {table_head("three", 0x37, sizeof record), {}};
  for (uint32_t i = 0; i < 3; ++i) table.field[i] = int_field(i + 1, 4, i * 4);
  table.field[3] = end_field();
  for (uint32_t order = 0; order < 81; ++order) {
    Builder tlva;
    uint32_t seen = 0;
    bool twice = false;
    for (uint32_t i = 0, rest = order; i < 4; ++i, rest /= 3) {
      const uint32_t id = 1 + rest % 3;
      tlva.int32(0x370000 | id, i);
      twice = twice || (seen >> id & 1) != 0;
      seen |= 1u << id;
      ASSERT_EQ(decode(record, tlva.bytes(), &table.head), twice ? ROV_ERR_TLV_DUPLICATE : ROV_OK)
          << "order " << order << ", " << i + 1 << " attributes";
    }
  }
}

TEST(TlvTables, ATableMayHaveEightLists) {
  Table<9> table = {table_head("lists", 0x33, 4), {}};
  for (uint32_t i = 0; i < 9; ++i) {
    table.field[i] = list_field(i + 1, no_bytes, no_encode, no_decode, no_bytes);
  }
  table.field[9] = end_field();
  uint32_t record = 0;
  Builder tlva;
  for (uint32_t i = 1; i <= 8; ++i) tlva.attribute(0x330000 | i, "").attribute(0x330000 | i, "");
  EXPECT_EQ(decode(&record, tlva.bytes(), &table.head), ROV_OK);
  tlva.attribute(0x330009, "");
  EXPECT_EQ(decode(&record, tlva.bytes(), &table.head), ROV_ERR_TLV_TABLE);
}

TEST(TlvTables, ACallbackThatClaimsMoreThanItsRoomIsRefused) {
  const tlvo_encode_fn greedy = [](const void*, void**, void*, uint32_t* len,
                                   uint32_t* done) -> uint32_t {
    *len += 1;
    *done = 1;
    return ROV_OK;
  };
  const Table<1> table = {table_head("greedy", 0x34, 4),
                          {value_field(1, 0, greedy, no_decode, no_bytes), end_field()}};
  const uint32_t record = 0;
  EXPECT_EQ(encode(&record, &table.head), ROV_ERR_TLV_TABLE);
}

TEST(TlvTables, StatusesOfCallbacksPassUnchanged) {
  const tlvo_encode_fn encode_fails = [](const void*, void**, void*, uint32_t*,
                                         uint32_t*) -> uint32_t { return 0x1234; };
  const tlvo_decode_fn decode_fails = [](void*, const void*, uint32_t, void**) -> uint32_t {
    return 0x5678;
  };
  const tlvo_count_fn one = [](const void*) -> uint32_t { return 1; };
  const tlvo_size_fn size_fails = [](const void*) -> uint32_t { return TLVO_SIZE_FAILED; };
  const tlvo_field_t fields[] = {value_field(1, 0, encode_fails, decode_fails, size_fails),
                                 list_field(1, one, encode_fails, decode_fails, size_fails)};
  for (const tlvo_field_t& field : fields) {
    const Table<1> table = {table_head("failing", 0x35, 4), {field, end_field()}};
    uint32_t record = 0;
    EXPECT_EQ(encode(&record, &table.head), 0x1234u);
    EXPECT_EQ(decode(&record, Builder().attribute(0x350001, "").bytes(), &table.head), 0x5678u);
    EXPECT_EQ(decode(&record, Builder().attribute(0x350001, "1").bytes(), &table.head), 0x5678u);
    EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, &record), TLVO_SIZE_FAILED);
  }
}

TEST(TlvTables, ASizeThatDoesNotFitFails) {
  const tlvo_size_fn half = [](const void*) -> uint32_t { return 0x7ffffff0; };
  const tlvo_field_t field = value_field(1, 0, no_encode, no_decode, half);
  const uint32_t record = 0;
  Table<3> table = {table_head("huge", 0x36, 4), {field, end_field(), {}, {}}};
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, &record), 0x7ffffff8u);
  table.field[1] = field;
  table.field[2] = end_field();
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, &record), 0xfffffff0u);
  table.field[2] = int_field(2, 4, 0);
  table.field[3] = end_field();
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, &record), 0xfffffffcu);
  table.field[2] = int_field(2, 4, 0);
  table.field[0].size = [](const void*) -> uint32_t { return 0x7ffffff4; };
  EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&table.head, &record), TLVO_SIZE_FAILED);
}

// Records embedded in one another, `levels` of them, the innermost an integer's.
class Nest {
 public:
  explicit Nest(size_t levels) : tables_(levels) {
    for (size_t i = levels; i-- > 0;) {
      const tlvo_field_t field =
          i + 1 == levels ? int_field(1, 4, 0) : record_field(1, 0, 4, &tables_[i + 1].head);
      tables_[i] = {table_head("nest", 0x40, 4), {field, end_field()}};
      tlva_ = i + 1 == levels ? Builder().int32(0x400001, 42).bytes()
                              : Builder().attribute(0x400001, tlva_).bytes();
    }
  }

  const tlvo_table_t* table() const { return &tables_[0].head; }
  const Bytes& tlva() const { return tlva_; }

 private:
  std::vector<Table<1>> tables_;
  Bytes tlva_;
};

TEST(TlvTables, EightLevelsOfRecordsAreTheMost) {
  for (size_t levels = 1; levels <= 12; ++levels) {
    const Nest nest(levels);
    const bool fits = levels <= 8;
    uint32_t record = 0;
    EXPECT_EQ(decode(&record, nest.tlva(), nest.table()), fits ? ROV_OK : ROV_ERR_TLV_DEPTH)
        << levels;
    EXPECT_EQ(record, fits ? 42u : 0u);
    EXPECT_EQ(encode(&record, nest.table()), fits ? ROV_OK : ROV_ERR_TLV_DEPTH) << levels;
    EXPECT_EQ(tlvo_enc_struct_to_tlva_size(nest.table(), &record),
              fits ? nest.tlva().size() : TLVO_SIZE_FAILED)
        << levels;
  }
}

// A tree: an element owns a list of elements like itself, so that only the data says how deep it
// is.
struct Tree {
  Tree* next;
  Tree* children;
};

void* tree_next(void* tree) {
  return &static_cast<Tree*>(tree)->next;
}
void* tree_children(void* tree) {
  return &static_cast<Tree*>(tree)->children;
}

uint32_t tree_alloc(void*, void** out, void*, uint32_t* size) {
  *size = sizeof(Tree);
  return mem_zalloc(sizeof(Tree), nullptr, out);
}

extern const Table<1> tree_table;
const tlvo_list_t tree_link = {tree_next, tree_alloc, &tree_table.head, nullptr, nullptr};
const tlvo_list_t tree_list = {tree_children, tree_alloc, &tree_table.head, &tree_link, nullptr};

constinit const Table<1> tree_table = {
    table_head("tree", 0x41, sizeof(Tree)),
    {list_field(
         1, [](const void* tree) { return rov_tlv_listptr_nels(&tree_list, tree); },
         [](const void* tree, void** iter, void* out, uint32_t* len, uint32_t* done) {
           return rov_tlv_from_listel(&tree_list, tree, iter, out, len, done);
         },
         [](void* tree, const void* value, uint32_t len, void** iter) {
           return rov_tlv_to_listel(&tree_list, tree, value, len, iter);
         },
         [](const void* tree) { return rov_tlv_listel_tlvsize(&tree_list, tree); }),
     end_field()}};

void release(Tree* tree) {
  while (tree != nullptr) {
    Tree* next = tree->next;
    release(tree->children);
    mem_free(tree, nullptr);
    tree = next;
  }
}

TEST(TlvTables, EightLevelsOfListsAreTheMost) {
  const size_t before = mem::live_bytes();
  Bytes tlva;
  for (size_t levels = 1; levels <= 40; ++levels) {
    const bool fits = levels <= 8;
    Tree root{};
    EXPECT_EQ(decode(&root, tlva, &tree_table.head), fits ? ROV_OK : ROV_ERR_TLV_DEPTH) << levels;
    EXPECT_EQ(encode(&root, &tree_table.head), fits ? ROV_OK : ROV_ERR_TLV_DEPTH) << levels;
    EXPECT_EQ(tlvo_enc_struct_to_tlva_size(&tree_table.head, &root),
              fits ? tlva.size() : TLVO_SIZE_FAILED);
    release(root.children);
    tlva = Builder().attribute(0x410001, tlva).bytes();
  }
  EXPECT_EQ(mem::live_bytes(), before);
}

}  // namespace
