// Reading a file piece by piece: values of JSON and their types, and the problems and findings that
// come up.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "policy/base/json.h"
#include "policy/model/model.h"

namespace qimctl::formats {

// A value and where it is.
struct Value {
  JsonView json;

  explicit operator bool() const { return static_cast<bool>(json); }
  std::string path() const { return json.path(); }
};

// What was found wrong or worth saying so far, in the order of reading.
class Notes {
 public:
  explicit Notes(std::string file) : file_(std::move(file)) {}

  const std::string& file() const { return file_; }
  Place place(const Value& at) const { return {file_, at.json.line(), at.json.path()}; }
  void problem(const Value& at, std::string message);
  void problem(Place at, std::string message);
  void finding(Fate fate, const Value& at, std::string what);
  void finding(Fate fate, Place at, std::string what);

  // The problems so far, with what was not kept of them.
  std::vector<Problem> take_problems();
  bool has_problems() const { return !problems_.empty(); }
  std::vector<Finding>& findings() { return findings_; }

 private:
  bool is_full() const {
    constexpr size_t most = 1000;
    return problems_.size() >= most;
  }

  std::string file_;
  std::vector<Problem> problems_;
  size_t more_ = 0;  // problems that were not kept
  std::vector<Finding> findings_;
};

using Names = std::span<const std::string_view>;

// The elements of a list; none, with a problem reported, when the value is no array. An absent list
// is empty.
std::vector<Value> elements(Notes& notes, const Value& list);

// Each reads a leaf of one YANG type as RFC 7951 section 6 encodes it, and reports one that is not
// of that type. Nothing comes back then.
std::optional<uint32_t> read_number(Notes& notes, const Value& leaf, uint32_t min, uint32_t max);
std::optional<std::string> read_string(Notes& notes, const Value& leaf);
// A name: a string of `max` characters at most and at least one.
std::optional<std::string> read_name(Notes& notes, const Value& leaf, size_t max);
// Why an entry cannot be carried.
struct Obstacle {
  Place place;
  std::string what;
};

// Says that an entry is left out, and what becomes of the packets that it would have matched.
void note_left_out(Notes& notes, const Entry& entry, const std::vector<Obstacle>& obstacles);

// The characters of a UTF-8 text.
size_t characters(const std::string& text);
// Is it what RFC 7950 section 9.4 leaves out of strings, as far as that is control characters?
inline constexpr auto is_forbidden = [](char c) {
  return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
};

// "\"a\", \"b\" or \"c\"".
std::string alternatives(Names names);
inline std::string alternatives(std::initializer_list<std::string_view> names) {
  return alternatives(Names(names.begin(), names.size()));
}
// The text in double quotes, shortened when long.
std::string in_quotes(std::string_view text);

}  // namespace qimctl::formats
