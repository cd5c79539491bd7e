// Matches of other models as criteria. The arguments are three texts, each with its length in front
// (16 bits, big-endian), and the JSON behind them.
#include <array>
#include <stdexcept>

#include "policy/model/model.h"

namespace qimctl {

namespace {

void put(std::vector<uint8_t>& args, const std::string& text) {
  if (text.size() > UINT16_MAX)
    throw std::invalid_argument("a match of another model has a name that is too long");
  args.push_back(static_cast<uint8_t>(text.size() >> 8));
  args.push_back(static_cast<uint8_t>(text.size()));
  args.insert(args.end(), text.begin(), text.end());
}

// Takes a text away from the front.
std::string take(const std::vector<uint8_t>& args, size_t& at) {
  constexpr const char* damaged = "the arguments of a match of another model are damaged";
  if (args.size() - at < 2) throw std::invalid_argument(damaged);
  const size_t length = static_cast<size_t>(args[at]) << 8 | args[at + 1];
  at += 2;
  if (args.size() - at < length) throw std::invalid_argument(damaged);
  at += length;
  return {args.begin() + static_cast<std::ptrdiff_t>(at - length),
          args.begin() + static_cast<std::ptrdiff_t>(at)};
}

}  // namespace

Criterion to_criterion(const OpaqueMatch& match) {
  Criterion criterion{criterion_opaque, {}};
  for (const std::string* text : {&match.within, &match.module, &match.name})
    put(criterion.args, *text);
  criterion.args.insert(criterion.args.end(), match.json.begin(), match.json.end());
  return criterion;
}

OpaqueMatch to_opaque(const Criterion& criterion) {
  size_t at = 0;
  OpaqueMatch match;
  for (std::string* text : {&match.within, &match.module, &match.name})
    *text = take(criterion.args, at);
  match.json.assign(criterion.args.begin() + static_cast<std::ptrdiff_t>(at), criterion.args.end());
  return match;
}

}  // namespace qimctl
