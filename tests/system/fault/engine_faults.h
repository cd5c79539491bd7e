// Which faults of the storage engine are tried, and how the database may tell of them.
#ifndef TESTS_SYSTEM_FAULT_ENGINE_FAULTS_H
#define TESTS_SYSTEM_FAULT_ENGINE_FAULTS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/system/fault/failing_engine.h"
#include "tests/system/fault/points.h"

namespace fault {

struct EngineFault {
  failing_engine::Call call;
  int error;
  bool lasting;  // can all calls that follow fail as well?
};

// Errors that the engine's functions can have, and damage to what they find.
const std::vector<EngineFault>& engine_faults();

// Damage that has the right checksum, which nobody can tell from what was stored.
bool is_sealed(int error);
enum class Sealed { kNone, kToo };

std::string text_of(const failing_engine::Plan& plan);

// Whether a failure may have that fault as its cause, and says so.
bool is_told(uint32_t status, const std::string& message, int error);

// Calls `with` for every fault at `most` of the calls that a clean run made.
template <typename With>
void each_point(const failing_engine::Counts& clean, uint32_t most, Sealed sealed, With with) {
  for (const EngineFault& fault : engine_faults()) {
    if (is_sealed(fault.error) && sealed == Sealed::kNone) continue;
    for (const uint32_t at : points(clean.calls[fault.call], most)) {
      for (const uint32_t until : {at + 1, failing_engine::kForever}) {
        if (until == failing_engine::kForever && !fault.lasting) continue;
        const failing_engine::Plan plan = {fault.call, at, until, fault.error};
        SCOPED_TRACE(text_of(plan));
        with(plan);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

// What the engine was asked for while `work` was done.
template <typename Work>
failing_engine::Counts count_calls(const failing_engine::Plan* plan, Work work) {
  failing_engine::begin(plan);
  work();
  return failing_engine::end();
}

}  // namespace fault

#endif
