// What tests of imported access lists share.
#include "tests/policy/rfc8519_support.h"

#include <fstream>
#include <iterator>

#include "policy/base/criteria.h"
#include "policy/base/json_text.h"
#include "policy/store/list_nodes.h"

namespace rfc8519_test {

std::string document(const std::string& members) {
  return R"({"ietf-access-control-list:acls":{)" + members + "}}";
}

std::string list_of(const std::string& entries) {
  return document(R"("acl":[{"name":"l","type":"mixed-eth-ipv4-ipv6-acl-type","aces":{"ace":[)" +
                  entries + "]}}]");
}

std::string entry(const std::string& name, const std::string& matches, const std::string& actions) {
  return R"({"name":")" + name + R"(","matches":{)" + matches + R"(},"actions":{)" + actions + "}}";
}

Policy read(const std::string& text) {
  qimctl::ModelInput input = qimctl::read_rfc8519(text, file_name);
  Policy policy;
  policy.nodes = qimctl::make_nodes(input.model);
  policy.findings = std::move(input.findings);
  std::vector<qimctl::Place*> places;
  for (Node& node : policy.nodes) places.push_back(&node.place);
  qimctl::fill_lines(text, file_name, places);
  return policy;
}

std::vector<std::string> problems_of(const std::string& text) {
  std::vector<std::string> lines;
  try {
    read(text);
  } catch (const qimctl::InputError& error) {
    for (const qimctl::Problem& problem : error.problems()) {
      EXPECT_EQ(problem.place.file, file_name);
      lines.push_back(std::to_string(problem.place.line) + " " + problem.place.path + " " +
                      problem.message);
    }
  }
  return lines;
}

void expect_problem(const std::string& text, const std::string& path, const std::string& message) {
  const std::vector<std::string> problems = problems_of(text);
  ASSERT_EQ(problems.size(), 1u) << testing::PrintToString(problems);
  const std::string& problem = problems.front();
  const size_t at = problem.find(path + " ");
  EXPECT_NE(at, std::string::npos) << problem;
  EXPECT_NE(problem.find(message), std::string::npos) << problem;
  EXPECT_NE(problem.substr(0, 2), "0 ") << problem;
}

std::vector<const Node*> of_type(const Policy& policy, uint32_t type) {
  std::vector<const Node*> found;
  for (const Node& node : policy.nodes) {
    const bool name = type == QIM_NODE_ACTION && node.record.body.action.type == QIM_ACTION_NAME;
    if (node.record.type == type && !name) found.push_back(&node);
  }
  return found;
}

const Node& by_id(const Policy& policy, uint32_t id) {
  static const Node none{};
  for (const Node& node : policy.nodes) {
    if (node.id == id) return node;
  }
  ADD_FAILURE() << "no node " << id;
  return none;
}

uint32_t target(const Node& node, uint16_t field) {
  for (const qimctl::Link& link : node.links) {
    if (link.field == field) return link.node;
  }
  return 0;
}

std::string name_of(const Policy& policy, const Node& node) {
  for (const qimctl::Criterion& criterion : node.criteria) {
    if (criterion.type == qimctl::criterion_name)
      return {criterion.args.begin(), criterion.args.end()};
  }
  if (node.record.type == QIM_NODE_PINST)
    return name_of(policy, by_id(policy, target(node, QIM_LN_PINST)));
  const bool list = node.record.type == QIM_NODE_GROUP;
  const uint32_t action = target(node, list ? QIM_LN_GROUP_NAME : QIM_LN_EDEST_NAME);
  if (action == 0) return "";
  const Node& name = by_id(policy, action);
  EXPECT_EQ(name.record.body.action.type, uint32_t{QIM_ACTION_NAME});
  return {name.args.begin(), name.args.end()};
}

std::string criteria_of(const Node& node) {
  std::string text;
  for (const qimctl::Criterion& criterion : node.criteria) {
    if (criterion.type == qimctl::criterion_name) continue;
    text += (text.empty() ? "" : ", ") + qimctl::criterion_text(criterion.type, criterion.args);
  }
  return text;
}

qim_pinst_fields_t dset_of(const Node& node) {
  qim_pinst_fields_t fields{};
  if (!node.dset) {
    ADD_FAILURE() << "node " << node.id << " has no data-set name";
    return fields;
  }
  qim_dsetname_t name = *node.dset;
  qim_pinst_from_dsetname(&fields, &name);
  return fields;
}

std::vector<const Finding*> findings(const Policy& policy, Fate fate) {
  std::vector<const Finding*> found;
  for (const Finding& finding : policy.findings) {
    if (finding.fate == fate) found.push_back(&finding);
  }
  return found;
}

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace rfc8519_test
