// The exported policy-instance field sets.
#pragma once

namespace qim {

// Converts the field sets to network order, once in the life of the process.
void convert_field_sets();

}  // namespace qim
