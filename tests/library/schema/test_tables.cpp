// The twelve descriptor tables, word by word.

#include <cstring>

#include "tables.h"
#include "tests/support/fake/fixture.h"
#include "tests/support/fake/layout.h"

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
constexpr auto kPointer = static_cast<std::uint32_t>(sizeof(void*));

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

void expect_table(const tlvo_table_t& table, const char* name, std::uint32_t struct_id,
                  std::size_t device_size, std::size_t size,
                  const std::vector<ExpectedField>& expected) {
  EXPECT_STREQ(table.name, name);
  EXPECT_EQ(table.struct_id, struct_id);
  EXPECT_EQ(table.record_size, size);
  if (sizeof(void*) == 4) {
    EXPECT_EQ(table.record_size, device_size);
  }
  expect_zero(table.reserved, 9);
  const std::vector<tlvo_field_t> fields = schema_tests::fields_of(table);
  ASSERT_EQ(fields.size(), expected.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "field descriptor " << i);
    expect_field(fields[i], expected[i]);
  }
  expect_terminator(schema_tests::first_field(table)[expected.size()]);
}

#define EXPECT_TABLE(K, struct_id, device_size, ...)                                         \
  expect_table(qim_##K##_tbl, "qim_" #K "_tbl", struct_id, device_size, sizeof(qim_##K##_t), \
               __VA_ARGS__)

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

TEST(Tables, criterion) {
  EXPECT_TABLE(
      criterion, 3, 16,
      {{1, 4, 4, AT(criterion, type), kInt}, {2, kPointer, 12, AT(criterion, args), kValue}});
}

TEST(Tables, filter_starts_with_field_3) {
  EXPECT_TABLE(filter, 2, 36,
               {{3, 4, 4, AT(filter, flags), kInt},
                {1, 4, 8, AT(filter, match), kInt},
                {2, 4, 12, AT(filter, nomatch), kInt},
                {4, 0, 0, 0, kList}});
}

TEST(Tables, hfilter) {
  EXPECT_TABLE(hfilter, 4, 36,
               {{1, 4, 16, AT(hfilter, type), kInt},
                {2, 4, 4, AT(hfilter, true_act), kInt},
                {3, 4, 8, AT(hfilter, false_act), kInt},
                {4, 4, 12, AT(hfilter, nomatch_act), kInt}});
}

TEST(Tables, action) {
  EXPECT_TABLE(action, 5, 16,
               {{1, 4, 4, AT(action, type), kInt}, {2, kPointer, 12, AT(action, args), kValue}});
}

TEST(Tables, haction) {
  EXPECT_TABLE(haction, 6, 24, {{1, 4, 4, AT(haction, type), kInt}});
}

TEST(Tables, action_bw) {
  EXPECT_TABLE(action_bw, 7, 32,
               {{1, 4, 0, AT(action_bw, rate_units), kInt},
                {2, 8, 8, AT(action_bw, rate), kInt},
                {3, 4, 16, AT(action_bw, burst_units), kInt},
                {4, 8, 24, AT(action_bw, burst), kInt}});
}

TEST(Tables, police_embeds_two_bandwidths) {
  EXPECT_TABLE(police, 8, 128,
               {{1, 32, 56, AT(police, comt_bw), kRecord, &qim_action_bw_tbl},
                {2, 32, 88, AT(police, peak_bw), kRecord, &qim_action_bw_tbl}});
}

TEST(Tables, ifelse_has_no_fields) {
  EXPECT_TABLE(ifelse, 9, 64, {});
}

TEST(Tables, def) {
  EXPECT_TABLE(def, 12, 32,
               {{1, 4, 20, AT(def, type), kInt}, {2, kPointer, 28, AT(def, args), kValue}});
}

TEST(Tables, group) {
  EXPECT_TABLE(group, 10, 28,
               {{1, 4, 4, AT(group, type), kInt}, {2, 4, 8, AT(group, subtype), kInt}});
}

TEST(Tables, pinst_has_no_fields) {
  EXPECT_TABLE(pinst, 11, 48, {});
}

TEST(Tables, node_starts_with_field_2) {
  EXPECT_TABLE(node, 1, 168,
               {{2, 4, 24, AT(node, flags), kInt},
                {1, 4, 16, AT(node, group), kInt},
                {3, 128, 40, AT(node, body), kValue}});
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
