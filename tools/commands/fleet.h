// `qimctl fleet`: runs the program that keeps one policy on many devices.
#pragma once

#include <string>
#include <vector>

namespace qimctl {

// Becomes the program, with these arguments. Returns never; throws UsageError when it is not there.
[[noreturn]] void run_fleet(const std::vector<std::string>& arguments);

}  // namespace qimctl
