// A command line that is wrong in what only the command can tell.
#pragma once

#include <stdexcept>

namespace qimctl {

// what() says what is wrong and what to give instead.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace qimctl
