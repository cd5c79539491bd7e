// The native format's schema, and what is said of documents that break it.
#include "policy/formats/native/native_schema.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "policy/base/json_text.h"
#include "policy/base/json_value.h"
#include "policy/base/names.h"
#include "policy/formats/native/native.h"
#include "policy/formats/native/schema_walk.h"
#include "schema/rows.h"
#include "tests/tools/support.h"

namespace {

using nlohmann::json;

using qim::schema::Coding;
using qim::schema::Record;
using qim::schema::Row;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using tools_test::brief;
using tools_test::problems_of;

// The problems of a document that has these nodes on its third line.
std::vector<std::string> problems_with(const std::string& nodes) {
  const std::string text =
      "{\"format\": \"qim-policy\", \"version\": 1,\n\"nodes\": [\n" + nodes + "\n]}";
  return brief(problems_of([&text] { qimctl::read_native(text, "in.json"); }));
}

bool travels(const Row& row) {
  return qimctl::is_input(row) || row.coding == Coding::args || row.coding == Coding::list;
}

// The members that the schema allows in the object at `path` of `document`, comments aside.
std::vector<std::string> allowed(const json& document, const std::vector<std::string>& path) {
  const qimctl::JsonDocument schema = qimctl::parse_json(qimctl::native_schema_text, "");
  const qimctl::JsonDocument parsed = qimctl::parse_json(document.dump(), "");
  const qimctl::SchemaWalk walk(schema.view(), parsed.view());
  std::vector<std::string> names;
  for (const qimctl::JsonView found : walk.at(path)) {
    const json part = json::parse(found.dump());
    if (!part.contains("additionalProperties")) continue;
    for (const auto& [name, inner] : part.at("properties").items()) {
      if (name != "comment") names.push_back(name);
    }
  }
  return names;
}

std::vector<std::string> names_in(const Record& record) {
  std::vector<std::string> names;
  for (const Row& row : record) {
    if (travels(row)) names.push_back(row.name);
  }
  return names;
}

TEST(NativeSchema, allows_the_members_that_records_have) {
  for (const qim::schema::NodeType& type : qim::schema::tlv_types) {
    const json document = {{"nodes", {{{"type", type.name}, {"body", json::object()}}}}};
    EXPECT_THAT(allowed(document, {"nodes", "0", "body"}),
                testing::UnorderedElementsAreArray(names_in(*type.body)))
        << type.name;
  }
}

TEST(NativeSchema, allows_the_members_that_inner_records_have) {
  const json police = {{"nodes", {{{"type", "Police"}, {"body", {{"comt_bw", json::object()}}}}}}};
  EXPECT_THAT(allowed(police, {"nodes", "0", "body", "comt_bw"}),
              testing::UnorderedElementsAreArray(names_in(qim::schema::action_bw)));
  const json filter = {{"nodes", {{{"type", 1}, {"body", {{"crit", {json::object()}}}}}}}};
  EXPECT_THAT(allowed(filter, {"nodes", "0", "body", "crit", "0"}),
              testing::UnorderedElementsAreArray(names_in(qim::schema::criterion)));
}

TEST(NativeSchema, knows_every_type_by_name_and_number) {
  const json schema = json::parse(qimctl::native_schema_text);
  for (const json& choice : schema["definitions"]["nodeType"]["enum"]) {
    const std::string text = choice.is_string() ? choice.get<std::string>() : choice.dump();
    if (text == qimctl::raw_type_name) continue;  // contents of any type
    const auto code = qimctl::node_type_code(text);
    ASSERT_TRUE(code) << text;
    if (!choice.is_string()) continue;
    EXPECT_EQ(qimctl::node_type_name(*code), text);
  }
  EXPECT_EQ(schema["definitions"]["nodeType"]["enum"].size(), 25u);
}

TEST(NativeSchema, passes_a_good_document) {
  const qimctl::JsonDocument document = qimctl::parse_json(
      R"({"format": "qim-policy", "version": 1, "nodes": [{"id": 1, "type": "Filter"}]})", "");
  EXPECT_THAT(qimctl::check_native_schema(document.view(), "in.json"), IsEmpty());
}

TEST(NativeSchema, refuses_another_format_or_version) {
  const std::string text = "{\"format\": \"x\",\n\"version\": 2,\n\"nodes\": []}";
  EXPECT_THAT(
      brief(problems_of([&text] { qimctl::read_native(text, "in.json"); })),
      ElementsAre("1 /format: is \"x\"; expected \"qim-policy\"", "2 /version: is 2; expected 1"));
}

TEST(NativeSchema, refuses_what_is_no_object) {
  EXPECT_THAT(brief(problems_of([] { qimctl::read_native("[]", "in.json"); })),
              ElementsAre("1 : is an array"));
  EXPECT_THAT(
      problems_with("17"),
      ElementsAre("3 /nodes/0: is 17; expected a node: an object with \"id\" and \"type\""));
}

TEST(NativeSchema, says_what_is_missing) {
  EXPECT_THAT(problems_with("{}"),
              UnorderedElementsAre("3 /nodes/0: lacks the member \"id\"; add it",
                                   "3 /nodes/0: lacks the member \"type\"; add it"));
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Filter", "body": {"crit": [{}]}})"),
              ElementsAre("3 /nodes/0/body/crit/0: lacks the member \"type\"; add it"));
}

TEST(NativeSchema, says_every_member_that_is_not_known) {
  EXPECT_THAT(
      problems_with("{\"id\": 1,\n\"x\": 1,\n\"type\": \"Action\",\n\"body\": {\n\"match\": 1,\n"
                    "\"y/z\": 2}}"),
      ElementsAre("4 /nodes/0/x: is no member known here; known are body, comment, dset, flags, "
                  "group, id, links, priv, private, type",
                  "7 /nodes/0/body/match: is no member known here; known are args, type",
                  "8 /nodes/0/body/y~1z: is no member known here; known are args, type"));
}

TEST(NativeSchema, says_what_it_expected_instead) {
  EXPECT_THAT(problems_with(R"({"id": 0, "type": "Ifelse"})"),
              ElementsAre("3 /nodes/0/id: is 0; expected a node identifier: a number from 1 to "
                          "4294967295, or \"0x...\""));
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Filter", "body": {"match": "true"}})"),
              ElementsAre("3 /nodes/0/body/match: is \"true\"; expected a link kind: True, False, "
                          "Nomatch, Next, or a number"));
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Action", "body": {"args": "0"}})"),
              ElementsAre("3 /nodes/0/body/args: is \"0\"; expected bytes as hexadecimal digits, "
                          "two for each byte"));
}

TEST(NativeSchema, refuses_texts_of_any_length) {
  const std::string zeros(1000000, '0');
  EXPECT_EQ(problems_with(R"({"id": "0x)" + zeros + R"(", "type": "Group"})").size(), 1u);
  EXPECT_EQ(problems_with(R"({"id": 1, "type": "Group", "priv": "x)" + zeros + R"("})").size(), 1u);
  EXPECT_EQ(problems_with(R"({"id": 1, "type": "Group", "group": "0x)" + zeros + R"("})").size(),
            1u);
}

TEST(NativeSchema, bounds_numbers_by_their_width) {
  for (const char* value : {"-1", "4294967296", "1.5", "\"0x100000000\"", "\"7\"", "null", "[]"}) {
    const std::string node = R"({"id": 1, "type": "Group", "group": )" + std::string(value) + "}";
    EXPECT_EQ(problems_with(node).size(), 1u) << value;
  }
  for (const char* value :
       {"18446744073709551615", "9007199254740992", "\"0x10000000000000000\""}) {
    const std::string node =
        R"({"id": 1, "type": "Police", "body": {"peak_bw": {"rate": )" + std::string(value) + "}}}";
    EXPECT_EQ(problems_with(node).size(), 1u) << value;
  }
}

TEST(NativeSchema, names_links_by_slot_or_code) {
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Def", "links": {"301": 2, "ln_0301": 2}})"),
              testing::Each(testing::HasSubstr("is no member known here; expected an object whose "
                                               "members are named by a slot")));
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Def", "links": {"ln_301": {"val": 1}}})"),
              ElementsAre("3 /nodes/0/links/ln_301: lacks the member \"node\"; add it"));
  EXPECT_EQ(problems_with(R"({"id": 1, "type": "Def", "links": {"ln_301": 0}})").size(), 1u);
}

TEST(NativeSchema, names_private_data_by_client) {
  const std::string expected = "expected an object whose members are named by clients";
  for (const char* client : {"7", "0x", "0x123456789", "0xg", "x0x1", ""}) {
    const std::string node = R"({"id": 1, "type": "Def", "private": {"0x7": "00", ")" +
                             std::string(client) + R"(": "00"}})";
    EXPECT_THAT(problems_with(node), ElementsAre(testing::HasSubstr(expected))) << client;
  }
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Def", "private": {"0x7": 7}})"),
              ElementsAre(testing::HasSubstr("/nodes/0/private/0x7: is 7; expected")));
}

TEST(NativeSchema, keeps_data_set_names_to_the_types_that_have_them) {
  const std::string dset = R"("dset": {"dest": {"fmt": 1}})";
  for (const char* type : {"Filter", "Action", "Ifelse", "Hfilter", "Haction", "Police", "Group",
                           "Def", "DsetNoname"}) {
    const std::string node = R"({"id": 1, "type": ")" + std::string(type) + R"(", )" + dset + "}";
    EXPECT_THAT(problems_with(node),
                ElementsAre("3 /nodes/0: has a data-set name, which nodes of its type have not; "
                            "remove \"dset\""))
        << type;
  }
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Dset"})"),
              ElementsAre("3 /nodes/0: lacks the member \"dset\"; add it"));
}

TEST(NativeSchema, keeps_records_away_from_data_set_nodes) {
  for (const char* member : {R"("group": 1)", R"("flags": 1)", R"("body": {})"}) {
    const std::string node = R"({"id": 1, "type": 33, )" + std::string(member) + "}";
    EXPECT_THAT(problems_with(node),
                ElementsAre("3 /nodes/0: is a data-set node, which has no record; remove "
                            "\"group\", \"flags\" and \"body\""))
        << member;
  }
}

TEST(NativeSchema, keeps_destinations_to_their_format) {
  EXPECT_THAT(problems_with(
                  R"({"id": 1, "type": "Pinst", "dset": {"dest": {"fmt": "service", "ifix": 1}}})"),
              ElementsAre("3 /nodes/0/dset/dest/ifix: is no member known here; known are fmt, "
                          "srv_def, srv_id, srv_vdc"));
  EXPECT_THAT(problems_with(R"({"id": 1, "type": "Pinst", "dset": {"dest": {"fmt": 4}}})"),
              ElementsAre("3 /nodes/0/dset/dest/fmt: is 4; expected a destination format: "
                          "interface, service, generic, or its number"));
}

TEST(NativeSchema, says_everything_at_once_in_the_order_of_lines) {
  EXPECT_THAT(problems_with("{\"id\": 1, \"type\": 77},\n{\"id\": 2, \"type\": 1},\n"
                            "{\"id\": [], \"type\": \"Action\"},\n{\"type\": 1}"),
              ElementsAre(testing::StartsWith("3 /nodes/0/type: is 77; expected a node type"),
                          testing::StartsWith("5 /nodes/2/id: is an array; expected"),
                          testing::StartsWith("6 /nodes/3: lacks")));
}

TEST(SchemaWalk, meets_conditions) {
  const qimctl::JsonDocument value = qimctl::parse_json(R"({"type": "a", "x": 1})", "");
  const auto meets = [&value](const char* condition) {
    return qimctl::SchemaWalk::meets(qimctl::parse_json(condition, "").view(), value.view());
  };
  EXPECT_TRUE(meets(R"({})"));
  EXPECT_TRUE(meets(R"({"properties": {"type": {"enum": ["a", "b"]}}})"));
  EXPECT_FALSE(meets(R"({"properties": {"type": {"enum": ["b"]}}})"));
  EXPECT_TRUE(meets(R"({"properties": {"absent": {"enum": ["b"]}}})"));
  EXPECT_TRUE(meets(R"({"required": ["x"]})"));
  EXPECT_FALSE(meets(R"({"required": ["x", "y"]})"));
  EXPECT_FALSE(meets(R"({"not": {"required": ["x"]}})"));
  EXPECT_TRUE(meets(R"({"anyOf": [{"required": ["y"]}, {"required": ["x"]}]})"));
  EXPECT_FALSE(meets(R"({"anyOf": [{"required": ["y"]}]})"));
}

TEST(SchemaWalk, finds_nothing_where_there_is_nothing) {
  const qimctl::JsonDocument schema =
      qimctl::parse_json(R"({"properties": {"a": {"items": {"type": "integer"}}}})", "");
  const qimctl::JsonDocument document = qimctl::parse_json(R"({"a": [1]})", "");
  const qimctl::SchemaWalk walk(schema.view(), document.view());
  EXPECT_EQ(walk.at({"a", "0"}).size(), 1u);
  EXPECT_THAT(walk.at({"a", "1"}), IsEmpty());
  EXPECT_THAT(walk.at({"a", "x"}), IsEmpty());
  EXPECT_THAT(walk.at({"b"}), IsEmpty());
  EXPECT_EQ(walk.value({"a", "0"}).number(), 1u);
  EXPECT_FALSE(walk.value({"a", "0", "0"}));
}

}  // namespace
