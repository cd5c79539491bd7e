// The twelve descriptor tables, word by word.

#include <algorithm>
#include <cstring>

#include "tables.h"
#include "tests/support/fake/fixture.h"
#include "tests/support/fake/layout.h"
#include "tests/support/fake/records.h"

namespace {

struct ExpectedField {
  std::uint32_t id;
  std::uint32_t width;
  std::size_t device_at;  // position on the device
  std::size_t at;         // position here
  std::uint32_t kind;
  const tlvo_table_t* record = nullptr;
};

constexpr std::uint32_t kInt = 0xc1;
constexpr std::uint32_t kRecord = 0xc0;
constexpr std::uint32_t kValue = 0x188;
constexpr std::uint32_t kList = 0x18c;

#define AT(K, member) offsetof(qim_##K##_t, member)

bool coded_by_callbacks(std::uint32_t kind) {
  return kind == kValue || kind == kList;
}

void expect_zero(const std::uint32_t* words, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(words[i], 0u) << i;
}

void expect_field(const tlvo_field_t& field, const ExpectedField& expected) {
  EXPECT_EQ(field.id, expected.id);
  EXPECT_EQ(field.width, expected.width);
  EXPECT_EQ(field.position, expected.at);
  if (sizeof(void*) == 4) {
    EXPECT_EQ(field.position, expected.device_at);
  }
  EXPECT_EQ(field.kind, expected.kind);
  EXPECT_EQ(field.record, expected.record);
  EXPECT_EQ(field.count != nullptr, expected.kind == kList);
  EXPECT_EQ(field.encode != nullptr, coded_by_callbacks(expected.kind));
  EXPECT_EQ(field.decode != nullptr, coded_by_callbacks(expected.kind));
  EXPECT_EQ(field.size != nullptr, coded_by_callbacks(expected.kind));
  EXPECT_EQ(field.reserved0, 0u);
  EXPECT_EQ(field.reserved1, 0u);
  expect_zero(field.reserved2, 3);
  expect_zero(field.reserved3, 7);
}

void expect_terminator(const tlvo_field_t& field) {
  tlvo_field_t expected;
  std::memset(&expected, 0, sizeof expected);
  expected.position = 0xff000000;
  EXPECT_EQ(std::memcmp(&field, &expected, sizeof expected), 0);
}

struct Table {
  const char* kind;
  const char* name;
  const tlvo_table_t* table;
  std::size_t size;
};
#define TABLE(K) {#K, "qim_" #K "_tbl", &qim_##K##_tbl, sizeof(qim_##K##_t)},
const Table kTables[] = {QIM_CODEC_KINDS(TABLE)};

const tlvo_table_t* table_of(const char* kind) {
  for (const Table& table : kTables) {
    if (kind != nullptr && std::string_view(table.kind) == kind) return table.table;
  }
  return nullptr;
}

std::uint32_t kind_of(const fake::RecordMember& member) {
  switch (member.is) {
    case fake::Is::record:
      return kRecord;
    case fake::Is::args:
    case fake::Is::body:
      return kValue;
    case fake::Is::list:
      return kList;
    default:
      return kInt;
  }
}

ExpectedField expected_field(const fake::RecordLayout& layout, std::uint32_t id) {
  const fake::RecordMember& member = *layout.with_tlv(id);
  if (member.is == fake::Is::list) return {id, 0, 0, 0, kList};
  return {id,
          member.width_here(),
          member.at,
          layout.here(member),
          kind_of(member),
          table_of(member.is == fake::Is::record ? member.record : nullptr)};
}

void expect_table(const Table& table, const fake::RecordLayout& layout) {
  SCOPED_TRACE(table.name);
  EXPECT_STREQ(table.table->name, table.name);
  EXPECT_EQ(table.table->struct_id, layout.struct_id);
  EXPECT_EQ(table.table->record_size, table.size);
  expect_zero(table.table->reserved, 9);
  const std::vector<tlvo_field_t> fields = schema_tests::fields_of(*table.table);
  std::size_t next = 0;
  for (const tlvo_field_t& field : fields) {
    if (layout.with_tlv(field.id) == nullptr) continue;  // the record has grown
    ASSERT_LT(next, layout.tlv_order.size());
    SCOPED_TRACE(testing::Message() << "field descriptor " << next);
    expect_field(field, expected_field(layout, layout.tlv_order[next++]));
  }
  EXPECT_EQ(next, layout.tlv_order.size());
  expect_terminator(schema_tests::first_field(*table.table)[fields.size()]);
}

TEST(Tables, start_with_a_head_of_12_words) {
  CHECK_LAYOUT(tlvo_table_t, 48,
               {FIXED(tlvo_table_t, record_size, 0, 4), WIDENS(tlvo_table_t, name, 4, 4),
                FIXED(tlvo_table_t, struct_id, 8, 4), FIXED(tlvo_table_t, reserved, 12, 36)});
}

TEST(Tables, describe_a_field_in_21_words) {
  CHECK_LAYOUT(tlvo_field_t, 84,
               {FIXED(tlvo_field_t, reserved0, 0, 4), FIXED(tlvo_field_t, id, 4, 4),
                FIXED(tlvo_field_t, width, 8, 4), FIXED(tlvo_field_t, position, 12, 4),
                FIXED(tlvo_field_t, kind, 16, 4), FIXED(tlvo_field_t, reserved1, 20, 4),
                WIDENS(tlvo_field_t, record, 24, 4), FIXED(tlvo_field_t, reserved2, 28, 12),
                WIDENS(tlvo_field_t, count, 40, 4), WIDENS(tlvo_field_t, encode, 44, 4),
                WIDENS(tlvo_field_t, decode, 48, 4), WIDENS(tlvo_field_t, size, 52, 4),
                FIXED(tlvo_field_t, reserved3, 56, 28)});
}

class RecordTables : public testing::TestWithParam<fake::RecordLayout> {};

INSTANTIATE_TEST_SUITE_P(, RecordTables, testing::ValuesIn(fake::record_layouts()), fake::kind_of);

TEST_P(RecordTables, describe_the_fields_in_their_order) {
  const auto* const table =
      std::find_if(std::begin(kTables), std::end(kTables),
                   [](const Table& one) { return one.kind == std::string_view(GetParam().kind); });
  ASSERT_NE(table, std::end(kTables));
  expect_table(*table, GetParam());
}

// Right before it where pointers are a word wide, else before the gap that aligns them.
constexpr std::size_t pointer_behind(std::size_t word) {
  return (word + 4 + alignof(void*) - 1) / alignof(void*) * alignof(void*);
}

TEST(Tables, put_a_byte_strings_length_into_the_word_before_its_pointer) {
  EXPECT_EQ(pointer_behind(AT(criterion, args_len)), AT(criterion, args));
  EXPECT_EQ(pointer_behind(AT(action, args_len)), AT(action, args));
  EXPECT_EQ(pointer_behind(AT(def, args_len)), AT(def, args));
}

// On the device a table is an array of 32-bit words; this is the whole of one.
TEST(Tables, are_arrays_of_words_on_the_device) {
  if (sizeof(void*) != 4) {
    EXPECT_EQ(sizeof(tlvo_table_t) % alignof(tlvo_field_t), 0u) << "fields follow immediately";
    return;
  }
  std::uint32_t words[12 + 3 * 21];
  std::memcpy(words, schema_tests::whole(qim_group_tbl), sizeof words);
  std::vector<std::uint32_t> expected(12 + 3 * 21);
  expected[0] = 28;
  expected[1] = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(qim_group_tbl.name));
  expected[2] = 10;
  const std::uint32_t first[] = {0, 1, 4, 4, 0xc1};
  const std::uint32_t second[] = {0, 2, 4, 8, 0xc1};
  std::memcpy(&expected[12], first, sizeof first);
  std::memcpy(&expected[12 + 21], second, sizeof second);
  expected[12 + 42 + 3] = 0xff000000;
  EXPECT_EQ(std::vector<std::uint32_t>(std::begin(words), std::end(words)), expected);
}

}  // namespace
