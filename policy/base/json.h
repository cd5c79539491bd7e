// JSON values: what was read, and what is about to be written.
//
// The libraries behind them take a compiler seconds in every source that sees them. They are seen by
// json*.cpp here and by what validates documents; everybody else works with these types.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qimctl {

class JsonTree;

// A value in a document that was read, or none. It is good as long as the document is.
class JsonView {
 public:
  using Visit = std::function<void(const std::string& name, JsonView value)>;

  JsonView() = default;
  JsonView(const JsonTree& tree, uint32_t cell) : tree_(&tree), cell_(cell) {}

  explicit operator bool() const { return tree_ != nullptr; }
  bool operator==(JsonView other) const;  // do both say the same?

  bool is_object() const;
  bool is_array() const;
  bool is_string() const;
  bool is_number() const;
  bool is_count() const;  // a whole number that has no sign
  bool is_null() const;
  const char* kind() const;  // "a string", "an array", ... for messages
  bool is(uint64_t number) const;
  bool is(std::string_view text) const;
  bool is_true() const;
  bool is_false() const;

  // Of an array, an object, or nothing.
  size_t size() const;
  // Calls `visit` for each member by its name, in the order of names, or each element by its index.
  void each(const Visit& visit) const;
  // The members of an object in the order of names.
  std::vector<std::pair<std::string_view, JsonView>> members() const;
  // The same in the order of the text, into `room`; false when there are more.
  bool few_members(std::span<std::pair<std::string_view, JsonView>> room) const;
  // The elements of an array.
  std::vector<JsonView> elements() const;
  // The member of that name; none when there is none, or this is no object.
  JsonView find(std::string_view name) const;
  // The same of a member that is there. A fault of the caller throws.
  JsonView at(std::string_view name) const;
  JsonView operator[](size_t index) const;

  // Of a string and of a number; anything else is a fault of the caller and throws.
  std::string text() const { return std::string(text_view()); }
  std::string_view text_view() const;
  uint64_t number() const;
  double real() const;  // the number, as near as a double comes to it

  std::string spelled() const;     // a number, true, false or null as the text has it
  std::string dump() const;        // in one line, members in the order of names
  std::string dump_ascii() const;  // what is no ASCII is escaped

  // Where the value is: its JSON pointer (RFC 6901), and its line, from 1.
  std::string path() const;
  unsigned line() const;

 private:
  const JsonTree* tree_ = nullptr;
  uint32_t cell_ = 0;
};

// A document that was read. It refers to its text.
class JsonDocument {
 public:
  explicit JsonDocument(std::unique_ptr<JsonTree> tree);
  ~JsonDocument();
  JsonDocument(JsonDocument&&) noexcept;
  JsonDocument& operator=(JsonDocument&&) = delete;

  JsonView view() const { return {*tree_, 0}; }

 private:
  std::unique_ptr<JsonTree> tree_;
};

// A value to be written. The members of an object keep the order in which they were set.
class JsonValue {
 public:
  JsonValue();  // null
  JsonValue(bool value);
  JsonValue(const char* text);
  JsonValue(const std::string& text);
  template <std::unsigned_integral Number>
  JsonValue(Number number) : JsonValue() {
    assign(number);
  }
  static JsonValue object();
  static JsonValue array();

  ~JsonValue();
  JsonValue(JsonValue&&) noexcept;
  JsonValue& operator=(JsonValue&&) noexcept;

  const nlohmann::ordered_json& get() const { return *value_; }

  // A member of an object, which null becomes at its first one.
  void set(const std::string& name, JsonValue value);
  // The same of one that is known not to be there, without looking for it.
  void append(const std::string& name, JsonValue value);
  void erase(const char* name);
  bool contains(const char* name) const;
  const std::string& text(const char* name) const;  // of a member that is a string
  // An element at the end of an array, and of the array that a member is.
  void add(JsonValue value);
  void add_to(const char* name, JsonValue value);

  // Takes members that are 0 out of an object and of all objects in it that are members.
  void drop_zeros();

  bool is_string() const;
  bool is_empty() const;  // null, or nothing in it
  bool is_zero() const;   // 0, or an object of nothing else

  // In one line, or with each level indented by `indent` more blanks.
  std::string dump(int indent = -1) const;
  // The same of texts that may be no UTF-8, whose damage is replaced.
  std::string dump_repaired(int indent) const;

 private:
  void assign(uint64_t number);

  std::unique_ptr<nlohmann::ordered_json> value_;
};

}  // namespace qimctl
