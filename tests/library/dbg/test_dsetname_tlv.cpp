// The printer of a data-set name's TLV value.

#include <cstdio>
#include <memory>

#include "tests/library/dbg/names.h"

namespace {

using namespace dbg_test;

const char kMismatch[] = "\nWARNING: PINST / TLV SIZE MISMATCH!\n";
const char kUnknown[] = "WARNING: UNKNOWN FORMAT\n";

char* show(std::uint32_t len, const void* value, const char* prefix) {
  return qim_dbg_dsetname.aux.print(1, 2, 3, len, value, prefix, 4, nullptr);
}

// The value lies in a block of exactly its size.
std::string text_of(std::uint32_t len, const Bytes& value, const char* prefix = "> ") {
  auto block = std::make_unique<std::uint8_t[]>(value.size());
  std::copy(value.begin(), value.end(), block.get());
  std::string text = show(len, block.get(), prefix);
  EXPECT_EQ(Bytes(block.get(), block.get() + value.size()), value) << "the value is only read";
  return text;
}
std::string text_of(const Bytes& value) {
  return text_of(static_cast<std::uint32_t>(value.size()), value);
}

Bytes first_of(const Bytes& name, std::size_t count) {
  return Bytes(name.begin(), name.begin() + static_cast<std::ptrdiff_t>(count));
}

using DsetnameTlv = fake::Test;

// ---- Formats ---------------------------------------------------------------------------------

TEST_F(DsetnameTlv, interface_name) {
  EXPECT_EQ(text_of(kInterface),
            "\n> 01 11 22 33 44 01 02 03 04 0a 0b 01 02 00 00 00"
            "\n> 00 00 00 05 01"
            "\n> type 0x05  dir 1  fmt 0x1\n"
            "> vdc 0x102  vrf 0x1020304  vlan 0xa0b ifix 0x11223344\n");
}

TEST_F(DsetnameTlv, service_name) {
  EXPECT_EQ(text_of(kService),
            "\n> 02 21 22 23 24 31 32 33 34 41 42 00 00 00 00 00"
            "\n> 00 00 06 07 01"
            "\n> type 0x607  dir 1  fmt 0x2\n"
            "> srv_id 0x21222324 srv_def 0x31323334 srv_vdc 0x4142\n");
}

TEST_F(DsetnameTlv, generic_name) {
  EXPECT_EQ(text_of(kGeneric),
            "\n> 03 51 52 53 54 55 56 57 58 59 5a 5b 5c 5d 5e 5f"
            "\n> 00 00 01 00 00"
            "\n> type 0x100  dir 0  fmt 0x3\n"
            "> vdc 0x5152 v8 0x53 v16a 0x5455 v16b 0x5657 v32a 0x58595a5b v32b 0x5c5d5e5f\n");
}

TEST_F(DsetnameTlv, unknown_format_ends_with_a_line_without_prefix) {
  for (const std::uint8_t format : Bytes{0, 4, 0x80, 0xff}) {
    const std::string text = text_of(with(kInterface, 0, format));
    char type_line[64];
    std::snprintf(type_line, sizeof type_line, "\n> type 0x05  dir 1  fmt %s%x\n",
                  format == 0 ? "" : "0x", static_cast<unsigned>(format));
    EXPECT_TRUE(text.ends_with(std::string(type_line) + kUnknown)) << text;
  }
}

TEST_F(DsetnameTlv, zeros_print_without_0x) {
  for (const auto& [format, line] : {std::pair{1, "> vdc 0  vrf 0  vlan 0 ifix 0\n"},
                                     {2, "> srv_id 0 srv_def 0 srv_vdc 0\n"},
                                     {3, "> vdc 0 v8 0 v16a 0 v16b 0 v32a 0 v32b 0\n"}}) {
    const std::string text = text_of(with(Bytes(21), 0, static_cast<std::uint8_t>(format)));
    EXPECT_TRUE(text.ends_with("> type 0000  dir 0  fmt 0x" + std::to_string(format) + "\n" + line))
        << text;
  }
}

TEST_F(DsetnameTlv, type_is_at_least_four_wide_and_direction_a_number) {
  const std::string text = text_of(with(kOtherInterface, 20, 0xff));
  EXPECT_NE(text.find("\n> type 0x12345678  dir 255  fmt 0x1\n"), std::string::npos) << text;
}

// ---- Lengths ---------------------------------------------------------------------------------

TEST_F(DsetnameTlv, right_length_prints_no_warning) {
  EXPECT_EQ(text_of(kInterface).find("WARNING"), std::string::npos);
}

TEST_F(DsetnameTlv, one_byte_short_is_warned_of_and_decodes_with_direction_0) {
  EXPECT_EQ(text_of(first_of(kInterface, 20)),
            std::string(kMismatch) +
                "\n> 01 11 22 33 44 01 02 03 04 0a 0b 01 02 00 00 00"
                "\n> 00 00 00 05"
                "\n> type 0x05  dir 0  fmt 0x1\n"
                "> vdc 0x102  vrf 0x1020304  vlan 0xa0b ifix 0x11223344\n");
}

TEST_F(DsetnameTlv, overlong_value_is_warned_of_and_only_21_bytes_are_read) {
  const std::string expected = kMismatch + text_of(kInterface);
  for (const std::uint32_t len : {22u, 30u, 0x80000000u, 0xffffffffu}) {
    EXPECT_EQ(text_of(len, kInterface), expected) << len;
  }
}

TEST_F(DsetnameTlv, empty_value_is_warned_of_and_decodes_as_zeros_without_dump) {
  const std::string expected = std::string(kMismatch) + "\n> type 0000  dir 0  fmt 0\n" + kUnknown;
  EXPECT_EQ(text_of(Bytes{}), expected);
  EXPECT_EQ(std::string(show(0, nullptr, "> ")), expected);
  EXPECT_EQ(fake::count("snprintf_bytes"), 0u);
}

TEST_F(DsetnameTlv, missing_bytes_decode_as_zeros) {
  EXPECT_EQ(text_of(first_of(kInterface, 1)), std::string(kMismatch) +
                                                  "\n> 01"
                                                  "\n> type 0000  dir 0  fmt 0x1\n"
                                                  "> vdc 0  vrf 0  vlan 0 ifix 0\n");
  EXPECT_EQ(text_of(first_of(kService, 5)), std::string(kMismatch) +
                                                "\n> 02 21 22 23 24"
                                                "\n> type 0000  dir 0  fmt 0x2\n"
                                                "> srv_id 0x21222324 srv_def 0 srv_vdc 0\n");
}

TEST_F(DsetnameTlv, dumps_in_chunks_of_16) {
  for (std::uint32_t len = 0; len <= 21; ++len) {
    fake::clear_calls();
    text_of(first_of(kInterface, len));
    std::vector<std::uint32_t> chunks;
    for (const fake::Call& made : fake::calls_of("snprintf_bytes")) chunks.push_back(made.u32(3));
    std::vector<std::uint32_t> expected;
    if (len > 0) expected.push_back(len < 16 ? len : 16);
    if (len > 16) expected.push_back(len - 16);
    EXPECT_EQ(chunks, expected) << len;
  }
}

TEST_F(DsetnameTlv, hands_the_formatter_position_room_chunk_and_1) {
  char* const buffer = show(21, kInterface.data(), "> ");
  const fake::Calls calls = fake::calls_of("snprintf_bytes");
  // Before the first lie a newline and the prefix, before the second as many and 47 characters.
  EXPECT_EQ(calls,
            (fake::Calls{fake::call("snprintf_bytes", buffer + 3, 252, kInterface.data(), 16, 1),
                         fake::call("snprintf_bytes", buffer + 53, 202, &kInterface[16], 5, 1)}));
}

TEST_F(DsetnameTlv, goes_on_after_what_the_formatter_says_it_wrote) {
  fake::script("snprintf_bytes", [](const fake::Call& made) {
    std::strcpy(made.pointer<char>(0), "hexadecimal");
    return 3u;
  });
  EXPECT_EQ(text_of(kInterface),
            "\n> hex\n> hex\n> type 0x05  dir 1  fmt 0x1\n"
            "> vdc 0x102  vrf 0x1020304  vlan 0xa0b ifix 0x11223344\n");
}

// ---- Arguments and buffer --------------------------------------------------------------------

TEST_F(DsetnameTlv, prefix_starts_every_line_and_may_be_empty) {
  EXPECT_EQ(text_of(21, kInterface, ""),
            "\n01 11 22 33 44 01 02 03 04 0a 0b 01 02 00 00 00"
            "\n00 00 00 05 01"
            "\ntype 0x05  dir 1  fmt 0x1\n"
            "vdc 0x102  vrf 0x1020304  vlan 0xa0b ifix 0x11223344\n");
}

TEST_F(DsetnameTlv, prefix_is_text_and_no_format) {
  EXPECT_EQ(text_of(0, {}, "%s%n"),
            std::string(kMismatch) + "\n%s%ntype 0000  dir 0  fmt 0\n" + kUnknown);
}

TEST_F(DsetnameTlv, uses_none_of_the_other_arguments) {
  const std::string expected = text_of(kInterface);
  int arg = 0;
  const auto print = qim_dbg_dsetname.aux.print;
  EXPECT_EQ(std::string(print(0, 0, 0, 21, kInterface.data(), "> ", 0, &arg)), expected);
  EXPECT_EQ(std::string(print(0xffffffff, 0xffffffff, 0xffffffff, 21, kInterface.data(), "> ",
                              0xffffffff, nullptr)),
            expected);
}

TEST_F(DsetnameTlv, returns_its_own_buffer_each_time_cleared_before) {
  char* const buffer = show(21, kGeneric.data(), "a long prefix ");
  const std::string longer = buffer;
  EXPECT_EQ(show(0, nullptr, ""), buffer);
  const std::string shorter = buffer;
  ASSERT_LT(shorter.size(), longer.size());
  EXPECT_EQ(Bytes(buffer + shorter.size(), buffer + 256), Bytes(256 - shorter.size()));
  Bytes name = kInterface;
  Bytes other = kInterface;
  EXPECT_NE(qim_dbg_dsetname_print(name.data(), other.data(), 0, 0, "", ""), buffer);
  EXPECT_EQ(std::string(buffer), shorter) << "the other printer has a buffer of its own";
}

// ---- Text that does not fit ------------------------------------------------------------------

// A formatter of single characters, so that a cut falls at any place. It says how long the text is,
// or how much of it it wrote.
void format_by_characters(bool say_whole_length) {
  fake::script("snprintf_bytes", [say_whole_length](const fake::Call& made) {
    std::string text;
    for (std::uint32_t i = 0; i < made.u32(3); ++i) {
      char byte[4];
      std::snprintf(byte, sizeof byte, "%02x", made.pointer<const std::uint8_t>(2)[i]);
      text += byte;
    }
    const auto written = static_cast<std::uint32_t>(
        std::min<std::size_t>(text.size(), made.u32(1) == 0 ? 0 : made.u32(1) - 1));
    std::snprintf(made.pointer<char>(0), made.u32(1), "%s", text.c_str());
    return say_whole_length ? static_cast<std::uint32_t>(text.size()) : written;
  });
}

TEST_F(DsetnameTlv, longer_text_is_cut_wherever_the_end_of_the_buffer_falls) {
  for (const bool say_whole_length : {false, true}) {
    format_by_characters(say_whole_length);
    for (std::size_t length = 0; length <= 300; ++length) {
      const std::string prefix(length, 'p');
      const std::string whole = "\n" + prefix + "011122334401020304" + "0a0b0102000000" + "\n" +
                                prefix + "0000000501\n" + prefix + "type 0x05  dir 1  fmt 0x1\n" +
                                prefix + "vdc 0x102  vrf 0x1020304  vlan 0xa0b ifix 0x11223344\n";
      char* const buffer = show(21, kInterface.data(), prefix.c_str());
      ASSERT_EQ(std::string(buffer), cut(whole)) << length;
      ASSERT_EQ(buffer[255], '\0') << "the last byte is never used";
    }
  }
}

TEST_F(DsetnameTlv, warning_is_part_of_what_is_cut) {
  const std::string prefix(300, 'p');
  EXPECT_EQ(text_of(0, {}, prefix.c_str()), cut(std::string(kMismatch) + "\n" + prefix));
  EXPECT_EQ(text_of(30, kInterface, prefix.c_str()), cut(std::string(kMismatch) + "\n" + prefix));
}

TEST_F(DsetnameTlv, stays_in_its_buffer_with_the_platforms_formatter_too) {
  for (const Bytes& name : {kInterface, kService, kGeneric, with(kInterface, 0, 9)}) {
    for (std::size_t length = 0; length <= 300; ++length) {
      const std::string prefix(length, 'p');
      for (const std::uint32_t len : {0u, 5u, 21u, 22u}) {
        char* const buffer = show(len, name.data(), prefix.c_str());
        ASSERT_LE(std::strlen(buffer), 254u);
        ASSERT_EQ(buffer[255], '\0');
      }
    }
  }
}

}  // namespace
