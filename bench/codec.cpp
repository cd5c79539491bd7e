// Decoding and encoding nodes.
#include <cstring>

#include "bench/hand_codec.h"
#include "bench/peers/peers.h"
#include "bench/policy.h"
#include "bench/workloads.h"
#include "mem.h"
#include "tlvo.h"

namespace bench {
namespace {

using benchmark::State;

constexpr uint32_t kCriteria = 4;
constexpr uint32_t kRoom = 1024;

// Gives back what decoding a node allocated.
void free_parts(qim_node_t* node) {
  if (node->type == QIM_NODE_FILTER) {
    for (qim_criterion_t* crit = node->body.filter.crit; crit != nullptr;) {
      qim_criterion_t* next = crit->next;
      if (crit->args != nullptr) mem_free(crit->args, nullptr);
      mem_free(crit, nullptr);
      crit = next;
    }
  }
  if (node->type == QIM_NODE_ACTION && node->body.action.args != nullptr) {
    mem_free(node->body.action.args, nullptr);
  }
  if (node->type == QIM_NODE_DEF && node->body.def.args != nullptr) {
    mem_free(node->body.def.args, nullptr);
  }
}

void decode_ours(State& state, const Bytes& tlv) {
  for (auto _ : state) {
    qim_node_t node;
    std::memset(&node, 0, sizeof node);
    qim_node_t* at = &node;
    if (qim_node_to_struct(&at, tlv.data(), static_cast<uint32_t>(tlv.size()), TLVO_DEC_IN_PLACE) !=
        0) {
      state.SkipWithError("a node can't be decoded");
    }
    benchmark::DoNotOptimize(node);
    free_parts(&node);
  }
}

void decode_by_hand(State& state, const Bytes& tlv) {
  for (auto _ : state) {
    qim_node_t node;
    std::memset(&node, 0, sizeof node);
    if (!hand_decode(tlv.data(), static_cast<uint32_t>(tlv.size()), &node)) {
      state.SkipWithError("a node can't be decoded by hand");
    }
    benchmark::DoNotOptimize(node);
    hand_free(&node);
  }
}

void encode_ours(State& state, const qim_node_t* node) {
  uint8_t room[kRoom];
  for (auto _ : state) {
    uint32_t len = 0;
    if (qim_node_to_tlv(node, room, sizeof room, &len, nullptr, 0) != 0) {
      state.SkipWithError("a node can't be encoded");
    }
    benchmark::DoNotOptimize(room);
  }
}

void encode_by_hand(State& state, const qim_node_t* node) {
  uint8_t room[kRoom];
  for (auto _ : state) {
    if (hand_encode(node, room, sizeof room) == 0) {
      state.SkipWithError("a node can't be encoded by hand");
    }
    benchmark::DoNotOptimize(room);
  }
}

// The code written by hand must do the same, or comparing with it says nothing.
bool hand_agrees(const Record& record, const Bytes& tlv) {
  uint8_t room[kRoom];
  const uint32_t len = hand_encode(&record.node(), room, sizeof room);
  if (len != tlv.size() || std::memcmp(room, tlv.data(), len) != 0) return false;
  qim_node_t node = {};
  if (!hand_decode(tlv.data(), len, &node)) return false;
  const uint32_t again = hand_encode(&node, room, sizeof room);
  hand_free(&node);
  return again == len && std::memcmp(room, tlv.data(), len) == 0;
}

bool by_hand(uint32_t type) {
  return type == QIM_NODE_FILTER || type == QIM_NODE_HFILTER || type == QIM_NODE_POLICE;
}

void run_decode(Harness& harness, const Record& record, const Bytes& tlv) {
  const uint32_t type = record.node().type;
  Workload workload{std::string("decode ") + type_name(type), {}, {}};
  workload.sides.push_back({"ours", [&](State& state) { decode_ours(state, tlv); }});
  if (by_hand(type)) {
    workload.sides.push_back({"by hand", [&](State& state) { decode_by_hand(state, tlv); }});
    const Rule rule = type == QIM_NODE_FILTER ? Rule::kShown : Rule::kAtMost;
    workload.claims.push_back({"ours", "by hand", rule, 1.8});
    peers::add_decoders(record.node(), &workload);
  } else {
    workload.claims.push_back({"ours", ""});
  }
  harness.run(workload);
}

void run_encode(Harness& harness, const Record& record) {
  const uint32_t type = record.node().type;
  Workload workload{std::string("encode ") + type_name(type), {}, {}};
  const qim_node_t* node = &record.node();
  workload.sides.push_back({"ours", [=](State& state) { encode_ours(state, node); }});
  if (by_hand(type)) {
    workload.sides.push_back({"by hand", [=](State& state) { encode_by_hand(state, node); }});
    workload.claims.push_back({"ours", "by hand"});
    peers::add_encoders(*node, &workload);
  } else {
    workload.claims.push_back({"ours", ""});
  }
  harness.run(workload);
}

}  // namespace

void run_codec(Harness& harness) {
  for (const uint32_t type : kTypes) {
    const Record record(type, kCriteria, 12345);
    const Bytes tlv = record.tlv();
    if (by_hand(type) && !hand_agrees(record, tlv)) {
      std::fprintf(stderr, "bench: the code written by hand for %s differs\n", type_name(type));
      std::exit(1);
    }
    run_decode(harness, record, tlv);
    run_encode(harness, record);
  }
}

}  // namespace bench
