// JSON in its canonical form (RFC 8785).
#include "policy/base/canonical_json.h"

#include <gtest/gtest.h>

#include "policy/base/json_text.h"

namespace {

std::string canonical(const std::string& text) {
  return qimctl::canonical_json(qimctl::parse_json(text, "in.json").view()).value_or("none");
}

TEST(CanonicalJson, has_no_blanks_and_members_in_order) {
  EXPECT_EQ(canonical(R"({ "b": [ 1, null, true ], "a": { }, "c": [] })"),
            R"({"a":{},"b":[1,null,true],"c":[]})");
}

// The example of RFC 8785, section 3.2.3.
TEST(CanonicalJson, orders_names_as_utf16_does) {
  EXPECT_EQ(
      canonical(R"({"\u20ac":1,"\r":2,"\ufb33":3,"1":4,"\ud83d\ude00":5,"\u0080":6,"\u00f6":7})"),
      "{\"\\r\":2,\"1\":4,\"\xc2\x80\":6,\"\xc3\xb6\":7,\"\xe2\x82\xac\":1,"
      "\"\xf0\x9f\x98\x80\":5,\"\xef\xac\xb3\":3}");
}

TEST(CanonicalJson, escapes_what_must_be_escaped_alone) {
  EXPECT_EQ(canonical(R"("\u20ac$\u000F\u000aA'\u0042\u0022\u005c\\\"\/\u007f")"),
            "\"\xe2\x82\xac$\\u000f\\nA'B\\\"\\\\\\\\\\\"/\x7f\"");
}

TEST(CanonicalJson, writes_numbers_as_short_as_they_can_be) {
  const std::pair<const char*, const char*> cases[] = {{"0", "0"},
                                                       {"-0", "0"},
                                                       {"-0.0", "0"},
                                                       {"1.0", "1"},
                                                       {"-17", "-17"},
                                                       {"4.50", "4.5"},
                                                       {"2e-3", "0.002"},
                                                       {"1e-7", "1e-7"},
                                                       {"0.0000001234", "1.234e-7"},
                                                       {"0.000001", "0.000001"},
                                                       {"9007199254740991", "9007199254740991"},
                                                       {"1E3", "1000"},
                                                       {"-123.456e2", "-12345.6"},
                                                       {"333333333.33333329", "333333333.3333333"},
                                                       {"1e-27", "1e-27"},
                                                       {"-4.5e-9", "-4.5e-9"}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(canonical(text), expected) << text;
}

TEST(CanonicalJson, has_nothing_for_numbers_that_doubles_do_not_keep) {
  for (const char* text : {"9007199254740992", "-9007199254740993", "[1e300]", "{\"a\":1e16}"})
    EXPECT_EQ(canonical(text), "none") << text;
}

}  // namespace
