// A packet filter that does what a test says, in place of the kernel's.
#ifndef TESTS_SYSTEM_ENFORCE_FAKE_FILTER_H
#define TESTS_SYSTEM_ENFORCE_FAKE_FILTER_H

#include <deque>
#include <string>
#include <vector>

#include "policy/formats/nft/kernel_table.h"

namespace fake_filter {

struct State {
  qimctl::nft::KernelTable table;  // what is read
  bool can_be_read = true;
  std::vector<std::string> commands;  // that were run, refused ones too
  std::deque<std::string> answers;    // to the next commands, "" = they take effect; then all do
};
State& state();

}  // namespace fake_filter

#endif
