// The interfaces that a file names.
#include "policy/formats/parts/interfaces.h"

namespace qimctl::formats {

std::string Interfaces::clash(const std::string& name, const std::string& known) {
  return in_quotes(name) + " gets the same interface index as " + in_quotes(known) +
         "; rename one of the two interfaces";
}

Criterion Interfaces::criterion_of(uint32_t type, uint32_t index, const std::string& name) {
  Criterion criterion{type, {}};
  for (const int shift : {24, 16, 8, 0})
    criterion.args.push_back(static_cast<uint8_t>(index >> shift));
  criterion.args.insert(criterion.args.end(), name.begin(), name.end());
  return criterion;
}

}  // namespace qimctl::formats
