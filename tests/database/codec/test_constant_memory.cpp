#include "database/codec/constant_memory.h"

#include <dlfcn.h>
#include <gnu/libc-version.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "rov.h"
#include "tests/database/codec/tlv_tables.h"
#include "tlvo.h"

namespace {

using rov::stays_constant;

constinit const uint64_t kNumbers[4] = {1, 2, 3, 4};
// A constant that the loader relocates.
constinit const char* const kTexts[] = {"one", "two"};
uint64_t numbers[4] = {1, 2, 3, 4};
uint64_t zeros[4];

TEST(ConstantMemory, ConstantsOfTheProgramAreConstant) {
  EXPECT_TRUE(stays_constant(kNumbers, sizeof kNumbers));
  EXPECT_TRUE(stays_constant(kTexts, sizeof kTexts));
  EXPECT_TRUE(stays_constant("text", 5));
}

TEST(ConstantMemory, WhatCanBeWrittenIsNot) {
  uint64_t local = 0;
  const std::vector<uint64_t> heap(4);
  EXPECT_FALSE(stays_constant(numbers, sizeof numbers));
  EXPECT_FALSE(stays_constant(zeros, sizeof zeros));
  EXPECT_FALSE(stays_constant(&local, sizeof local));
  EXPECT_FALSE(stays_constant(heap.data(), sizeof(uint64_t)));
}

TEST(ConstantMemory, WhatIsNotWhollyInsideIsNot) {
  EXPECT_FALSE(stays_constant(nullptr, 0));
  EXPECT_FALSE(stays_constant(nullptr, SIZE_MAX));
  EXPECT_FALSE(stays_constant(kNumbers, SIZE_MAX / 2));
  EXPECT_FALSE(stays_constant(kNumbers, SIZE_MAX - 64));
}

TEST(ConstantMemory, ConstantsOfSharedObjectsAreConstant) {
  EXPECT_TRUE(stays_constant(gnu_get_libc_version(), 1));
}

// The module that CMake built beside the tests.
class Module {
 public:
  Module() : path_(std::string(std::getenv("QIM_BUILD_DIR")) + "/tests/libtable_module.so") {
    handle_ = dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL);
  }
  ~Module() { unload(); }

  void unload() {
    if (handle_ != nullptr) dlclose(handle_);
    handle_ = nullptr;
  }
  const tlv_test::Table<1>* table() const {
    return handle_ == nullptr
               ? nullptr
               : static_cast<const tlv_test::Table<1>*>(dlsym(handle_, "module_table"));
  }
  bool is_loaded() const {
    void* handle = dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
  }

 private:
  const std::string path_;
  void* handle_ = nullptr;
};

TEST(ConstantMemory, AnObjectWhoseTableTheCodecReliesOnStaysLoaded) {
  Module module;
  ASSERT_NE(module.table(), nullptr);
  module.unload();
  ASSERT_FALSE(module.is_loaded()) << "a module that nobody uses can't be unloaded";

  Module used;
  const tlv_test::Table<1>* table = used.table();
  ASSERT_NE(table, nullptr);
  const uint8_t tlva[] = {0, 0x50, 0, 1, 0, 0, 0, 4, 1, 2, 3, 4};
  for (int i = 0; i < 2; ++i) {
    uint32_t value = 0;
    void* record = &value;
    EXPECT_EQ(tlvo_dec_tlva_to_struct(&record, tlva, sizeof tlva, &table->head, TLVO_DEC_IN_PLACE),
              ROV_OK);
    EXPECT_EQ(value, 0x01020304u);
    used.unload();
    ASSERT_TRUE(used.is_loaded());
  }
}

}  // namespace
