// Damage to the bytes of a file, drawn at random.
#ifndef TESTS_SYSTEM_FAULT_DAMAGE_H
#define TESTS_SYSTEM_FAULT_DAMAGE_H

#include <cstdint>
#include <string>
#include <vector>

#include "tests/database/random.h"

namespace fault {

using Image = std::vector<uint8_t>;

constexpr uint32_t kDamages = 8;

// Damages the image in the way number `kind` (below kDamages), so that it differs from what it was,
// and says how. page: the size of a page in bytes.
std::string damage(Image& image, uint32_t kind, uint32_t page, testing_rov::Random& random);

}  // namespace fault

#endif
