// Text that is safe to print.
#pragma once

#include <string>

namespace qimctl {

// `text` with every control character, backslash and byte that is not UTF-8 escaped as \xNN, so
// that stored bytes can't drive a terminal.
std::string printable(const std::string& text);

}  // namespace qimctl
