// A progress line on a terminal's standard error, nothing anywhere else; and where long work can be
// interrupted.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace qimctl {

// An interrupt from the keyboard ended what was under way.
struct Interrupted {};

inline constexpr const char* interrupted_text = "interrupted; nothing was stored";

// While one lives, an interrupt is noted, and ends the work where it is asked about: what is under way
// can be taken back then.
class Interrupts {
 public:
  Interrupts();
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  // Throws Interrupted.
  void check() const;
  // The same for the last time, before what is under way takes effect: interrupts come too late from
  // now on, and nobody who stored something ends without saying so.
  void check_last();

 private:
  void (*before_)(int);  // what an interrupt did
};

// While one lives, an interrupt says that nothing was stored, and ends the process at once: nothing is
// under way that had to be taken back.
class Abandoning {
 public:
  Abandoning();
  ~Abandoning();
  Abandoning(const Abandoning&) = delete;
  Abandoning& operator=(const Abandoning&) = delete;

 private:
  void (*before_)(int);
};

// While one lives, an interrupt ends the work at its next step.
class Progress {
 public:
  // `what` stands before the bar: "storing nodes". Shows itself only where `visible`.
  Progress(std::string what, size_t total, bool visible);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // One more is done. Redraws ten times a second at most. Throws Interrupted.
  void step();

 private:
  void draw() const;

  std::string what_;
  size_t total_;
  size_t done_ = 0;
  bool visible_;
  Interrupts interrupts_;
  std::chrono::steady_clock::time_point due_;
};

// Says what is being done as long as it lives, where no steps can be told.
class Phase {
 public:
  Phase(const std::string& what, bool visible);
  ~Phase();
  Phase(const Phase&) = delete;
  Phase& operator=(const Phase&) = delete;

 private:
  bool visible_;
};

// Is standard error a terminal that can redraw a line?
bool progress_wanted();

// "[=====>    ]", `width` characters between the brackets.
std::string progress_bar(size_t done, size_t total, size_t width);

}  // namespace qimctl
