#include <cstring>

#include "bytes.h"
#include "tests/support/fake/fixture.h"
#include "tests/support/fake/layout.h"

namespace {

using ids_tests::Bytes;
using ids_tests::bytes_of;
using ids_tests::Formats;
using ids_tests::kBigEndian;
using ids_tests::record_of;
using ids_tests::swap_bytes;

class DsetName : public fake::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(fake::calls(), fake::Calls{}) << "names do not ask the platform";
    fake::Test::TearDown();
  }
};

// A name whose bytes are all different, of that format.
Bytes numbered(std::uint8_t fmt) {
  Bytes bytes(21);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(0x10 + i);
  bytes[0] = fmt;
  return bytes;
}

// What conversion makes of it on this host.
Bytes converted(Bytes bytes) {
  if (kBigEndian) return bytes;
  switch (bytes[0]) {
    case 2:
      swap_bytes(bytes, 1, 4);
      swap_bytes(bytes, 5, 4);
      swap_bytes(bytes, 9, 2);
      break;
    case 3:
      swap_bytes(bytes, 1, 2);
      swap_bytes(bytes, 4, 2);
      swap_bytes(bytes, 6, 2);
      swap_bytes(bytes, 8, 4);
      swap_bytes(bytes, 12, 4);
      break;
    default:
      swap_bytes(bytes, 1, 4);
      swap_bytes(bytes, 5, 4);
      swap_bytes(bytes, 9, 2);
      swap_bytes(bytes, 11, 2);
      break;
  }
  swap_bytes(bytes, 16, 4);
  return bytes;
}

TEST_F(DsetName, is_21_bytes_without_padding) {
  CHECK_LAYOUT(qim_dsetname_t, 21,
               {PACKED(qim_dsetname_t, dest, 0, 16), PACKED(qim_dsetname_t, type, 16, 4),
                PACKED(qim_dsetname_t, dir, 20, 1)});
  EXPECT_EQ(alignof(qim_dsetname_t), 1u);
}

TEST_F(DsetName, decodes_into_24_bytes) {
  CHECK_LAYOUT(
      qim_pinst_fields_t, 24,
      {FIXED(qim_pinst_fields_t, dest, 0, 16), FIXED(qim_pinst_fields_t, dir, 16, 1),
       FIXED(qim_pinst_fields_t, reserved, 17, 3), FIXED(qim_pinst_fields_t, type, 20, 4)});
}

TEST_F(DsetName, converts_each_formats_fields_and_nothing_else) {
  for (unsigned fmt = 0; fmt < 256; ++fmt) {
    SCOPED_TRACE(fmt);
    const Bytes before = numbered(static_cast<std::uint8_t>(fmt));
    auto name = record_of<qim_dsetname_t>(before);
    qim_dsetname_hton(&name);
    EXPECT_EQ(bytes_of(name), converted(before));
    qim_dsetname_ntoh(&name);
    EXPECT_EQ(bytes_of(name), before);
    qim_dsetname_ntoh(&name);
    EXPECT_EQ(bytes_of(name), converted(before));
  }
}

TEST_F(DsetName, converts_at_any_alignment) {
  for (std::size_t shift = 0; shift < 8; ++shift) {
    Bytes room(32);
    const Bytes before = numbered(1);
    std::copy(before.begin(), before.end(), room.begin() + static_cast<std::ptrdiff_t>(shift));
    qim_dsetname_hton(reinterpret_cast<qim_dsetname_t*>(room.data() + shift));
    const auto start = room.begin() + static_cast<std::ptrdiff_t>(shift);
    EXPECT_EQ(Bytes(start, start + 21), converted(before));
  }
}

// ---- Building ----------------------------------------------------------------------------------

const Bytes kInterface = {0x01, 0x11, 0x22, 0x33, 0x44, 0x01, 0x02, 0x03, 0x04, 0x0a, 0x0b,
                          0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01};

qim_dsetname_t garbage_name() {
  return record_of<qim_dsetname_t>(Bytes(21, 0xa5));
}

// Decoded fields in which every byte that no field uses is garbage.
qim_pinst_fields_t fields_of(std::uint8_t fmt) {
  auto fields = record_of<qim_pinst_fields_t>(Bytes(24, 0xa5));
  fields.dest.fmt = fmt;
  fields.type = 5;
  fields.dir = 1;
  return fields;
}

TEST_F(DsetName, for_an_interface_policy) {
  auto name = garbage_name();
  qim_dsetname_for_if_policy(5, 1, 0x0102, 0x01020304, 0x0a0b, 0x11223344, &name);
  EXPECT_EQ(bytes_of(name), kInterface);
}

TEST_F(DsetName, for_an_interface_policy_takes_the_contexts_vdc_for_0) {
  ctx()->db_parms.vdc = 0x0102;
  ctx()->db_parms.vdc_dflt = 1;
  auto name = garbage_name();
  qim_dsetname_for_if_policy(5, 1, 0, 0x01020304, 0x0a0b, 0x11223344, &name);
  EXPECT_EQ(bytes_of(name), kInterface);
}

TEST_F(DsetName, from_decoded_interface_fields) {
  qim_pinst_fields_t fields = fields_of(QIM_DEST_IF);
  fields.dest.intf.vdc = 0x0102;
  fields.dest.intf.vrf = 0x01020304;
  fields.dest.intf.vlan = 0x0a0b;
  fields.dest.intf.ifix = 0x11223344;
  auto name = garbage_name();
  qim_pinst_to_dsetname(&fields, &name);
  EXPECT_EQ(bytes_of(name), kInterface);
}

TEST_F(DsetName, from_decoded_interface_fields_takes_a_vdc_of_0_as_it_is) {
  ctx()->db_parms.vdc = 5;
  ctx()->db_parms.vdc_dflt = 1;
  qim_pinst_fields_t fields = fields_of(QIM_DEST_IF);
  fields.dest.intf.vdc = 0;
  qim_dsetname_t name;
  qim_pinst_to_dsetname(&fields, &name);
  EXPECT_EQ(name.dest.intf.vdc, 0u);
}

TEST_F(DsetName, from_decoded_service_fields) {
  qim_pinst_fields_t fields = fields_of(QIM_DEST_SRV);
  fields.dest.srv.srv_id = 0x11223344;
  fields.dest.srv.srv_def = 0x01020304;
  fields.dest.srv.srv_vdc = 0x0a0b;
  auto name = garbage_name();
  qim_pinst_to_dsetname(&fields, &name);
  EXPECT_EQ(bytes_of(name), (Bytes{2, 0x11, 0x22, 0x33, 0x44, 1, 2, 3, 4, 0x0a, 0x0b,
                                   0, 0,    0,    0,    0,    0, 0, 0, 5, 1}));
}

TEST_F(DsetName, from_decoded_generic_fields) {
  qim_pinst_fields_t fields = fields_of(QIM_DEST_GEN);
  fields.dest.gen = {QIM_DEST_GEN, 0x0102, 0x03, 0x0405, 0x0607, 0x08090a0b, 0x0c0d0e0f};
  fields.dir = 2;
  fields.type = 0xf1f2f3f4;
  auto name = garbage_name();
  qim_pinst_to_dsetname(&fields, &name);
  EXPECT_EQ(bytes_of(name), (Bytes{3,  1,  2,  3,  4,  5,    6,    7,    8,    9, 10,
                                   11, 12, 13, 14, 15, 0xf1, 0xf2, 0xf3, 0xf4, 2}));
}

TEST_F(DsetName, from_fields_of_an_unknown_format_carries_only_format_type_and_direction) {
  for (const std::uint8_t fmt : Formats{0, 4, 7, 0x80, 0xff}) {
    const qim_pinst_fields_t fields = fields_of(fmt);
    auto name = garbage_name();
    qim_pinst_to_dsetname(&fields, &name);
    Bytes expected(21);
    expected[0] = fmt;
    expected[19] = 5;
    expected[20] = 1;
    EXPECT_EQ(bytes_of(name), expected) << int{fmt};
  }
}

TEST_F(DsetName, building_leaves_the_fields_as_they_were) {
  const qim_pinst_fields_t fields = fields_of(QIM_DEST_IF);
  const Bytes before = bytes_of(fields);
  qim_dsetname_t name;
  qim_pinst_to_dsetname(&fields, &name);
  EXPECT_EQ(bytes_of(fields), before);
}

// ---- Decoding ----------------------------------------------------------------------------------

TEST_F(DsetName, decodes_whole_and_leaves_the_padding_of_the_output) {
  for (const std::uint8_t fmt : Formats{1, 2, 3, 7}) {
    SCOPED_TRACE(int{fmt});
    const Bytes stored = numbered(fmt);
    const Bytes host = converted(stored);
    auto name = record_of<qim_dsetname_t>(stored);
    auto fields = record_of<qim_pinst_fields_t>(Bytes(24, 0xa5));
    qim_pinst_from_dsetname(&fields, &name);
    Bytes expected(24, 0xa5);
    std::copy(host.begin(), host.begin() + 16, expected.begin());
    expected[16] = host[20];
    std::copy(host.begin() + 16, host.begin() + 20, expected.begin() + 20);
    EXPECT_EQ(bytes_of(fields), expected);
    EXPECT_EQ(fields.type, 0x20212223u);
    EXPECT_EQ(bytes_of(name), host) << "the input is left in host order";
  }
}

TEST_F(DsetName, decoded_twice_is_garbage_on_little_endian_hosts) {
  auto name = record_of<qim_dsetname_t>(kInterface);
  qim_pinst_fields_t first{};
  qim_pinst_fields_t second{};
  qim_pinst_from_dsetname(&first, &name);
  qim_pinst_from_dsetname(&second, &name);
  EXPECT_EQ(first.dest.intf.ifix, 0x11223344u);
  EXPECT_EQ(second.dest.intf.ifix, kBigEndian ? 0x11223344u : 0x44332211u);
  EXPECT_EQ(second.type, kBigEndian ? 5u : 0x05000000u);
}

// ---- The database's callback
// -----------------------------------------------------------------------

TEST_F(DsetName, gives_its_policy_type_to_the_database_and_stays_as_it_was) {
  for (const std::uint8_t fmt : Formats{0, 1, 2, 3, 7, 0x80}) {
    const Bytes stored = numbered(fmt);
    auto name = record_of<qim_dsetname_t>(stored);
    rov_sub_t sub;
    std::memset(&sub, 0xa5, sizeof sub);
    sub.dset_name = &name;
    const Bytes sub_before = bytes_of(sub);
    EXPECT_EQ(qim_extract_pinst_from_sub(&sub), 0x20212223u) << int{fmt};
    EXPECT_EQ(bytes_of(name), stored) << int{fmt};
    EXPECT_EQ(bytes_of(sub), sub_before);
  }
}

TEST_F(DsetName, is_led_to_by_the_sixth_word_of_the_databases_record) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(offsetof(rov_sub_t, dset_name), 20u);
  }
  EXPECT_GE(offsetof(rov_sub_t, dset_name), 20u);
  EXPECT_LE(offsetof(rov_sub_t, dset_name), 24u) << "the next aligned place for wider pointers";
}

}  // namespace
