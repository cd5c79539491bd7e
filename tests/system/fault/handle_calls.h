// Every function that takes a handle as its first argument, called with arguments that are good
// otherwise.
#ifndef TESTS_SYSTEM_FAULT_HANDLE_CALLS_H
#define TESTS_SYSTEM_FAULT_HANDLE_CALLS_H

#include <cstdint>
#include <vector>

namespace fault {

enum class Takes {
  kLibrary,
  kDatabase,
  kSession,
  kSnapshot,
  kNothing,  // the handle is not looked at
};

enum Effect {
  kPlain,
  kEnds,   // a success ends the handle
  kGives,  // a success gives another handle
  kWaits,  // a success gives one that keeps other writers out
};

struct HandleCall {
  const char* name;
  Takes takes;
  Effect effect;
  uint32_t (*call)(uint32_t handle);
};

const std::vector<HandleCall>& handle_calls();

}  // namespace fault

#endif
