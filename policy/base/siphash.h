// SipHash-2-4 with 128 bits (J.-P. Aumasson, D. J. Bernstein, "SipHash: a fast short-input PRF", 2012):
// digests of texts that are much quicker than reading them.
//
// Without the key nobody can make two texts of one digest, by accident or on purpose. The key is random
// and lies in the database, so whoever can read that must be trusted with it: digests that are to hold
// against him, too, would take four times as long, which is a tenth of reading the text.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qimctl {

using Digest = std::array<uint8_t, 16>;
using DigestKey = std::array<uint8_t, 16>;

// From the system's source of random bytes.
DigestKey random_key();

Digest digest_of(const DigestKey& key, std::string_view text);

}  // namespace qimctl
