// The stand-in for the kernel's packet filter.
#include "tests/system/enforce/fake_filter.h"

#include "processes/enforce/filter.h"
#include "processes/enforce/kernel_reader.h"

namespace fake_filter {

State& state() {
  static State the_state;
  return the_state;
}

}  // namespace fake_filter

namespace enforce {

void run_commands(const std::string& commands) {
  fake_filter::State& state = fake_filter::state();
  state.commands.push_back(commands);
  if (state.answers.empty()) return;
  const std::string answer = state.answers.front();
  state.answers.pop_front();
  if (!answer.empty()) throw FilterError(answer);
}

qimctl::nft::KernelTable read_kernel(const std::string& /*name*/) {
  if (!fake_filter::state().can_be_read) throw FilterError("can't be read");
  return fake_filter::state().table;
}

}  // namespace enforce
