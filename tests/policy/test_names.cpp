// Codes, numbers and bytes as people write them.
#include "policy/base/names.h"

#include <gtest/gtest.h>

#include "qim.h"

namespace {

using namespace qimctl;

TEST(NodeTypeName, names_all_types_and_numbers_others) {
  EXPECT_EQ(node_type_name(QIM_NODE_FILTER), "Filter");
  EXPECT_EQ(node_type_name(QIM_NODE_EDEST), "Edest");
  EXPECT_EQ(node_type_name(QIM_NODE_DSET), "Dset");
  EXPECT_EQ(node_type_name(QIM_NODE_DSET_NONAME), "DsetNoname");
  EXPECT_EQ(node_type_name(11), "type 11");
}

TEST(NodeTypeCode, takes_names_in_any_case_and_numbers) {
  EXPECT_EQ(node_type_code("Hfilter"), uint32_t{QIM_NODE_HFILTER});
  EXPECT_EQ(node_type_code("hFILTER"), uint32_t{QIM_NODE_HFILTER});
  EXPECT_EQ(node_type_code("32"), uint32_t{QIM_NODE_DSET});
  EXPECT_EQ(node_type_code("0xa"), uint32_t{QIM_NODE_EDEST});
  EXPECT_FALSE(node_type_code("0"));
  EXPECT_FALSE(node_type_code("11"));
  EXPECT_FALSE(node_type_code("4294967297"));
  EXPECT_FALSE(node_type_code("Filtre"));
  EXPECT_FALSE(node_type_code(""));
}

TEST(NodeTypeList, is_in_the_order_of_the_codes) {
  EXPECT_EQ(node_type_list(),
            "Filter, Action, Ifelse, Hfilter, Haction, Police, Group, Pinst, Def, Edest, Dset, "
            "DsetNoname");
}

TEST(LinkKind, goes_both_ways) {
  for (uint32_t code = QIM_LINK_TRUE; code <= QIM_LINK_NEXT; code++) {
    EXPECT_EQ(link_kind_code(link_kind_name(code)), code);
  }
  EXPECT_STREQ(link_kind_name(QIM_LINK_NOMATCH), "Nomatch");
  EXPECT_EQ(link_kind_name(0), nullptr);
  EXPECT_FALSE(link_kind_code("true"));
}

TEST(ParseNumber, takes_decimal_and_hexadecimal_up_to_64_bits) {
  EXPECT_EQ(parse_number("0"), 0u);
  EXPECT_EQ(parse_number("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(parse_number("0xFFFFffffFFFFffff"), UINT64_MAX);
  for (const char* wrong :
       {"", "0x", "-1", "+1", " 1", "1 ", "1x", "0x1g", "18446744073709551616"}) {
    EXPECT_FALSE(parse_number(wrong)) << wrong;
  }
}

TEST(SlotName, goes_both_ways) {
  EXPECT_EQ(slot_name(0x081), "ln_081");
  EXPECT_EQ(slot_name(0x8082), "0x8082");
  const std::vector<uint16_t> fields{0x0, 0x1, 0x241, 0xfff, 0x1000, 0xffff};
  for (const uint16_t field : fields) {
    EXPECT_EQ(link_field(slot_name(field)), field);
  }
  EXPECT_EQ(link_field("0x0081"), 0x81);
  EXPECT_FALSE(link_field("ln_"));
  EXPECT_FALSE(link_field("0x10000"));
}

TEST(HexBytes, go_both_ways) {
  const std::vector<uint8_t> bytes{0x00, 0x7f, 0x80, 0xff};
  EXPECT_EQ(hex_bytes(bytes), "007f80ff");
  EXPECT_EQ(bytes_from_hex("007F80ff"), bytes);
  EXPECT_EQ(bytes_from_hex(""), std::vector<uint8_t>{});
  EXPECT_FALSE(bytes_from_hex("0"));
  EXPECT_FALSE(bytes_from_hex("0g"));
}

TEST(HexNumber, has_at_least_the_digits_asked_for) {
  EXPECT_EQ(hex_number(0x1f, 4), "0x001f");
  EXPECT_EQ(hex_number(UINT64_MAX, 1), "0xffffffffffffffff");
  EXPECT_EQ(node_id_text(1), "0x00000001");
}

TEST(Counted, knows_one_from_many) {
  EXPECT_EQ(counted(0, "node"), "0 nodes");
  EXPECT_EQ(counted(1, "node"), "1 node");
}

}  // namespace
