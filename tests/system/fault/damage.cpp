#include "tests/system/fault/damage.h"

#include <algorithm>

namespace fault {
namespace {

using testing_rov::Random;

constexpr uint32_t kSector = 512;
constexpr uint32_t kHead = 24;  // a page's head and its first entries' offsets

uint32_t size_of(const Image& image) {
  return static_cast<uint32_t>(image.size());
}

std::string flip_bits(Image& image, Random& random) {
  const uint32_t count = 1 + random.below(8);
  std::string where = "bits flipped in bytes";
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t at = random.below(size_of(image));
    image[at] = static_cast<uint8_t>(image[at] ^ 1U << random.below(8));
    where += " " + std::to_string(at);
  }
  return where;
}

std::string scatter_bytes(Image& image, Random& random) {
  const uint32_t at = random.below(size_of(image));
  const uint32_t len = std::min(1 + random.below(64), size_of(image) - at);
  for (uint32_t i = 0; i < len; ++i) image[at + i] = static_cast<uint8_t>(random());
  return std::to_string(len) + " random bytes at " + std::to_string(at);
}

std::string zero_pages(Image& image, uint32_t page, Random& random) {
  const uint32_t at = random.below(size_of(image) / page) * page;
  const uint32_t len = std::min((1 + random.below(3)) * page, size_of(image) - at);
  std::fill_n(image.begin() + at, len, uint8_t{0});
  return std::to_string(len) + " zero bytes at " + std::to_string(at);
}

std::string replace_sector(Image& image, Random& random) {
  const uint32_t sectors = size_of(image) / kSector;
  const uint32_t at = random.below(sectors) * kSector;
  if (random.below(2) == 0) {
    for (uint32_t i = 0; i < kSector; ++i) image[at + i] = static_cast<uint8_t>(random());
    return "a random sector at " + std::to_string(at);
  }
  const uint32_t from = random.below(sectors) * kSector;
  const Image sector(image.begin() + from, image.begin() + from + kSector);
  std::copy(sector.begin(), sector.end(), image.begin() + at);
  return "the sector of " + std::to_string(from) + " at " + std::to_string(at);
}

std::string cut(Image& image, uint32_t page, Random& random) {
  uint32_t len = random.below(size_of(image));
  if (random.below(2) == 0) len -= len % page;
  image.resize(len);
  return "cut to " + std::to_string(len) + " bytes";
}

std::string change_head(Image& image, uint32_t page, Random& random) {
  const uint32_t start = random.below(size_of(image) / page) * page;
  const uint32_t at = start + random.below(kHead);
  image[at] = static_cast<uint8_t>(random());
  return "the head of the page at " + std::to_string(start) + ", byte " +
         std::to_string(at - start);
}

std::string change_meta(Image& image, uint32_t page, Random& random) {
  const uint32_t at = random.below(2) * page + random.below(160);
  image[at] = static_cast<uint8_t>(image[at] ^ 1U << random.below(8));
  return "a bit of a meta page, byte " + std::to_string(at);
}

std::string swap_pages(Image& image, uint32_t page, Random& random) {
  const uint32_t pages = size_of(image) / page;
  const uint32_t first = random.below(pages) * page;
  const uint32_t second = random.below(pages) * page;
  std::swap_ranges(image.begin() + first, image.begin() + first + page, image.begin() + second);
  return "the pages at " + std::to_string(first) + " and " + std::to_string(second) + " exchanged";
}

std::string damage_once(Image& image, uint32_t kind, uint32_t page, Random& random) {
  switch (kind) {
    case 0:
      return flip_bits(image, random);
    case 1:
      return scatter_bytes(image, random);
    case 2:
      return zero_pages(image, page, random);
    case 3:
      return replace_sector(image, random);
    case 4:
      return cut(image, page, random);
    case 5:
      return change_head(image, page, random);
    case 6:
      return change_meta(image, page, random);
    default:
      return swap_pages(image, page, random);
  }
}

}  // namespace

std::string damage(Image& image, uint32_t kind, uint32_t page, Random& random) {
  const Image before = image;
  std::string what;
  while (image == before) what = damage_once(image, kind, page, random);
  return what;
}

}  // namespace fault
