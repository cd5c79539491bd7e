// The system's clocks.
#include "fleet/base/clock.h"

#include <ctime>

namespace qim::fleet {

namespace {

class SystemClock : public Clock {
 public:
  int64_t now() override {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  }
  Steady steady() override { return std::chrono::steady_clock::now(); }
};

}  // namespace

Clock& system_clock() {
  static SystemClock clock;
  return clock;
}

std::string time_text(int64_t seconds) {
  const auto time = static_cast<time_t>(seconds);
  struct tm parts {};
  char text[64];
  if (seconds == 0 || gmtime_r(&time, &parts) == nullptr) return "-";
  return {text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace qim::fleet
