// JSON documents in memory: places, order, and what memory and time they take.
#include <gmock/gmock.h>

#include "policy/base/json_text.h"
#include "policy/formats/native/native.h"
#include "policy/formats/rfc8519/rfc8519.h"

namespace {

using qimctl::InputError;
using qimctl::JsonDocument;
using qimctl::JsonView;
using qimctl::parse_json;
using testing::ElementsAre;
using testing::HasSubstr;

JsonDocument document(const std::string& text) {
  return parse_json(std::string(text), "in.json");
}

TEST(JsonTree, knows_line_and_path_of_every_value) {
  const JsonDocument json = document("{\n\"a\": [\n1,\n[],\n{\"b/~\":\n\"x\\n\"}],\n\"c\": null}");
  const JsonView array = json.view().at("a");
  EXPECT_EQ(json.view().path(), "");
  EXPECT_EQ(array.path(), "/a");
  EXPECT_EQ(array.line(), 2u);
  EXPECT_EQ(array[0].line(), 3u);
  EXPECT_EQ(array[1].path(), "/a/1");
  EXPECT_EQ(array[2].at("b/~").path(), "/a/2/b~1~0");
  EXPECT_EQ(array[2].at("b/~").line(), 6u);
  EXPECT_EQ(array[0].path(), "/a/0") << "behind where the last one was";
  EXPECT_EQ(json.view().at("c").path(), "/c");
  EXPECT_EQ(json.view().at("c").line(), 7u);
}

TEST(JsonTree, gives_elements_in_any_order) {
  const JsonDocument json = document("[[0], {\"a\": 1}, 2, \"3\"]");
  EXPECT_EQ(json.view()[3].text(), "3");
  EXPECT_EQ(json.view()[2].number(), 2u);
  EXPECT_EQ(json.view()[0].dump(), "[0]");
  EXPECT_EQ(json.view()[1].dump(), "{\"a\":1}");
  EXPECT_THROW(json.view()[4], std::logic_error);
  EXPECT_THROW(json.view()[0][0][0], std::logic_error);
}

TEST(JsonTree, keeps_members_in_the_order_of_names) {
  const JsonDocument json = document(R"({"b": 1, "\u0061": 2, "c": {}, "B": "\u00fc\""})");
  EXPECT_EQ(json.view().dump(), "{\"B\":\"\xc3\xbc\\\"\",\"a\":2,\"b\":1,\"c\":{}}");
  EXPECT_EQ(json.view().dump_ascii(), R"({"B":"\u00fc\"","a":2,"b":1,"c":{}})");
  std::vector<std::string> names;
  json.view().each([&names](const std::string& name, JsonView) { names.push_back(name); });
  EXPECT_THAT(names, ElementsAre("B", "a", "b", "c"));
  EXPECT_FALSE(json.view().find("d"));
  EXPECT_FALSE(json.view().at("b").find("d"));
  EXPECT_THROW(json.view().at("d"), std::logic_error);
}

TEST(JsonTree, knows_kinds) {
  const JsonDocument json = document("[null, true, false, 1, -1, 1.5, \"x\", [], {}, -0]");
  std::vector<std::string> kinds;
  json.view().each([&kinds](const std::string&, JsonView one) { kinds.emplace_back(one.kind()); });
  EXPECT_THAT(kinds, ElementsAre("null", "true or false", "true or false", "a number", "a number",
                                 "a number", "a string", "an array", "an object", "a number"));
  const JsonView view = json.view();
  EXPECT_EQ(view.dump(), "[null,true,false,1,-1,1.5,\"x\",[],{},-0]");
  EXPECT_TRUE(view[0].is_null());
  EXPECT_TRUE(view[1].is_true());
  EXPECT_TRUE(view[2].is_false());
  EXPECT_TRUE(view[9].is(0));
  EXPECT_FALSE(view[9].is_count());
  EXPECT_EQ(view[9].number(), 0u);
  EXPECT_FALSE(view[6].is(0));
  EXPECT_EQ(view[0].size(), 0u);
  EXPECT_EQ(view[6].size(), 1u);
  EXPECT_THROW(view[6].real(), std::logic_error);
  EXPECT_THROW(view[3].text(), std::logic_error);
}

TEST(JsonTree, compares_what_values_say) {
  const auto same = [](const char* a, const char* b) {
    return document(a).view() == document(b).view();
  };
  EXPECT_TRUE(same(R"({"a":[1,"x"],"b":null})", R"({"b":null,"a":[1.0,"\u0078"]})"));
  EXPECT_TRUE(same("1e2", "100"));
  EXPECT_TRUE(same("18446744073709551615", "18446744073709551615"));
  for (const auto& [a, b] : {std::pair{"1", "2"},
                             {"1", "\"1\""},
                             {"[1]", "[2]"},
                             {"[1]", "[1,1]"},
                             {"{\"a\":1}", "{\"b\":1}"},
                             {"{\"a\":1}", "{\"a\":2}"},
                             {"18446744073709551615", "18446744073709551614"},
                             {"true", "false"}})
    EXPECT_FALSE(same(a, b)) << a << b;
}

TEST(JsonTree, takes_a_byte_order_mark_and_no_nul) {
  EXPECT_EQ(document("\xef\xbb\xbf[1]").view()[0].number(), 1u);
  EXPECT_THROW(document(std::string("[1]\0[2]", 7)), InputError);
  EXPECT_THROW(document(std::string("[1]\0", 4)), InputError);
  EXPECT_THROW(document("[\"\\udc00\"]"), InputError);
  EXPECT_THROW(document("[1e999]"), InputError);
}

TEST(JsonTree, finds_members_that_come_twice_among_many) {
  std::string text = "{";
  for (int i = 0; i < 5000; i++)
    text += "\"m" + std::to_string(i) + "\":" + std::to_string(i) + ",\n";
  EXPECT_EQ(document(text + "\"x\":1}").view().at("m4999").number(), 4999u);
  try {
    document(text + "\"m\\u0031\":1}");
    ADD_FAILURE();
  } catch (const InputError& error) {
    EXPECT_EQ(error.problems().at(0).place.path, "/m1");
  }
}

TEST(JsonTree, gives_every_element_of_a_long_array) {
  std::string text = "[0";
  const size_t count = 200000;
  for (size_t i = 1; i < count; i++) text += ',' + std::to_string(i);
  const JsonDocument json = document(text + "]");
  uint64_t wrong = 0;
  for (size_t i = 0; i < count; i++) wrong += json.view()[i].number() != i ? 1u : 0u;
  EXPECT_EQ(wrong, 0u);
}

std::vector<qimctl::Problem> problems_of(const std::function<void()>& read) {
  try {
    read();
  } catch (const InputError& error) {
    return error.problems();
  }
  return {};
}

TEST(ManyProblems, are_not_all_looked_for_in_the_native_format) {
  std::string text = R"({"format":"qim-policy","version":1,"nodes":[1)";
  for (int i = 1; i < 5000; i++) text += ",1";
  text += "]}";
  const auto problems = problems_of([&text] { qimctl::read_native(text, "in.json"); });
  ASSERT_EQ(problems.size(), 1001u);
  EXPECT_EQ(problems.back().place.path, "/nodes/1000");
  EXPECT_EQ(problems.back().message,
            "and 4000 nodes from here on were not looked at, after so many problems");
}

TEST(ManyProblems, are_counted_in_access_lists) {
  std::string text = R"({"ietf-access-control-list:acls":{"acl":[1)";
  for (int i = 1; i < 5000; i++) text += ",1";
  text += "]}}";
  const auto problems = problems_of([&text] { qimctl::read_rfc8519(text, "in.json"); });
  ASSERT_EQ(problems.size(), 1001u);
  EXPECT_EQ(problems.back().message, "and 4000 problems more");
}

}  // namespace
