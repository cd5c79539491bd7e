// Asking the process that put lists into the kernel.
#include "tools/commands/counters.h"

#include "policy/base/json_text.h"
#include "policy/formats/nft/names.h"
#include "tools/base/output.h"
#include "tools/base/program.h"

namespace qimctl {

EntryCounters::Count EntryCounters::of(const std::string& list, const std::string& entry) const {
  const auto found = counts_.find(nft::entry_key(list, entry));
  return found == counts_.end() ? Count{} : found->second;
}

EntryCounters read_counters() {
  const ProgramResult asked = run_program({"qim-enforce", "--counters"}, "");
  if (!asked.found)
    throw OutputError("cannot read counters: there is no program 'qim-enforce' in PATH");
  if (!asked.good)
    throw OutputError(
        "cannot read counters: the program 'qim-enforce' failed; it must be run by who "
        "may look at the kernel's packet filter");
  const JsonDocument document = parse_json(asked.output, "the output of qim-enforce");
  EntryCounters counters;
  document.view().each([&counters](const std::string& key, JsonView value) {
    counters.add(key, {value.at("packets").number(), value.at("bytes").number()});
  });
  return counters;
}

}  // namespace qimctl
