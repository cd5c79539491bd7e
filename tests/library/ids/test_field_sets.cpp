// The exported field sets, before start-up and after. Conversion happens once per process, so that
// every test has one of its own.

#include <functional>

#include "bytes.h"
#include "tests/support/fake/fixture.h"

namespace {

using ids_tests::Bytes;
using ids_tests::bytes_of;
using ids_tests::kBigEndian;

struct Sets {
  Bytes intf;
  Bytes srv;
  Bytes gen;
  friend bool operator==(const Sets&, const Sets&) = default;
};

Sets current() {
  return {bytes_of(qim_pinstflds_if), bytes_of(qim_pinstflds_srv), bytes_of(qim_pinstflds_gen)};
}

const Sets kBig = {
    {0x80, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0, 0x80, 0, 0, 0, 0, 0x80, 0, 0, 0, 0x80},
    {0x80, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0x80},
    {0x80, 0x80, 0, 0x80, 0x80, 0, 0x80, 0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80}};
const Sets kLittle = {
    {0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0, 0x80, 0, 0x80, 0, 0, 0, 0, 0, 0, 0x80, 0x80},
    {0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0x80},
    {0x80, 0, 0x80, 0x80, 0, 0x80, 0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0, 0, 0, 0x80, 0x80}};
// The generic set is converted by the interface layout: bytes 1 to 4, 5 to 8, 9 and 10, 11 and 12
// are turned round as if they were its fields.
const Sets kConvertedOnLittle = {
    kBig.intf, kBig.srv, {0x80, 0,    0x80, 0x80, 0,    0,    0x80, 0, 0x80, 0,   0,
                          0,    0x80, 0,    0,    0x80, 0x80, 0,    0, 0,    0x80}};

const Sets& unconverted() {
  return kBigEndian ? kBig : kLittle;
}
const Sets& converted() {
  return kBigEndian ? kBig : kConvertedOnLittle;
}

std::uint32_t init(std::uint32_t flags = 0) {
  std::uint32_t db = 0;
  return qim_lib_init(1, 2, 3, 4, nullptr, 5, flags, 0, &db);
}

CHILD_TEST(FieldSets, hold_host_order_values_before_start_up) {
  EXPECT_EQ(current(), unconverted());
  EXPECT_EQ(qim_pinstflds_if.dest.intf.ifix, 0x80000000u);
  EXPECT_EQ(qim_pinstflds_if.dest.intf.vlan, 0x8000u);
  EXPECT_EQ(qim_pinstflds_srv.dest.srv.srv_def, 0x80000000u);
  EXPECT_EQ(qim_pinstflds_srv.dest.srv.srv_vdc, 0u);
  EXPECT_EQ(qim_pinstflds_gen.dest.gen.v16b, 0x8000u);
  EXPECT_EQ(qim_pinstflds_gen.dest.gen.v8, 0x80u);
  EXPECT_EQ(qim_pinstflds_gen.type, 0x80000000u);
}

CHILD_TEST(FieldSets, are_converted_by_start_up_with_the_interface_layout) {
  ASSERT_EQ(init(), 0u);
  EXPECT_EQ(current().intf, converted().intf);
  EXPECT_EQ(current().srv, converted().srv);
  EXPECT_EQ(current().gen, converted().gen);
}

CHILD_TEST(FieldSets, are_converted_once_per_process) {
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(init(QIM_INIT_AGAIN), 0u);
  EXPECT_EQ(current(), converted());
  ASSERT_EQ(qim_lib_close(1, 1), 0u);
  ASSERT_EQ(qim_lib_close(1, 1), 0u);
  ASSERT_EQ(init(), 0u);
  EXPECT_EQ(current(), converted());
}

CHILD_TEST(FieldSets, are_converted_once_whatever_the_threads_contexts) {
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  *qim_lib_get() = qim_lib_ctx_t{};
  ASSERT_EQ(init(), 0u);
  EXPECT_EQ(current(), converted());
}

TEST(FieldSets, stay_as_they_are_when_start_up_fails) {
  for (const char* step :
       {"rov_lib_init", "rov_db_init", "rov_db_reg_node_id_cnv", "rov_db_init_parms_get"}) {
    SCOPED_TRACE(step);
    fake::in_child([step] {
      fake::fail(step, 0x41170002);
      EXPECT_EQ(init(), 0x41170002u);
      EXPECT_EQ(current(), unconverted());
    });
  }
}

CHILD_TEST(FieldSets, stay_as_they_are_when_the_vdc_is_refused) {
  fake::settings().parms.vdc = 64;
  EXPECT_EQ(init(), 0x4116000cu);
  EXPECT_EQ(current(), unconverted());
  fake::settings().parms.vdc = 63;
  *qim_lib_get() = qim_lib_ctx_t{};
  EXPECT_EQ(init(), 0u);
  EXPECT_EQ(current(), converted());
}

CHILD_TEST(FieldSets, are_converted_although_a_registration_failed) {
  fake::fail_every("rov_reg_show_output", 1);
  fake::fail_every("rov_reg_extract_pinst", 1);
  fake::fail_every("rov_reg_dbg_dsetname_print", 1);
  EXPECT_EQ(init(), 0u);
  EXPECT_EQ(current(), converted());
}

}  // namespace
