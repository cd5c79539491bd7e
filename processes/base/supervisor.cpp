// Telling the service manager through its library.
#include "processes/base/supervisor.h"

#include <systemd/sd-daemon.h>

#include <cstdint>

namespace process {

// Nobody may be listening any more.
void notify(const std::string& states) {
  static_cast<void>(sd_notify(0, states.c_str()));
}

std::chrono::milliseconds watchdog_time() {
  uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return {};
  return std::chrono::milliseconds(static_cast<int64_t>(microseconds / 3000));
}

}  // namespace process
