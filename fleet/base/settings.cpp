// Reading settings, and saying all that is wrong with them.
#include "fleet/base/settings.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "fleet/base/error.h"
#include "fleet/base/files.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

constexpr size_t most_file = 1024 * 1024;

std::string trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool parse_number(std::string_view text, uint64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

bool parse_duration(const std::string& text, std::chrono::milliseconds& duration) {
  struct Unit {
    std::string_view name;
    uint64_t milliseconds;
  };
  constexpr std::array units{Unit{"ms", 1}, Unit{"s", 1000}, Unit{"min", 60'000},
                             Unit{"h", 3'600'000}};
  // Longer ones than a year are mistakes, and could overflow.
  constexpr uint64_t most = 366ull * 24 * 3'600'000;
  const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  uint64_t number = 0;
  if (!parse_number(std::string_view(text).substr(0, digits), number)) return false;
  for (const Unit& unit : units) {
    if (text.substr(digits) != unit.name) continue;
    if (number > most / unit.milliseconds) return false;
    duration = std::chrono::milliseconds(number * unit.milliseconds);
    return true;
  }
  return false;
}

Settings Settings::load(const std::string& file) {
  return parse(read_file(file, most_file), file);
}

Settings Settings::parse(std::string_view text, const std::string& file) {
  Settings settings;
  settings.file_ = file;
  size_t number = 0;
  for (const std::string& line : lines_of(text)) {
    number++;
    if (line.empty() || line.front() == '#') continue;
    const std::string place = qimctl::printable(file) + ":" + std::to_string(number);
    const size_t equals = line.find('=');
    const std::string name = trimmed(line.substr(0, equals));
    if (equals == std::string::npos || name.empty()) {
      settings.problems_.push_back(place + ": this is no \"name = value\"");
    } else if (settings.has(name)) {
      settings.problems_.push_back(place + ": " + qimctl::quoted(name) + " stands here twice");
    } else {
      settings.values_[name] = {trimmed(line.substr(equals + 1)), place, false};
    }
  }
  return settings;
}

void Settings::set(const std::string& name, const std::string& value) {
  values_[name] = {value, "command line", false};
}

Settings::Value* Settings::find(const std::string& name) {
  const auto found = values_.find(name);
  if (found == values_.end()) return nullptr;
  found->second.asked = true;
  return &found->second;
}

void Settings::complain(const std::string& name, const Value& value, const std::string& wanted) {
  problems_.push_back(value.place + ": " + name + " is " + qimctl::quoted(value.text) +
                      "; it must be " + wanted);
}

std::string Settings::text(const std::string& name, const std::string& otherwise) {
  const Value* value = find(name);
  return value == nullptr ? otherwise : value->text;
}

std::string Settings::required(const std::string& name) {
  const Value* value = find(name);
  if (value != nullptr && !value->text.empty()) return value->text;
  problems_.push_back(qimctl::printable(file_) + ": " + name + " is missing");
  return "";
}

uint64_t Settings::number(const std::string& name, uint64_t least, uint64_t most,
                          uint64_t otherwise) {
  const Value* value = find(name);
  if (value == nullptr) return otherwise;
  uint64_t number = 0;
  if (parse_number(value->text, number) && number >= least && number <= most) return number;
  complain(name, *value, "a number from " + std::to_string(least) + " to " + std::to_string(most));
  return otherwise;
}

bool Settings::flag(const std::string& name, bool otherwise) {
  const Value* value = find(name);
  if (value == nullptr) return otherwise;
  if (value->text == "yes") return true;
  if (value->text == "no") return false;
  complain(name, *value, "yes or no");
  return otherwise;
}

std::chrono::milliseconds Settings::duration(const std::string& name,
                                             std::chrono::milliseconds otherwise) {
  const Value* value = find(name);
  if (value == nullptr) return otherwise;
  std::chrono::milliseconds found{};
  if (parse_duration(value->text, found)) return found;
  complain(name, *value, "a time such as 250ms, 30s, 5min or 1h");
  return otherwise;
}

std::vector<std::string> Settings::words(const std::string& name) {
  const Value* value = find(name);
  std::vector<std::string> words;
  if (value == nullptr) return words;
  std::string word;
  for (const char letter : value->text + " ") {
    if (letter != ' ' && letter != ',' && letter != '\t') {
      word += letter;
    } else if (!word.empty()) {
      words.push_back(std::move(word));
      word.clear();
    }
  }
  return words;
}

std::vector<std::string> Settings::problems() const {
  std::vector<std::string> found = problems_;
  for (const auto& [name, value] : values_) {
    if (!value.asked)
      found.push_back(value.place + ": there is no setting " + qimctl::quoted(name));
  }
  return found;
}

void Settings::require_good() const {
  std::string text;
  for (const std::string& problem : problems()) text += (text.empty() ? "" : "\n") + problem;
  if (!text.empty()) throw ConfigError(text);
}

}  // namespace qim::fleet
