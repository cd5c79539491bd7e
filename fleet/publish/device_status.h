// What devices say of themselves, and what that means.
#pragma once

#include <string>
#include <vector>

#include "fleet/publish/scope.h"

namespace qim::fleet {

enum class DeviceState {
  current,  // holds what it should
  behind,   // should hold another revision
  refused,  // refused what it should hold
  drifted,  // its database is not what it applied
  forged    // what the store says of it is not what the device said
};
const char* to_string(DeviceState state);

struct DeviceStatus {
  std::string device;
  Status status;        // empty where it is forged
  std::string problem;  // why it is not believed
  KeyBytes signer{};
};

// Of all devices of a scope, by their names. What is not signed by the device that it is of, where
// devices' keys are known, is no status but a problem.
std::vector<DeviceStatus> read_statuses(const Scope& scope);

// How many of them refused that revision.
size_t count_refusals(const std::vector<DeviceStatus>& statuses, uint64_t number);

// What a device should hold now.
uint64_t wanted_of(const Head& head, const DeviceStatus& device);
DeviceState state_of(const Head& head, const DeviceStatus& device);

}  // namespace qim::fleet
