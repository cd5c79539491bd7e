// Stages of a rollout.
#include "fleet/proto/stage.h"

#include <algorithm>

#include "fleet/base/digest.h"

namespace qim::fleet {

uint32_t place_of(const std::string& device, const std::string& salt) {
  // The salt's length comes first, so that no two pairs are the same text.
  const Digest digest = sha256(std::to_string(salt.size()) + ":" + salt + device);
  uint64_t number = 0;
  for (size_t i = 0; i < 8; i++) number = number << 8u | digest[i];
  return static_cast<uint32_t>(number % 100);
}

bool is_in_stage(const Stage& stage, const std::string& device,
                 const std::vector<std::string>& labels) {
  if (place_of(device, stage.salt) < stage.percent) return true;
  return std::any_of(labels.begin(), labels.end(), [&stage](const std::string& label) {
    return std::find(stage.labels.begin(), stage.labels.end(), label) != stage.labels.end();
  });
}

uint64_t wanted_revision(const Head& head, const std::string& device,
                         const std::vector<std::string>& labels, uint64_t applied) {
  if (head.next == head.base || applied == head.next) return head.next;
  return !head.stage.hold && is_in_stage(head.stage, device, labels) ? head.next : head.base;
}

}  // namespace qim::fleet
