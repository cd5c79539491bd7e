#include "tests/system/e2e/write_samples.h"

#include <gtest/gtest.h>

#include "rov_edit.h"

namespace e2e {
namespace {

using node_test::Sample;

std::uint8_t* data_of(const Bytes& bytes) {
  return bytes.empty() ? nullptr : const_cast<std::uint8_t*>(bytes.data());
}

// Hangs the sample's criteria and arguments on the record, which a copy does not have.
void complete(const Sample& sample, std::vector<qim_criterion_t>& criteria, qim_node_t* node) {
  const auto args_len = static_cast<std::uint32_t>(sample.args.size());
  switch (node->type) {
    case QIM_NODE_FILTER:
      for (std::size_t i = 0; i < criteria.size(); ++i) {
        const Bytes& args = sample.criteria[i].args;
        qim_criterion_t* const next = i + 1 < criteria.size() ? &criteria[i + 1] : nullptr;
        criteria[i] = {next, sample.criteria[i].type, static_cast<std::uint32_t>(args.size()),
                       data_of(args)};
      }
      node->body.filter.crit = criteria.empty() ? nullptr : criteria.data();
      return;
    case QIM_NODE_ACTION:
      node->body.action.args = data_of(sample.args);
      node->body.action.args_len = args_len;
      return;
    case QIM_NODE_DEF:
      node->body.def.args = data_of(sample.args);
      node->body.def.args_len = args_len;
      return;
    default:
      return;
  }
}

void put_node(std::uint32_t writer, const Sample& sample) {
  const Bytes tlv = sample.is_data_set() ? Bytes() : tlv_of(sample);
  rov_edit_node_t node{};
  node.id = db_id(sample.copy.id);
  node.flags = sample.is_data_set() ? ROV_NODE_DSET : 0;
  node.tlv_len = static_cast<std::uint32_t>(tlv.size());
  node.tlv = data_of(tlv);
  node.dset_len = static_cast<std::uint32_t>(sample.dset_name.size());
  node.dset = data_of(sample.dset_name);
  EXPECT_EQ(rov_edit_node_put(writer, &node), 0u) << sample.name << ": " << rov_err_message();
}

void put_link(std::uint32_t writer, const Sample& sample, const qim_link_t& from) {
  rov_link_t link{};
  link.owner = db_id(sample.copy.id);
  link.field = from.field;
  link.node = db_id(from.node);
  link.node2 = db_id(from.node2);
  link.val = from.val;
  link.tag = from.tag;
  EXPECT_EQ(rov_edit_link_put(writer, &link), 0u) << sample.name << ": " << rov_err_message();
}

}  // namespace

Bytes tlv_of(const Sample& sample) {
  qim_node_t node = sample.copy;
  std::vector<qim_criterion_t> criteria(sample.criteria.size());
  complete(sample, criteria, &node);
  const std::uint32_t size = qim_node_get_tlv_sz(&node);
  EXPECT_NE(size, 0xffffffffu) << sample.name;
  Bytes tlv(size);
  std::uint32_t len = 0;
  EXPECT_EQ(qim_node_to_tlv(&node, tlv.data(), size, &len, nullptr, 0), 0u) << sample.name;
  EXPECT_EQ(len, size) << sample.name;
  return tlv;
}

void put(std::uint32_t writer, const Sample& sample) {
  put_node(writer, sample);
  for (const qim_link_t& link : sample.links) put_link(writer, sample, link);
  if (sample.priv.empty()) return;
  const rov_node_id_t id = db_id(sample.copy.id);
  EXPECT_EQ(rov_node_priv_set(writer, &id, sample.priv.data(),
                              static_cast<std::uint32_t>(sample.priv.size())),
            0u)
      << sample.name << ": " << rov_err_message();
}

void write_samples(const std::string& database) {
  const Client client(database);
  std::uint32_t writer = 0;
  EXPECT_EQ(rov_edit_begin(client.db(), &writer), 0u) << rov_err_message();
  for (const Sample& sample : node_test::samples()) put(writer, sample);
  EXPECT_EQ(rov_edit_commit(writer), 0u) << rov_err_message();
}

}  // namespace e2e
