// A plain model in memory of what a database holds, and the comparison of both.
#ifndef TESTS_DATABASE_MODEL_H
#define TESTS_DATABASE_MODEL_H

#include <algorithm>
#include <map>
#include <set>

#include "tests/database/database_fixture.h"
#include "tests/database/random.h"

namespace testing_rov {

struct ModelLink {
  uint32_t node;
  uint32_t node2;
  uint32_t val;
  uint16_t tag;
};

struct ModelNode {
  Bytes tlv;
  Bytes dset;
  uint32_t flags = 0;
  Bytes priv;
  std::map<uint16_t, ModelLink> links;
};

using Model = std::map<uint32_t, ModelNode>;

inline std::map<uint32_t, uint32_t> model_referrers(const Model& model, uint32_t target) {
  std::map<uint32_t, uint32_t> found;
  for (const auto& [node, contents] : model) {
    for (const auto& [field, link] : contents.links) {
      if (link.node == target || link.node2 == target) found.emplace(node, field);
    }
  }
  return found;
}

inline std::vector<uint32_t> model_datasets(const Model& model) {
  std::set<std::pair<Bytes, uint32_t>> order;
  for (const auto& [node, contents] : model) {
    const bool dset = !contents.dset.empty() || (contents.flags & ROV_NODE_DSET) != 0;
    if (dset) order.emplace(contents.dset, node);
  }
  std::vector<uint32_t> nodes;
  for (const auto& entry : order) nodes.push_back(entry.second);
  return nodes;
}

// A database beside a model, and edits that are made in both.
class ModelDatabase : public DatabaseTest {
 protected:
  static constexpr uint32_t kNodes = 12;

  uint32_t any_node() { return 1 + random_.below(kNodes); }

  static void check_links(uint32_t ses, uint32_t node, const ModelNode& contents) {
    uint32_t n = 0;
    for (const auto& [field, link] : contents.links) {
      rov_link_t found;
      ASSERT_OK(rov_node_link_nth(ses, id(node), n++, &found));
      const rov_link_t expected = make_link(node, field, link.node, link.node2, link.val, link.tag);
      ASSERT_EQ(memcmp(&found, &expected, sizeof found), 0);
      ASSERT_OK(rov_node_link_get(ses, id(node), field, &found));
      ASSERT_EQ(memcmp(&found, &expected, sizeof found), 0);
    }
  }

  static void check_node(uint32_t ses, const Model& model, uint32_t node) {
    const auto at = model.find(node);
    rov_node_parms_t parms;
    if (at == model.end()) {
      ASSERT_STATUS(rov_node_parms_get(ses, id(node), &parms), ROV_ERR_NO_ITEM);
      return;
    }
    const ModelNode& contents = at->second;
    ASSERT_OK(rov_node_parms_get(ses, id(node), &parms));
    ASSERT_EQ(parms.flags, contents.flags);
    ASSERT_EQ(parms.links, contents.links.size());
    ASSERT_EQ(parms.dset_len, contents.dset.size());
    ASSERT_EQ(tlv_of(ses, node), contents.tlv);
    ASSERT_EQ(private_of(ses, node), contents.priv);
    check_links(ses, node, contents);
    const auto expected = model_referrers(model, node);
    ASSERT_EQ(parms.refs, expected.size());
    const auto found = referrers_of(ses, node);
    const std::vector<std::pair<uint32_t, uint32_t>> wanted(expected.begin(), expected.end());
    ASSERT_EQ(found, wanted);
  }

  static void check(uint32_t ses, const Model& model) {
    for (uint32_t node = 1; node <= kNodes; ++node) {
      check_node(ses, model, node);
      if (HasFatalFailure()) return;
    }
    std::vector<uint32_t> walked;
    rov_node_parms_t parms = {};
    while (rov_node_next(ses, parms.id, &parms) == ROV_OK) walked.push_back(number(parms.id));
    ASSERT_TRUE(std::equal(walked.begin(), walked.end(), model.begin(), model.end(),
                           [](uint32_t node, const auto& entry) { return node == entry.first; }));
    std::vector<uint32_t> sets;
    for (uint32_t n = 0; rov_ses_dset_get(ses, n, &parms) == ROV_OK; ++n)
      sets.push_back(number(parms.id));
    ASSERT_EQ(sets, model_datasets(model));
    uint32_t count = 0;
    ASSERT_OK(rov_ses_get_num_dsets(ses, &count));
    ASSERT_EQ(count, sets.size());
  }

  void put(uint32_t ses, Model& model) {
    const uint32_t node = any_node();
    ModelNode& contents = model[node];
    contents.tlv = pattern(random_(), random_.below(50));
    contents.dset = random_.below(3) == 0
                        ? name(std::string(1, static_cast<char>('a' + random_.below(3))))
                        : Bytes{};
    contents.flags = random_.below(4) == 0 ? uint32_t{ROV_NODE_DSET} : 0;
    ASSERT_OK(put_node(ses, node, contents.tlv, contents.dset, contents.flags));
  }

  void link(uint32_t ses, Model& model) {
    const uint32_t owner = any_node();
    const auto field = static_cast<uint16_t>(random_.below(5) * 0x3333);
    const ModelLink link = {any_node(), random_.below(2) == 0 ? any_node() : 0, random_(),
                            static_cast<uint16_t>(random_())};
    const uint32_t status = put_link(ses, owner, field, link.node, link.node2, link.val, link.tag);
    const auto at = model.find(owner);
    ASSERT_STATUS(status, at == model.end() ? ROV_ERR_NO_ITEM : ROV_OK);
    if (at != model.end()) at->second.links[field] = link;
  }

  void unlink(uint32_t ses, Model& model) {
    const uint32_t owner = any_node();
    const auto field = static_cast<uint16_t>(random_.below(5) * 0x3333);
    const uint32_t status = rov_edit_link_del(ses, id(owner), field);
    const auto at = model.find(owner);
    if (at == model.end()) {
      ASSERT_STATUS(status, ROV_ERR_NO_ITEM);
    } else if (at->second.links.erase(field) != 0) {
      ASSERT_STATUS(status, ROV_OK);
    } else {
      ASSERT_STATUS(status, ROV_ERR_NO_LINK);
    }
  }

  void remove(uint32_t ses, Model& model) {
    const uint32_t node = any_node();
    const uint32_t status = rov_edit_node_del(ses, id(node));
    ASSERT_STATUS(status, model.erase(node) != 0 ? ROV_OK : ROV_ERR_NO_ITEM);
  }

  void set_private(uint32_t ses, Model& model) {
    const uint32_t node = any_node();
    const Bytes data = pattern(random_(), random_.below(10));
    const rov_node_id_t node_id = id(node);
    const uint32_t status =
        rov_node_priv_set(ses, &node_id, data.data(), static_cast<uint32_t>(data.size()));
    const auto at = model.find(node);
    ASSERT_STATUS(status, at == model.end() ? ROV_ERR_NO_ITEM : ROV_OK);
    if (at != model.end()) at->second.priv = data;
  }

  void edit(uint32_t ses, Model& model) {
    switch (random_.below(10)) {
      case 0:
      case 1:
      case 2:
        return put(ses, model);
      case 3:
        return remove(ses, model);
      case 4:
        return set_private(ses, model);
      case 5:
        return unlink(ses, model);
      default:
        return link(ses, model);
    }
  }

  Random random_{1};
};

}  // namespace testing_rov

#endif
