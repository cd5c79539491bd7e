#include <google/protobuf/arena.h>

#include <memory>
#include <string>

#include "bench/peers/pb/policy.pb.h"
#include "bench/peers/peers.h"

namespace bench::peers::protobuf {
namespace {

using benchmark::State;

void fill_bw(const qim_action_bw_t& from, bench_pb::Bandwidth* to) {
  to->set_rate_units(from.rate_units);
  to->set_rate(from.rate);
  to->set_burst_units(from.burst_units);
  to->set_burst(from.burst);
}

void fill_filter(const qim_filter_t& from, bench_pb::Filter* to) {
  to->set_match(from.match);
  to->set_nomatch(from.nomatch);
  to->set_flags(from.flags);
  for (const qim_criterion_t* crit = from.crit; crit != nullptr; crit = crit->next) {
    bench_pb::Criterion* added = to->add_crit();
    added->set_type(crit->type);
    added->set_args(crit->args, crit->args_len);
  }
}

bench_pb::Node message_of(const qim_node_t& node) {
  bench_pb::Node message;
  message.set_group(node.group);
  message.set_flags(node.flags);
  if (node.type == QIM_NODE_FILTER) {
    fill_filter(node.body.filter, message.mutable_filter());
  } else if (node.type == QIM_NODE_HFILTER) {
    bench_pb::Hfilter* hfilter = message.mutable_hfilter();
    hfilter->set_type(node.body.hfilter.type);
    hfilter->set_true_act(node.body.hfilter.true_act);
    hfilter->set_false_act(node.body.hfilter.false_act);
    hfilter->set_nomatch_act(node.body.hfilter.nomatch_act);
  } else {
    fill_bw(node.body.police.comt_bw, message.mutable_police()->mutable_comt());
    fill_bw(node.body.police.peak_bw, message.mutable_police()->mutable_peak());
  }
  return message;
}

void decode_fresh(State& state, const std::string& bytes) {
  for (auto _ : state) {
    auto message = std::make_unique<bench_pb::Node>();
    check(message->ParseFromString(bytes), "protobuf", "decode");
    benchmark::DoNotOptimize(message.get());
  }
}

void decode_in_arena(State& state, const std::string& bytes) {
  char first[4096];
  for (auto _ : state) {
    google::protobuf::ArenaOptions options;
    options.initial_block = first;
    options.initial_block_size = sizeof first;
    google::protobuf::Arena arena(options);
    auto* message = google::protobuf::Arena::CreateMessage<bench_pb::Node>(&arena);
    check(message->ParseFromString(bytes), "protobuf", "decode");
    benchmark::DoNotOptimize(message);
  }
}

}  // namespace

void add_decoders(const qim_node_t& node, Workload* workload) {
  const std::string bytes = message_of(node).SerializeAsString();
  workload->sides.push_back(
      {"protobuf, fresh", [bytes](State& state) { decode_fresh(state, bytes); }});
  workload->sides.push_back(
      {"protobuf, arena", [bytes](State& state) { decode_in_arena(state, bytes); }});
  const Rule rule = node.type == QIM_NODE_FILTER ? Rule::kAtMost : Rule::kShown;
  workload->claims.push_back({"ours", "protobuf, fresh", rule, 0.33});
  workload->claims.push_back({"ours", "protobuf, arena"});
}

void add_encoders(const qim_node_t& node, Workload* workload) {
  const auto message = std::make_shared<bench_pb::Node>(message_of(node));
  workload->sides.push_back({"protobuf", [message](State& state) {
                               char room[1024];
                               for (auto _ : state) {
                                 check(message->SerializeToArray(room, sizeof room), "protobuf",
                                       "encode");
                                 benchmark::DoNotOptimize(room);
                               }
                             }});
  workload->claims.push_back({"ours", "protobuf", Rule::kAtMost, 0.6});
}

}  // namespace bench::peers::protobuf
