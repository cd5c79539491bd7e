// Figures in the text format of Prometheus, version 0.0.4.
#pragma once

#include <string>
#include <utility>

namespace process {

class MetricsText {
 public:
  // Names begin with the prefix.
  explicit MetricsText(std::string prefix) : prefix_(std::move(prefix)) {}

  void gauge(const char* name, const char* help, double value) { add(name, "gauge", help, value); }
  // Counts since the process began; the name ends in _total.
  void counter(const char* name, const char* help, double value) {
    add(name, "counter", help, value);
  }
  std::string take() { return std::move(text_); }

 private:
  void add(const char* name, const char* type, const char* help, double value);

  std::string prefix_;
  std::string text_;
};

}  // namespace process
