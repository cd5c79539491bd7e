#include <cstring>

#include "bytes.h"
#include "tests/support/fake/fixture.h"

namespace {

using ids_tests::Bytes;
using ids_tests::bytes_of;
using ids_tests::kBigEndian;

class NodeId : public fake::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(fake::calls(), fake::Calls{}) << "conversions do not ask the platform";
    EXPECT_EQ(fake::reports().size(), 0u);
    fake::Test::TearDown();
  }
};

TEST_F(NodeId, private_ones_have_class_0_and_space_3_and_drop_the_bits_above_the_index) {
  EXPECT_EQ(qim_node_id_priv_create(0x123456), 0x00323456u);
  EXPECT_EQ(qim_node_id_priv_create(0), 0x00300000u);
  EXPECT_EQ(qim_node_id_priv_create(0xfffff), 0x003fffffu);
  EXPECT_EQ(qim_node_id_priv_create(0xffffffff), 0x003fffffu);
}

struct Split {
  std::uint32_t id, node_class, space, index;
};
constexpr Split kSplits[] = {
    {0xfc3fffff, 63, 3, 0xfffff}, {0xffffffff, 63, 63, 0xfffff}, {0, 0, 0, 0},
    {0x04100001, 1, 1, 1},        {0x03f00000, 0, 63, 0},        {0x000fffff, 0, 0, 0xfffff},
    {0x84210842, 33, 2, 0x10842}};

TEST_F(NodeId, splits_into_class_space_and_index) {
  for (const Split& s : kSplits) {
    SCOPED_TRACE(s.id);
    std::uint32_t space = 0x77;
    std::uint32_t index = 0x77;
    EXPECT_EQ(qim_node_id_fields(s.id, &space, &index), s.node_class);
    EXPECT_EQ(space, s.space);
    EXPECT_EQ(index, s.index);
  }
}

TEST_F(NodeId, splits_without_outputs) {
  std::uint32_t space = 0x77;
  std::uint32_t index = 0x77;
  EXPECT_EQ(qim_node_id_fields(0xfc3fffff, nullptr, &index), 63u);
  EXPECT_EQ(index, 0xfffffu);
  EXPECT_EQ(qim_node_id_fields(0xfc3fffff, &space, nullptr), 63u);
  EXPECT_EQ(space, 3u);
  EXPECT_EQ(qim_node_id_fields(0xfc3fffff, nullptr, nullptr), 63u);
}

const Bytes kForm = {0x01, 0x02, 0x03, 0x04, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

template <class T>
T garbage() {
  T record;
  std::memset(static_cast<void*>(&record), fake::kGarbage, sizeof record);
  return record;
}

TEST_F(NodeId, has_16_bytes_in_the_databases_form_the_identifier_first_in_network_order) {
  auto out = garbage<rov_node_id_t>();
  EXPECT_EQ(qim_to_rov_node_id(0x01020304, &out), 0u);
  EXPECT_EQ(bytes_of(out), kForm);
  out = garbage<rov_node_id_t>();
  qim_to_rov_node_id_nochk(0x01020304, &out);
  EXPECT_EQ(bytes_of(out), kForm);
}

TEST_F(NodeId, of_0_is_refused_with_an_output_of_zeros_and_no_report) {
  fake::report_everything(ctx());
  auto out = garbage<rov_node_id_t>();
  EXPECT_EQ(qim_to_rov_node_id(0, &out), 0x41160005u);
  EXPECT_EQ(bytes_of(out), Bytes(16));
}

TEST_F(NodeId, of_0_is_all_zero_where_it_is_legal) {
  auto out = garbage<rov_node_id_t>();
  qim_to_rov_node_id_nochk(0, &out);
  EXPECT_EQ(bytes_of(out), Bytes(16));
}

TEST_F(NodeId, comes_back_from_the_first_four_bytes_alone) {
  rov_node_id_t in = fake::id(0x01020304);
  EXPECT_EQ(qim_from_rov_node_id(&in), 0x01020304u);
  in.word[1] = in.word[2] = in.word[3] = 0xffffffff;
  EXPECT_EQ(qim_from_rov_node_id(&in), 0x01020304u);
  in.word[0] = 0;
  EXPECT_EQ(qim_from_rov_node_id(&in), 0u);
}

TEST_F(NodeId, is_converted_in_place_by_the_databases_callbacks) {
  std::uint32_t words[2];
  std::memcpy(words, "\x01\x02\x03\x04\x05\x06\x07\x08", 8);
  rov_node_id_to_qim(words);
  EXPECT_EQ(words[0], 0x01020304u);
  rov_node_id_from_qim(words);
  EXPECT_EQ(std::memcmp(words, "\x01\x02\x03\x04\x05\x06\x07\x08", 8), 0);
}

TEST_F(NodeId, conversion_is_the_identity_on_big_endian_hosts_and_a_swap_on_others) {
  std::uint32_t word = 0x01020304;
  rov_node_id_to_qim(&word);
  EXPECT_EQ(word, kBigEndian ? 0x01020304u : 0x04030201u);
  word = 0x01020304;
  rov_node_id_from_qim(&word);
  EXPECT_EQ(word, kBigEndian ? 0x01020304u : 0x04030201u);
}

}  // namespace
