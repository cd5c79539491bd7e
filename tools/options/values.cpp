// Values on the command line.
#include "tools/options/values.h"

#include <grp.h>

#include <optional>
#include <utility>

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "tools/base/suggest.h"

namespace qimctl {

std::string check_type(const std::string& text) {
  if (node_type_code(text)) return "";
  return "'" + text + "' is no node type; known are " + node_type_list();
}

std::string check_node(const std::string& text) {
  const std::optional<uint64_t> id = parse_number(text);
  if (!id || (*id != 0 && *id <= UINT32_MAX)) return "";  // others are names
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

std::optional<uint32_t> group_number(const std::string& text) {
  if (const std::optional<uint64_t> number = parse_number(text)) {
    if (*number == 0 || *number >= UINT32_MAX) return std::nullopt;
    return static_cast<uint32_t>(*number);
  }
  group entry;
  group* found = nullptr;
  std::vector<char> names(size_t{1} << 16);
  getgrnam_r(text.c_str(), &entry, names.data(), names.size(), &found);
  if (found == nullptr || found->gr_gid == 0) return std::nullopt;
  return found->gr_gid;
}

std::string check_group(const std::string& text) {
  if (group_number(text)) return "";
  return "'" + text +
         "' is no group that a database can be made for: give the name of one of the "
         "system's groups, or its number";
}

Check check_range(uint64_t least, uint64_t most) {
  return [least, most](const std::string& text) -> std::string {
    const std::optional<uint64_t> number = parse_number(text);
    if (number && *number >= least && *number <= most) return "";
    return "'" + text + "' is no number from " + std::to_string(least) + " to " +
           std::to_string(most);
  };
}

Check check_word(std::vector<std::string> words) {
  return [words = std::move(words)](const std::string& text) -> std::string {
    std::string known;
    for (const std::string& word : words) {
      if (text == word) return "";
      known += (known.empty() ? "" : ", ") + word;
    }
    return "'" + text + "' is none of " + known + did_you_mean(text, words);
  };
}

}  // namespace qimctl
