// The printer of a pair of data-set names as one line.

#include <cstdio>

#include "tests/library/dbg/names.h"

namespace {

using namespace dbg_test;

const std::string kBlanks(39, ' ');

// Prints copies of the names and checks that the call leaves them as they were.
struct Line {
  Bytes name1 = kInterface;
  Bytes name2 = kOtherInterface;
  int a = 7;
  int b = 42;
  std::string tail = "<tail>";
  std::string lead = "<lead>";

  char* buffer() const {
    Bytes first = name1;
    Bytes second = name2;
    char* const text =
        qim_dbg_dsetname_print(first.data(), second.data(), a, b, tail.c_str(), lead.c_str());
    EXPECT_EQ(first, name1);
    EXPECT_EQ(second, name2);
    return text;
  }
  std::string text() const { return buffer(); }
};

using DsetnameLine = fake::Test;

TEST_F(DsetnameLine, two_interface_names) {
  EXPECT_EQ(Line{}.text(),
            "<lead>  7       0x5  inp   42 258   a0b    d  0x11223344        0xb  <tail>");
}

TEST_F(DsetnameLine, takes_type_direction_and_vdc_of_the_first_name) {
  EXPECT_EQ((Line{.name1 = kOtherInterface, .name2 = kInterface}.text()),
            "<lead>  7 0x12345678  out   42  14     d  a0b         0xb 0x11223344  <tail>");
}

TEST_F(DsetnameLine, other_formats_of_the_first_name_leave_39_blanks) {
  EXPECT_EQ((Line{.name1 = kService}.text()),
            "<lead>  7     0x607  inp   42 " + kBlanks + "<tail>");
  EXPECT_EQ((Line{.name1 = kGeneric}.text()),
            "<lead>  7     0x100  out   42 " + kBlanks + "<tail>");
  for (const std::uint8_t format : Bytes{0, 4, 7, 0xff}) {
    EXPECT_EQ((Line{.name1 = with(kInterface, 0, format)}.text()),
              "<lead>  7       0x5  inp   42 " + kBlanks + "<tail>");
  }
}

TEST_F(DsetnameLine, columns_of_a_name_are_as_wide_as_the_blanks) {
  const std::size_t width = Line{}.text().size();
  EXPECT_EQ((Line{.name1 = with(kInterface, 0, 7)}.text().size()), width);
}

TEST_F(DsetnameLine, second_name_is_read_as_an_interface_name_whatever_its_format) {
  EXPECT_EQ((Line{.name2 = kService}.text()),
            "<lead>  7       0x5  inp   42 258   a0b 4142  0x11223344 0x21222324  <tail>");
  const Bytes generic = host_form(kGeneric);
  char expected[128];
  std::snprintf(expected, sizeof expected,
                "<lead>  7       0x5  inp   42 258   a0b %4x  0x11223344 %#10x  <tail>",
                static_cast<unsigned>(field_at<std::uint16_t>(generic, 9)),
                static_cast<unsigned>(field_at<std::uint32_t>(generic, 1)));
  EXPECT_EQ((Line{.name2 = kGeneric}.text()), expected);
}

TEST_F(DsetnameLine, format_of_the_second_name_does_not_decide) {
  EXPECT_EQ((Line{.name1 = kService, .name2 = kInterface}.text()),
            "<lead>  7     0x607  inp   42 " + kBlanks + "<tail>");
}

TEST_F(DsetnameLine, direction_1_is_input_and_any_other_output) {
  for (const std::uint8_t dir : Bytes{0, 1, 2, 0x81, 0xff}) {
    const std::string expected = dir == 1 ? "inp" : "out";
    EXPECT_EQ((Line{.name1 = with(kInterface, 20, dir)}.text().substr(21, 3)), expected);
  }
}

TEST_F(DsetnameLine, numbers_are_signed_and_grow_beyond_their_columns) {
  EXPECT_EQ((Line{.name1 = kService, .a = -1234, .b = -12345}.text()),
            "<lead>-1234     0x607  inp -12345 " + kBlanks + "<tail>");
}

TEST_F(DsetnameLine, zeros_print_without_0x) {
  EXPECT_EQ((Line{.name1 = with(Bytes(21), 0, 1), .name2 = Bytes(21), .a = 0, .b = 0}.text()),
            "<lead>  0         0  out    0   0     0    0           0          0  <tail>");
}

TEST_F(DsetnameLine, lead_and_tail_are_text_and_no_format) {
  EXPECT_EQ((Line{.name1 = kService, .tail = "%s%n", .lead = "%d%n"}.text()),
            "%d%n  7     0x607  inp   42 " + kBlanks + "%s%n");
}

TEST_F(DsetnameLine, lead_and_tail_may_be_empty) {
  EXPECT_EQ((Line{.name1 = kService, .tail = "", .lead = ""}.text()),
            "  7     0x607  inp   42 " + kBlanks);
}

TEST_F(DsetnameLine, shorter_text_shows_nothing_of_a_longer_one) {
  const std::string expected = Line{.name1 = kService}.text();
  EXPECT_GT((Line{.tail = std::string(150, 't')}.text().size()), expected.size());
  EXPECT_EQ((Line{.name1 = kService}.text()), expected);
}

TEST_F(DsetnameLine, names_may_lie_at_any_address) {
  for (std::size_t shift = 0; shift < 8; ++shift) {
    Bytes memory(64, 0xcc);
    std::copy(kInterface.begin(), kInterface.end(),
              memory.begin() + static_cast<std::ptrdiff_t>(shift));
    std::copy(kOtherInterface.begin(), kOtherInterface.end(),
              memory.begin() + static_cast<std::ptrdiff_t>(shift + 21));
    const Bytes before = memory;
    EXPECT_EQ(std::string(qim_dbg_dsetname_print(&memory[shift], &memory[shift + 21], 7, 42,
                                                 "<tail>", "<lead>")),
              Line{}.text());
    EXPECT_EQ(memory, before);
  }
}

TEST_F(DsetnameLine, returns_its_own_buffer_each_time) {
  char* const buffer = Line{}.buffer();
  EXPECT_EQ(Line{.name1 = kService}.buffer(), buffer);
  const std::string text = buffer;
  EXPECT_NE(qim_dbg_dsetname.aux.print(0, 0, 0, 21, kGeneric.data(), "", 0, nullptr), buffer);
  EXPECT_EQ(std::string(buffer), text) << "the other printer has a buffer of its own";
}

TEST_F(DsetnameLine, is_what_start_up_can_register) {
  const rov_dsetname_print_fn print = qim_dbg_dsetname_print;
  EXPECT_NE(print, nullptr);
}

TEST_F(DsetnameLine, longer_text_is_cut_wherever_the_end_of_the_buffer_falls) {
  const std::string middle = Line{.tail = "", .lead = ""}.text();
  for (std::size_t length = 0; length <= 300; ++length) {
    const Line by_lead = {.lead = std::string(length, 'l')};
    char* const buffer = by_lead.buffer();
    ASSERT_EQ(std::string(buffer), cut(by_lead.lead + middle + "<tail>")) << length;
    ASSERT_EQ(buffer[255], '\0') << "the last byte is never used";
    const Line by_tail = {.tail = std::string(length, 't')};
    ASSERT_EQ(by_tail.text(), cut("<lead>" + middle + by_tail.tail)) << length;
    const Line blanks = {.name1 = kService, .lead = std::string(length, 'l')};
    ASSERT_EQ(blanks.text(), cut(blanks.lead + "  7     0x607  inp   42 " + kBlanks + "<tail>"))
        << length;
  }
}

}  // namespace
