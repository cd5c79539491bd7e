// Command lines, one word a line, in a directory of their own with a database that has the
// examples.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/fuzz/targets.h"
#include "tools/cli.h"

namespace fuzz {
namespace {

namespace fs = std::filesystem;

int run(const std::vector<std::string>& words) {
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  return qimctl::run(static_cast<int>(argv.size()), argv.data());
}

// The place goes away with the process.
class Place {
 public:
  Place() {
    const char* source = getenv("QIM_SOURCE_DIR");
    const fs::path examples = fs::absolute(source == nullptr ? "." : source) / "examples";
    std::string name = (fs::temp_directory_path() / "fuzz-XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "there is a temporary directory");
    path_ = name;
    before_ = fs::current_path();
    fs::copy(examples / "edge-all-types.json", path_ / "policy.json");
    fs::current_path(path_);
    require(run({"qimctl", "import", "policy.json"}) == qimctl::exit_ok, "the examples import");
    fs::current_path(before_);
  }
  ~Place() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  void enter() const { fs::current_path(path_); }
  void leave() const { fs::current_path(before_); }

 private:
  fs::path path_;
  fs::path before_;
};

// Words that lead out of the place are not for here.
std::vector<std::string> words_of(const uint8_t* bytes, size_t size) {
  std::vector<std::string> words = {"qimctl"};
  std::string word;
  for (size_t n = 0; n < size && words.size() < 30; ++n) {
    const char letter = static_cast<char>(bytes[n]);
    if (letter == '\n') {
      words.push_back(word);
      word.clear();
    } else if (letter != '/' && letter != '\0') {
      word += letter;
    }
  }
  words.push_back(word);
  return words;
}

}  // namespace

void command(const uint8_t* bytes, size_t size) {
  static const Place place;
  std::vector<std::string> words = words_of(bytes, size);
  // Nothing comes that could be waited for.
  if (std::find(words.begin(), words.end(), "watch") != words.end()) {
    words.insert(words.end(), {"--timeout", "0"});
  }
  place.enter();
  const int code = run(words);
  place.leave();
  require(code >= 0 && code <= qimctl::exit_output, "there is such an exit code");
}

}  // namespace fuzz
