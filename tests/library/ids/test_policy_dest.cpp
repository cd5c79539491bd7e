#include "bytes.h"
#include "tests/support/fake/fixture.h"
#include "tests/support/fake/layout.h"

namespace {

using ids_tests::Bytes;
using ids_tests::bytes_of;
using ids_tests::Formats;
using ids_tests::kBigEndian;
using ids_tests::record_of;

class PolicyDest : public fake::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(fake::calls(), fake::Calls{}) << "destinations do not ask the platform";
    EXPECT_EQ(fake::reports().size(), 0u);
    fake::Test::TearDown();
  }
};

// A destination of that format whose other bytes are all the same.
qim_policy_dest_t filled(std::uint8_t fmt, std::uint8_t fill) {
  Bytes bytes(16, fill);
  bytes[0] = fmt;
  return record_of<qim_policy_dest_t>(bytes);
}

TEST_F(PolicyDest, is_packed_by_format) {
  CHECK_LAYOUT(qim_dest_if_t, 16,
               {PACKED(qim_dest_if_t, fmt, 0, 1), PACKED(qim_dest_if_t, ifix, 1, 4),
                PACKED(qim_dest_if_t, vrf, 5, 4), PACKED(qim_dest_if_t, vlan, 9, 2),
                PACKED(qim_dest_if_t, vdc, 11, 2), PACKED(qim_dest_if_t, reserved, 13, 3)});
  CHECK_LAYOUT(qim_dest_srv_t, 16,
               {PACKED(qim_dest_srv_t, fmt, 0, 1), PACKED(qim_dest_srv_t, srv_id, 1, 4),
                PACKED(qim_dest_srv_t, srv_def, 5, 4), PACKED(qim_dest_srv_t, srv_vdc, 9, 2),
                PACKED(qim_dest_srv_t, reserved, 11, 5)});
  CHECK_LAYOUT(qim_dest_gen_t, 16,
               {PACKED(qim_dest_gen_t, fmt, 0, 1), PACKED(qim_dest_gen_t, vdc, 1, 2),
                PACKED(qim_dest_gen_t, v8, 3, 1), PACKED(qim_dest_gen_t, v16a, 4, 2),
                PACKED(qim_dest_gen_t, v16b, 6, 2), PACKED(qim_dest_gen_t, v32a, 8, 4),
                PACKED(qim_dest_gen_t, v32b, 12, 4)});
  EXPECT_EQ(sizeof(qim_policy_dest_t), 16u);
  EXPECT_EQ(alignof(qim_policy_dest_t), 1u);
  EXPECT_EQ(QIM_DEST_IF, 1);
  EXPECT_EQ(QIM_DEST_SRV, 2);
  EXPECT_EQ(QIM_DEST_GEN, 3);
}

// ---- Setting ---------------------------------------------------------------------------------

TEST_F(PolicyDest, interface_is_set_in_host_order_with_zeros_behind) {
  auto dest = filled(0xa5, 0xa5);
  qim_if_policy_dest_set(0x0102, 0x01020304, 0x0a0b, 0x11223344, &dest);
  EXPECT_EQ(bytes_of(dest),
            kBigEndian ? (Bytes{1, 0x11, 0x22, 0x33, 0x44, 1, 2, 3, 4, 0x0a, 0x0b, 1, 2, 0, 0, 0})
                       : (Bytes{1, 0x44, 0x33, 0x22, 0x11, 4, 3, 2, 1, 0x0b, 0x0a, 2, 1, 0, 0, 0}));
}

std::uint16_t vdc_set(std::uint16_t vdc) {
  qim_policy_dest_t dest;
  qim_if_policy_dest_set(vdc, 1, 2, 3, &dest);
  return dest.intf.vdc;
}

TEST_F(PolicyDest, interface_takes_the_contexts_vdc_for_0_when_that_is_the_default) {
  ctx()->db_parms.vdc = 5;
  ctx()->db_parms.vdc_dflt = 0;
  EXPECT_EQ(vdc_set(0), 0u);
  ctx()->db_parms.vdc_dflt = 1;
  EXPECT_EQ(vdc_set(0), 5u);
  ctx()->db_parms.vdc_dflt = 0x80000000;
  EXPECT_EQ(vdc_set(0), 5u);
  EXPECT_EQ(vdc_set(9), 9u) << "another VDC is never replaced";
  ctx()->db_parms.vdc = 0x12345;
  EXPECT_EQ(vdc_set(0), 0x2345u) << "its low 16 bits";
}

TEST_F(PolicyDest, service_is_set_without_a_vdc) {
  ctx()->db_parms.vdc = 5;
  ctx()->db_parms.vdc_dflt = 1;
  auto dest = filled(0xa5, 0xa5);
  qim_srv_policy_dest_set(0x11223344, 0x01020304, &dest);
  EXPECT_EQ(bytes_of(dest),
            kBigEndian ? (Bytes{2, 0x11, 0x22, 0x33, 0x44, 1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0})
                       : (Bytes{2, 0x44, 0x33, 0x22, 0x11, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0}));
}

// ---- Reading ---------------------------------------------------------------------------------

TEST_F(PolicyDest, interface_is_read_whole) {
  qim_policy_dest_t dest;
  qim_if_policy_dest_set(0x0102, 0x00012345, 0x0a0b, 0x11223344, &dest);
  std::uint16_t vdc = 0;
  std::uint32_t vrf = 0;
  std::uint16_t vlan = 0;
  std::uint32_t ifix = 0;
  EXPECT_EQ(qim_if_policy_dest_get2(&dest, &vdc, &vrf, &vlan, &ifix), 0u);
  EXPECT_EQ(vdc, 0x0102u);
  EXPECT_EQ(vrf, 0x00012345u);
  EXPECT_EQ(vlan, 0x0a0bu);
  EXPECT_EQ(ifix, 0x11223344u);
}

TEST_F(PolicyDest, interface_is_read_with_a_vrf_of_16_bits_by_the_older_form) {
  qim_policy_dest_t dest;
  qim_if_policy_dest_set(0x0102, 0x00012345, 0x0a0b, 0x11223344, &dest);
  std::uint16_t vdc = 0;
  std::uint16_t vrf = 0;
  std::uint16_t vlan = 0;
  std::uint32_t ifix = 0;
  EXPECT_EQ(qim_if_policy_dest_get(&dest, &vdc, &vrf, &vlan, &ifix), 0u);
  EXPECT_EQ(vdc, 0x0102u);
  EXPECT_EQ(vrf, 0x2345u);
  EXPECT_EQ(vlan, 0x0a0bu);
  EXPECT_EQ(ifix, 0x11223344u);
}

TEST_F(PolicyDest, of_another_format_gives_zeros_and_an_unreported_status) {
  fake::report_everything(ctx());
  for (const std::uint8_t fmt : Formats{0, 2, 3, 4, 0x80, 0x81, 0xff}) {
    SCOPED_TRACE(static_cast<int>(fmt));
    const qim_policy_dest_t dest = filled(fmt, 0xa5);
    std::uint16_t vdc = 1;
    std::uint32_t vrf = 1;
    std::uint16_t vrf16 = 1;
    std::uint16_t vlan = 1;
    std::uint32_t ifix = 1;
    EXPECT_EQ(qim_if_policy_dest_get2(&dest, &vdc, &vrf, &vlan, &ifix), 0x4116000fu);
    EXPECT_TRUE(vdc == 0 && vrf == 0 && vlan == 0 && ifix == 0);
    vdc = vlan = 1;
    ifix = 1;
    EXPECT_EQ(qim_if_policy_dest_get(&dest, &vdc, &vrf16, &vlan, &ifix), 0x4116000fu);
    EXPECT_TRUE(vdc == 0 && vrf16 == 0 && vlan == 0 && ifix == 0);
  }
}

// ---- Comparing -------------------------------------------------------------------------------

// A field of a format, in the order of comparison.
struct Field {
  std::size_t at;
  std::size_t width;
};
struct Format {
  std::uint8_t fmt;
  std::vector<Field> fields;
  std::vector<std::size_t> unused;
};
const Format kFormats[] = {
    {1, {{11, 2}, {5, 4}, {9, 2}, {1, 4}}, {13, 14, 15}},
    {2, {{1, 4}, {5, 4}, {9, 2}}, {11, 12, 13, 14, 15}},
    {3, {{1, 2}, {3, 1}, {4, 2}, {6, 2}, {8, 4}, {12, 4}}, {}},
};

void put(Bytes& bytes, const Field& field, std::uint32_t value) {
  for (std::size_t i = 0; i < field.width; ++i) {
    const std::size_t place = kBigEndian ? field.width - 1 - i : i;
    bytes[field.at + place] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

std::int32_t compare(const Bytes& a, const Bytes& b) {
  const auto left = record_of<qim_policy_dest_t>(a);
  const auto right = record_of<qim_policy_dest_t>(b);
  return qim_policy_dest_cmp(&left, &right);
}

Bytes of_format(std::uint8_t fmt) {
  Bytes bytes(16);
  bytes[0] = fmt;
  return bytes;
}

TEST_F(PolicyDest, compares_formats_first_and_as_unsigned_bytes) {
  EXPECT_EQ(compare(of_format(1), of_format(3)), -2);
  EXPECT_EQ(compare(of_format(255), of_format(1)), 254);
  Bytes far = of_format(1);
  put(far, {11, 2}, 0xffff);
  EXPECT_EQ(compare(far, of_format(2)), -1);
}

TEST_F(PolicyDest, compares_every_field_of_its_format) {
  for (const Format& format : kFormats) {
    for (const Field& field : format.fields) {
      SCOPED_TRACE(testing::Message() << "format " << int{format.fmt} << " byte " << field.at);
      Bytes a = of_format(format.fmt);
      Bytes b = a;
      put(a, field, 7);
      put(b, field, 4);
      EXPECT_EQ(compare(a, b), 3);
      EXPECT_EQ(compare(b, a), -3);
      EXPECT_EQ(compare(a, a), 0);
    }
  }
}

TEST_F(PolicyDest, compares_fields_in_this_order) {
  for (const Format& format : kFormats) {
    for (std::size_t first = 0; first < format.fields.size(); ++first) {
      SCOPED_TRACE(testing::Message() << "format " << int{format.fmt} << " field " << first);
      Bytes a = of_format(format.fmt);
      Bytes b = a;
      put(a, format.fields[first], 7);
      for (std::size_t later = first + 1; later < format.fields.size(); ++later) {
        put(b, format.fields[later], 100);
      }
      EXPECT_EQ(compare(a, b), 7);
      EXPECT_EQ(compare(b, a), -7);
    }
  }
}

TEST_F(PolicyDest, compares_narrow_fields_as_unsigned_and_wide_ones_with_wrap_around) {
  for (const Format& format : kFormats) {
    for (const Field& field : format.fields) {
      SCOPED_TRACE(testing::Message() << "format " << int{format.fmt} << " byte " << field.at);
      Bytes high = of_format(format.fmt);
      put(high, field, 0x80000000u >> (32 - 8 * field.width));
      const std::int32_t difference = compare(high, of_format(format.fmt));
      EXPECT_EQ(difference,
                field.width == 4 ? INT32_MIN : std::int32_t{1} << (8 * field.width - 1));
    }
  }
}

TEST_F(PolicyDest, never_compares_the_bytes_that_its_format_does_not_use) {
  for (const Format& format : kFormats) {
    Bytes a = of_format(format.fmt);
    for (const std::size_t at : format.unused) a[at] = 0x55;
    EXPECT_EQ(compare(a, of_format(format.fmt)), 0) << int{format.fmt};
  }
}

TEST_F(PolicyDest, of_an_unknown_format_never_equals_another_not_even_itself) {
  for (const std::uint8_t fmt : Formats{0, 4, 0x80, 0xff}) {
    EXPECT_EQ(compare(of_format(fmt), of_format(fmt)), -1) << int{fmt};
  }
  const qim_policy_dest_t dest = filled(0, 0);
  EXPECT_EQ(qim_policy_dest_cmp(&dest, &dest), -1);
}

TEST_F(PolicyDest, upstream_ifelse_is_not_supported) {
  fake::report_everything(ctx());
  EXPECT_EQ(qim_upstream_ifelse_get(0, 0, 0), 0x41160001u);
  EXPECT_EQ(qim_upstream_ifelse_get(1, 2, 3), 0x41160001u);
}

}  // namespace
