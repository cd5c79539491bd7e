// For programs without calls that fail on demand: there is nothing to pause.
#include "tests/system/fault/interpose.h"

namespace interpose {

Pause::Pause() = default;
Pause::~Pause() = default;

}  // namespace interpose
