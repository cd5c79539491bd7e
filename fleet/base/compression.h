// Compressed bytes (zstd).
#pragma once

#include <string>
#include <string_view>

namespace qim::fleet {

std::string compress(std::string_view bytes);
// Throws ForgedError for what is damaged, or would be longer than `most`, of which no more is made.
std::string decompress(std::string_view bytes, size_t most);

}  // namespace qim::fleet
