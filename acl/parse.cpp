// Arguments of criteria taken apart.
#include <string.h>

#include <initializer_list>

#include "acl/kinds.h"

namespace {

uint32_t number(const uint8_t* at, uint32_t width) {
  uint32_t value = 0;
  for (uint32_t i = 0; i < width; i++) value = value << 8 | at[i];
  return value;
}

bool parse_network(const uint8_t* args, uint32_t width, qim_crit_value_t& out) {
  memcpy(out.as.network.address, args, width);
  out.as.network.bits = args[width];
  return args[width] <= 8 * width;
}

bool parse_ports(const uint8_t* args, qim_crit_value_t& out) {
  out.as.ports.comparison = args[0];
  out.as.ports.first = static_cast<uint16_t>(number(args + 1, 2));
  out.as.ports.last = static_cast<uint16_t>(number(args + 3, 2));
  return args[0] >= QIM_PORT_EQ && args[0] <= QIM_PORT_RANGE;
}

bool parse_match(const uint8_t* args, uint32_t len, qim_crit_value_t& out) {
  for (qim_crit_bytes_t* text : {&out.as.match.within, &out.as.match.module, &out.as.match.name}) {
    if (len < 2 || len - 2 < number(args, 2)) return false;
    *text = {args + 2, number(args, 2)};
    args += 2 + text->len;
    len -= 2 + text->len;
  }
  out.as.match.json = {args, len};
  return true;
}

// Of arguments that are long enough.
bool parse_as(uint32_t layout, uint32_t len, const uint8_t* args, qim_crit_value_t& out) {
  switch (layout) {
    case QIM_LAYOUT_NONE:
      return true;
    case QIM_LAYOUT_MAC:
      memcpy(out.as.mac.address, args, sizeof out.as.mac.address);
      memcpy(out.as.mac.mask, args + sizeof out.as.mac.address, sizeof out.as.mac.mask);
      return true;
    case QIM_LAYOUT_IPV4_NETWORK:
    case QIM_LAYOUT_IPV6_NETWORK:
      return parse_network(args, len - 1, out);
    case QIM_LAYOUT_PORTS:
      return parse_ports(args, out);
    case QIM_LAYOUT_INTERFACE:
      out.as.interface.index = number(args, 4);
      out.as.interface.name = {args + 4, len - 4};
      return true;
    case QIM_LAYOUT_BYTES:
    case QIM_LAYOUT_TEXT:
      out.as.bytes = {args, len};
      return true;
    case QIM_LAYOUT_MATCH:
      return parse_match(args, len, out);
    default:
      out.as.number = number(args, len);
      return true;
  }
}

bool may_be_longer(uint32_t layout) {
  return layout == QIM_LAYOUT_BYTES || layout == QIM_LAYOUT_TEXT || layout == QIM_LAYOUT_MATCH;
}

bool has_length(uint32_t layout, uint32_t len) {
  if (layout == QIM_LAYOUT_INTERFACE) return len > qim::acl::fixed_bytes(layout);
  return may_be_longer(layout) || len == qim::acl::fixed_bytes(layout);
}

}  // namespace

uint32_t qim_crit_parse(uint32_t type, uint32_t len, const uint8_t* args, qim_crit_value_t* out) {
  memset(out, 0, sizeof *out);
  out->type = type;
  const qim_crit_kind_t* kind = qim_crit_kind_get(type);
  if (kind == nullptr) return QIM_ERR_NOT_SUPPORTED;
  out->layout = kind->layout;
  if (has_length(kind->layout, len) && parse_as(kind->layout, len, args, *out)) return 0;
  memset(out, 0, sizeof *out);
  out->type = type;
  return QIM_ERR_INVALID;
}
