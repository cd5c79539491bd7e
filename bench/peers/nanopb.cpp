#include <pb_decode.h>
#include <pb_encode.h>

#include <cstring>
#include <vector>

#include "bench/peers/nanopb_fixed/policy.pb.h"
#include "bench/peers/nanopb_pointers.h"
#include "bench/peers/peers.h"

namespace bench::peers::nanopb {
namespace {

using benchmark::State;
using Message = bench_pb_Node;

void fill_bw(const qim_action_bw_t& from, bench_pb_Bandwidth* to) {
  *to = {from.rate_units, from.rate, from.burst_units, from.burst};
}

void fill_filter(const qim_filter_t& from, bench_pb_Filter* to) {
  to->match = from.match;
  to->nomatch = from.nomatch;
  to->flags = from.flags;
  for (const qim_criterion_t* crit = from.crit; crit != nullptr; crit = crit->next) {
    bench_pb_Criterion& added = to->crit[to->crit_count++];
    added.type = crit->type;
    added.args.size = static_cast<pb_size_t>(crit->args_len);
    std::memcpy(added.args.bytes, crit->args, crit->args_len);
  }
}

Message message_of(const qim_node_t& node) {
  Message message = {};
  message.group = node.group;
  message.flags = node.flags;
  if (node.type == QIM_NODE_FILTER) {
    message.which_body = bench_pb_Node_filter_tag;
    fill_filter(node.body.filter, &message.body.filter);
  } else if (node.type == QIM_NODE_HFILTER) {
    message.which_body = bench_pb_Node_hfilter_tag;
    message.body.hfilter = {node.body.hfilter.type, node.body.hfilter.true_act,
                            node.body.hfilter.false_act, node.body.hfilter.nomatch_act};
  } else {
    message.which_body = bench_pb_Node_police_tag;
    message.body.police.has_comt = true;
    message.body.police.has_peak = true;
    fill_bw(node.body.police.comt_bw, &message.body.police.comt);
    fill_bw(node.body.police.peak_bw, &message.body.police.peak);
  }
  return message;
}

size_t encode(const Message& message, uint8_t* room, size_t size) {
  pb_ostream_t stream = pb_ostream_from_buffer(room, size);
  check(pb_encode(&stream, bench_pb_Node_fields, &message), "nanopb", "encode");
  return stream.bytes_written;
}

}  // namespace

void add_decoders(const qim_node_t& node, Workload* workload) {
  std::vector<uint8_t> bytes(1024);
  bytes.resize(encode(message_of(node), bytes.data(), bytes.size()));
  const bool variable = node.type == QIM_NODE_FILTER;
  workload->sides.push_back(
      {"nanopb, static", [bytes](State& state) {
         for (auto _ : state) {
           Message message;
           pb_istream_t stream = pb_istream_from_buffer(bytes.data(), bytes.size());
           check(pb_decode(&stream, bench_pb_Node_fields, &message), "nanopb", "decode");
           benchmark::DoNotOptimize(message);
         }
       }});
  workload->sides.push_back({"nanopb, malloc", [bytes](State& state) {
                               for (auto _ : state) {
                                 check(decode_with_pointers(bytes.data(), bytes.size()), "nanopb",
                                       "decode");
                               }
                             }});
  workload->claims.push_back(
      {"ours", "nanopb, static", variable ? Rule::kShown : Rule::kAtMost, 0.08});
  workload->claims.push_back(
      {"ours", "nanopb, malloc", variable ? Rule::kAtMost : Rule::kShown, 0.1});
}

void add_encoders(const qim_node_t& node, Workload* workload) {
  const Message message = message_of(node);
  workload->sides.push_back({"nanopb", [message](State& state) {
                               uint8_t room[1024];
                               for (auto _ : state) {
                                 (void)encode(message, room, sizeof room);
                                 benchmark::DoNotOptimize(room);
                               }
                             }});
  workload->claims.push_back({"ours", "nanopb", Rule::kAtMost, 0.05});
}

}  // namespace bench::peers::nanopb
