// The interfaces that a document names.
#include "policy/formats/rfc8519/interfaces.h"

#include "policy/model/name_hash.h"

namespace qimctl::rfc8519 {

uint32_t Interfaces::index(Notes& notes, const std::string& name, const Value& at) {
  const uint32_t index = interface_index(name);
  const auto [known, added] = names_.emplace(index, name);
  if (!added && known->second != name) {
    notes.problem(at, in_quotes(name) + " gets the same interface index as " +
                          in_quotes(known->second) + "; rename one of the two interfaces");
  }
  return index;
}

}  // namespace qimctl::rfc8519
