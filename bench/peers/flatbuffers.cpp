#include "bench/peers/fb/policy_generated.h"
#include "bench/peers/peers.h"

namespace bench::peers::flatbuffers {
namespace {

using benchmark::State;
using Builder = ::flatbuffers::FlatBufferBuilder;
using Bytes = std::vector<uint8_t>;

::flatbuffers::Offset<bench_fb::Bandwidth> add_bw(Builder& builder, const qim_action_bw_t& bw) {
  return bench_fb::CreateBandwidth(builder, bw.rate_units, bw.rate, bw.burst_units, bw.burst);
}

::flatbuffers::Offset<void> add_filter(Builder& builder, const qim_filter_t& filter) {
  ::flatbuffers::Offset<bench_fb::Criterion> criteria[64];
  size_t count = 0;
  for (const qim_criterion_t* crit = filter.crit; crit != nullptr; crit = crit->next) {
    const auto args = builder.CreateVector(crit->args, crit->args_len);
    criteria[count++] = bench_fb::CreateCriterion(builder, crit->type, args);
  }
  const auto list = builder.CreateVector(criteria, count);
  return bench_fb::CreateFilter(builder, filter.match, filter.nomatch, filter.flags, list).Union();
}

void build(Builder& builder, const qim_node_t& node) {
  ::flatbuffers::Offset<void> body;
  auto type = bench_fb::Body_Police;
  if (node.type == QIM_NODE_FILTER) {
    type = bench_fb::Body_Filter;
    body = add_filter(builder, node.body.filter);
  } else if (node.type == QIM_NODE_HFILTER) {
    type = bench_fb::Body_Hfilter;
    const qim_hfilter_t& hfilter = node.body.hfilter;
    body = bench_fb::CreateHfilter(builder, hfilter.type, hfilter.true_act, hfilter.false_act,
                                   hfilter.nomatch_act)
               .Union();
  } else {
    const auto comt = add_bw(builder, node.body.police.comt_bw);
    const auto peak = add_bw(builder, node.body.police.peak_bw);
    body = bench_fb::CreatePolice(builder, comt, peak).Union();
  }
  builder.Finish(bench_fb::CreateNode(builder, node.group, node.flags, type, body));
}

void read_bw(const bench_fb::Bandwidth* from, qim_action_bw_t* to) {
  if (from == nullptr) return;
  *to = {from->rate_units(), 0, from->rate(), from->burst_units(), 0, from->burst()};
}

// Verifies the bytes and reads every field into a record, as a user of the record would.
void read(const Bytes& bytes, qim_node_t* node) {
  ::flatbuffers::Verifier verifier(bytes.data(), bytes.size());
  check(bench_fb::VerifyNodeBuffer(verifier), "FlatBuffers", "verify");
  const bench_fb::Node* from = bench_fb::GetNode(bytes.data());
  node->group = from->group();
  node->flags = from->flags();
  if (const bench_fb::Filter* filter = from->body_as_Filter()) {
    node->body.filter.match = filter->match();
    node->body.filter.nomatch = filter->nomatch();
    node->body.filter.flags = filter->flags();
    // The list stays where it is: that is what this format is for.
    for (const bench_fb::Criterion* crit : *filter->crit()) {
      benchmark::DoNotOptimize(crit->type());
      benchmark::DoNotOptimize(crit->args()->data());
    }
  } else if (const bench_fb::Hfilter* hfilter = from->body_as_Hfilter()) {
    node->body.hfilter.type = hfilter->type();
    node->body.hfilter.true_act = hfilter->true_act();
    node->body.hfilter.false_act = hfilter->false_act();
    node->body.hfilter.nomatch_act = hfilter->nomatch_act();
  } else if (const bench_fb::Police* police = from->body_as_Police()) {
    read_bw(police->comt(), &node->body.police.comt_bw);
    read_bw(police->peak(), &node->body.police.peak_bw);
  }
}

}  // namespace

void add_decoders(const qim_node_t& node, Workload* workload) {
  Builder builder;
  build(builder, node);
  const Bytes bytes(builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize());
  workload->sides.push_back({"FlatBuffers, verified", [bytes](State& state) {
                               for (auto _ : state) {
                                 qim_node_t record = {};
                                 read(bytes, &record);
                                 benchmark::DoNotOptimize(record);
                               }
                             }});
  const Rule rule = node.type == QIM_NODE_FILTER ? Rule::kShown : Rule::kAtMost;
  workload->claims.push_back({"ours", "FlatBuffers, verified", rule, 1.0});
}

void add_encoders(const qim_node_t& node, Workload* workload) {
  workload->sides.push_back({"FlatBuffers", [&node](State& state) {
                               Builder builder;
                               for (auto _ : state) {
                                 builder.Clear();
                                 build(builder, node);
                                 benchmark::DoNotOptimize(builder.GetBufferPointer());
                               }
                             }});
  workload->claims.push_back({"ours", "FlatBuffers"});
}

}  // namespace bench::peers::flatbuffers
