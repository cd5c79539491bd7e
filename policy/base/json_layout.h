// JSON laid out for reading.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace qimctl {

// The members of an object, one on each line with their values aligned, objects inside indented
// under their name, arrays one element on each line. Numbers above 9999 show in hexadecimal too. Texts are
// printed as harmless() has them: names in them are escaped already.
std::string layout(const nlohmann::ordered_json& object, size_t indent);

// A scalar, or an object in one line: "node 0x00300001 val 7".
std::string inline_text(const nlohmann::ordered_json& value, const char* separator = " ");

}  // namespace qimctl
