// The callbacks in the descriptor tables: what each hands to the database's TLV routines, in which
// order, and that it hands back what it gets.

#include <cstring>

#include "rov.h"
#include "tables.h"
#include "tests/support/fake/fixture.h"

namespace {

using fake::call;
using schema_tests::field_of;

constexpr std::uint32_t kStatus = 0x41170055;

// Arguments that can be told apart; no callback of ours may look behind them.
struct PassThrough {
  std::uint32_t word[2] = {7, 7};
  void* pointer[2] = {nullptr, nullptr};
  std::uint8_t byte[2] = {};
};

class Callbacks : public fake::Test {
 protected:
  // Lets the routine return that word instead of doing its work.
  static void answer(const char* routine, std::uint32_t word) {
    fake::script(routine, [word](const fake::Call&) { return word; });
  }

  PassThrough to_;
};

// ---- Byte strings
// ---------------------------------------------------------------------------------

template <class T>
struct Kind;
template <>
struct Kind<qim_criterion_t> {
  static const tlvo_table_t& table() { return qim_criterion_tbl; }
};
template <>
struct Kind<qim_action_t> {
  static const tlvo_table_t& table() { return qim_action_tbl; }
};
template <>
struct Kind<qim_def_t> {
  static const tlvo_table_t& table() { return qim_def_tbl; }
};

template <class T>
class ByteString : public Callbacks {
 protected:
  static tlvo_field_t field() { return field_of(Kind<T>::table(), 2); }
};
using ByteStringKinds = testing::Types<qim_criterion_t, qim_action_t, qim_def_t>;
TYPED_TEST_SUITE(ByteString, ByteStringKinds);

TYPED_TEST(ByteString, is_encoded_by_copying_it_and_ignores_the_iterator) {
  TypeParam record{};
  std::uint8_t bytes[3] = {1, 2, 3};
  record.args = bytes;
  record.args_len = 3;
  this->answer("rov_cpy_fld_to_tlv", kStatus);
  PassThrough& to = this->to_;
  EXPECT_EQ(this->field().encode(&record, &to.pointer[0], to.byte, &to.word[0], &to.word[1]),
            kStatus);
  EXPECT_EQ(fake::calls(),
            (fake::Calls{call("rov_cpy_fld_to_tlv", bytes, 3, to.byte, &to.word[0], &to.word[1])}));
  EXPECT_EQ(to.pointer[0], nullptr);
}

TYPED_TEST(ByteString, is_decoded_into_a_buffer_of_the_contexts_pool_and_ignores_the_iterator) {
  TypeParam record{};
  this->answer("rov_tlv_to_bufptr", kStatus);
  PassThrough& to = this->to_;
  EXPECT_EQ(this->field().decode(&record, to.byte, 5, &to.pointer[0]), kStatus);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_tlv_to_bufptr", &record.args, &record.args_len,
                                             this->pool(), to.byte, 5)}));
  EXPECT_EQ(to.pointer[0], nullptr);
}

TYPED_TEST(ByteString, has_the_size_of_its_bytes) {
  TypeParam record{};
  EXPECT_EQ(this->field().size(&record), 0u);
  record.args_len = 0x12345678;
  EXPECT_EQ(this->field().size(&record), 0x12345678u);
  EXPECT_EQ(fake::calls(), fake::Calls{});
}

TYPED_TEST(ByteString, is_copied_and_decoded_for_real) {
  std::uint8_t bytes[3] = {1, 2, 3};
  TypeParam record{};
  record.args = bytes;
  record.args_len = 3;
  std::uint8_t out[3] = {};
  std::uint32_t len = 3;
  std::uint32_t done = 0;
  ASSERT_EQ(this->field().encode(&record, nullptr, out, &len, &done), 0u);
  EXPECT_EQ(out[2], 3);
  TypeParam copy{};
  void* iter = nullptr;
  ASSERT_EQ(this->field().decode(&copy, out, len, &iter), 0u);
  ASSERT_EQ(copy.args_len, 3u);
  EXPECT_EQ(std::memcmp(copy.args, bytes, 3), 0);
}

// ---- The criteria list
// ------------------------------------------------------------------------------

class CriteriaList : public Callbacks {
 protected:
  static tlvo_field_t field() { return field_of(qim_filter_tbl, 4); }

  // The descriptor that the callbacks hand on.
  const tlvo_list_t* descriptor() {
    answer("rov_tlv_listptr_nels", 0);
    field().count(&filter_);
    const auto* const list = fake::calls().back().pointer<const tlvo_list_t>(0);
    fake::clear_calls();
    return list;
  }

  qim_filter_t filter_{};
};

TEST_F(CriteriaList, is_encoded_with_all_arguments_in_order) {
  const tlvo_list_t* const list = descriptor();
  answer("rov_tlv_from_listel", kStatus);
  EXPECT_EQ(field().encode(&filter_, &to_.pointer[0], to_.byte, &to_.word[0], &to_.word[1]),
            kStatus);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_tlv_from_listel", list, &filter_, &to_.pointer[0],
                                             to_.byte, &to_.word[0], &to_.word[1])}));
}

TEST_F(CriteriaList, is_decoded_with_all_arguments_in_order) {
  const tlvo_list_t* const list = descriptor();
  answer("rov_tlv_to_listel", kStatus);
  EXPECT_EQ(field().decode(&filter_, to_.byte, 9, &to_.pointer[0]), kStatus);
  EXPECT_EQ(fake::calls(),
            (fake::Calls{call("rov_tlv_to_listel", list, &filter_, to_.byte, 9, &to_.pointer[0])}));
}

TEST_F(CriteriaList, has_size_and_count_from_the_database) {
  const tlvo_list_t* const list = descriptor();
  answer("rov_tlv_listel_tlvsize", 0x1234);
  answer("rov_tlv_listptr_nels", 0x5678);
  EXPECT_EQ(field().size(&filter_), 0x1234u);
  EXPECT_EQ(field().count(&filter_), 0x5678u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_tlv_listel_tlvsize", list, &filter_),
                                        call("rov_tlv_listptr_nels", list, &filter_)}));
}

TEST_F(CriteriaList, is_described_by_five_words) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(sizeof(tlvo_list_t), 20u);
  }
  const tlvo_list_t* const list = descriptor();
  EXPECT_EQ(list->head(&filter_), &filter_.crit);
  EXPECT_NE(list->alloc, nullptr);
  EXPECT_EQ(list->element, &qim_criterion_tbl);
  ASSERT_NE(list->link, nullptr);
  EXPECT_EQ(list->aux(&filter_), &filter_.crit_aux);
}

TEST_F(CriteriaList, names_an_element_link_descriptor_of_the_same_shape) {
  const tlvo_list_t* const list = descriptor();
  qim_criterion_t criterion{};
  EXPECT_EQ(list->link->head(&criterion), &criterion);
  EXPECT_EQ(list->link->head(&criterion), &criterion.next);
  EXPECT_EQ(list->link->alloc, list->alloc);
  EXPECT_EQ(list->link->element, &qim_criterion_tbl);
  EXPECT_EQ(list->link->link, nullptr);
  EXPECT_EQ(list->link->aux, nullptr);
}

TEST_F(CriteriaList, allocates_one_zeroed_criterion_and_ignores_the_other_arguments) {
  const tlvo_list_t* const list = descriptor();
  void* element = nullptr;
  std::uint32_t size = 0;
  ASSERT_EQ(list->alloc(nullptr, &element, nullptr, &size), 0u);
  EXPECT_EQ(fake::calls(),
            (fake::Calls{call("mem_zalloc", sizeof(qim_criterion_t), pool(), fake::any)}));
  EXPECT_EQ(size, sizeof(qim_criterion_t));
  if (sizeof(void*) == 4) {
    EXPECT_EQ(size, 16u);
  }
  const qim_criterion_t zero{};
  EXPECT_EQ(std::memcmp(element, &zero, sizeof zero), 0);
  ASSERT_EQ(list->alloc(&to_, &element, &to_, &size), 0u);
  EXPECT_EQ(fake::live_blocks(), 2u);
}

TEST_F(CriteriaList, hands_on_an_allocators_failure_with_cleared_outputs) {
  fake::report_everything(ctx());
  const tlvo_list_t* const list = descriptor();
  fake::fail("mem_zalloc", 0x41170004);
  void* element = &to_;
  std::uint32_t size = 9;
  EXPECT_EQ(list->alloc(nullptr, &element, nullptr, &size), 0x41170004u);
  EXPECT_EQ(element, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(fake::report_texts(),
            std::vector<std::string>{fake::report(0x41170004, "qim_tlv_struct_alloc", 51)});
}

// ---- The body union
// ---------------------------------------------------------------------------------

class BodyUnion : public Callbacks {
 protected:
  static tlvo_field_t field() { return field_of(qim_node_tbl, 3); }

  const tlvo_union_t* members() {
    answer("rov_tlva_union_siz", 0);
    field().size(&node_);
    const auto* const table = fake::calls().back().pointer<const tlvo_union_t>(1);
    fake::clear_calls();
    return table;
  }

  qim_node_t node_{};
};

TEST_F(BodyUnion, is_encoded_with_the_fourth_argument_before_the_third) {
  const tlvo_union_t* const table = members();
  node_.type = 6;
  fake::script("rov_tlva_from_union", [this](const fake::Call&) {
    EXPECT_EQ(to_.word[1], 0u) << "the fifth argument is cleared first";
    return kStatus;
  });
  EXPECT_EQ(field().encode(&node_, &to_.pointer[0], to_.byte, &to_.word[0], &to_.word[1]), kStatus);
  EXPECT_EQ(
      fake::calls(),
      (fake::Calls{call("rov_tlva_from_union", 6, table, &node_.body, &to_.word[0], to_.byte)}));
  EXPECT_EQ(to_.word[1], 1u) << "even though the routine failed";
  EXPECT_EQ(to_.word[0], 7u);
  EXPECT_EQ(to_.pointer[0], nullptr);
}

TEST_F(BodyUnion, is_complete_after_a_good_encoding_too) {
  node_.type = 3;
  std::uint8_t out[4];
  std::uint32_t len = 4;
  std::uint32_t done = 9;
  EXPECT_EQ(field().encode(&node_, nullptr, out, &len, &done), 0u);
  EXPECT_EQ(done, 1u);
}

TEST_F(BodyUnion, is_decoded_with_the_third_argument_before_the_second) {
  const tlvo_union_t* const table = members();
  answer("rov_tlva_to_union", kStatus);
  EXPECT_EQ(field().decode(&node_, to_.byte, 11, &to_.pointer[0]), kStatus);
  EXPECT_EQ(
      fake::calls(),
      (fake::Calls{call("rov_tlva_to_union", 11, to_.byte, table, &node_.type, &node_.body)}));
  EXPECT_EQ(to_.pointer[0], nullptr);
}

TEST_F(BodyUnion, has_its_size_from_the_database) {
  const tlvo_union_t* const table = members();
  answer("rov_tlva_union_siz", 0x1234);
  node_.type = 9;
  EXPECT_EQ(field().size(&node_), 0x1234u);
  EXPECT_EQ(fake::calls(), (fake::Calls{call("rov_tlva_union_siz", 9, table, &node_.body)}));
}

TEST_F(BodyUnion, has_ten_members_in_this_order) {
  const std::pair<std::uint32_t, const tlvo_table_t*> expected[] = {
      {1, &qim_filter_tbl}, {4, &qim_hfilter_tbl}, {2, &qim_action_tbl}, {5, &qim_haction_tbl},
      {6, &qim_police_tbl}, {3, &qim_ifelse_tbl},  {9, &qim_def_tbl},    {7, &qim_group_tbl},
      {8, &qim_pinst_tbl},  {10, &qim_pinst_tbl}};
  const tlvo_union_t* const table = members();
  for (std::size_t i = 0; i < 10; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(table[i].type, expected[i].first);
    EXPECT_EQ(table[i].table, expected[i].second);
    EXPECT_EQ(table[i].reserved, 0u);
  }
  if (sizeof(void*) == 4) {
    EXPECT_EQ(sizeof(tlvo_union_t), 12u);
  }
}

}  // namespace
