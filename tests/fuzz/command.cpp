// Command lines, one word a line, in a directory of their own with a database that has the
// examples.
#include <algorithm>

#include "tests/fuzz/place.h"
#include "tests/fuzz/targets.h"
#include "tools/cli.h"

namespace fuzz {
namespace {

namespace fs = std::filesystem;

// A place to run commands in.
class Room {
 public:
  Room() : before_(fs::current_path()) {
    fs::copy(example("edge-all-types.json"), place_.path() / "policy.json");
    enter();
    require(run_tool({"import", "policy.json"}) == qimctl::exit_ok, "the examples import");
    leave();
  }
  void enter() const { fs::current_path(place_.path()); }
  void leave() const { fs::current_path(before_); }

 private:
  Place place_;
  fs::path before_;
};

// Words that lead out of the place are not for here.
std::vector<std::string> words_of(const uint8_t* bytes, size_t size) {
  std::vector<std::string> words;
  std::string word;
  for (size_t n = 0; n < size && words.size() < 29; ++n) {
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
  static const Room room;
  std::vector<std::string> words = words_of(bytes, size);
  // Nothing comes that could be waited for.
  if (std::find(words.begin(), words.end(), "watch") != words.end()) {
    words.insert(words.end(), {"--timeout", "0"});
  }
  room.enter();
  const int code = run_tool(words);
  room.leave();
  require(code >= 0 && code <= qimctl::exit_defects, "there is such an exit code");
}

}  // namespace fuzz
