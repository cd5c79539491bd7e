#include "bench/hand_codec.h"

#include <endian.h>

#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

uint32_t get32(const uint8_t* from) {
  uint32_t value;
  std::memcpy(&value, from, sizeof value);
  return be32toh(value);
}
uint64_t get64(const uint8_t* from) {
  uint64_t value;
  std::memcpy(&value, from, sizeof value);
  return be64toh(value);
}

bool take32(uint32_t len, const uint8_t* value, uint32_t* to) {
  if (len != 4) return false;
  *to = get32(value);
  return true;
}
bool take64(uint32_t len, const uint8_t* value, uint64_t* to) {
  if (len != 8) return false;
  *to = get64(value);
  return true;
}

// Calls take(tag, len, value) for each attribute.
template <class Take>
bool walk(const uint8_t* at, uint32_t len, Take take) {
  const uint8_t* end = at + len;
  while (at != end) {
    const auto left = static_cast<size_t>(end - at);
    if (left < 8) return false;
    const uint32_t bytes = get32(at + 4);
    const uint64_t whole = 8 + ((uint64_t{bytes} + 3) & ~uint64_t{3});
    if (whole > left) return false;
    if (!take(get32(at), bytes, at + 8)) return false;
    at += whole;
  }
  return true;
}

bool decode_bw(const uint8_t* tlv, uint32_t len, qim_action_bw_t* bw) {
  return walk(tlv, len, [bw](uint32_t tag, uint32_t bytes, const uint8_t* value) {
    switch (tag) {
      case 0x70001:
        return take32(bytes, value, &bw->rate_units);
      case 0x70002:
        return take64(bytes, value, &bw->rate);
      case 0x70003:
        return take32(bytes, value, &bw->burst_units);
      case 0x70004:
        return take64(bytes, value, &bw->burst);
      default:
        return true;
    }
  });
}

bool decode_police(const uint8_t* tlv, uint32_t len, qim_police_t* police) {
  return walk(tlv, len, [police](uint32_t tag, uint32_t bytes, const uint8_t* value) {
    switch (tag) {
      case 0x80001:
        return decode_bw(value, bytes, &police->comt_bw);
      case 0x80002:
        return decode_bw(value, bytes, &police->peak_bw);
      default:
        return true;
    }
  });
}

bool decode_hfilter(const uint8_t* tlv, uint32_t len, qim_hfilter_t* hfilter) {
  return walk(tlv, len, [hfilter](uint32_t tag, uint32_t bytes, const uint8_t* value) {
    switch (tag) {
      case 0x40001:
        return take32(bytes, value, &hfilter->type);
      case 0x40002:
        return take32(bytes, value, &hfilter->true_act);
      case 0x40003:
        return take32(bytes, value, &hfilter->false_act);
      case 0x40004:
        return take32(bytes, value, &hfilter->nomatch_act);
      default:
        return true;
    }
  });
}

bool decode_args(const uint8_t* value, uint32_t bytes, qim_criterion_t* crit) {
  crit->args = static_cast<uint8_t*>(std::malloc(bytes));
  if (crit->args == nullptr) return false;
  crit->args_len = bytes;
  std::memcpy(crit->args, value, bytes);
  return true;
}

bool decode_criterion(const uint8_t* tlv, uint32_t len, qim_criterion_t*** tail) {
  auto* crit = static_cast<qim_criterion_t*>(std::malloc(sizeof(qim_criterion_t)));
  if (crit == nullptr) return false;
  *crit = {};
  **tail = crit;
  *tail = &crit->next;
  return walk(tlv, len, [crit](uint32_t tag, uint32_t bytes, const uint8_t* value) {
    switch (tag) {
      case 0x30001:
        return take32(bytes, value, &crit->type);
      case 0x30002:
        return decode_args(value, bytes, crit);
      default:
        return true;
    }
  });
}

bool decode_filter(const uint8_t* tlv, uint32_t len, qim_filter_t* filter) {
  qim_criterion_t** tail = &filter->crit;
  return walk(tlv, len, [&tail, filter](uint32_t tag, uint32_t bytes, const uint8_t* value) {
    switch (tag) {
      case 0x20001:
        return take32(bytes, value, &filter->match);
      case 0x20002:
        return take32(bytes, value, &filter->nomatch);
      case 0x20003:
        return take32(bytes, value, &filter->flags);
      case 0x20004:
        return decode_criterion(value, bytes, &tail);
      default:
        return true;
    }
  });
}

bool decode_body(const uint8_t* value, uint32_t bytes, qim_node_t* node) {
  if (bytes < 4) return false;
  node->type = get32(value);
  switch (node->type) {
    case QIM_NODE_FILTER:
      return decode_filter(value + 4, bytes - 4, &node->body.filter);
    case QIM_NODE_HFILTER:
      return decode_hfilter(value + 4, bytes - 4, &node->body.hfilter);
    case QIM_NODE_POLICE:
      return decode_police(value + 4, bytes - 4, &node->body.police);
    default:
      return false;
  }
}

// Where the next attribute goes. The callers have made sure of the room.
struct Out {
  uint8_t* at;

  void put32(uint32_t value) {
    value = htobe32(value);
    std::memcpy(at, &value, sizeof value);
    at += sizeof value;
  }
  void put64(uint64_t value) {
    value = htobe64(value);
    std::memcpy(at, &value, sizeof value);
    at += sizeof value;
  }
  void attribute(uint32_t tag, uint32_t value) {
    put32(tag);
    put32(4);
    put32(value);
  }
  void attribute64(uint32_t tag, uint64_t value) {
    put32(tag);
    put32(8);
    put64(value);
  }
  // Begins an attribute whose length finish() fills in.
  uint8_t* begin(uint32_t tag) {
    put32(tag);
    put32(0);
    return at;
  }
  void finish(uint8_t* value) {
    const auto len = htobe32(static_cast<uint32_t>(at - value));
    std::memcpy(value - 4, &len, sizeof len);
  }
};

void encode_bw(Out& out, uint32_t tag, const qim_action_bw_t& bw) {
  uint8_t* value = out.begin(tag);
  out.attribute(0x70001, bw.rate_units);
  out.attribute64(0x70002, bw.rate);
  out.attribute(0x70003, bw.burst_units);
  out.attribute64(0x70004, bw.burst);
  out.finish(value);
}

void encode_criteria(Out& out, const qim_criterion_t* crit) {
  for (; crit != nullptr; crit = crit->next) {
    uint8_t* value = out.begin(0x20004);
    out.attribute(0x30001, crit->type);
    if (crit->args_len != 0) {
      out.put32(0x30002);
      out.put32(crit->args_len);
      std::memcpy(out.at, crit->args, crit->args_len);
      out.at += crit->args_len;
      for (; (out.at - value) % 4 != 0; ++out.at) *out.at = 0;
    }
    out.finish(value);
  }
}

void encode_body(Out& out, const qim_node_t* node) {
  switch (node->type) {
    case QIM_NODE_FILTER:
      out.attribute(0x20003, node->body.filter.flags);
      out.attribute(0x20001, node->body.filter.match);
      out.attribute(0x20002, node->body.filter.nomatch);
      encode_criteria(out, node->body.filter.crit);
      return;
    case QIM_NODE_HFILTER:
      out.attribute(0x40001, node->body.hfilter.type);
      out.attribute(0x40002, node->body.hfilter.true_act);
      out.attribute(0x40003, node->body.hfilter.false_act);
      out.attribute(0x40004, node->body.hfilter.nomatch_act);
      return;
    default:
      encode_bw(out, 0x80001, node->body.police.comt_bw);
      encode_bw(out, 0x80002, node->body.police.peak_bw);
  }
}

// More than any such node without its criteria needs.
constexpr uint32_t kMostFixed = 256;

uint32_t room_needed(const qim_node_t* node) {
  uint32_t bytes = kMostFixed;
  if (node->type != QIM_NODE_FILTER) return bytes;
  for (const qim_criterion_t* crit = node->body.filter.crit; crit != nullptr; crit = crit->next) {
    bytes += 32 + crit->args_len;
  }
  return bytes;
}

}  // namespace

bool hand_decode(const uint8_t* tlv, uint32_t len, qim_node_t* node) {
  return walk(tlv, len, [node](uint32_t tag, uint32_t bytes, const uint8_t* value) {
    switch (tag) {
      case 0x10001:
        return take32(bytes, value, &node->group);
      case 0x10002:
        return take32(bytes, value, &node->flags);
      case 0x10003:
        return decode_body(value, bytes, node);
      default:
        return true;
    }
  });
}

void hand_free(qim_node_t* node) {
  if (node->type != QIM_NODE_FILTER) return;
  for (qim_criterion_t* crit = node->body.filter.crit; crit != nullptr;) {
    qim_criterion_t* next = crit->next;
    std::free(crit->args);
    std::free(crit);
    crit = next;
  }
}

uint32_t hand_encode(const qim_node_t* node, uint8_t* to, uint32_t room) {
  if (room < room_needed(node)) return 0;
  Out out{to};
  out.attribute(0x10002, node->flags);
  out.attribute(0x10001, node->group);
  uint8_t* value = out.begin(0x10003);
  out.put32(node->type);
  encode_body(out, node);
  out.finish(value);
  return static_cast<uint32_t>(out.at - to);
}

}  // namespace bench
