// Reading one value of the model at a time: members of objects, leaves by their YANG types, and the
// problems and findings that come up.
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
#include "policy/base/policy.h"

namespace qimctl::rfc8519 {

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

  Place place(const Value& at) const { return {file_, at.json.line(), at.json.path()}; }
  void problem(const Value& at, std::string message);
  void problem(Place at, std::string message);
  void finding(Fate fate, const Value& at, std::string what);

  // The problems so far, with what was not kept of them.
  std::vector<Problem> take_problems();
  bool has_problems() const { return !problems_.empty(); }
  std::vector<Finding>& findings() { return findings_; }

 private:
  std::string file_;
  std::vector<Problem> problems_;
  size_t more_ = 0;  // problems that were not kept
  std::vector<Finding> findings_;
};

// A member that belongs to another module.
struct Foreign {
  std::string name;  // with the module's prefix
  Value value;
};

using Names = std::span<const std::string_view>;

// The members of one object. Those of the model are found by their simple names; one that is
// spelled with the model's own prefix is taken for the same. Metadata annotations (RFC 7952) are
// left out.
class Object {
 public:
  // Reports a value that is no object, and members that are neither in `known` nor foreign. `what`
  // names the object in messages.
  Object(Notes& notes, const Value& value, std::string_view what, Names known);
  Object(Notes& notes, const Value& value, std::string_view what,
         std::initializer_list<std::string_view> known)
      : Object(notes, value, what, Names(known.begin(), known.size())) {}

  const Value& value() const { return value_; }
  // The member, or nothing when it is absent.
  Value find(std::string_view name) const;
  // Reports its absence.
  Value require(Notes& notes, std::string_view name) const;
  const std::vector<Foreign>& foreign() const { return foreign_; }

 private:
  Value value_;
  std::string what_;
  std::vector<std::pair<std::string_view, Value>> members_;
  std::vector<Foreign> foreign_;
};

// The elements of a list; none, with a problem reported, when the value is no array. An absent list
// is empty.
std::vector<Value> elements(Notes& notes, const Value& list);

// Each reads a leaf of one YANG type as RFC 7951 section 6 encodes it, and reports one that is not
// of that type. Nothing comes back then.
std::optional<uint32_t> read_number(Notes& notes, const Value& leaf, uint32_t min, uint32_t max);
std::optional<std::string> read_string(Notes& notes, const Value& leaf);
// A name: a string of `max` characters at most and at least one.
std::optional<std::string> read_name(Notes& notes, const Value& leaf, size_t max);
std::optional<std::vector<uint8_t>> read_binary(Notes& notes, const Value& leaf);

// An identity: the simple name when the model defines it. `foreign` is set for one of another
// module.
struct Identity {
  std::string name;
  bool foreign = false;
};
std::optional<Identity> read_identity(Notes& notes, const Value& leaf);

// The characters of a UTF-8 text.
size_t characters(const std::string& text);
// Is it what RFC 7950 section 9.4 leaves out of strings, as far as that is control characters?
bool is_forbidden(char c);

// "\"a\", \"b\" or \"c\"".
std::string alternatives(Names names);
inline std::string alternatives(std::initializer_list<std::string_view> names) {
  return alternatives(Names(names.begin(), names.size()));
}
// The text in double quotes, shortened when long.
std::string in_quotes(std::string_view text);

}  // namespace qimctl::rfc8519
