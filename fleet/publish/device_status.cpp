// Reading status.
#include "fleet/publish/device_status.h"

#include <algorithm>

#include "fleet/proto/stage.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

DeviceStatus read_one(const Scope& scope, const KeyValue& item, const TrustedKeys* devices) {
  DeviceStatus read;
  read.device = Keys::last_part(item.key);
  try {
    read.status = open_status(item.value, devices, scope.name(), read.device, &read.signer);
    // A key that has a name signs for the device of that name alone.
    const TrustedKeys::Key* key = devices == nullptr ? nullptr : devices->find(read.signer);
    if (key != nullptr && key->name != read.device)
      throw ForgedError("the status of " + qimctl::quoted(read.device) +
                        " is signed by the key of " + qimctl::quoted(key->name));
  } catch (const ForgedError& error) {
    read.status = {};
    read.problem = error.what();
  }
  return read;
}

}  // namespace

const char* to_string(DeviceState state) {
  switch (state) {
    case DeviceState::behind:
      return "behind";
    case DeviceState::refused:
      return "refused";
    case DeviceState::drifted:
      return "drifted";
    case DeviceState::forged:
      return "forged";
    case DeviceState::current:
      break;
  }
  return "current";
}

std::vector<DeviceStatus> read_statuses(const Scope& scope) {
  const Publisher& publisher = scope.publisher();
  std::vector<DeviceStatus> all;
  for (const KeyValue& item : list_all(publisher.store, publisher.keys.statuses(scope.name())))
    all.push_back(read_one(scope, item, publisher.devices));
  return all;
}

size_t count_refusals(const std::vector<DeviceStatus>& statuses, uint64_t number) {
  return static_cast<size_t>(std::count_if(
      statuses.begin(), statuses.end(),
      [number](const DeviceStatus& device) { return device.status.refused == number; }));
}

uint64_t wanted_of(const Head& head, const DeviceStatus& device) {
  return wanted_revision(head, device.device, device.status.labels, device.status.applied);
}

DeviceState state_of(const Head& head, const DeviceStatus& device) {
  if (!device.problem.empty()) return DeviceState::forged;
  const uint64_t wanted = wanted_of(head, device);
  if (device.status.drifted) return DeviceState::drifted;
  if (wanted != 0 && device.status.refused == wanted) return DeviceState::refused;
  // No revision is wanted before the first is rolled out: a device stays as it is.
  return wanted == 0 || device.status.applied == wanted ? DeviceState::current
                                                        : DeviceState::behind;
}

}  // namespace qim::fleet
