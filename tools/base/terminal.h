// Standard output as a terminal: how wide it is, and whether it takes colours.
#pragma once

#include <cstddef>
#include <string>

namespace qimctl {

struct Terminal {
  size_t width = 0;  // 0 = it is none, or tells no width: nothing is cut
  bool colour = false;
};

// As standard output was when this was first asked for: a pager that takes its place is shown on the
// same terminal. NO_COLOR, unless empty, and TERM=dumb switch colours off.
const Terminal& terminal();

enum class Style { plain, head, good, bad, note };

// The text in a style where there are colours, else as it is.
std::string styled(Style style, const std::string& text);

// The columns that UTF-8 text takes, styles aside.
size_t width_of(const std::string& text);
// Text of at most `width` columns: a longer one is cut and ends with "…". 0 = of any width.
std::string cut(const std::string& text, size_t width);

}  // namespace qimctl
