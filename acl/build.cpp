// Arguments of criteria made of values.
#include <initializer_list>

#include "acl/kinds.h"

namespace {

constexpr uint32_t kMaxFlags4 = 7;

// Where arguments are written: they are counted even where there is no room for them.
struct Output {
  uint8_t* at;
  uint32_t room;
  uint32_t len = 0;

  void put(uint32_t byte) {
    if (len < room) at[len] = static_cast<uint8_t>(byte);
    len++;
  }
  void put_number(uint32_t value, uint32_t width) {
    for (uint32_t i = width; i-- > 0;) put(value >> 8 * i);
  }
  void put_bytes(const qim_crit_bytes_t& bytes) {
    for (uint32_t i = 0; i < bytes.len; i++) put(bytes.at[i]);
  }
};

bool build_number(const qim_crit_kind_t& kind, uint32_t value, Output& out) {
  uint32_t max = kind.max;
  if (kind.layout == QIM_LAYOUT_IPV4_FLAGS) max = kMaxFlags4;
  if (kind.layout == QIM_LAYOUT_TCP_FLAGS) max = qim::acl::kMaxU8;
  if (value < kind.min || value > max) return false;
  out.put_number(value, qim::acl::fixed_bytes(kind.layout));
  return true;
}

void build_mac(const qim_crit_value_t& value, Output& out) {
  for (uint32_t i = 0; i < sizeof value.as.mac.mask; i++)
    out.put(static_cast<uint32_t>(value.as.mac.address[i] & value.as.mac.mask[i]));
  for (const uint8_t byte : value.as.mac.mask) out.put(byte);
}

bool build_network(const qim_crit_value_t& value, uint32_t width, Output& out) {
  const uint32_t bits = value.as.network.bits;
  if (bits > 8 * width) return false;
  for (uint32_t i = 0; i < width; i++) {
    const uint32_t kept = bits <= 8 * i ? 0 : bits - 8 * i;
    const uint32_t mask = kept >= 8 ? 0xffu : 0xff00u >> kept;
    out.put(value.as.network.address[i] & mask);
  }
  out.put(bits);
  return true;
}

bool build_ports(const qim_crit_value_t& value, Output& out) {
  const auto& ports = value.as.ports;
  const bool range = ports.comparison == QIM_PORT_RANGE;
  if (ports.comparison < QIM_PORT_EQ || ports.comparison > QIM_PORT_RANGE) return false;
  if (range && ports.first > ports.last) return false;
  out.put(ports.comparison);
  out.put_number(ports.first, 2);
  out.put_number(range ? ports.last : ports.first, 2);
  return true;
}

bool build_match(const qim_crit_value_t& value, Output& out) {
  const auto& match = value.as.match;
  for (const qim_crit_bytes_t* text : {&match.within, &match.module, &match.name}) {
    if (text->len > qim::acl::kMaxU16) return false;
    out.put_number(text->len, 2);
    out.put_bytes(*text);
  }
  out.put_bytes(match.json);
  return true;
}

bool build_as(const qim_crit_kind_t& kind, const qim_crit_value_t& value, Output& out) {
  switch (kind.layout) {
    case QIM_LAYOUT_NONE:
      return true;
    case QIM_LAYOUT_MAC:
      build_mac(value, out);
      return true;
    case QIM_LAYOUT_IPV4_NETWORK:
      return build_network(value, 4, out);
    case QIM_LAYOUT_IPV6_NETWORK:
      return build_network(value, 16, out);
    case QIM_LAYOUT_PORTS:
      return build_ports(value, out);
    case QIM_LAYOUT_INTERFACE:
      out.put_number(value.as.interface.index, 4);
      out.put_bytes(value.as.interface.name);
      return value.as.interface.name.len != 0;
    case QIM_LAYOUT_BYTES:
      out.put_bytes(value.as.bytes);
      return value.as.bytes.len >= kind.min && value.as.bytes.len <= kind.max;
    case QIM_LAYOUT_TEXT:
      out.put_bytes(value.as.bytes);
      return true;
    case QIM_LAYOUT_MATCH:
      return build_match(value, out);
    default:
      return build_number(kind, value.as.number, out);
  }
}

}  // namespace

// NOLINTNEXTLINE(readability-non-const-parameter): it is written through the output made of it
uint32_t qim_crit_build(const qim_crit_value_t* value, uint32_t room, uint8_t* args,
                        uint32_t* len) {
  *len = 0;
  const qim_crit_kind_t* kind = qim_crit_kind_get(value->type);
  if (kind == nullptr) return QIM_ERR_NOT_SUPPORTED;
  Output needed{nullptr, 0};
  if (!build_as(*kind, *value, needed)) return QIM_ERR_INVALID;
  *len = needed.len;
  if (needed.len > room) return QIM_ERR_BUF_SMALL;
  Output out{args, room};
  static_cast<void>(build_as(*kind, *value, out));
  return 0;
}
