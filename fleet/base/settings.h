// Settings of a program: a file of lines "name = value"; those that begin with # are comments.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qim::fleet {

// Each question notes what is wrong with a value instead of throwing, so that all of it is said at
// once; problems() has it when all questions were asked.
class Settings {
 public:
  Settings() = default;
  // Throws ConfigError when the file can't be read.
  static Settings load(const std::string& file);
  // `file` stands in what is said.
  static Settings parse(std::string_view text, const std::string& file);

  // Sets or replaces one, as the command line does.
  void set(const std::string& name, const std::string& value);
  bool has(const std::string& name) const { return values_.contains(name); }

  std::string text(const std::string& name, const std::string& otherwise = "");
  // One that must be there and not be empty.
  std::string required(const std::string& name);
  uint64_t number(const std::string& name, uint64_t least, uint64_t most, uint64_t otherwise);
  bool flag(const std::string& name, bool otherwise);  // yes, no
  // "250ms", "30s", "5min", "1h"
  std::chrono::milliseconds duration(const std::string& name, std::chrono::milliseconds otherwise);
  std::vector<std::string> words(const std::string& name);  // between commas or blanks

  // What is wrong, a line each, with names that nobody asked for.
  std::vector<std::string> problems() const;
  // Throws ConfigError with all of it.
  void require_good() const;

 private:
  struct Value {
    std::string text;
    std::string place;  // "qimd.conf:3"
    bool asked = false;
  };
  Value* find(const std::string& name);
  void complain(const std::string& name, const Value& value, const std::string& wanted);

  std::map<std::string, Value> values_;
  std::vector<std::string> problems_;
  std::string file_;
};

// "250ms", "30s", "5min", "1h"; false for anything else.
[[nodiscard]] bool parse_duration(const std::string& text, std::chrono::milliseconds& duration);

}  // namespace qim::fleet
