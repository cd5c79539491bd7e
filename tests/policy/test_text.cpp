// Text that is safe to print, and JSON laid out for reading.
#include "policy/base/text.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "policy/base/json_layout.h"

namespace {

using nlohmann::ordered_json;
using qimctl::layout;
using qimctl::printable;

TEST(Layout, aligns_values_and_indents_what_is_inside) {
  const auto value = ordered_json::parse(
      R"({"a": 1, "name": "x", "in": {"b": 2}, "list": [{"c": 1, "d": "y"}, 3], "none": []})");
  EXPECT_EQ(layout(value, 2),
            "  a     1\n  name  x\n  in\n    b  2\n  list\n    c 1  d y\n    3\n  none -\n");
}

TEST(Layout, shows_large_numbers_in_hexadecimal_too) {
  EXPECT_EQ(layout(ordered_json::parse(R"({"a": 9999, "b": 10000})"), 0),
            "a  9999\nb  10000 (0x2710)\n");
}

TEST(Layout, marks_empty_texts) {
  EXPECT_EQ(layout(ordered_json::parse(R"({"a": ""})"), 0), "a  -\n");
}

TEST(Layout, escapes_no_name_twice) {
  EXPECT_EQ(layout(ordered_json{{"a", "\"x\\x1by\" \x1b"}}, 0), "a  \"x\\x1by\" \\x1b\n");
}

TEST(Names, have_quotes_escaped_where_none_stand_around_them) {
  EXPECT_EQ(qimctl::bare_name("a\"b\\ c"), "a\\x22b\\x5c c");
}

// What parses a document gets the same from it.
TEST(Escapes, stand_for_what_could_turn_text) {
  EXPECT_EQ(qimctl::with_escapes("{\"a\": \"b\"}\n"), "{\"a\": \"b\"}\n");
  const std::string text = "\"Zürich \u202e\u200b\u0085\x7f 😀 \U000e0001\"";
  EXPECT_EQ(qimctl::with_escapes(text), "\"Zürich \\u202e\\u200b\\u0085\\u007f 😀 \U000e0001\"");
  EXPECT_EQ(ordered_json::parse(qimctl::with_escapes(text)), ordered_json::parse(text));
}

TEST(Printable, leaves_text_alone) {
  const std::string text = "ge-0/0/0 Zürich € 😀";
  EXPECT_EQ(printable(text), text);
}

TEST(Printable, escapes_what_could_drive_a_terminal) {
  EXPECT_EQ(printable("\x1b[2J\n\x7f\\"), "\\x1b[2J\\x0a\\x7f\\x5c");
  EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
  EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b");
}

TEST(Printable, escapes_what_is_no_utf8) {
  EXPECT_EQ(printable("\xff"), "\\xff");
  EXPECT_EQ(printable("\xc0\x80"), "\\xc0\\x80");
  EXPECT_EQ(printable("\xe0\x80\x80"), "\\xe0\\x80\\x80");
  EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(printable("a\xe2\x82"), "a\\xe2\\x82");
}

}  // namespace
