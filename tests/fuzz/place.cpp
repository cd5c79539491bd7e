#include "tests/fuzz/place.h"

#include <unistd.h>

#include <cstdlib>

#include "tests/fuzz/targets.h"
#include "tools/cli.h"

namespace fuzz {

namespace fs = std::filesystem;

Place::Place() {
  std::string name = (fs::temp_directory_path() / "fuzz-XXXXXX").string();
  require(mkdtemp(name.data()) != nullptr, "there is a temporary directory");
  path_ = name;
}

Place::~Place() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

fs::path example(const std::string& name) {
  const char* source = getenv("QIM_SOURCE_DIR");
  return fs::absolute(source == nullptr ? "." : source) / "examples" / name;
}

int run_tool(const std::vector<std::string>& words) {
  std::vector<const char*> argv = {"qimctl"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  return qimctl::run(static_cast<int>(argv.size()), argv.data());
}

}  // namespace fuzz
