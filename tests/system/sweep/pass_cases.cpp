// The database's own operations: one call each, whose status is theirs.

#include <gtest/gtest.h>

#include <memory>

#include "tests/library/lib/pass_through.h"
#include "tests/system/sweep/cases.h"

namespace sweep_test {
namespace {

using lib_tests::Memory;
using lib_tests::PassThrough;

constexpr std::uint8_t kGiven = 0x10;

std::uint32_t call(const PassThrough& row, Memory& memory) {
  std::vector<fake::Arg> args;
  memory.fill(kGiven);
  return row.call(memory, &args);
}

Case status_case(const PassThrough& row) {
  const auto memory = std::make_shared<Memory>();
  // What this one is given is garbage after a failure.
  const bool spoils = std::string(row.name) == "qim_db_init_parms_init";
  return failing(row.name, {.prepare = [] {},
                            .run = [row, memory] { return call(row, *memory); },
                            .check =
                                [memory, spoils](std::uint32_t returned, const fake::Hit&) {
                                  if (returned != 0 && !spoils) {
                                    EXPECT_TRUE(memory->holds(kGiven));
                                  }
                                }});
}

}  // namespace

Cases pass_cases() {
  Cases cases;
  for (const PassThrough& row : lib_tests::pass_throughs()) {
    if (row.answers) {
      cases.push_back(steady(row.name, [row] {
        Memory memory;
        EXPECT_EQ(call(row, memory), 0u);
        EXPECT_TRUE(memory.holds(kGiven));
      }));
    } else {
      cases.push_back(status_case(row));
    }
  }
  return cases;
}

}  // namespace sweep_test
