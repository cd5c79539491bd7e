// libFuzzer's entry to one target, which the build names.
#include "tests/fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::QIM_FUZZ_TARGET(bytes, size);
  return 0;
}
