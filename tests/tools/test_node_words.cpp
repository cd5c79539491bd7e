// What `qimctl list`, `show`, `tree` and their like call nodes, by the names that lie in nodes.
#include "tests/tools/lists_database.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tools_test::source_dir;

class NodeWords : public tools_test::ListsDatabase {
 protected:
  // Nodes in the native format.
  void nodes(const std::string& text) {
    import(R"({"format": "qim-policy", "version": 1, "nodes": [)" + text + "]}");
  }
};

TEST_F(NodeWords, name_what_an_import_made) {
  const std::string out = output({"list"});
  EXPECT_THAT(out, HasSubstr("  Group   \"guard\" "));
  EXPECT_THAT(out, HasSubstr(" \"guard\", access list, ipv4\n"));
  EXPECT_THAT(out, HasSubstr(" \"loose\", access list, any\n"));
  EXPECT_THAT(out, HasSubstr(" \"ssh\", ipv4 tcp to 192.0.2.0/24 port 22\n"));
  EXPECT_THAT(out, HasSubstr(" \"rest\", any, nomatch Nomatch\n"));
  EXPECT_THAT(out, HasSubstr(" if:eth0/in, access list in stage 2\n"));
  EXPECT_THAT(out, HasSubstr(" if:eth1/out, access list in stage 1\n"));
  EXPECT_THAT(out, HasSubstr(" of \"guard\", access list in stage 2, in, edests 1\n"));
  EXPECT_THAT(out, HasSubstr(" \"eth0\", name\n"));
  EXPECT_THAT(out, HasSubstr(" log-syslog\n"));
  EXPECT_THAT(out, Not(HasSubstr("type 2")));
  EXPECT_EQ(output({"list", "--nodes"}), out);
}

TEST_F(NodeWords, have_codes_and_zeros_where_there_is_room) {
  const std::string out = output({"list", "-o", "wide"});
  EXPECT_THAT(out, HasSubstr(" \"guard\", type 2, subtype 2\n"));
  EXPECT_THAT(out, HasSubstr("  if:eth1/out, interface "));
  EXPECT_THAT(out, HasSubstr(" vrf 0 vlan 0 vdc 0, type 65537, out\n"));
  EXPECT_THAT(out, HasSubstr("  0x0  "));
  EXPECT_THAT(output({"show", "guard/ssh", "-o", "wide"}),
              AllOf(HasSubstr("type 773  args 06  comment ipv4.protocol 6\n"),
                    HasSubstr("ln_081  -> "), HasSubstr(" Filter \"rest\"\n")));
}

TEST_F(NodeWords, name_groups_links_and_types_of_one_node) {
  EXPECT_THAT(output({"show", "guard"}),
              AllOf(HasSubstr("  Group  \"guard\"\n  group  \"guard\"\n"),
                    HasSubstr("    type     access list\n    subtype  ipv4\n"),
                    HasSubstr(" Filter \"ssh\", val 2\n"), HasSubstr(" Def drop\n"),
                    HasSubstr(" Action \"guard\"\n")));
  EXPECT_THAT(output({"show", "if:eth1/out"}),
              AllOf(HasSubstr("  Edest  if:eth1/out\n"), HasSubstr(" Pinst of \"guard\"\n"),
                    HasSubstr("    type  access list in stage 1\n")));
  EXPECT_THAT(output({"refs", "guard"}), HasSubstr("  Pinst  of \"guard\", access list"));
}

// What a name holds stays a name.
TEST_F(NodeWords, escape_names_once) {
  nodes(R"({"id": 1, "type": "Group", "links": {"ln_281": 2}},
    {"id": 2, "type": "Filter", "body": {"match": "True", "nomatch": "Next", "crit": [
      {"type": 1, "args": "731b685c2220e280ae78"}]}})");
  const std::string name = R"("s\x1bh\x5c\x22 \u{202e}x")";
  EXPECT_THAT(output({"list"}), HasSubstr(" " + name + ", any\n"));
  EXPECT_THAT(output({"show", "1"}), HasSubstr(" Filter " + name + "\n"));
  EXPECT_THAT(output({"show", "2"}), AllOf(HasSubstr("  Filter  " + name + "\n"),
                                           HasSubstr("      entry.name " + name + "\n")));
  EXPECT_THAT(output({"tree", "1"}), HasSubstr(" Filter  " + name + ", any\n"));
}

TEST_F(NodeWords, tell_rates_of_policers) {
  ASSERT_EQ(run({"apply", source_dir() / "examples" / "leaf.switch.json"}).code, 0);
  EXPECT_THAT(output({"list", "--type", "Police"}),
              HasSubstr(" \"BULK\", 125000000 bytes/s burst 1500000\n"));
  nodes(R"({"id": 1, "type": "Police", "body": {"comt_bw": {"rate_units": 1, "rate": 5}}},
    {"id": 2, "type": "Police", "body": {"comt_bw": {"rate_units": 2, "burst_units": 2},
      "peak_bw": {"rate_units": 2, "burst_units": 2, "rate": 7}}})");
  const std::string out = output({"list", "--type", "Police"});
  EXPECT_THAT(out, HasSubstr(" comt_bw rate_units 1 rate 5 burst_units 0 burst 0\n"));
  EXPECT_THAT(out, HasSubstr(" peak 7 packets/s\n"));
}

// Names that lead nowhere, or to what is no name, are none; the private data may say one.
TEST_F(NodeWords, take_nodes_as_they_are) {
  nodes(R"({"id": 1, "type": "Group", "group": 1, "priv": "6f6e65",
      "body": {"type": 7}, "links": {"0x8283": 5}},
    {"id": 2, "type": "Group", "group": 77, "links": {"0x8283": 6}},
    {"id": 3, "type": "Edest", "links": {"0x82c2": 7},
      "dset": {"dest": {"fmt": "service", "srv_id": 9}, "type": 65537, "dir": "in"}},
    {"id": 4, "type": "Edest", "links": {"0x82c2": 7},
      "dset": {"dest": {"fmt": "interface", "ifix": 9, "vlan": 5}, "type": 65537, "dir": "in"}},
    {"id": 5, "type": "Action", "body": {"type": 77, "args": "00"}},
    {"id": 6, "type": "Raw", "body": {"tlv": "deadbeef"}},
    {"id": 7, "type": "Action", "body": {"type": 258, "args": "78"}},
    {"id": 8, "type": "Pinst", "dset": {"dest": {"fmt": "generic", "v8": 1}, "type": 3, "dir": "in"}},
    {"id": 9, "type": "Edest",
      "dset": {"dest": {"fmt": "interface", "ifix": 9}, "type": 65538, "dir": "in"}},
    {"id": 10, "type": "Pinst"}, {"id": 11, "type": "Def", "body": {"type": 99}},
    {"id": 12, "type": "Filter", "body": {"match": "False", "nomatch": "True"}},
    {"id": 13, "type": "Edest", "dset": "090102030405060708090a0b0c0d0e0f0000010001"})");
  const std::string out = run({"list"}).out;
  EXPECT_THAT(out, HasSubstr("  Group   1 "));
  EXPECT_THAT(out, HasSubstr(" \"one\", type 7\n"));
  EXPECT_THAT(out, HasSubstr("0x00000002  Group   77 "));
  EXPECT_THAT(out, HasSubstr(" if:x/in, service 9, access list in stage 1, in\n"));
  EXPECT_THAT(out, HasSubstr(" if:x/in, interface 9 vlan 5, access list in stage 1, in\n"));
  EXPECT_THAT(out, HasSubstr(" type 77, args_len 1\n"));
  EXPECT_THAT(out, HasSubstr(" generic v8 1, type 3, in\n"));
  EXPECT_THAT(out, HasSubstr(" interface 9, access list in stage 2, in\n"));
  EXPECT_THAT(out, HasSubstr(" any, match False, nomatch True\n"));
  EXPECT_THAT(out, HasSubstr(" type 99\n"));
  EXPECT_THAT(output({"show", "1"}), HasSubstr(" Action\n"));
  EXPECT_THAT(output({"show", "8"}), HasSubstr("    type  3\n"));
  EXPECT_THAT(output({"show", "13"}), HasSubstr("  dset "));
}

}  // namespace
