// Reading one value of the model at a time: members of objects, leaves by their YANG types, and the
// problems and findings that come up.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/json.h"
#include "policy/base/policy.h"

namespace qimctl::rfc8519 {

// What was found wrong or worth saying so far, in the order of reading. Lines are filled in when
// all is known.
class Notes {
 public:
  explicit Notes(std::string file) : file_(std::move(file)) {}

  Place place(const std::string& path) const { return {file_, 0, path}; }
  void problem(const std::string& path, std::string message);
  void finding(Fate fate, const std::string& path, std::string what);

  std::vector<Problem>& problems() { return problems_; }
  std::vector<Finding>& findings() { return findings_; }

 private:
  std::string file_;
  std::vector<Problem> problems_;
  std::vector<Finding> findings_;
};

// A value and where it is.
struct Value {
  JsonView json;
  std::string path;

  explicit operator bool() const { return static_cast<bool>(json); }
};

// A member that belongs to another module.
struct Foreign {
  std::string name;  // with the module's prefix
  std::string path;
  JsonView json;
};

// The members of one object. Those of the model are found by their simple names; one that is
// spelled with the model's own prefix is taken for the same. Metadata annotations (RFC 7952) are
// left out.
class Object {
 public:
  // Reports a value that is no object, and members that are neither in `known` nor foreign. `what`
  // names the object in messages.
  Object(Notes& notes, const Value& value, std::string_view what,
         const std::vector<std::string_view>& known);

  const std::string& path() const { return path_; }
  // The member, or nothing when it is absent.
  Value find(std::string_view name) const;
  // Reports its absence.
  Value require(Notes& notes, std::string_view name) const;
  const std::vector<Foreign>& foreign() const { return foreign_; }

 private:
  std::string path_;
  std::string what_;
  std::map<std::string, Value, std::less<>> members_;
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
std::string alternatives(const std::vector<std::string_view>& names);
// The text in double quotes, shortened when long.
std::string in_quotes(std::string_view text);

}  // namespace qimctl::rfc8519
