// JSON values, by the library that knows how.
#include "policy/base/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace qimctl {

using nlohmann::json;
using nlohmann::ordered_json;

bool JsonView::operator==(JsonView other) const {
  return *value_ == *other.value_;
}

bool JsonView::is_object() const {
  return value_->is_object();
}

bool JsonView::is_array() const {
  return value_->is_array();
}

bool JsonView::is_string() const {
  return value_->is_string();
}

bool JsonView::is_number() const {
  return value_->is_number();
}

bool JsonView::is_count() const {
  return value_->is_number_unsigned();
}

const char* JsonView::kind() const {
  switch (value_->type()) {
    case json::value_t::null:
      return "null";
    case json::value_t::object:
      return "an object";
    case json::value_t::array:
      return "an array";
    case json::value_t::string:
      return "a string";
    case json::value_t::boolean:
      return "true or false";
    default:
      return "a number";
  }
}

bool JsonView::is(uint64_t number) const {
  return value_->is_number() && *value_ == json(number);
}

bool JsonView::is(std::string_view text) const {
  return value_->is_string() && value_->get_ref<const std::string&>() == text;
}

bool JsonView::is_false() const {
  return value_->is_boolean() && !value_->get<bool>();
}

size_t JsonView::size() const {
  return value_->size();
}

void JsonView::each(const Visit& visit) const {
  if (value_->is_object()) {
    for (const auto& [name, value] : value_->get_ref<const json::object_t&>()) visit(name, value);
    return;
  }
  if (!value_->is_array()) return;
  for (size_t i = 0; i < value_->size(); i++) visit(std::to_string(i), (*value_)[i]);
}

JsonView JsonView::find(std::string_view name) const {
  const auto found = value_->find(name);
  return found == value_->end() ? JsonView() : JsonView(*found);
}

JsonView JsonView::at(std::string_view name) const {
  return value_->at(name);
}

JsonView JsonView::operator[](size_t index) const {
  return value_->at(index);
}

const std::string& JsonView::text() const {
  return value_->get_ref<const std::string&>();
}

uint64_t JsonView::number() const {
  return value_->get<uint64_t>();
}

double JsonView::real() const {
  return value_->get<double>();
}

std::string JsonView::dump() const {
  return value_->dump();
}

std::string JsonView::dump_ascii() const {
  return value_->dump(-1, ' ', true, json::error_handler_t::replace);
}

JsonDocument::JsonDocument(json root) : root_(std::make_unique<json>(std::move(root))) {}
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
  return value_->dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace qimctl
