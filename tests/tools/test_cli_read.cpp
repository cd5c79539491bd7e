// `qimctl list`, `show` and `tree` as processes, on a database that another process wrote.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "policy/formats/native/native.h"
#include "policy/store/database.h"
#include "rov_edit.h"
#include "tests/tools/example_database.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tools_test::Outcome;
using tools_test::run_qimctl;

// Names that look like something else are escaped, and hide nothing.
TEST(Names, do_not_lie) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  tools_test::write_text(dir / "nodes.json", R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 1, "type": "Action", "priv": "78222c207479706520390973"},
    {"id": 2, "type": "Action", "priv": "61e280ae62e2808b63"}]})");
  ASSERT_EQ(run_qimctl({"--db", db, "import", dir / "nodes.json"}).code, 0);
  const std::string out = run_qimctl({"--db", db, "list"}).out;
  EXPECT_THAT(out, HasSubstr("\"x\\x22, type 9\\x09s\""));
  EXPECT_THAT(out, HasSubstr("\"a\\u{202e}b\\u{200b}c\""));
}

// One node that can't be made sense of hides no other.
TEST(Undecodable, stands_among_the_others) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  const auto example = tools_test::source_dir() / "examples" / "edge-all-types.json";
  tools_test::write_text(dir / "raw.json", R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 9, "type": "Raw", "body": {"tlv": "deadbeef"}, "links": {"0x0081": "0x04100080"}}]})");
  ASSERT_EQ(run_qimctl({"--db", db, "import", example}).code, 0);
  ASSERT_EQ(run_qimctl({"--db", db, "import", dir / "raw.json"}).code, 0);
  const Outcome list = run_qimctl({"--db", db, "list"});
  EXPECT_EQ(list.code, qimctl::exit_defects);
  EXPECT_THAT(list.out, HasSubstr("\n24 nodes\n"));
  EXPECT_THAT(list.out, HasSubstr("undecodable: cannot read node 0x00000009"));
  EXPECT_EQ(run_qimctl({"--db", db, "list", "--type", "Def"}).code, qimctl::exit_ok);
  const Outcome edest = run_qimctl({"--db", db, "edest", "0x04100080"});
  EXPECT_EQ(edest.code, qimctl::exit_defects);
  EXPECT_THAT(edest.out, HasSubstr("4 enforcement destinations"));
  const Outcome refs = run_qimctl({"--db", db, "refs", "0x04100080", "--json"});
  EXPECT_EQ(refs.code, qimctl::exit_defects);
  const json listed = json::parse(refs.out);
  EXPECT_EQ(listed.size(), 5u);
  EXPECT_EQ(listed[0]["id"], "0x00000009");
  EXPECT_THAT(listed[0]["undecodable"].get<std::string>(), HasSubstr("cannot read node"));
}

// What people call nodes stands for their identifiers.
TEST(NodeNames, are_lists_entries_and_interfaces) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  const auto example = tools_test::source_dir() / "examples" / "edge-router.rfc8519.json";
  ASSERT_EQ(run_qimctl({"--db", db, "import", "--lossy", example}).code, 0);
  const auto first = [&db](const std::string& name) {
    const Outcome outcome = run_qimctl({"--db", db, "show", name});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    return outcome.out.substr(outcome.out.find("  ") + 2, 5);
  };
  const json lists = json::parse(run_qimctl({"--db", db, "acl", "--json"}).out);
  const std::string list = lists[0]["name"];
  EXPECT_EQ(first(list), "Group");
  const json whole = json::parse(run_qimctl({"--db", db, "acl", list, "--json"}).out);
  const std::string entry = list + "/" + whole["entries"][0]["name"].get<std::string>();
  EXPECT_EQ(first(entry), "Filte");
  const Outcome near = run_qimctl({"--db", db, "show", entry + "x"});
  EXPECT_EQ(near.code, qimctl::exit_not_found);
  EXPECT_THAT(near.err, HasSubstr("has no such entry; did you mean '" + entry + "'?"));
  EXPECT_THAT(run_qimctl({"--db", db, "tree", list.substr(1)}).err,
              HasSubstr("there is no access list of that name; did you mean '" + list + "'?"));
  EXPECT_THAT(run_qimctl({"--db", db, "show", "if:none/in"}).err,
              HasSubstr("no access list is attached there"));
}

// Several lists, or directions, at one interface are several nodes.
TEST(NodeNames, may_be_of_several_nodes) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  tools_test::write_text(dir / "acl.json", R"({"ietf-access-control-list:acls": {
    "acl": [{"name": "a", "aces": {"ace": [{"name": "e/1", "actions": {"forwarding": "drop"}}]}}],
    "attachment-points": {"interface": [{"interface-id": "eth0",
      "ingress": {"acl-sets": {"acl-set": [{"name": "a"}]}},
      "egress": {"acl-sets": {"acl-set": [{"name": "a"}]}}}]}}})");
  ASSERT_EQ(run_qimctl({"--db", db, "import", "--lossy", dir / "acl.json"}).code, 0);
  const Outcome several = run_qimctl({"--db", db, "show", "if:eth0"});
  EXPECT_EQ(several.code, qimctl::exit_usage);
  EXPECT_THAT(several.err, HasSubstr("\"if:eth0\" are several nodes; give one of 0x"));
  EXPECT_THAT(run_qimctl({"--db", db, "show", "if:eth0/out"}).out,
              HasSubstr("  Edest  if:eth0/out\n"));
  EXPECT_EQ(run_qimctl({"--db", db, "show", "a/e/1"}).code, 0);
}

TEST(StandardInput, is_a_file_too) {
  const tools_test::TempDir dir;
  const std::string db = dir / "db";
  const std::string example = tools_test::source_dir() / "examples" / "edge-all-types.json";
  const char* emulator = getenv("QIM_EMULATOR");
  const std::string tool = std::string(emulator == nullptr ? "" : emulator) + " " +
                           getenv("QIM_BUILD_DIR") + "/bin/qimctl --db " + db + " import ";
  ASSERT_EQ(system((tool + "- <" + example + " >/dev/null").c_str()), 0);
  EXPECT_THAT(run_qimctl({"--db", db, "list"}).out, HasSubstr("\n23 nodes\n"));
}

class Read : public tools_test::ExampleDatabase {};

TEST_F(Read, lists_all_nodes) {
  const std::string out = output({"list"});
  EXPECT_THAT(out,
              StartsWith("NODE        TYPE        GROUP  FLAGS       LINKS  REFS  CONTENTS\n"));
  EXPECT_THAT(out, HasSubstr("\n0x04100011  Filter      7                  2      1     \"voice\", "
                             "ipv4 dscp 46\n"));
  EXPECT_THAT(out, HasSubstr("\n23 nodes\n"));
}

TEST_F(Read, lists_nodes_of_one_type) {
  const std::string out = output({"list", "--type", "hfilter"});
  EXPECT_THAT(out, HasSubstr("0x04100020  Hfilter"));
  EXPECT_THAT(out, HasSubstr("\n1 node\n"));
  EXPECT_EQ(output({"list", "--type", "4"}), out);
  EXPECT_THAT(output({"list", "--type", "DsetNoname"}), HasSubstr("\n1 node\n"));
}

TEST_F(Read, lists_as_json) {
  const json all = json::parse(output({"list", "--json"}));
  ASSERT_EQ(all.size(), 23u);
  EXPECT_EQ(all[0]["id"], "0x04100001");
  EXPECT_EQ(all[0]["type"], "Group");
  EXPECT_EQ(all[0]["computed"]["links_total"], 2);
  EXPECT_EQ(json::parse(output({"list", "--json", "--type", "police"})).size(), 1u);
}

TEST_F(Read, shows_a_node_by_decimal_and_hexadecimal_identifier) {
  EXPECT_EQ(output({"show", "0x04100010"}), output({"show", "68157456"}));
}

TEST_F(Read, shows_a_node_whole) {
  EXPECT_EQ(output({"show", "0x04100010"}),
            "node 0x04100010  Filter  \"mgmt-ssh\"\n"
            "  group  7\n"
            "  body\n"
            "    flags    1\n"
            "    match    True\n"
            "    nomatch  Next\n"
            "    crit\n"
            "      ipv4.protocol 6\n"
            "      ipv4.destination-ipv4-network 192.0.2.0/24\n"
            "      tcp.destination-port eq 22\n"
            "  links\n"
            "    next  -> 0x04100011 Filter \"voice\"\n"
            "    true  -> 0x04100031 Action accept\n"
            "  priv   6d676d742d737368  \"mgmt-ssh\"\n"
            "  computed\n"
            "    links_total    2\n"
            "    links_unfixed  1\n"
            "    refs           1\n"
            "    priv_len       8\n"
            "    crit_cnt       3\n"
            "    crit_bytes     107\n");
}

TEST_F(Read, shows_what_links_carry) {
  EXPECT_THAT(output({"show", "0x04100040"}),
              HasSubstr("policy  -> 0x04100050 Police, node2 0x04100002 Group \"tenants\", val 1, "
                        "tag 65535\n"));
}

TEST_F(Read, shows_data_set_names_parsed) {
  const std::string out = output({"show", "0x04100091"});
  EXPECT_THAT(out, HasSubstr("  dset\n"
                             "    dest\n"
                             "      fmt      service\n"
                             "      srv_id   9\n"
                             "      srv_def  2\n"
                             "      srv_vdc  1\n"
                             "    type  5\n"
                             "    dir   in\n"));
}

TEST_F(Read, shows_json_that_can_be_imported_again) {
  json document = {{"format", qimctl::native_format_name}, {"version", 1}};
  for (const json& entry : json::parse(output({"list", "--json"}))) {
    json node = json::parse(output({"show", entry["id"].get<std::string>(), "--json"}));
    node.erase("computed");
    document["nodes"].push_back(node);
  }
  const tools_test::TempDir copy;
  tools_test::write_text(copy / "copy.json", document.dump());
  ASSERT_EQ(tools_test::run_qimctl({"--db", copy / "db", "import", copy / "copy.json"}).code, 0);
  EXPECT_EQ(tools_test::run_qimctl({"--db", copy / "db", "list"}).out, output({"list"}));
}

TEST_F(Read, says_that_a_node_is_not_there) {
  for (const char* command : {"show", "tree"}) {
    const Outcome outcome = tools_test::run_qimctl({"--db", database(), command, "0x77"});
    EXPECT_EQ(outcome.code, qimctl::exit_not_found);
    EXPECT_THAT(outcome.err, StartsWith("qimctl: cannot read node 0x00000077: "));
    EXPECT_THAT(outcome.out, IsEmpty());
  }
}

TEST_F(Read, draws_a_tree) {
  const std::string out = output({"tree", "0x04100060"});
  EXPECT_THAT(out,
              StartsWith("0x04100060 Ifelse\n"
                         "├─ policy 1 val 1 -> 0x04100013 Filter  ipv6, 0xdeadbeef, match False, "
                         "nomatch Nomatch\n"
                         "│  └─ true -> 0x04100032 Action  drop\n"
                         "├─ policy 2 tag 1 -> 0x04100031 Action  accept\n"
                         "├─ policy 3 tag 2 -> 0x04100032 Action  drop  (shared)\n"
                         "├─ policy 4 -> 0x04100001 Group  \"cust-ide-in\", access list, ipv4\n"));
  EXPECT_THAT(out, HasSubstr("next => 0x04100012 Filter"));
  EXPECT_THAT(out, HasSubstr("Ifelse  (cycle)\n"));
}

TEST_F(Read, draws_a_tree_as_json) {
  const json tree = json::parse(output({"tree", "0x04100090", "--json"}));
  EXPECT_EQ(tree["type"], "Edest");
  const json& pinst = tree["nodes"][0];
  EXPECT_EQ(pinst["via"], "ln_2c1");
  EXPECT_EQ(pinst["val"], 1);
  const json& group = pinst["nodes"][0];
  EXPECT_EQ(group["id"], "0x04100001");
  EXPECT_EQ(group["nodes"].size(), 5u);
  EXPECT_EQ(group["nodes"][1]["next"], true);
  EXPECT_EQ(group["nodes"][1]["id"], "0x04100011");
}

TEST_F(Read, cuts_a_tree_at_a_depth) {
  EXPECT_EQ(output({"tree", "0x04100090", "--depth", "0"}),
            "0x04100090 Edest  \"ge-0/0/0\", interface 287454020 vrf 16909060 vlan 100 vdc 1, "
            "type 5, in  (deeper: see --depth)\n");
}

// A node that can't be made sense of is not missing.
TEST(Show, tells_what_its_links_lead_to) {
  const tools_test::TempDir dir;
  const std::string database = dir / "db";
  tools_test::write_text(dir / "nodes.json", R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 1, "type": "Group", "links": {"0x8001": 2, "0x8002": {"node": 3, "node2": 4}}},
    {"id": 2, "type": "Action"}, {"id": 4, "type": "Action"}, {"id": 3, "type": "Raw", "body": {"tlv": "0001000200000fff"}}]})");
  ASSERT_EQ(run_qimctl({"--db", database, "import", dir / "nodes.json"}).code, 0);
  {
    const qimctl::Database opened(database, qimctl::OpenMode::change);
    qimctl::WriteSession session(opened);
    ASSERT_EQ(rov_edit_node_del(session.handle(), qimctl::database_id(4)), uint32_t{ROV_OK});
    session.commit();
  }
  const std::string out = run_qimctl({"--db", database, "show", "1"}).out;
  EXPECT_THAT(out, HasSubstr("-> 0x00000002 Action\n"));
  EXPECT_THAT(out, HasSubstr("-> 0x00000003 (undecodable), node2 0x00000004 (missing)\n"));
}

}  // namespace
