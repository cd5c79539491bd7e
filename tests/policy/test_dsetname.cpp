// Data-set names as JSON and as text.
#include "policy/base/dsetname.h"

#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "policy/base/names.h"

namespace {

using nlohmann::json;
using qimctl::dset_from_json;
using qimctl::dset_to_json;

std::string bytes_of(const char* text) {
  const qim_dsetname_t name = dset_from_json(qimctl::parse_json(text, "").view());
  return qimctl::hex_bytes(&name, sizeof(name));
}

// Both ways, byte for byte.
void expect_name(const std::string& hex, const char* text) {
  EXPECT_EQ(bytes_of(text), hex);
  qim_dsetname_t name;
  const auto bytes = qimctl::bytes_from_hex(hex).value();
  ASSERT_EQ(bytes.size(), sizeof(name));
  memcpy(&name, bytes.data(), sizeof(name));
  EXPECT_EQ(json(dset_to_json(name).get()), json::parse(text));
}

TEST(DsetJson, holds_an_interface_name) {
  expect_name(
      "011122334401020304"
      "0a0b"
      "0102"
      "000000"
      "00000005"
      "01",
      R"({"dest": {"fmt": "interface", "ifix": 287454020, "vrf": 16909060, "vlan": 2571,
                  "vdc": 258}, "type": 5, "dir": "in"})");
}

TEST(DsetJson, holds_a_service_name) {
  expect_name(
      "02"
      "00000009"
      "80000000"
      "ffff"
      "0000000000"
      "ffffffff"
      "02",
      R"({"dest": {"fmt": "service", "srv_id": 9, "srv_def": 2147483648,
                  "srv_vdc": 65535}, "type": 4294967295, "dir": "out"})");
}

TEST(DsetJson, holds_a_generic_name) {
  expect_name(
      "03"
      "0001"
      "02"
      "0003"
      "0004"
      "00000005"
      "00000006"
      "00000007"
      "00",
      R"({"dest": {"fmt": "generic", "vdc": 1, "v8": 2, "v16a": 3, "v16b": 4, "v32a": 5,
                  "v32b": 6}, "type": 7, "dir": 0})");
}

TEST(DsetJson, takes_formats_and_directions_by_number) {
  EXPECT_EQ(bytes_of(R"({"dest": {"fmt": 2, "srv_id": "0x9"}, "dir": 255})"),
            "0200000009"
            "0000000000000000000000"
            "00000000"
            "ff");
  EXPECT_EQ(bytes_of(R"({"dest": {"fmt": 1}, "dir": 1})"),
            bytes_of(R"({"dest": {"fmt": "interface"}, "dir": "in"})"));
}

TEST(DsetJson, writes_unknown_formats_as_digits) {
  expect_name(
      "07"
      "0102030405060708090a0b0c0d0e0f"
      "00000005"
      "01",
      R"("070102030405060708090a0b0c0d0e0f0000000501")");
}

// What a structured name would lose is kept.
TEST(DsetJson, writes_names_with_stray_bytes_as_digits) {
  expect_name(
      "01"
      "00000001"
      "00000000"
      "0000"
      "0000"
      "000009"
      "00000005"
      "01",
      R"("010000000100000000000000000000090000000501")");
}

TEST(DsetText, reads_like_a_place) {
  qim_pinst_fields_t fields{};
  fields.dest.intf.fmt = QIM_DEST_IF;
  fields.dest.intf.ifix = 17;
  fields.dest.intf.vrf = 1;
  fields.type = 5;
  fields.dir = QIM_DIR_IN;
  EXPECT_EQ(qimctl::dset_text(fields), "interface 17 vrf 1 vlan 0 vdc 0, type 5, in");
  fields.dest = {};
  fields.dest.srv.fmt = QIM_DEST_SRV;
  fields.dest.srv.srv_id = 9;
  fields.dir = 0;
  EXPECT_EQ(qimctl::dset_text(fields), "service 9 srv_def 0 srv_vdc 0, type 5, out");
  fields.dest = {};
  fields.dest.gen.fmt = QIM_DEST_GEN;
  EXPECT_EQ(qimctl::dset_text(fields),
            "generic vdc 0 v8 0 v16a 0 v16b 0 v32a 0 v32b 0, type 5, out");
  fields.dest.fmt = 9;
  EXPECT_EQ(qimctl::dset_text(fields), "format 9, type 5, out");
}

TEST(DsetWords, leave_out_what_is_zero) {
  qim_pinst_fields_t fields{};
  fields.dest.intf.fmt = QIM_DEST_IF;
  fields.dest.intf.vrf = 1;
  fields.dir = QIM_DIR_IN;
  EXPECT_EQ(qimctl::dset_words(fields), "interface 0 vrf 1, in");
  fields.type = 5;
  EXPECT_EQ(qimctl::dset_words(fields), "interface 0 vrf 1, type 5, in");
  fields.dest = {};
  fields.dest.gen.fmt = QIM_DEST_GEN;
  fields.type = 0x10002;
  fields.dir = 2;
  EXPECT_EQ(qimctl::dset_words(fields), "generic, access list in stage 2, out");
}

}  // namespace
