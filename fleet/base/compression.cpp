// zstd, by a level at which compressing takes no longer than sending would.
#include "fleet/base/compression.h"

#include <zstd.h>

#include <new>

#include "fleet/base/error.h"

namespace qim::fleet {

namespace {

constexpr int level = 6;

}  // namespace

std::string compress(std::string_view bytes) {
  std::string out(ZSTD_compressBound(bytes.size()), '\0');
  const size_t size = ZSTD_compress(out.data(), out.size(), bytes.data(), bytes.size(), level);
  if (ZSTD_isError(size) != 0) throw std::bad_alloc();
  out.resize(size);
  return out;
}

std::string decompress(std::string_view bytes, size_t most) {
  // Ours always say how long they are, so that room is made once, and only for what may be.
  const unsigned long long size = ZSTD_getFrameContentSize(bytes.data(), bytes.size());
  if (size == ZSTD_CONTENTSIZE_UNKNOWN || size == ZSTD_CONTENTSIZE_ERROR)
    throw ForgedError("compressed bytes are damaged at their beginning");
  if (size > most)
    throw ForgedError("compressed bytes would become " + std::to_string(size) + ", more than the " +
                      std::to_string(most) + " that may be");
  std::string out(static_cast<size_t>(size), '\0');
  const size_t got = ZSTD_decompress(out.data(), out.size(), bytes.data(), bytes.size());
  if (ZSTD_isError(got) != 0 || got != out.size())
    throw ForgedError("compressed bytes are damaged");
  return out;
}

}  // namespace qim::fleet
