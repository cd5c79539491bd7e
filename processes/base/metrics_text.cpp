// Figures, each with its meaning.
#include "processes/base/metrics_text.h"

#include <array>
#include <cstdio>

namespace process {

void MetricsText::add(const char* name, const char* type, const char* help, double value) {
  const std::string full = prefix_ + name;
  std::array<char, 32> digits;
  const int length = snprintf(digits.data(), digits.size(), "%.15g", value);
  text_ += "# HELP " + full + " " + help + "\n# TYPE " + full + " " + type + "\n" + full + " ";
  text_.append(digits.data(), static_cast<size_t>(length));
  text_ += '\n';
}

}  // namespace process
