#include <libmnl/libmnl.h>
#include <libnftnl/expr.h>
#include <libnftnl/rule.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>

#include <cstring>
#include <memory>
#include <vector>

#include "bench/peers/peers.h"

namespace bench::peers::nftnl {
namespace {

using benchmark::State;

constexpr size_t kRoom = 4096;
using Rule_ = std::unique_ptr<nftnl_rule, void (*)(const nftnl_rule*)>;

// A rule with one comparison for each criterion of the filter.
Rule_ rule_of(const qim_filter_t& filter) {
  Rule_ rule(nftnl_rule_alloc(), nftnl_rule_free);
  check(rule != nullptr, "libnftnl", "make a rule");
  nftnl_rule_set_str(rule.get(), NFTNL_RULE_TABLE, "policy");
  nftnl_rule_set_str(rule.get(), NFTNL_RULE_CHAIN, "input");
  nftnl_rule_set_u32(rule.get(), NFTNL_RULE_FAMILY, NFPROTO_INET);
  for (const qim_criterion_t* crit = filter.crit; crit != nullptr; crit = crit->next) {
    nftnl_expr* expr = nftnl_expr_alloc("cmp");
    check(expr != nullptr, "libnftnl", "make an expression");
    nftnl_expr_set_u32(expr, NFTNL_EXPR_CMP_SREG, NFT_REG_1);
    nftnl_expr_set_u32(expr, NFTNL_EXPR_CMP_OP, NFT_CMP_EQ);
    nftnl_expr_set(expr, NFTNL_EXPR_CMP_DATA, crit->args, crit->args_len);
    nftnl_rule_add_expr(rule.get(), expr);
  }
  return rule;
}

nlmsghdr* build(nftnl_rule* rule, char* room) {
  nlmsghdr* head = nftnl_nlmsg_build_hdr(room, NFT_MSG_NEWRULE, NFPROTO_INET, 0, 1);
  nftnl_rule_nlmsg_build_payload(head, rule);
  return head;
}

}  // namespace

void add_decoders(const qim_node_t& node, Workload* workload) {
  if (node.type != QIM_NODE_FILTER) return;
  std::vector<char> bytes(kRoom);
  (void)build(rule_of(node.body.filter).get(), bytes.data());
  workload->sides.push_back({"libnftnl, parse + free", [bytes](State& state) {
                               const auto* head = reinterpret_cast<const nlmsghdr*>(bytes.data());
                               for (auto _ : state) {
                                 nftnl_rule* rule = nftnl_rule_alloc();
                                 check(rule != nullptr && nftnl_rule_nlmsg_parse(head, rule) == 0,
                                       "libnftnl", "parse");
                                 benchmark::DoNotOptimize(rule);
                                 nftnl_rule_free(rule);
                               }
                             }});
  workload->claims.push_back({"ours", "libnftnl, parse + free", Rule::kAtMost, 0.1});
}

void add_encoders(const qim_node_t& node, Workload* workload) {
  if (node.type != QIM_NODE_FILTER) return;
  const std::shared_ptr<nftnl_rule> rule(rule_of(node.body.filter).release(), nftnl_rule_free);
  workload->sides.push_back({"libnftnl, build", [rule](State& state) {
                               char room[kRoom];
                               for (auto _ : state) {
                                 benchmark::DoNotOptimize(build(rule.get(), room));
                               }
                             }});
  workload->claims.push_back({"ours", "libnftnl, build", Rule::kAtMost, 0.15});
}

}  // namespace bench::peers::nftnl
