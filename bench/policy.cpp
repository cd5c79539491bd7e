#include "bench/policy.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

constexpr uint32_t kPolicyType = 5;

uint32_t mix(uint32_t a, uint32_t b) {
  uint32_t x = a * 0x9e3779b1U ^ (b + 0x7f4a7c15U) * 0x85ebca6bU;
  x ^= x >> 15;
  x *= 0x2c1b3c6dU;
  return x ^ x >> 13;
}

// Every link field code of a type; those of the first kind hold a bare identifier.
struct Codes {
  uint32_t type;
  std::vector<uint16_t> single;
  std::vector<uint16_t> full;
};
const Codes kCodes[] = {{QIM_NODE_FILTER, {0x081}, {}},
                        {QIM_NODE_ACTION, {0x141}, {}},
                        {QIM_NODE_IFELSE, {}, {0x241, 0x242, 0x243, 0x244}},
                        {QIM_NODE_HFILTER, {0x081}, {0x102}},
                        {QIM_NODE_HACTION, {0x141}, {0x182}},
                        {QIM_NODE_POLICE, {0x141}, {0x201, 0x202, 0x203}},
                        {QIM_NODE_GROUP, {0x282}, {0x281}},
                        {QIM_NODE_DEF, {0x301}, {0x302}},
                        {QIM_NODE_PINST, {}, {0x2c1}},
                        {QIM_NODE_EDEST, {}, {0x2c1}}};

// The node that a link of another one leads to.
qim_node_id_t target_of(const Plan& plan, uint32_t index, uint16_t field) {
  const uint32_t any = mix(index, field);
  if (plan.reach == 0) return id_at(any % plan.nodes);
  return id_at((index + plan.nodes + any % (2 * plan.reach) - plan.reach) % plan.nodes);
}

std::vector<qim_link_t> links_of(const Plan& plan, uint32_t index, uint32_t type) {
  std::vector<qim_link_t> links;
  for (const Codes& codes : kCodes) {
    if (codes.type != type) continue;
    for (const uint16_t field : codes.single) {
      links.push_back({target_of(plan, index, field), 0, 0, 0, field});
    }
    for (const uint16_t field : codes.full) {
      links.push_back({target_of(plan, index, field), 0, field, 7, field});
    }
  }
  if (type == QIM_NODE_EDEST) links[0].node = id_at(index - 1);
  return links;
}

}  // namespace

const char* type_name(uint32_t type) {
  constexpr const char* kNames[] = {"?",      "Filter", "Action", "Ifelse", "Hfilter", "Haction",
                                    "Police", "Group",  "Pinst",  "Def",    "Edest"};
  return type < std::size(kNames) ? kNames[type] : kNames[0];
}

Record::Record(uint32_t type, uint32_t criteria, uint32_t seed) {
  node_.type = type;
  node_.group = mix(seed, 1) % 100;
  node_.flags = mix(seed, 2) % 4;
  args_.resize(size_t{kArgBytes} * (criteria + 1));
  for (size_t i = 0; i < args_.size(); ++i)
    args_[i] = static_cast<uint8_t>(mix(seed, 100) >> i % 8);
  qim_node_body_t& body = node_.body;
  if (type == QIM_NODE_FILTER) {
    criteria_.resize(criteria);
    for (uint32_t i = 0; i < criteria; ++i) {
      criteria_[i] = {i + 1 < criteria ? &criteria_[i + 1] : nullptr, mix(seed, i) % 32, kArgBytes,
                      &args_[size_t{kArgBytes} * i]};
    }
    body.filter.flags = 1;
    body.filter.match = QIM_LINK_TRUE;
    body.filter.nomatch = QIM_LINK_NEXT;
    body.filter.crit = criteria == 0 ? nullptr : criteria_.data();
  } else if (type == QIM_NODE_ACTION) {
    body.action.type = mix(seed, 3) % 64;
    body.action.args_len = kArgBytes;
    body.action.args = args_.data();
  } else if (type == QIM_NODE_DEF) {
    body.def.type = mix(seed, 3) % 64;
    body.def.args_len = kArgBytes;
    body.def.args = args_.data();
  } else if (type == QIM_NODE_HFILTER) {
    body.hfilter.true_act = QIM_LINK_TRUE;
    body.hfilter.false_act = QIM_LINK_FALSE;
    body.hfilter.nomatch_act = QIM_LINK_NOMATCH;
    body.hfilter.type = mix(seed, 3) % 64;
  } else if (type == QIM_NODE_HACTION) {
    body.haction.type = mix(seed, 3) % 64;
  } else if (type == QIM_NODE_GROUP) {
    body.group.type = QIM_GROUP_IFELSE;
    body.group.subtype = mix(seed, 4) % 64;
  } else if (type == QIM_NODE_POLICE) {
    body.police.comt_bw = {1, 0, mix(seed, 5), 2, 0, mix(seed, 6)};
    body.police.peak_bw = {1, 0, mix(seed, 7), 2, 0, mix(seed, 8)};
  }
}

Bytes Record::tlv() const {
  Bytes bytes(qim_node_get_tlv_sz(&node_));
  uint32_t len = 0;
  const auto room = static_cast<uint32_t>(bytes.size());
  if (qim_node_to_tlv(&node_, bytes.data(), room, &len, nullptr, 0) != 0 || len != room) {
    std::fputs("bench: a record can't be encoded\n", stderr);
    std::exit(1);
  }
  return bytes;
}

qim_policy_dest_t place_of(uint32_t index) {
  qim_policy_dest_t place = {};
  qim_if_policy_dest_set(1, 2, 3, index + 1, &place);
  return place;
}

Bytes name_at(const qim_policy_dest_t& place) {
  qim_pinst_fields_t fields = {};
  fields.dest = place;
  fields.dir = QIM_DIR_IN;
  fields.type = kPolicyType;
  qim_dsetname_t name;
  qim_pinst_to_dsetname(&fields, &name);
  Bytes bytes(sizeof name);
  std::memcpy(bytes.data(), &name, sizeof name);
  return bytes;
}

Image image_at(const Plan& plan, uint32_t index) {
  const uint32_t slot = index % kBlock;
  const bool named = slot >= kPinstAt && index / kBlock % plan.named_every == 0;
  const uint32_t type = slot < kPinstAt || named ? kTypes[slot] : uint32_t{QIM_NODE_FILTER};
  Image image;
  image.id = id_at(index);
  image.tlv = Record(type, plan.criteria, index).tlv();
  image.links = links_of(plan, index, type);
  if (named) image.name = name_at(place_of(index));
  return image;
}

}  // namespace bench
