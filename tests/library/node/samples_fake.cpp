#include "tests/library/node/samples_fake.h"

namespace node_test {
namespace {

fake::Filter filter_of(const Sample& s) {
  const qim_filter_t& body = s.copy.body.filter;
  fake::Filter filter{.flags = body.flags, .match = body.match, .nomatch = body.nomatch};
  for (const Criterion& crit : s.criteria) filter.criteria.push_back({crit.type, crit.args});
  return filter;
}

fake::Bandwidth bandwidth_of(const qim_action_bw_t& bw) {
  return {bw.rate_units, bw.rate, bw.burst_units, bw.burst};
}

void put_body(const Sample& s, fake::Node& node) {
  const qim_node_body_t& body = s.copy.body;
  switch (s.copy.type) {
    case QIM_NODE_FILTER:
      node.filter(filter_of(s));
      return;
    case QIM_NODE_ACTION:
      node.action({body.action.type, s.args});
      return;
    case QIM_NODE_IFELSE:
      node.ifelse();
      return;
    case QIM_NODE_HFILTER:
      node.hfilter({body.hfilter.type, body.hfilter.true_act, body.hfilter.false_act,
                    body.hfilter.nomatch_act});
      return;
    case QIM_NODE_HACTION:
      node.haction({body.haction.type});
      return;
    case QIM_NODE_POLICE:
      node.police({bandwidth_of(body.police.comt_bw), bandwidth_of(body.police.peak_bw)});
      return;
    case QIM_NODE_GROUP:
      node.group_body({body.group.type, body.group.subtype});
      return;
    case QIM_NODE_PINST:
      node.pinst();
      return;
    case QIM_NODE_DEF:
      node.def({body.def.type, s.args});
      return;
    case QIM_NODE_EDEST:
      node.edest();
      return;
    default:
      node.data_set();
  }
}

}  // namespace

void put(const Sample& s) {
  fake::Node& node = fake::node(s.copy.id);
  put_body(s, node);
  node.group(s.copy.group).flags(s.copy.flags).refs(s.copy.refs);
  node.dset_name(s.dset_name).priv(s.priv).priv_ptr(s.copy.priv_ptr);
  for (const qim_link_t& link : s.links) {
    node.link(link.field, {link.node, link.node2, link.val, link.tag});
  }
}

void put_all() {
  for (const Sample& sample : samples()) put(sample);
}

}  // namespace node_test
