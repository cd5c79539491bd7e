// Where targets keep files and databases, and the tool as they run it.
#ifndef TESTS_FUZZ_PLACE_H
#define TESTS_FUZZ_PLACE_H

#include <filesystem>
#include <string>
#include <vector>

namespace fuzz {

// An empty directory that goes away with the process.
class Place {
 public:
  Place();
  ~Place();
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// A file among the examples.
std::filesystem::path example(const std::string& name);

// Runs the tool in this process; its exit code.
int run_tool(const std::vector<std::string>& words);

}  // namespace fuzz

#endif
