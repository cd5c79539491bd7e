// JSON values: what was read, and what is about to be written.
//
// The library behind them takes a compiler seconds in every source that sees it. It is seen by
// json*.cpp here and by what validates documents; everybody else works with these types.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace qimctl {

// A value in a document that was read, or none. It is good as long as the document is.
class JsonView {
 public:
  using Visit = std::function<void(const std::string& name, JsonView value)>;

  JsonView() = default;
  // A value is as good as a view of it.
  JsonView(const nlohmann::json& value) : value_(&value) {}

  explicit operator bool() const { return value_ != nullptr; }
  const nlohmann::json& get() const { return *value_; }
  bool operator==(JsonView other) const;

  bool is_object() const;
  bool is_array() const;
  bool is_string() const;
  bool is_number() const;
  bool is_count() const;     // a whole number that has no sign
  const char* kind() const;  // "a string", "an array", ... for messages
  bool is(uint64_t number) const;
  bool is(std::string_view text) const;
  bool is_false() const;

  // Of an array, an object, or nothing.
  size_t size() const;
  // Calls `visit` for each member by its name, in the order of names, or each element by its index.
  void each(const Visit& visit) const;
  // The member of that name; none when there is none, or this is no object.
  JsonView find(std::string_view name) const;
  // The same of a member that is there. A fault of the caller throws.
  JsonView at(std::string_view name) const;
  JsonView operator[](size_t index) const;

  // Of a string and of a number; anything else is a fault of the caller and throws.
  const std::string& text() const;
  uint64_t number() const;
  double real() const;  // the number, as near as a double comes to it

  std::string dump() const;
  std::string dump_ascii() const;  // what is no ASCII is escaped, what is no UTF-8 replaced

 private:
  const nlohmann::json* value_ = nullptr;
};

// A document that was read.
class JsonDocument {
 public:
  explicit JsonDocument(nlohmann::json root);
  ~JsonDocument();
  JsonDocument(JsonDocument&&) noexcept;
  JsonDocument& operator=(JsonDocument&&) = delete;

  const nlohmann::json& get() const { return *root_; }
  JsonView view() const { return *root_; }

 private:
  std::unique_ptr<nlohmann::json> root_;
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
