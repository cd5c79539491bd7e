// What the system tells of processes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qimctl {

struct ProcessInfo {
  uint32_t pid = 0;
  std::string name;      // of its program, "" when it is not known
  uint64_t seconds = 0;  // since it started
};

// What can be seen of one.
ProcessInfo process_info(uint32_t pid);

// The processes that wait for changes of a file, as far as this user may look at them.
std::vector<ProcessInfo> processes_watching(const std::string& file);

// "qimctl[29955], running 12 s"; "3 min", "2 h", "5 days"
std::string process_text(const ProcessInfo& process);

}  // namespace qimctl
