// What can go wrong outside of a program.
#pragma once

#include <stdexcept>

namespace qim::fleet {

// what() says what failed, where, and behind the last semicolon what to do about it. Safe to print.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A file or a setting is not what it must be.
struct ConfigError : Error {
  using Error::Error;
};

// Bytes that came from the store are damaged, forged, or not what they should be where they lay.
struct ForgedError : Error {
  using Error::Error;
};

}  // namespace qim::fleet
