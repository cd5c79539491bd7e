// Values on the command line: what is to be said of a wrong one, and what a right one means.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qimctl {

inline constexpr const char* dest_help =
    "interface INDEX [vrf N] [vlan N] [vdc N], service ID [srv_def N] [srv_vdc N], or "
    "generic [vdc N] [v8 N] [v16a N] [v16b N] [v32a N] [v32b N]";

// Each returns what is to be said of a wrong text, "" of a right one.
std::string check_type(const std::string& text);
std::string check_node(const std::string& text);
std::string check_name(const std::string& text);
std::string check_number(const std::string& text);
std::string check_name_or_selector(const std::string& text);
std::string check_group(const std::string& text);

// The number of a group of the system's, by its name or number; 0, which stands for no group, is
// none.
std::optional<uint32_t> group_number(const std::string& text);

// The same of numbers from `least` to `most`, and of words of which there are few.
using Check = std::function<std::string(const std::string& text)>;
Check check_range(uint64_t least, uint64_t most);
Check check_word(std::vector<std::string> words);

}  // namespace qimctl
