// Publications: a data set with all that it leads to as one flat block.
#pragma once

#include <cstdint>

namespace rov {

// The length of the publication of the data set with that name of kNameBytes bytes, as the session
// sees it.
[[nodiscard]] uint32_t publication_size(uint32_t ses, const uint8_t* dset_name, uint32_t* size);
// The publication itself. ROV_ERR_LENGTH, noted, when it needs more room.
[[nodiscard]] uint32_t publication_write(uint32_t ses, const uint8_t* dset_name, uint8_t* out,
                                         uint32_t room);

}  // namespace rov
