// Values on the command line.
#include "tools/options/values.h"

#include <optional>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"

namespace qimctl {

std::string check_type(const std::string& text) {
  if (node_type_code(text)) return "";
  return "'" + text + "' is no node type; known are " + node_type_list();
}

std::string check_node(const std::string& text) {
  const std::optional<uint64_t> id = parse_number(text);
  if (id && *id != 0 && *id <= UINT32_MAX) return "";
  return "'" + text +
         "' is no node identifier; give a number from 1 to 4294967295, decimal or 0x...";
}

std::string check_name(const std::string& text) {
  return dset_from_hex(text) ? ""
                             : "'" + text + "' is no data-set name: give 42 hexadecimal digits";
}

// The command-line library takes -1 for the largest number.
std::string check_number(const std::string& text) {
  return parse_number(text) ? "" : "'" + text + "' is no number; give one, decimal or 0x...";
}

std::string check_name_or_selector(const std::string& text) {
  const std::optional<uint64_t> number = parse_number(text);
  if ((number && *number <= UINT32_MAX) || dset_from_hex(text)) return "";
  return "'" + text + "' is neither a data set's number nor a name of 42 hexadecimal digits";
}

uint32_t node_of(const std::string& text) {
  return static_cast<uint32_t>(*parse_number(text));
}

}  // namespace qimctl
