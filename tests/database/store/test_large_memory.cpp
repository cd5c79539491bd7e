// Memory in large pieces: whole, aligned, cleared where it must be, and free()'s to take back.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "database/store/large_memory.h"

namespace {

constexpr size_t kSizes[] = {
    1, 4096, (size_t{2} << 20) - 1, size_t{2} << 20, (size_t{2} << 20) + 1, (size_t{4} << 20) + 16};

TEST(LargeMemory, IsThereFromTheFirstByteToTheLast) {
  for (const size_t size : kSizes) {
    auto* memory = static_cast<uint8_t*>(rov::large_memory(size));
    ASSERT_NE(memory, nullptr) << size;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % alignof(max_align_t), 0U) << size;
    memset(memory, 0xa5, size);
    EXPECT_EQ(memory[size - 1], 0xa5) << size;
    free(memory);
  }
}

TEST(LargeMemory, IsZeroWhereThatIsAskedFor) {
  for (const size_t size : kSizes) {
    // What was used before must not show.
    auto* used = static_cast<uint8_t*>(rov::large_memory(size));
    ASSERT_NE(used, nullptr) << size;
    memset(used, 0xa5, size);
    free(used);
    auto* memory = static_cast<uint8_t*>(rov::zeroed_memory(size));
    ASSERT_NE(memory, nullptr) << size;
    size_t set = 0;
    for (size_t i = 0; i < size; ++i) set += memory[i] != 0 ? 1 : 0;
    EXPECT_EQ(set, 0U) << size;
    free(memory);
  }
}

TEST(LargeMemory, RefusesWhatNoSystemHas) {
  EXPECT_EQ(rov::large_memory(SIZE_MAX - 4096), nullptr);
  EXPECT_EQ(rov::zeroed_memory(SIZE_MAX - 4096), nullptr);
}

}  // namespace
