// A walk through everything that the database offers, in steps that each begin and end by
// themselves. Each step gives the first status that is not what it should be.
#ifndef TESTS_SYSTEM_FAULT_PLATFORM_TOUR_H
#define TESTS_SYSTEM_FAULT_PLATFORM_TOUR_H

#include <cstdint>
#include <string>
#include <vector>

namespace fault {

class PlatformTour {
 public:
  explicit PlatformTour(std::string path) : path_(std::move(path)) {}
  ~PlatformTour() { close(); }
  PlatformTour(const PlatformTour&) = delete;
  PlatformTour& operator=(const PlatformTour&) = delete;

  struct Step {
    const char* name;
    uint32_t (PlatformTour::*run)();
  };
  static const std::vector<Step>& steps();
  // What the system takes long to end.
  static const std::vector<Step>& watching();

  // Opens the database if it is not open. Needed before steps.
  uint32_t open();
  void close();

  // What the newest commit holds must be the last value whose commit was acknowledged, or a later
  // one that was tried. False when it is neither, or something in between.
  bool verify();

  static constexpr uint32_t kNodes = 40;

 private:
  uint32_t write();
  uint32_t edit(uint32_t ses);
  uint32_t read();
  uint32_t read_node(uint32_t ses);
  uint32_t keep_on_node();
  uint32_t keep_on_database();
  uint32_t keep_on_session();
  uint32_t snapshot();
  uint32_t take_snapshot();
  uint32_t watch();
  uint32_t publish();
  uint32_t show();
  uint32_t administer();

  std::string path_;
  uint32_t db_ = 0;
  uint32_t tried_ = 0;         // the value of the newest transaction that was begun
  uint32_t acknowledged_ = 0;  // and of the newest one that was committed
};

}  // namespace fault

#endif
