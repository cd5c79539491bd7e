// JSON values, by the library that knows how.
#include "policy/base/json.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "policy/base/json_print.h"
#include "policy/base/json_tree.h"
#include "policy/base/text.h"

namespace qimctl {

using nlohmann::ordered_json;

namespace {

bool same_members(JsonView a, JsonView b) {
  const auto x = a.members();
  const auto y = b.members();
  return std::equal(x.begin(), x.end(), y.begin(), y.end());
}

bool same_elements(JsonView a, JsonView b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); i++)
    if (!(a[i] == b[i])) return false;
  return true;
}

// Escapes what is no ASCII, as UTF-16 when `ascii` is set.
void append_text(std::string& to, std::string_view text, bool ascii) {
  ascii ? void(to += ordered_json(text).dump(-1, ' ', true)) : append_json_string(to, text);
}

void append_dump(std::string& to, JsonView value, bool ascii) {
  if (value.is_object()) {
    to += '{';
    for (const auto& [name, member] : value.members()) {
      if (to.back() != '{') to += ',';
      append_text(to, name, ascii);
      to += ':';
      append_dump(to, member, ascii);
    }
    to += '}';
  } else if (value.is_array()) {
    to += '[';
    for (size_t i = 0; i < value.size(); i++) {
      if (i != 0) to += ',';
      append_dump(to, value[i], ascii);
    }
    to += ']';
  } else if (value.is_string()) {
    append_text(to, value.text_view(), ascii);
  } else {
    to += value.spelled();
  }
}

}  // namespace

bool JsonView::operator==(JsonView other) const {
  if (is_number() && other.is_number())
    return is_count() && other.is_count() ? number() == other.number() : real() == other.real();
  if (is_string() && other.is_string()) return text_view() == other.text_view();
  if (tree_->kind(cell_) != other.tree_->kind(other.cell_)) return false;
  if (is_object()) return same_members(*this, other);
  return !is_array() || same_elements(*this, other);
}

bool JsonView::is_object() const {
  return tree_->kind(cell_) == JsonKind::object;
}

bool JsonView::is_array() const {
  return tree_->kind(cell_) == JsonKind::array;
}

bool JsonView::is_string() const {
  const JsonKind kind = tree_->kind(cell_);
  return kind == JsonKind::text || kind == JsonKind::escaped;
}

bool JsonView::is_number() const {
  const JsonKind kind = tree_->kind(cell_);
  return kind == JsonKind::count || kind == JsonKind::whole || kind == JsonKind::real;
}

bool JsonView::is_count() const {
  return tree_->kind(cell_) == JsonKind::count;
}

bool JsonView::is_null() const {
  return tree_->kind(cell_) == JsonKind::null;
}

bool JsonView::is_true() const {
  return tree_->kind(cell_) == JsonKind::yes;
}

bool JsonView::is_false() const {
  return tree_->kind(cell_) == JsonKind::no;
}

const char* JsonView::kind() const {
  switch (tree_->kind(cell_)) {
    case JsonKind::null:
      return "null";
    case JsonKind::object:
      return "an object";
    case JsonKind::array:
      return "an array";
    case JsonKind::text:
    case JsonKind::escaped:
      return "a string";
    case JsonKind::yes:
    case JsonKind::no:
      return "true or false";
    default:
      return "a number";
  }
}

bool JsonView::is(uint64_t number) const {
  if (is_count()) return this->number() == number;
  return is_number() && real() == static_cast<double>(number);
}

bool JsonView::is(std::string_view text) const {
  return is_string() && text_view() == text;
}

size_t JsonView::size() const {
  return is_object() || is_array() ? tree_->cell(cell_).size : is_null() ? 0 : 1;
}

std::vector<std::pair<std::string_view, JsonView>> JsonView::members() const {
  std::vector<std::pair<std::string_view, JsonView>> found;
  found.reserve(size());
  uint32_t at = cell_ + 1;
  for (size_t i = 0; i < size(); i++) {
    found.emplace_back(tree_->text(at), JsonView(*tree_, at + 1));
    at = tree_->behind(at + 1);
  }
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  return found;
}

bool JsonView::few_members(std::span<std::pair<std::string_view, JsonView>> room) const {
  if (size() > room.size()) return false;
  uint32_t at = cell_ + 1;
  for (size_t i = 0; i < size(); i++) {
    room[i] = {tree_->text(at), JsonView(*tree_, at + 1)};
    at = tree_->behind(at + 1);
  }
  return true;
}

std::vector<JsonView> JsonView::elements() const {
  std::vector<JsonView> found;
  found.reserve(size());
  uint32_t at = cell_ + 1;
  for (size_t i = 0; i < size(); i++, at = tree_->behind(at)) found.emplace_back(*tree_, at);
  return found;
}

void JsonView::each(const Visit& visit) const {
  if (is_object()) {
    for (const auto& [name, value] : members()) visit(std::string(name), value);
    return;
  }
  if (!is_array()) return;
  for (size_t i = 0; i < size(); i++) visit(std::to_string(i), (*this)[i]);
}

JsonView JsonView::find(std::string_view name) const {
  if (!is_object()) return {};
  uint32_t at = cell_ + 1;
  for (size_t i = 0; i < size(); i++) {
    if (tree_->text(at) == name) return {*tree_, at + 1};
    at = tree_->behind(at + 1);
  }
  return {};
}

JsonView JsonView::at(std::string_view name) const {
  const JsonView found = find(name);
  if (!found) throw std::logic_error("JSON without the member " + std::string(name));
  return found;
}

JsonView JsonView::operator[](size_t index) const {
  if (!is_array() || index >= size()) throw std::logic_error("JSON without that element");
  return {*tree_, tree_->element(cell_, static_cast<uint32_t>(index))};
}

std::string_view JsonView::text_view() const {
  if (!is_string()) throw std::logic_error("JSON that is no text");
  return tree_->text(cell_);
}

uint64_t JsonView::number() const {
  if (!is_count()) return static_cast<uint64_t>(real());
  const std::string_view digits = tree_->digits(cell_);
  uint64_t value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

double JsonView::real() const {
  if (!is_number()) throw std::logic_error("JSON that is no number");
  return std::strtod(std::string(tree_->digits(cell_)).c_str(), nullptr);
}

std::string JsonView::spelled() const {
  switch (tree_->kind(cell_)) {
    case JsonKind::null:
      return "null";
    case JsonKind::yes:
      return "true";
    case JsonKind::no:
      return "false";
    default:
      return std::string(tree_->digits(cell_));
  }
}

std::string JsonView::dump() const {
  std::string text;
  append_dump(text, *this, false);
  return text;
}

std::string JsonView::dump_ascii() const {
  std::string text;
  append_dump(text, *this, true);
  return text;
}

std::string JsonView::path() const {
  return tree_->path(cell_);
}

unsigned JsonView::line() const {
  return tree_->line(cell_);
}

JsonDocument::JsonDocument(std::unique_ptr<JsonTree> tree) : tree_(std::move(tree)) {}
JsonDocument::~JsonDocument() = default;
JsonDocument::JsonDocument(JsonDocument&&) noexcept = default;

JsonValue::JsonValue() : value_(std::make_unique<ordered_json>()) {}
JsonValue::JsonValue(bool value) : value_(std::make_unique<ordered_json>(value)) {}
JsonValue::JsonValue(const char* text) : value_(std::make_unique<ordered_json>(text)) {}
JsonValue::JsonValue(const std::string& text) : value_(std::make_unique<ordered_json>(text)) {}

JsonValue JsonValue::object() {
  JsonValue value;
  *value.value_ = ordered_json::object();
  return value;
}

JsonValue JsonValue::array() {
  JsonValue value;
  *value.value_ = ordered_json::array();
  return value;
}

JsonValue::~JsonValue() = default;
JsonValue::JsonValue(JsonValue&&) noexcept = default;
JsonValue& JsonValue::operator=(JsonValue&&) noexcept = default;

void JsonValue::assign(uint64_t number) {
  *value_ = number;
}

void JsonValue::set(const std::string& name, JsonValue value) {
  (*value_)[name] = std::move(*value.value_);
}

void JsonValue::append(const std::string& name, JsonValue value) {
  if (value_->is_null()) *value_ = ordered_json::object();
  auto& members = value_->get_ref<ordered_json::object_t&>();
  static_cast<ordered_json::object_t::Container&>(members).emplace_back(name,
                                                                        std::move(*value.value_));
}

void JsonValue::erase(const char* name) {
  value_->erase(name);
}

bool JsonValue::contains(const char* name) const {
  return value_->contains(name);
}

const std::string& JsonValue::text(const char* name) const {
  return value_->at(name).get_ref<const std::string&>();
}

void JsonValue::add(JsonValue value) {
  value_->push_back(std::move(*value.value_));
}

void JsonValue::add_to(const char* name, JsonValue value) {
  (*value_)[name].push_back(std::move(*value.value_));
}

namespace {

void drop_zeros_of(ordered_json& value) {
  for (auto member = value.begin(); member != value.end();) {
    if (member->is_object()) drop_zeros_of(*member);
    const bool zero = member->is_number_unsigned() && *member == 0u;
    if (zero) {
      member = value.erase(member);
    } else {
      ++member;
    }
  }
}

}  // namespace

void JsonValue::drop_zeros() {
  drop_zeros_of(*value_);
}

bool JsonValue::is_string() const {
  return value_->is_string();
}

bool JsonValue::is_empty() const {
  return value_->empty();
}

bool JsonValue::is_zero() const {
  if (!value_->is_object()) return *value_ == 0;
  return std::all_of(value_->begin(), value_->end(),
                     [](const ordered_json& member) { return member == 0; });
}

std::string JsonValue::dump(int indent) const {
  return value_->dump(indent);
}

std::string JsonValue::dump_repaired(int indent) const {
  return with_escapes(value_->dump(indent, ' ', false, ordered_json::error_handler_t::replace));
}

}  // namespace qimctl
