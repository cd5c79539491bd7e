// Finding the fleet's program: a package of its own, which needs libraries that this tool does without.
#include "tools/commands/fleet.h"

#include <unistd.h>

#include <climits>

#include "tools/base/usage.h"

namespace qimctl {

namespace {

constexpr const char* program = "qimctl-fleet";

// The folder in which this program lies, with a slash.
std::string own_folder() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string self(path, length > 0 ? static_cast<size_t>(length) : 0);
  return self.substr(0, self.rfind('/') + 1);
}

}  // namespace

void run_fleet(const std::vector<std::string>& arguments) {
  std::vector<char*> words{const_cast<char*>(program)};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  const std::string folder = own_folder();
  for (const char* place : {"", "../libexec/qim/"})
    execv((folder + place + program).c_str(), words.data());
  throw UsageError(
      "the program for fleets, qimctl-fleet, is not installed; install its package, or build with "
      "QIM_FLEET=ON");
}

}  // namespace qimctl
