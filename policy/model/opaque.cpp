// Matches of other models as criteria.
#include <stdexcept>

#include "policy/model/model.h"
#include "qim_acl.h"

namespace qimctl {

namespace {

qim_crit_bytes_t bytes_of(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(text.size())};
}

std::string text_of(const qim_crit_bytes_t& bytes) {
  return {bytes.at, bytes.at + bytes.len};
}

}  // namespace

Criterion to_criterion(const OpaqueMatch& match) {
  qim_crit_value_t value{};
  value.type = criterion_opaque;
  value.as.match = {bytes_of(match.within), bytes_of(match.module), bytes_of(match.name),
                    bytes_of(match.json)};
  uint32_t length = 0;
  if (qim_crit_build(&value, 0, nullptr, &length) == QIM_ERR_INVALID)
    throw std::invalid_argument("a match of another model has a name that is too long");
  Criterion criterion{criterion_opaque, std::vector<uint8_t>(length)};
  qim_crit_build(&value, length, criterion.args.data(), &length);
  return criterion;
}

OpaqueMatch to_opaque(const Criterion& criterion) {
  qim_crit_value_t value;
  if (qim_crit_parse(criterion_opaque, static_cast<uint32_t>(criterion.args.size()),
                     criterion.args.data(), &value) != 0)
    throw std::invalid_argument("the arguments of a match of another model are damaged");
  const auto& match = value.as.match;
  return {text_of(match.within), text_of(match.module), text_of(match.name), text_of(match.json)};
}

}  // namespace qimctl
