// A progress line on a terminal's standard error; nothing anywhere else.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace qimctl {

class Progress {
 public:
  // `what` stands before the bar: "storing nodes". Shows itself only where `visible`.
  Progress(std::string what, size_t total, bool visible);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // One more is done. Redraws ten times a second at most.
  void step();

 private:
  void draw() const;

  std::string what_;
  size_t total_;
  size_t done_ = 0;
  bool visible_;
  std::chrono::steady_clock::time_point due_;
};

// Is standard error a terminal that can redraw a line?
bool progress_wanted();

// "[=====>    ]", `width` characters between the brackets.
std::string progress_bar(size_t done, size_t total, size_t width);

}  // namespace qimctl
