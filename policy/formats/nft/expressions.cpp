// The pieces of rules as JSON.
#include "policy/formats/nft/expressions.h"

#include "policy/base/json_print.h"

namespace qimctl::nft {

namespace {

std::string_view name_of(Base base) {
  switch (base) {
    case Base::link:
      return "ll";
    case Base::network:
      return "nh";
    case Base::transport:
      break;
  }
  return "th";
}

std::string array(const std::vector<std::string>& elements) {
  std::string text = "[";
  for (const std::string& element : elements) {
    if (text.size() > 1) text += ',';
    text += element;
  }
  return text + ']';
}

std::string object(std::string_view name, const std::string& value) {
  return "{\"" + std::string(name) + "\":" + value + '}';
}

std::string match(std::string_view op, const std::string& left, const std::string& right) {
  return R"({"match":{"op":")" + std::string(op) + R"(","left":)" + left + ",\"right\":" + right +
         "}}";
}

std::string to_chain(std::string_view how, const std::string& chain) {
  return object(how, object("target", json_string(chain)));
}

}  // namespace

std::string payload(const Bits& bits) {
  return R"({"payload":{"base":")" + std::string(name_of(bits.base)) + R"(","offset":)" +
         std::to_string(bits.offset) + ",\"len\":" + std::to_string(bits.length) + "}}";
}

std::string meta(std::string_view key) {
  return object("meta", object("key", json_string(key)));
}

std::string range(uint64_t first, uint64_t last) {
  if (first == last) return number(first);
  return object("range", array({number(first), number(last)}));
}

std::string number(uint64_t value) {
  return std::to_string(value);
}

std::string set_of(const std::vector<std::string>& elements) {
  return object("set", array(elements));
}

std::string concat(const std::vector<std::string>& parts) {
  return object("concat", array(parts));
}

std::string equal(const std::string& left, const std::string& right) {
  return match("==", left, right);
}

std::string differs(const std::string& left, const std::string& right) {
  return match("!=", left, right);
}

std::string masked(const std::string& left, uint64_t mask) {
  return object("&", array({left, number(mask)}));
}

std::string lies_within(const Bits& bits) {
  return equal(masked(payload(bits), 0), number(0));
}

std::string counter() {
  return R"({"counter":{"packets":0,"bytes":0}})";
}

std::string verdict(std::string_view name) {
  return object(name, "null");
}

std::string jump(const std::string& chain) {
  return to_chain("jump", chain);
}

std::string go_to(const std::string& chain) {
  return to_chain("goto", chain);
}

std::string reject() {
  return R"({"reject":{"type":"icmpx","expr":"admin-prohibited"}})";
}

std::string log(const std::string& prefix) {
  return object("log", object("prefix", json_string(prefix)));
}

std::string over_limit(const std::string& limit) {
  return object("limit", json_string(limit));
}

std::string expressions(const std::vector<std::string>& all) {
  return array(all);
}

}  // namespace qimctl::nft
