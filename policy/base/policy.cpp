// Places and problems as text.
#include "policy/base/policy.h"

#include <utility>

namespace qimctl {

namespace {

std::string join(const std::vector<Problem>& problems) {
  std::string text;
  for (const Problem& problem : problems) {
    if (!text.empty()) text += '\n';
    text += to_string(problem.place) + ": " + problem.message;
  }
  return text;
}

}  // namespace

std::string to_string(const Place& place) {
  std::string text = place.file;
  if (place.line != 0) text += ":" + std::to_string(place.line);
  if (!place.path.empty()) text += ": " + place.path;
  return text;
}

InputError::InputError(std::vector<Problem> found)
    : std::runtime_error(join(found)), problems_(std::move(found)) {}

InputError::InputError(Place place, std::string message)
    : InputError(std::vector<Problem>{{std::move(place), std::move(message)}}) {}

}  // namespace qimctl
