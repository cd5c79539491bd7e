// What failing platform calls do to each exported function, as cases under the functions' names.
#ifndef TESTS_SYSTEM_SWEEP_CASES_H
#define TESTS_SYSTEM_SWEEP_CASES_H

#include <functional>
#include <string>
#include <vector>

#include "tests/support/fake/sweep.h"

namespace sweep_test {

// A database status that means nothing to the library.
inline constexpr std::uint32_t kFailure = 0x41170047;

struct Case {
  std::string function;
  // Makes the calling test fail where the function does not keep its promises.
  std::function<void()> run;
};
using Cases = std::vector<Case>;

// A function whose platform calls that return a status fail in turn, and after them its calls of
// malloc and calloc, which make it return QIM_ERR_NO_MEM. For those `check` gets the status and a
// hit of nothing.
Case failing(const std::string& function, const fake::Sweep& sweep);

// A function that makes no platform call that can fail.
Case steady(const std::string& function, const std::function<void()>& call);

// A function that returns a size: each platform call that returns one gives the size that stands
// for failure in turn, and the function must pass that on.
Case sizing(const std::string& function, const std::function<std::uint32_t()>& size);

// Both of a function, one after the other.
Case both(const Case& one, const Case& other);

// The families.
Cases plain_cases();
Cases pass_cases();
Cases codec_cases();
Cases start_cases();
Cases node_cases();
Cases link_cases();
Cases query_cases();
Cases edest_cases();

Cases all_cases();

}  // namespace sweep_test

#endif
