// JSON in its canonical form.
#include "policy/base/canonical_json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>
#include <vector>

#include "policy/base/json_print.h"

namespace qimctl {

namespace {

// Names are ordered as UTF-16 is. That is the order of UTF-8's bytes but for U+E000 to U+FFFF, which
// come behind all that UTF-16 writes as two surrogates.
bool comes_before(const std::string& a, const std::string& b) {
  const auto rank = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte == 0xee || byte == 0xef ? byte + 0x10 : static_cast<int>(byte);
  };
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [rank](char x, char y) { return rank(x) < rank(y); });
}

// The shortest text that is read back as the same number, laid out as ECMAScript does.
std::string number_text(double number) {
  if (number == 0) return "0";
  std::array<char, 40> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), std::fabs(number),
                                 std::chars_format::scientific);
  const std::string shortest(text.data(), end.ptr);
  const size_t letter = shortest.find('e');
  std::string digits = shortest.substr(0, letter);
  if (digits.size() > 1) digits.erase(1, 1);
  const int exponent = std::stoi(shortest.substr(letter + 1));
  const auto count = static_cast<int>(digits.size());
  const std::string sign = number < 0 ? "-" : "";
  if (exponent >= -6 && exponent < 0)
    return sign + "0." + std::string(static_cast<size_t>(-exponent - 1), '0') + digits;
  if (exponent >= 0 && exponent < 21) {
    if (count <= exponent + 1)
      return sign + digits + std::string(static_cast<size_t>(exponent + 1 - count), '0');
    return sign + digits.insert(static_cast<size_t>(exponent) + 1, ".");
  }
  if (count > 1) digits.insert(1, ".");
  return sign + digits + (exponent < 0 ? "e-" : "e+") + std::to_string(std::abs(exponent));
}

class Writer {
 public:
  bool write(JsonView value) {
    if (value.is_object()) return write_object(value);
    if (value.is_array()) return write_array(value);
    if (!value.is_number()) {
      text_ += value.dump();
      return true;
    }
    if (std::fabs(value.real()) >= 0x1p53) return false;
    text_ += number_text(value.real());
    return true;
  }

  std::string take() { return std::move(text_); }

 private:
  bool write_object(JsonView value) {
    std::vector<std::pair<std::string, JsonView>> members;
    value.each([&members](const std::string& name, JsonView member) {
      members.emplace_back(name, member);
    });
    std::sort(members.begin(), members.end(),
              [](const auto& a, const auto& b) { return comes_before(a.first, b.first); });
    char before = '{';
    for (const auto& [name, member] : members) {
      text_ += std::exchange(before, ',') + json_string(name) + ':';
      if (!write(member)) return false;
    }
    text_ += members.empty() ? "{}" : "}";
    return true;
  }

  bool write_array(JsonView value) {
    text_ += '[';
    for (size_t i = 0; i < value.size(); i++) {
      if (i != 0) text_ += ',';
      if (!write(value[i])) return false;
    }
    text_ += ']';
    return true;
  }

  std::string text_;
};

}  // namespace

std::optional<std::string> canonical_json(JsonView value) {
  Writer writer;
  if (!writer.write(value)) return {};
  return writer.take();
}

}  // namespace qimctl
