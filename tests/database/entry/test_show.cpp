// The internal show, byte for byte, with attribute tables of the test's own.
#include "database/codec/show.h"

#include <cstdarg>

#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

constexpr rov_name_t kColours[] = {{1, "Red"}, {2, "Green"}, {0, nullptr}};
constexpr rov_name_t kTypes[] = {{5, "Box"}, {0, nullptr}};

char* print_value(uint32_t tag, uint32_t level, uint32_t, uint32_t len, const void* value,
                  const char* prefix, uint32_t, void*) {
  static char text[128];
  snprintf(text, sizeof text, "\n%s<%x/%u %u bytes, first %02x>\n", prefix, tag, level, len,
           *static_cast<const uint8_t*>(value));
  return text;
}

extern const rov_show_t kTable[14];
constexpr rov_show_body_t kBody = {kTypes, kTable};

rov_show_t entry(uint32_t attr_id, const char* name, uint32_t kind) {
  rov_show_t show = {};
  show.attr_id = attr_id;
  show.name = name;
  show.kind = kind;
  return show;
}
rov_show_t with_table(uint32_t attr_id, const char* name, uint32_t kind) {
  rov_show_t show = entry(attr_id, name, kind);
  show.aux.table = kTable;
  return show;
}
rov_show_t with_names(uint32_t attr_id, const char* name) {
  rov_show_t show = entry(attr_id, name, ROV_SHOW_ENUM);
  show.aux.names = kColours;
  return show;
}
rov_show_t with_body(uint32_t attr_id, const char* name) {
  rov_show_t show = entry(attr_id, name, ROV_SHOW_UNION);
  show.aux.body = &kBody;
  return show;
}
rov_show_t with_printer(uint32_t attr_id, const char* name) {
  rov_show_t show = entry(attr_id, name, ROV_SHOW_PRINT);
  show.aux.print = print_value;
  return show;
}

const rov_show_t kTable[14] = {entry(0x10000, "top", ROV_SHOW_RAW),
                               entry(1, "count", ROV_SHOW_INT),
                               with_names(2, "colour"),
                               with_body(3, "type"),
                               entry(4, "raw", ROV_SHOW_RAW),
                               with_printer(5, "custom"),
                               entry(0x20000, "box", ROV_SHOW_RAW),
                               with_table(1, "lid", ROV_SHOW_RECORD),
                               with_table(2, "item", ROV_SHOW_LIST),
                               entry(0x30000, "part", ROV_SHOW_RAW),
                               entry(1, "size", ROV_SHOW_INT),
                               {},
                               {},
                               {}};

void add_word(Bytes* bytes, uint32_t word) {
  uint8_t out[4];
  rov::store_be32(out, word);
  bytes->insert(bytes->end(), out, out + 4);
}
Bytes attribute(uint32_t tag, const Bytes& value) {
  Bytes bytes;
  add_word(&bytes, tag);
  add_word(&bytes, static_cast<uint32_t>(value.size()));
  bytes.insert(bytes.end(), value.begin(), value.end());
  bytes.resize((bytes.size() + 3) & ~size_t{3});
  return bytes;
}
Bytes word(uint32_t value) {
  Bytes bytes;
  add_word(&bytes, value);
  return bytes;
}
Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct Shown {
  uint32_t status = 0;
  std::string text;
};

void collect(const char* text, void* arg) {
  *static_cast<std::string*>(arg) += text;
}

Shown show(const Bytes& tlv, const rov_show_t* table = kTable) {
  Shown shown;
  rov_show_req_t req = {};
  req.prefix = "| ";
  req.out = collect;
  req.arg = &shown.text;
  rov::ShowText out(req);
  shown.status = rov::show_tlv(out, table, 0, tlv.data(), static_cast<uint32_t>(tlv.size()));
  return shown;
}

TEST(ShowTlvTest, EveryDisplayKindHasItsForm) {
  const Bytes part = attribute(0x30001, {0x12, 0x34});
  const Bytes box = word(5) + attribute(0x20001, part) + attribute(0x20002, part) +
                    attribute(0x20002, attribute(0x30001, {7}));
  const Shown shown = show(attribute(0x10001, word(9)) + attribute(0x10002, word(2)) +
                           attribute(0x10002, word(77)) + attribute(0x10003, box) +
                           attribute(0x10004, {0xde, 0xad}) + attribute(0x10005, {0x42}));
  EXPECT_EQ(shown.status, uint32_t{ROV_OK});
  EXPECT_EQ(shown.text,
            "| top:\n"
            "|   count 9 (0x9)\n"
            "|   colour Green (2)\n"
            "|   colour 77 (0x4d)\n"
            "|   type Box (5)\n"
            "|     box:\n"
            "|       lid\n"
            "|         part:\n"
            "|           size 4660 (0x1234)\n"
            "|       item\n"
            "|         part:\n"
            "|           size 4660 (0x1234)\n"
            "|       item\n"
            "|         part:\n"
            "|           size 7 (0x7)\n"
            "|   raw de ad\n"
            "\n| <10005/1 1 bytes, first 42>\n");
}

TEST(ShowTlvTest, UnknownAttributesAndTypesAreShownRaw) {
  const Shown shown =
      show(attribute(0x10009, {1}) + attribute(0x770001, {2, 3}) + attribute(0x10003, word(6)) +
           attribute(0x10004, Bytes(18, 0xaa)) + attribute(0x10004, {}));
  EXPECT_EQ(shown.status, uint32_t{ROV_OK});
  EXPECT_EQ(shown.text,
            "| top:\n"
            "|   attribute 0x00010009 01\n"
            "| attribute 0x00770001 02 03\n"
            "| top:\n"
            "|   type ? (6)\n"
            "|   raw (18 bytes)\n"
            "|     aa aa aa aa aa aa aa aa aa aa aa aa aa aa aa aa\n"
            "|     aa aa\n"
            "|   raw (no bytes)\n");
}

TEST(ShowTlvTest, WithoutATableEverythingIsRaw) {
  EXPECT_EQ(show(attribute(0x10001, word(9)), nullptr).text,
            "| attribute 0x00010001 00 00 00 09\n");
}

TEST(ShowTlvTest, DamageIsSaidInItsPlaceAndTheRestIsShown) {
  const Shown width = show(attribute(0x10001, {1, 2, 3}) + attribute(0x10002, word(1)));
  EXPECT_EQ(width.status, uint32_t{ROV_ERR_TLV_WIDTH});
  EXPECT_EQ(width.text,
            "| top:\n|   count 01 02 03\n|   !! 3 bytes are no integer\n|   colour Red (1)\n");

  Bytes cut = attribute(0x10001, word(9)) + attribute(0x10002, word(1));
  cut.pop_back();
  const Shown value = show(cut);
  EXPECT_EQ(value.status, uint32_t{ROV_ERR_TLV_TRUNCATED});
  EXPECT_EQ(
      value.text,
      "| top:\n|   count 9 (0x9)\n| !! the data ends within an attribute's value at byte 12\n");
  cut.resize(15);
  EXPECT_EQ(
      show(cut).text,
      "| top:\n|   count 9 (0x9)\n| !! the data ends within an attribute's head at byte 12\n");

  const Shown body = show(attribute(0x10003, {1, 2}));
  EXPECT_EQ(body.status, uint32_t{ROV_ERR_TLV_TRUNCATED});
  EXPECT_EQ(body.text, "| top:\n|   type 01 02\n|   !! the body ends within its discriminator\n");
}

TEST(ShowTlvTest, DeepNestingStops) {
  Bytes nested = attribute(0x20001, {});
  for (int i = 0; i < 20; ++i) nested = attribute(0x20001, nested);
  const Shown shown = show(nested);
  EXPECT_EQ(shown.status, uint32_t{ROV_ERR_TLV_DEPTH});
  EXPECT_NE(shown.text.find("!! nested too deep"), std::string::npos);
}

TEST(ShowTlvTest, NoPrefixOfDataIsReadBeyondItsEnd) {
  const Bytes whole = attribute(0x10001, word(9)) +
                      attribute(0x10003, word(5) + attribute(0x20001, attribute(0x30001, {1})));
  for (size_t len = 0; len <= whole.size(); ++len) {
    const Bytes part(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(len));
    const uint32_t status = show(part).status;
    EXPECT_EQ(status == ROV_OK, len == 0 || len == 12 || len == whole.size()) << len;
  }
}

class ShowTest : public DatabaseTest {
 protected:
  std::string text(uint32_t what, uint32_t node = 0, uint32_t expected = ROV_OK) {
    std::string out;
    rov_show_req_t req = {};
    req.what = what;
    req.node = id(node);
    req.out = collect;
    req.arg = &out;
    EXPECT_STATUS(rov_db_show_internal(db_, &req), expected);
    return out;
  }
  void register_table() {
    static rov_show_t handler = {};
    handler.selector = ROV_SHOW_SEL_TLVA;
    handler.kind = ROV_SHOW_RECORD;
    handler.aux.table = kTable;
    ASSERT_OK(rov_reg_show_output(db_, &handler));
  }
  void store_example() {
    const uint32_t ses = begin();
    ASSERT_OK(put_node(ses, 0x10, attribute(0x10001, word(9)), name("ab")));
    ASSERT_OK(put_node(ses, 0x20, {}, {}, ROV_NODE_DSET));
    ASSERT_OK(put_link(ses, 0x10, 0x81, 0x20, 0, 3, 4));
    commit(ses);
  }
};

TEST_F(ShowTest, ANodeIsShownWithAllThatBelongsToIt) {
  store_example();
  register_table();
  static rov_show_t names = {};
  names.selector = ROV_SHOW_SEL_DSETNAME;
  names.kind = ROV_SHOW_PRINT;
  names.aux.print = print_value;
  ASSERT_OK(rov_reg_show_output(db_, &names));
  EXPECT_EQ(text(ROV_SHOW_NODE, 0x10),
            "node 0x00000010: flags 0x0, 1 links, 0 referrers, 12 bytes of TLV data, 0 bytes of "
            "private data\n"
            "  data-set name\n<0/1 21 bytes, first 61>\n"
            "  top:\n"
            "    count 9 (0x9)\n"
            "  link 0x081 node 0x00000020 node2 0x00000000 val 0x3 tag 0x4\n");
}

TEST_F(ShowTest, WithoutRegistrationsBytesAreShown) {
  store_example();
  const std::string shown = text(ROV_SHOW_NODE, 0x10);
  EXPECT_NE(shown.find("  data-set name (21 bytes)\n    61 62 00"), std::string::npos) << shown;
  EXPECT_NE(shown.find("  attribute 0x00010001 00 00 00 09\n"), std::string::npos) << shown;
}

char* print_pair(void* name1, void* name2, int a, int b, const char* tail, const char* lead) {
  static char line[128];
  snprintf(line, sizeof line, "%s%c%c a=%d b=%d%s", lead, *static_cast<char*>(name1),
           *static_cast<char*>(name2), a, b, tail);
  *static_cast<char*>(name1) = 0;  // printers may use the names as they like
  return line;
}

TEST_F(ShowTest, DataSetsGoThroughTheRegisteredLinePrinter) {
  store_example();
  EXPECT_EQ(text(ROV_SHOW_DSETS),
            "  0 (no name) node 0x00000020\n  1 (no printer) node 0x00000010\n");
  ASSERT_OK(rov_reg_dbg_dsetname_print(db_, print_pair));
  EXPECT_EQ(text(ROV_SHOW_DSETS), "  0 (no name) node 0x00000020\naa a=1 b=0 node 0x00000010\n");
}

TEST_F(ShowTest, TheDatabaseTellsItsCounts) {
  store_example();
  const std::string shown = text(ROV_SHOW_DATABASE);
  EXPECT_NE(shown.find("database " + path() + "\n"), std::string::npos) << shown;
  EXPECT_NE(shown.find("2 nodes, 1 links, 2 data sets\n"), std::string::npos) << shown;
}

TEST_F(ShowTest, DamagedDataGiveAStatusAndWhatCanBeRead) {
  const uint32_t ses = begin();
  Bytes tlv = attribute(0x10001, word(9));
  tlv.push_back(1);
  ASSERT_OK(put_node(ses, 0x10, tlv));
  commit(ses);
  register_table();
  const std::string shown = text(ROV_SHOW_NODE, 0x10, ROV_ERR_TLV_TRUNCATED);
  EXPECT_NE(shown.find("count 9"), std::string::npos);
  EXPECT_NE(std::string(rov_err_message()).find("0x00000010"), std::string::npos);
}

TEST_F(ShowTest, BadRequestsAreRefused) {
  text(99, 0, ROV_ERR_INVALID);
  text(ROV_SHOW_NODE, 0x10, ROV_ERR_NO_ITEM);
  EXPECT_STATUS(rov_db_show_internal(db_, nullptr), ROV_ERR_INVALID);
  const rov_show_req_t no_out = {};
  EXPECT_STATUS(rov_db_show_internal(db_, &no_out), ROV_ERR_INVALID);
}

}  // namespace
