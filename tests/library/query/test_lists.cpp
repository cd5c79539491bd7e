// Lists of records that clients exchange with the database: identifiers converted in place.

#include <array>
#include <cstring>

#include "tests/library/query/support.h"

namespace {

using namespace query_test;

constexpr std::size_t kRecords = 3;

// Identifiers of the slots of three records; 0 is converted like any other.
constexpr std::uint32_t kIds[kRecords][2] = {{0x01020304, 0xfffffff1}, {0, 0x80000000}, {7, 0}};

template <class T>
using List = std::array<T, kRecords>;

Bytes slot_of_library(std::uint32_t id, std::uint8_t rest) {
  Bytes slot(16, rest);
  std::memcpy(slot.data(), &id, sizeof id);
  return slot;
}
Bytes slot_of_database(std::uint32_t id, std::uint8_t rest = 0) {
  Bytes slot(16, rest);
  for (std::size_t i = 0; i < 4; ++i) slot[i] = static_cast<std::uint8_t>(id >> (24 - 8 * i));
  return slot;
}

void put(rov_node_id_t& slot, const Bytes& bytes) {
  std::memcpy(&slot, bytes.data(), bytes.size());
}

// A list of records whose bytes are all 0xee but for links and slots.
template <class T, class Slot>
void fill(List<T>& list, const Slot& slot_of) {
  for (std::size_t i = 0; i < kRecords; ++i) {
    spoil(list[i]);
    list[i].next = i + 1 < kRecords ? &list[i + 1] : nullptr;
    put(list[i].node, slot_of(kIds[i][0]));
    put(list[i].node2, slot_of(kIds[i][1]));
  }
}

class ListTest : public QueryTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(fake::calls().size(), 0u);
    EXPECT_EQ(fake::reports().size(), 0u);
    EXPECT_EQ(fake::system_frees(), 0u);
    QueryTest::TearDown();
  }

  template <class T>
  void expect_same(const List<T>& list, const List<T>& expected) {
    for (std::size_t i = 0; i < kRecords; ++i) {
      EXPECT_EQ(bytes_of(list[i]), bytes_of(expected[i])) << "record " << i;
    }
  }
};

const auto library_slot = [](std::uint32_t id) { return slot_of_library(id, 0xcd); };
const auto database_slot = [](std::uint32_t id) { return slot_of_database(id); };
// As a database may give it: more than the first word.
const auto rich_slot = [](std::uint32_t id) { return slot_of_database(id, 0xcd); };

using Rqst = ListTest;
using Rmtln = ListTest;

TEST_F(Rqst, slots_are_at_their_places) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(offsetof(rov_rqst_t, node), 12u);
    EXPECT_EQ(offsetof(rov_rqst_t, node2), 28u);
  }
  EXPECT_EQ(offsetof(rov_rqst_t, next), 0u);
}

TEST_F(Rqst, to_the_database_fills_both_slots_of_every_record_and_nothing_else) {
  List<rov_rqst_t> list;
  List<rov_rqst_t> expected;
  fill(list, library_slot);
  fill(expected, database_slot);
  for (std::size_t i = 0; i + 1 < kRecords; ++i) expected[i].next = &list[i + 1];
  qim_rqst_to_rov(&list[0]);
  expect_same(list, expected);
}

TEST_F(Rqst, from_the_database_converts_the_first_word_and_leaves_the_rest) {
  List<rov_rqst_t> list;
  List<rov_rqst_t> expected;
  fill(list, rich_slot);
  fill(expected, library_slot);
  for (std::size_t i = 0; i + 1 < kRecords; ++i) expected[i].next = &list[i + 1];
  qim_rqst_from_rov(&list[0]);
  expect_same(list, expected);
}

TEST_F(Rqst, there_and_back_restores_every_identifier_with_zeros_behind) {
  List<rov_rqst_t> list;
  fill(list, library_slot);
  qim_rqst_to_rov(&list[0]);
  qim_rqst_from_rov(&list[0]);
  for (std::size_t i = 0; i < kRecords; ++i) {
    EXPECT_EQ(bytes_of(list[i].node), slot_of_library(kIds[i][0], 0));
    EXPECT_EQ(bytes_of(list[i].node2), slot_of_library(kIds[i][1], 0));
  }
}

TEST_F(Rqst, starts_at_the_record_given) {
  List<rov_rqst_t> list;
  fill(list, library_slot);
  const Bytes first = bytes_of(list[0]);
  qim_rqst_to_rov(&list[1]);
  EXPECT_EQ(bytes_of(list[0]), first);
  EXPECT_EQ(bytes_of(list[2].node), slot_of_database(kIds[2][0]));
}

TEST_F(Rmtln, members_are_at_their_places) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(offsetof(rov_rmtln_t, node), 8u);
    EXPECT_EQ(offsetof(rov_rmtln_t, id_len), 28u);
    EXPECT_EQ(offsetof(rov_rmtln_t, node2), 48u);
  }
  EXPECT_EQ(offsetof(rov_rmtln_t, next), 0u);
}

TEST_F(Rmtln, to_the_database_sets_the_length_and_fills_both_slots) {
  List<rov_rmtln_t> list;
  List<rov_rmtln_t> expected;
  fill(list, library_slot);
  fill(expected, database_slot);
  for (std::size_t i = 0; i < kRecords; ++i) {
    if (i + 1 < kRecords) expected[i].next = &list[i + 1];
    list[i].id_len = 7;
    expected[i].id_len = 16;
  }
  qim_rmtln_to_rov(&list[0]);
  expect_same(list, expected);
}

TEST_F(Rmtln, from_the_database_leaves_the_length_and_the_rest_of_the_slots) {
  List<rov_rmtln_t> list;
  List<rov_rmtln_t> expected;
  fill(list, rich_slot);
  fill(expected, library_slot);
  for (std::size_t i = 0; i < kRecords; ++i) {
    if (i + 1 < kRecords) expected[i].next = &list[i + 1];
    list[i].id_len = 7;
    expected[i].id_len = 7;
  }
  qim_rmtln_from_rov(&list[0]);
  expect_same(list, expected);
}

TEST_F(Rmtln, there_and_back_restores_every_identifier_and_keeps_the_length) {
  List<rov_rmtln_t> list;
  fill(list, library_slot);
  list[0].id_len = 7;
  qim_rmtln_to_rov(&list[0]);
  qim_rmtln_from_rov(&list[0]);
  EXPECT_EQ(list[0].id_len, 16u);
  for (std::size_t i = 0; i < kRecords; ++i) {
    EXPECT_EQ(bytes_of(list[i].node), slot_of_library(kIds[i][0], 0));
    EXPECT_EQ(bytes_of(list[i].node2), slot_of_library(kIds[i][1], 0));
  }
}

TEST_F(ListTest, empty_list_is_left_alone) {
  qim_rqst_to_rov(nullptr);
  qim_rqst_from_rov(nullptr);
  qim_rmtln_to_rov(nullptr);
  qim_rmtln_from_rov(nullptr);
}

}  // namespace
