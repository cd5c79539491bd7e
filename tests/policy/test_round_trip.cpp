// What the native format says is what comes back from the database through the policy library.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/formats/native/native.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/store_policy.h"
#include "tests/tools/support.h"

namespace {

using namespace qimctl;
using nlohmann::json;
using nlohmann::ordered_json;

// A policy as plain values that compare.
json comparable(const Policy& policy) {
  json nodes = json::object();
  for (const Node& node : policy.nodes) {
    json& value = nodes[std::to_string(node.id)];
    value["record"] =
        std::vector<uint8_t>(reinterpret_cast<const uint8_t*>(&node.record),
                             reinterpret_cast<const uint8_t*>(&node.record) + sizeof(node.record));
    value["args"] = node.args;
    value["priv"] = node.priv;
    for (const Criterion& criterion : node.criteria) {
      value["criteria"].push_back({criterion.type, criterion.args});
    }
    for (const Link& link : node.links) {
      value["links"][std::to_string(link.field)] = {link.node, link.node2, link.val, link.tag};
    }
    if (node.dset) {
      const auto* bytes = reinterpret_cast<const uint8_t*>(&*node.dset);
      value["dset"] = std::vector<uint8_t>(bytes, bytes + sizeof(*node.dset));
    }
  }
  return nodes;
}

Policy store_and_read(const Policy& policy) {
  const tools_test::TempDir dir;
  const Database database(dir / "db", OpenMode::create);
  {
    WriteSession session(database);
    write_policies({policy}, session, {});
    session.commit();
  }
  const ReadSession session(database);
  ordered_json document = {{"format", native_format_name}, {"version", 1}};
  document["nodes"] = ordered_json::array();
  each_node(session.handle(), [&](const rov_node_parms_t& parms) {
    const uint32_t id = qim_from_rov_node_id(&parms.id);
    ordered_json node = node_to_json(read_node(session, id)).get();
    EXPECT_EQ(node.erase("computed"), 1u);
    document["nodes"].push_back(node);
  });
  return read_native(document.dump(), "read-back.json");
}

void expect_same(const Policy& written, const Policy& read) {
  const json before = comparable(written);
  const json after = comparable(read);
  EXPECT_EQ(before.size(), after.size());
  for (const auto& [id, node] : before.items()) {
    ASSERT_TRUE(after.contains(id)) << id;
    EXPECT_EQ(node, after.at(id)) << "node " << node_id_text(static_cast<uint32_t>(std::stoul(id)));
  }
}

TEST(RoundTrip, keeps_the_example_with_all_types) {
  const auto file = tools_test::source_dir() / "examples" / "edge-all-types.json";
  const Policy policy = read_native(tools_test::read_text(file), "edge-all-types.json");
  ASSERT_TRUE(check_policies({policy}).empty());
  expect_same(policy, store_and_read(policy));
}

TEST(RoundTrip, keeps_extreme_values) {
  const std::string text = R"({"format": "qim-policy", "version": 1, "nodes": [
    {"id": 4294967295, "type": 1, "group": 4294967295, "flags": 4294967295,
     "body": {"flags": 4294967295, "match": 4294967295, "nomatch": 0,
              "crit": [{"type": 4294967295, "args": "ff"}, {"type": 0}]},
     "links": {"0xffff": {"node": 4294967295, "node2": 4294967295, "val": 4294967295,
                          "tag": 65535},
               "0x0001": 1}},
    {"id": 1, "type": 6, "body": {"peak_bw": {"rate": "0xffffffffffffffff",
      "burst": "0x8000000000000000", "rate_units": 4294967295}}},
    {"id": 2, "type": 8},
    {"id": 3, "type": 32, "dset": "ff0102030405060708090a0b0c0d0e0f1011121314"},
    {"id": 4, "type": 9, "body": {"args": ")" +
                           std::string(20000, 'a') + R"("},
     "priv": ")" + std::string(9999, '0') +
                           R"(1"}
  ]})";
  const Policy policy = read_native(text, "extreme.json");
  ASSERT_TRUE(check_policies({policy}).empty());
  expect_same(policy, store_and_read(policy));
}

TEST(NodeJson, tells_what_was_counted) {
  const auto file = tools_test::source_dir() / "examples" / "edge-all-types.json";
  const tools_test::TempDir dir;
  const Database database(dir / "db", OpenMode::create);
  WriteSession writer(database);
  write_policies({read_native(tools_test::read_text(file), "x")}, writer, {});
  writer.commit();
  const ReadSession session(database);
  const ordered_json filter = node_to_json(read_node(session, 0x04100010)).get();
  EXPECT_EQ(filter["computed"].dump(),
            R"({"links_total":2,"links_unfixed":1,"refs":1,"priv_len":8,"priv_ptr":0,)"
            R"("crit_cnt":3,"crit_bytes":107})");
  EXPECT_EQ(filter["body"]["crit"][0]["comment"], "ipv4.protocol 6");
  const ordered_json pinst = node_to_json(read_node(session, 0x04100080)).get();
  EXPECT_EQ(pinst["computed"]["edests"], 4);
  EXPECT_EQ(pinst["computed"]["nonedests"], 0);
}

TEST(NodeSummary, says_what_matters_in_one_line) {
  const auto file = tools_test::source_dir() / "examples" / "edge-all-types.json";
  const tools_test::TempDir dir;
  const Database database(dir / "db", OpenMode::create);
  WriteSession writer(database);
  write_policies({read_native(tools_test::read_text(file), "x")}, writer, {});
  writer.commit();
  const ReadSession session(database);
  const auto summary = [&session](uint32_t id) { return node_summary(read_node(session, id)); };
  EXPECT_EQ(summary(0x04100011), "\"voice\", ipv4.dscp 46");
  EXPECT_EQ(summary(0x04100031), "type 1 (accept)");
  EXPECT_EQ(summary(0x04100050),
            "comt_bw rate_units 1 rate 64000 burst_units 2 burst 8000, "
            "peak_bw rate_units 1 rate 128000 burst_units 2 burst 0xffffffffffffffff");
  EXPECT_EQ(summary(0x04100060), "");
  EXPECT_EQ(summary(0x04100091), "service 9 srv_def 2 srv_vdc 1, type 5, in");
  EXPECT_EQ(body_summary(read_record(session, 0x04100011)),
            "match True, nomatch Next, crit_cnt 1, crit_bytes 33");
}

}  // namespace
