// Keys of the store.
#include "fleet/proto/keys.h"

#include <algorithm>
#include <string>

namespace qim::fleet {

namespace {

constexpr size_t longest_name = 128;
constexpr size_t digits = 12;

bool is_letter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || letter == '.' || letter == '_' || letter == '-';
}

}  // namespace

std::string Keys::heads() const {
  return prefix_ + "h/";
}

std::string Keys::head(const std::string& scope) const {
  return heads() + scope;
}

std::string Keys::revisions(const std::string& scope) const {
  return prefix_ + "r/" + scope + "/";
}

std::string Keys::revision(const std::string& scope, uint64_t number) const {
  const std::string text = std::to_string(number);
  return revisions(scope) + std::string(digits - std::min(digits, text.size()), '0') + text;
}

std::string Keys::chunks() const {
  return prefix_ + "c/";
}

std::string Keys::chunk(const Digest& digest) const {
  return chunks() + to_hex(digest);
}

std::string Keys::statuses(const std::string& scope) const {
  return prefix_ + "s/" + scope + "/";
}

std::string Keys::status(const std::string& scope, const std::string& device) const {
  return statuses(scope) + device;
}

std::string Keys::last_part(std::string_view key) {
  const size_t slash = key.rfind('/');
  return std::string(slash == std::string_view::npos ? key : key.substr(slash + 1));
}

bool is_name(std::string_view name) {
  return !name.empty() && name.size() <= longest_name && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), is_letter);
}

}  // namespace qim::fleet
