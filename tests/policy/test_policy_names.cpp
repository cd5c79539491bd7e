// The names of lists, entries, interfaces and policers, as any client of the libraries reads them.
#include <gtest/gtest.h>

#include "policy/store/list_nodes.h"
#include "policy/store/store_policy.h"
#include "qim_acl.h"
#include "rov.h"
#include "tests/tools/support.h"

namespace {

bool g_no_memory = false;

}  // namespace

// The readers' memory comes from here.
extern "C" {
void* __real_malloc(size_t size);
__attribute__((visibility("default"))) void* __wrap_malloc(size_t size);
void* __wrap_malloc(size_t size) {
  return g_no_memory ? nullptr : __real_malloc(size);
}
}

namespace {

using qimctl::Attachment;
using qimctl::Model;
using qimctl::Node;

Model named_model() {
  Model model;
  qimctl::AccessList list;
  list.name = "gu\xc3\xa4rd";
  qimctl::Entry entry;
  entry.name = "telnet";
  entry.criteria = {{0x0305, {6}}};
  entry.log = true;
  entry.policer = "trickle";
  list.entries = {entry};
  model.lists = {list};
  model.attachments = {{"gu\xc3\xa4rd", "te0/1", QIM_DIR_IN, 1, {}}};
  model.policers = {{"trickle", qimctl::Policer::Unit::packets, 100, 10, 200, 20}};
  return model;
}

class PolicyNames : public testing::Test {
 protected:
  void SetUp() override {
    nodes_ = qimctl::make_nodes(named_model());
    Node nameless;
    nameless.id = 7;
    nameless.record.type = QIM_NODE_GROUP;
    Node bare;
    bare.id = 8;
    bare.record.type = QIM_NODE_FILTER;
    bare.criteria = {{0x0305, {6}}};
    Node wrong;  // named by what is no name
    wrong.id = 9;
    wrong.record.type = QIM_NODE_GROUP;
    wrong.links = {{QIM_LN_GROUP_NAME, id_of(QIM_NODE_POLICE), 0, 0, 0}};
    Node action;
    action.id = 10;
    action.record.type = QIM_NODE_ACTION;
    Node empty;
    empty.id = 11;
    empty.record.type = QIM_NODE_ACTION;
    empty.record.body.action.type = QIM_ACTION_NAME;
    std::vector<Node> all = nodes_;
    all.insert(all.end(), {nameless, bare, wrong, action, empty});
    qimctl::WriteSession session(database_);
    qimctl::write_policies({{all, {}}}, session, {});
    session.commit();
  }

  uint32_t id_of(uint32_t type) const {
    for (const Node& node : nodes_) {
      if (node.record.type == type) return node.id;
    }
    return 0;
  }

  template <typename Get>
  std::string name(Get get, uint32_t id) const {
    const qimctl::ReadSession session(database_);
    char text[64];
    uint32_t length = 99;
    const uint32_t status = get(session.handle(), id, sizeof text, text, &length);
    if (status != 0) return "status " + std::to_string(status);
    EXPECT_EQ(strlen(text), length);
    return text;
  }

  tools_test::TempDir dir_;
  qimctl::Database database_{dir_ / "db", qimctl::OpenMode::create};
  std::vector<Node> nodes_;
};

std::string status(uint32_t code) {
  return "status " + std::to_string(code);
}

TEST_F(PolicyNames, EveryClientReadsThem) {
  EXPECT_EQ(name(qim_list_name_get, id_of(QIM_NODE_GROUP)), "gu\xc3\xa4rd");
  EXPECT_EQ(name(qim_entry_name_get, id_of(QIM_NODE_FILTER)), "telnet");
  EXPECT_EQ(name(qim_interface_name_get, id_of(QIM_NODE_EDEST)), "te0/1");
  EXPECT_EQ(name(qim_policer_name_get, id_of(QIM_NODE_POLICE)), "trickle");
  EXPECT_EQ(name(qim_policy_name_get, 11), "");
}

TEST_F(PolicyNames, WhatHasNoneSaysSo) {
  EXPECT_EQ(uint32_t{QIM_POLICY_NO_NAME}, uint32_t{ROV_ERR_NO_LINK});
  EXPECT_EQ(name(qim_list_name_get, 7), status(QIM_POLICY_NO_NAME));
  EXPECT_EQ(name(qim_entry_name_get, 8), status(QIM_POLICY_NO_NAME));
  EXPECT_EQ(name(qim_list_name_get, 9), status(QIM_ERR_NODE_TYPE));
  EXPECT_EQ(name(qim_policy_name_get, 10), status(QIM_ERR_NODE_TYPE));
  EXPECT_EQ(name(qim_list_name_get, id_of(QIM_NODE_FILTER)), status(QIM_ERR_NODE_TYPE));
  EXPECT_EQ(name(qim_entry_name_get, id_of(QIM_NODE_GROUP)), status(QIM_ERR_NODE_TYPE));
  EXPECT_EQ(name(qim_interface_name_get, 77), status(ROV_ERR_NO_ITEM));
}

TEST_F(PolicyNames, WithoutMemoryThereIsAStatus) {
  const qimctl::ReadSession session(database_);
  const uint32_t filter = id_of(QIM_NODE_FILTER);
  char text[7] = "before";
  uint32_t length = 99;
  g_no_memory = true;
  const uint32_t refused = qim_entry_name_get(session.handle(), filter, sizeof text, text, &length);
  g_no_memory = false;
  EXPECT_EQ(refused, uint32_t{QIM_ERR_NO_MEM});
  EXPECT_EQ(length, 0u);
  EXPECT_STREQ(text, "before");
}

TEST_F(PolicyNames, ThatDoNotFitSayHowLongTheyAre) {
  const qimctl::ReadSession session(database_);
  uint32_t length = 0;
  char text[7] = "before";
  EXPECT_EQ(qim_entry_name_get(session.handle(), id_of(QIM_NODE_FILTER), 0, nullptr, &length),
            uint32_t{QIM_ERR_BUF_SMALL});
  EXPECT_EQ(length, 6u);
  EXPECT_EQ(qim_entry_name_get(session.handle(), id_of(QIM_NODE_FILTER), 6, text, &length),
            uint32_t{QIM_ERR_BUF_SMALL});
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(qim_entry_name_get(session.handle(), id_of(QIM_NODE_FILTER), 7, text, &length), 0u);
  EXPECT_STREQ(text, "telnet");
}

// What becomes of a packet stands in front, then the policer, then the log.
TEST_F(PolicyNames, APolicerStandsBetweenTheActionAndTheLog) {
  const qimctl::ReadSession session(database_);
  qim_node_t police;
  ASSERT_EQ(qim_node_read(session.handle(), id_of(QIM_NODE_POLICE), QIM_NODE_POLICE, &police), 0u);
  EXPECT_EQ(police.body.police.comt_bw.rate, 100u);
  EXPECT_EQ(police.body.police.comt_bw.rate_units, uint32_t{QIM_UNIT_PACKETS});
  EXPECT_EQ(police.body.police.peak_bw.burst, 20u);
  qim_node_t log;
  ASSERT_EQ(qim_node_read(session.handle(), police.body.police.ln_141, 0, &log), 0u);
  EXPECT_EQ(log.body.action.type, uint32_t{QIM_ACTION_LOG});
  qim_link_t link;
  ASSERT_EQ(qim_link_get(session.handle(), id_of(QIM_NODE_FILTER), QIM_LN_FILTER_TRUE, &link), 0u);
  qim_node_t forward;
  ASSERT_EQ(qim_node_read(session.handle(), link.node, 0, &forward), 0u);
  EXPECT_EQ(forward.body.action.ln_141, police.id);
}

}  // namespace
