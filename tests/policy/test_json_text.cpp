// JSON input and the lines of what is in it.
#include "policy/base/json_text.h"

#include <gmock/gmock.h>

#include "policy/base/json_print.h"
#include "tests/tools/support.h"

namespace {

using qimctl::Finding;
using qimctl::parse_json;
using qimctl::Place;
using qimctl::pointer_to;
using qimctl::Problem;
using testing::HasSubstr;
using tools_test::problems_of;

Problem only_problem(const std::string& text) {
  const std::vector<Problem> problems = problems_of([&text] { parse_json(text, "in.json"); });
  EXPECT_EQ(problems.size(), 1u);
  return problems.empty() ? Problem{} : problems[0];
}

unsigned line_of(const std::string& text, const std::string& path) {
  Place place{"in.json", 0, path};
  qimctl::fill_lines(text, "in.json", {&place});
  return place.line;
}

TEST(ParseJson, keeps_every_kind_of_value) {
  const auto document = parse_json(R"({"a": [1, -2, 2.5, "x", true, null], "b": {}})", "in.json");
  EXPECT_EQ(document.view().dump(), R"({"a":[1,-2,2.5,"x",true,null],"b":{}})");
}

TEST(PrintJson, escapes_what_must_be_wherever_it_stands) {
  for (size_t length = 0; length < 20; length++) {
    const std::string plain(length, 'a');
    EXPECT_EQ(qimctl::json_string(plain), '"' + plain + '"');
    for (size_t at = 0; at <= length; at++) {
      const auto printed = [&](const std::string& text) {
        return qimctl::json_string(std::string(plain).insert(at, text));
      };
      const auto expected = [&](const std::string& text) {
        return '"' + std::string(plain).insert(at, text) + '"';
      };
      EXPECT_EQ(printed("\""), expected("\\\""));
      EXPECT_EQ(printed("\\"), expected("\\\\"));
      EXPECT_EQ(printed("\n"), expected("\\n"));
      EXPECT_EQ(printed(std::string(1, '\0')), expected("\\u0000"));
      EXPECT_EQ(printed("\x1f"), expected("\\u001f"));
      EXPECT_EQ(printed(" !#[]\x7f\xc3\xbc"), expected(" !#[]\x7f\xc3\xbc"));
    }
  }
}

TEST(ParseJson, keeps_64_bits) {
  EXPECT_EQ(parse_json("18446744073709551615", "in.json").view().number(), UINT64_MAX);
}

TEST(ParseJson, names_line_and_place_of_a_syntax_error) {
  const Problem problem = only_problem("{\"a\": 1,\n\"b\": [1,\n2,}\n");
  EXPECT_EQ(problem.place.file, "in.json");
  EXPECT_EQ(problem.place.line, 3u);
  EXPECT_EQ(problem.place.path, "/b/2");
  EXPECT_THAT(problem.message, HasSubstr("not valid JSON"));
  EXPECT_THAT(problem.message, HasSubstr("unexpected '}'"));
}

TEST(ParseJson, refuses_text_that_ends_early_or_is_empty) {
  EXPECT_EQ(only_problem("").place.line, 1u);
  EXPECT_EQ(only_problem("{\n\"a\"").place.line, 2u);
}

TEST(ParseJson, refuses_bytes_behind_the_document) {
  EXPECT_EQ(only_problem("{}\n\n}").place.line, 3u);
}

TEST(ParseJson, refuses_what_is_not_utf8) {
  EXPECT_THAT(only_problem("{\"a\":\n\"\xff\"}").message, HasSubstr("UTF-8"));
}

TEST(ParseJson, refuses_two_members_of_one_name) {
  const Problem problem = only_problem("{\"a\": {\"x\": 1,\n\"y\": 2,\n\"x\": 3}}");
  EXPECT_EQ(problem.place.path, "/a/x");
  EXPECT_EQ(problem.place.line, 3u);
  EXPECT_THAT(problem.message, HasSubstr("twice"));
}

TEST(ParseJson, takes_equal_names_in_different_objects) {
  EXPECT_NO_THROW(parse_json(R"([{"x": 1}, {"x": {"x": 2}}])", "in.json"));
}

TEST(ParseJson, refuses_values_nested_too_deep) {
  const auto nested = [](size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
  };
  EXPECT_NO_THROW(parse_json(nested(qimctl::max_json_depth), "in.json"));
  EXPECT_THAT(only_problem(nested(qimctl::max_json_depth + 1)).message, HasSubstr("64 levels"));
  EXPECT_THAT(only_problem(std::string(1000000, '[')).message, HasSubstr("64 levels"));
}

TEST(PointerTo, escapes_names) {
  EXPECT_EQ(pointer_to("/a", "b/c~d"), "/a/b~1c~0d");
  EXPECT_EQ(pointer_to("", size_t{3}), "/3");
}

TEST(FillLines, finds_values_of_every_kind) {
  const std::string text = "{\n\"a\": [\n1,\n-2\n,\n\"x\"\n,true\n],\n\"b\": {\n\"c\": 2.5\n}\n}";
  EXPECT_EQ(line_of(text, ""), 1u);
  EXPECT_EQ(line_of(text, "/a"), 2u);
  EXPECT_EQ(line_of(text, "/a/0"), 3u);
  EXPECT_EQ(line_of(text, "/a/1"), 4u);
  EXPECT_EQ(line_of(text, "/a/2"), 6u);
  EXPECT_EQ(line_of(text, "/a/3"), 7u);
  EXPECT_EQ(line_of(text, "/b"), 9u);
  EXPECT_EQ(line_of(text, "/b/c"), 10u);
}

TEST(FillLines, finds_escaped_names) {
  EXPECT_EQ(line_of("{\n\"a/b~\": 1}", "/a~1b~0"), 2u);
}

TEST(FillLines, takes_the_nearest_place_for_a_path_that_leads_nowhere) {
  EXPECT_EQ(line_of("{\n\"a\":\n{\n\"b\": 1}}", "/a/x/y"), 3u);
}

TEST(FillLines, leaves_known_lines_and_other_files_alone) {
  Place known{"in.json", 7, "/a"};
  Place foreign{"other.json", 0, "/a"};
  qimctl::fill_lines("{\"a\": 1}", "in.json", {&known, &foreign});
  EXPECT_EQ(known.line, 7u);
  EXPECT_EQ(foreign.line, 0u);
}

TEST(FillLines, serves_problems_and_findings) {
  std::vector<Problem> problems{{{"in.json", 0, "/a"}, "x"}};
  std::vector<Finding> findings{{qimctl::Fate::skipped, {"in.json", 0, "/a"}, "x"}};
  qimctl::fill_lines("{\n\"a\": 1}", "in.json", problems);
  qimctl::fill_lines("{\n\"a\": 1}", "in.json", findings);
  EXPECT_EQ(problems[0].place.line, 2u);
  EXPECT_EQ(findings[0].place.line, 2u);
}

}  // namespace
