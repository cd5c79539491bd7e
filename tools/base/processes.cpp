// What /proc tells of processes.
#include "tools/base/processes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "policy/base/text.h"

namespace qimctl {

namespace {

namespace fs = std::filesystem;

std::string first_line(const std::string& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

// Clock ticks from the system's start to that of the process: field 22 of its stat (proc(5)). The
// program's name, field 2, may hold anything, but the last parenthesis ends it.
uint64_t start_ticks(const std::string& stat) {
  const size_t name_end = stat.rfind(')');
  uint64_t ticks = 0;
  if (name_end != std::string::npos) {
    sscanf(stat.c_str() + name_end,
           ") %*c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %" SCNu64,
           &ticks);
  }
  return ticks;
}

// Does the line of a descriptor's fdinfo tell of a watch of what commits do to the file? Which device
// it is on is not compared: file systems in layers show another one.
bool is_watch_of(const std::string& line, uint64_t inode) {
  uint64_t watched = 0;
  return sscanf(line.c_str(), "inotify wd:%*x ino:%" SCNx64, &watched) == 1 && watched == inode;
}

bool watches(const fs::path& descriptors, uint64_t inode) {
  std::error_code hidden;
  for (const auto& descriptor : fs::directory_iterator(descriptors, hidden)) {
    std::ifstream in(descriptor.path());
    for (std::string line; std::getline(in, line);)
      if (is_watch_of(line, inode)) return true;
  }
  return false;
}

}  // namespace

ProcessInfo process_info(uint32_t pid) {
  ProcessInfo info;
  info.pid = pid;
  const std::string folder = "/proc/" + std::to_string(pid);
  info.name = first_line(folder + "/comm");
  const uint64_t ticks = start_ticks(first_line(folder + "/stat"));
  const auto up =
      static_cast<uint64_t>(std::strtoull(first_line("/proc/uptime").c_str(), nullptr, 10));
  const uint64_t started = ticks / static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
  if (ticks != 0) info.seconds = up - std::min(up, started);
  return info;
}

std::vector<ProcessInfo> processes_watching(const std::string& file) {
  std::vector<ProcessInfo> found;
  struct stat watched {};
  if (stat(file.c_str(), &watched) != 0) return found;
  std::error_code hidden;
  for (const auto& folder : fs::directory_iterator("/proc", hidden)) {
    const auto pid =
        static_cast<uint32_t>(std::strtoul(folder.path().filename().c_str(), nullptr, 10));
    if (pid != 0 && watches(folder.path() / "fdinfo", watched.st_ino))
      found.push_back(process_info(pid));
  }
  std::sort(found.begin(), found.end(),
            [](const ProcessInfo& a, const ProcessInfo& b) { return a.pid < b.pid; });
  return found;
}

std::string process_text(const ProcessInfo& process) {
  const uint64_t seconds = process.seconds;
  const std::string age = seconds < 120      ? std::to_string(seconds) + " s"
                          : seconds < 7200   ? std::to_string(seconds / 60) + " min"
                          : seconds < 172800 ? std::to_string(seconds / 3600) + " h"
                                             : std::to_string(seconds / 86400) + " days";
  const std::string name = process.name.empty() ? "process" : printable(process.name);
  return name + "[" + std::to_string(process.pid) + "], running " + age;
}

}  // namespace qimctl
