// Digests, digits and compression.
#include "fleet/base/compression.h"
#include "fleet/base/digest.h"
#include "fleet/base/error.h"

namespace qim::fleet {
namespace {

TEST(FleetDigest, IsSha256) {
  EXPECT_EQ(to_hex(sha256("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(short_hex(sha256("abc")), "ba7816bf8f01");
}

TEST(FleetDigest, IsTheSameInPieces) {
  Sha256 sum;
  sum.add("a");
  sum.add("");
  sum.add("bc");
  EXPECT_EQ(sum.finish(), sha256("abc"));
}

TEST(FleetDigest, GoesThroughBytes) {
  Digest digest{};
  ASSERT_TRUE(from_bytes(to_bytes(sha256("x")), digest));
  EXPECT_EQ(digest, sha256("x"));
  EXPECT_FALSE(from_bytes("short", digest));
}

TEST(FleetDigest, ReadsDigits) {
  std::string bytes;
  ASSERT_TRUE(from_hex("00fFa5", bytes));
  EXPECT_EQ(bytes, std::string("\0\xff\xa5", 3));
  EXPECT_FALSE(from_hex("0", bytes));
  EXPECT_FALSE(from_hex("0g", bytes));
  EXPECT_FALSE(from_hex("-1", bytes));
  EXPECT_FALSE(from_hex("G0", bytes));
}

TEST(FleetCompression, GivesBackWhatItTook) {
  const std::string text(100000, 'x');
  EXPECT_LT(compress(text).size(), 200u);
  EXPECT_EQ(decompress(compress(text), text.size()), text);
  EXPECT_EQ(decompress(compress(""), 0), "");
}

TEST(FleetCompression, RefusesWhatIsDamagedOrTooLong) {
  const std::string packed = compress(std::string(1000, 'x') + "and more");
  EXPECT_THROW(decompress(packed, 1007), ForgedError);
  EXPECT_THROW(decompress(packed.substr(0, packed.size() - 3), 2000), ForgedError);
  EXPECT_THROW(decompress("no such thing", 2000), ForgedError);
  EXPECT_THROW(decompress("", 2000), ForgedError);
}

}  // namespace
}  // namespace qim::fleet
