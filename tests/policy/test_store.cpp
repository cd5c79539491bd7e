// Writing policies into a database.
#include "policy/store/store_policy.h"

#include <gmock/gmock.h>

#include "mem.h"
#include "policy/store/node_image.h"
#include "rov.h"
#include "tests/tools/support.h"
#include "tlvo.h"

namespace {

using qimctl::Database;
using qimctl::Node;
using qimctl::OpenMode;
using qimctl::Policy;
using qimctl::ReadSession;
using qimctl::StoreCounts;
using qimctl::WriteSession;
using testing::ElementsAre;
using tools_test::problems_of;

Node node_of(uint32_t id, uint32_t type) {
  Node node;
  node.id = id;
  node.record.type = type;
  node.place = {"in.json", 0, "/nodes/" + std::to_string(id)};
  return node;
}

class Store : public testing::Test {
 protected:
  StoreCounts store(const std::vector<Node>& nodes, bool replace = false) {
    WriteSession session(database_);
    const StoreCounts counts = qimctl::write_policies({{nodes, {}}}, session, {.replace = replace});
    session.commit();
    return counts;
  }

  std::vector<uint32_t> stored_ids() const {
    const ReadSession session(database_);
    std::vector<uint32_t> ids;
    qimctl::each_node(session.handle(), [&ids](const rov_node_parms_t& parms) {
      ids.push_back(qim_from_rov_node_id(&parms.id));
    });
    return ids;
  }

  qimctl::NodeImage read(uint32_t id) const {
    return qimctl::read_node(ReadSession(database_), id);
  }

  std::vector<std::string> refusals(const std::vector<Node>& nodes) {
    std::vector<std::string> messages;
    for (const auto& problem : problems_of([&] { store(nodes); })) {
      messages.push_back(problem.message);
    }
    return messages;
  }

  tools_test::TempDir dir_;
  Database database_{dir_ / "db", OpenMode::create};
};

TEST(EncodeNode, gives_what_the_codec_decodes) {
  Node node = node_of(1, QIM_NODE_DEF);
  node.record.group = 7;
  node.record.flags = 9;
  node.record.body.def.type = 3;
  node.args = {1, 2, 3, 4, 5};
  const std::vector<uint8_t> tlv = qimctl::encode_node(node);
  qim_node_t record{};
  qim_node_t* into = &record;
  ASSERT_EQ(
      qim_node_to_struct(&into, tlv.data(), static_cast<uint32_t>(tlv.size()), TLVO_DEC_IN_PLACE),
      0u);
  EXPECT_EQ(record.type, uint32_t{QIM_NODE_DEF});
  EXPECT_EQ(record.group, 7u);
  EXPECT_EQ(record.flags, 9u);
  EXPECT_EQ(record.body.def.type, 3u);
  ASSERT_EQ(record.body.def.args_len, 5u);
  EXPECT_EQ(record.body.def.args[4], 5);
  EXPECT_EQ(mem_free(record.body.def.args, &qim_lib_get()->db_parms.mem), 0u);
}

TEST(EncodeNode, gives_nothing_for_data_set_nodes) {
  EXPECT_TRUE(qimctl::encode_node(node_of(1, QIM_NODE_DSET)).empty());
  EXPECT_TRUE(qimctl::encode_node(node_of(1, QIM_NODE_DSET_NONAME)).empty());
}

TEST_F(Store, stores_nodes_in_the_order_of_their_identifiers) {
  const StoreCounts counts = store(
      {node_of(3, QIM_NODE_DEF), node_of(0x80000001, QIM_NODE_DEF), node_of(2, QIM_NODE_DEF)});
  EXPECT_EQ(counts.nodes, 3u);
  EXPECT_EQ(counts.links, 0u);
  EXPECT_THAT(stored_ids(), ElementsAre(2u, 3u, 0x80000001u));
}

TEST_F(Store, stores_criteria_in_order) {
  Node node = node_of(1, QIM_NODE_FILTER);
  node.criteria = {{5, {1, 2, 3}}, {6, {}}, {7, std::vector<uint8_t>(300, 0xaa)}};
  store({node});
  const qimctl::NodeImage image = read(1);
  EXPECT_EQ(image.record.body.filter.crit_cnt, 3u);
  const qim_criterion_t* first = image.record.body.filter.crit;
  EXPECT_EQ(first->type, 5u);
  EXPECT_EQ(first->args_len, 3u);
  EXPECT_EQ(first->args[2], 3);
  EXPECT_EQ(first->next->type, 6u);
  EXPECT_EQ(first->next->args_len, 0u);
  EXPECT_EQ(first->next->next->args_len, 300u);
  EXPECT_EQ(first->next->next->next, nullptr);
}

TEST_F(Store, stores_links_and_counts_references) {
  Node from = node_of(1, QIM_NODE_FILTER);
  from.links = {{0x081, 2, 0, 0, 5}, {0x8082, 2, 3, 4, 65535}};
  const StoreCounts counts =
      store({from, node_of(2, QIM_NODE_FILTER), node_of(3, QIM_NODE_ACTION)});
  EXPECT_EQ(counts.links, 2u);
  const qimctl::NodeImage image = read(1);
  EXPECT_EQ(image.record.links_total, 2u);
  EXPECT_EQ(image.record.links_unfixed, 1u);
  ASSERT_EQ(image.links.size(), 2u);
  EXPECT_EQ(image.links[0].field, 0x081);
  EXPECT_EQ(image.links[0].tag, 5);
  EXPECT_EQ(image.links[1].node, 2u);
  EXPECT_EQ(image.links[1].node2, 3u);
  EXPECT_EQ(image.links[1].val, 4u);
  EXPECT_EQ(image.links[1].tag, 65535);
  EXPECT_EQ(read(2).record.refs, 1u);
  EXPECT_EQ(read(3).record.refs, 1u);
}

TEST_F(Store, reads_the_link_that_copies_of_groups_leave_out) {
  Node group = node_of(1, QIM_NODE_GROUP);
  group.links = {{0x282, 2, 0, 0, 0}};
  store({group, node_of(2, QIM_NODE_DEF)});
  const qimctl::NodeImage image = read(1);
  ASSERT_EQ(image.links.size(), 1u);
  EXPECT_EQ(image.links[0].field, 0x282);
  EXPECT_EQ(image.links[0].node, 2u);
}

TEST_F(Store, stores_private_data) {
  Node node = node_of(1, QIM_NODE_IFELSE);
  node.priv = {9, 8, 7};
  store({node});
  const qimctl::NodeImage image = read(1);
  ASSERT_EQ(image.record.priv_len, 3u);
  EXPECT_EQ(image.record.priv_buf[2], 7);
}

TEST_F(Store, marks_data_set_nodes) {
  Node named = node_of(1, QIM_NODE_DSET);
  named.dset.emplace();
  named.dset->dest.fmt = QIM_DEST_SRV;
  store({named, node_of(2, QIM_NODE_DSET_NONAME)});
  EXPECT_EQ(read(1).record.type, uint32_t{QIM_NODE_DSET});
  EXPECT_TRUE(read(1).dset);
  EXPECT_EQ(read(2).record.type, uint32_t{QIM_NODE_DSET_NONAME});
  EXPECT_FALSE(read(2).dset);
}

TEST_F(Store, refuses_nodes_that_are_there) {
  store({node_of(1, QIM_NODE_DEF)});
  EXPECT_THAT(refusals({node_of(1, QIM_NODE_ACTION), node_of(2, QIM_NODE_ACTION)}),
              ElementsAre("node 0x00000001 is in the database already; import with --replace to "
                          "replace it"));
  EXPECT_THAT(stored_ids(), ElementsAre(1u));
  EXPECT_EQ(read(1).record.type, uint32_t{QIM_NODE_DEF});
}

TEST_F(Store, replaces_nodes_whole) {
  Node old = node_of(1, QIM_NODE_ACTION);
  old.links = {{0x141, 2, 0, 0, 0}, {0x8001, 2, 0, 0, 0}};
  old.priv = {1};
  store({old, node_of(2, QIM_NODE_ACTION)});
  const StoreCounts counts = store({node_of(1, QIM_NODE_DEF)}, true);
  EXPECT_EQ(counts.replaced, 1u);
  const qimctl::NodeImage image = read(1);
  EXPECT_EQ(image.record.type, uint32_t{QIM_NODE_DEF});
  EXPECT_EQ(image.record.links_total, 0u);
  EXPECT_EQ(image.record.priv_len, 0u);
  EXPECT_EQ(read(2).record.refs, 0u);
}

TEST_F(Store, refuses_links_that_lead_nowhere) {
  Node node = node_of(1, QIM_NODE_IFELSE);
  node.links = {{0x241, 7, 0, 0, 0}, {0x242, 1, 8, 0, 0}};
  EXPECT_THAT(
      refusals({node}),
      ElementsAre("node 0x00000001 has a link ln_241 to node 0x00000007, which is neither in the "
                  "input nor in the database; add that node or remove the link",
                  testing::HasSubstr("link ln_242 to node 0x00000008")));
  EXPECT_TRUE(stored_ids().empty());
}

TEST_F(Store, takes_links_to_nodes_of_the_database) {
  store({node_of(7, QIM_NODE_ACTION)});
  Node node = node_of(1, QIM_NODE_ACTION);
  node.links = {{0x141, 7, 0, 0, 0}};
  EXPECT_EQ(store({node}).links, 1u);
}

TEST_F(Store, writes_nothing_without_a_commit) {
  {
    WriteSession session(database_);
    qimctl::write_policies({{{node_of(1, QIM_NODE_DEF)}, {}}}, session, {});
  }
  EXPECT_TRUE(stored_ids().empty());
}

TEST_F(Store, says_which_node_is_not_there) {
  try {
    read(0x77);
    FAIL();
  } catch (const qimctl::DatabaseError& error) {
    EXPECT_EQ(error.status(), uint32_t{ROV_ERR_NO_ITEM});
    EXPECT_THAT(error.what(), testing::StartsWith("cannot read node 0x00000077: "));
    EXPECT_THAT(error.what(), testing::HasSubstr("ROV_ERR_NO_ITEM"));
  }
}

TEST(OpenDatabase, does_not_make_one_to_read_from) {
  const tools_test::TempDir dir;
  EXPECT_THROW(Database(dir / "none", OpenMode::change), qimctl::DatabaseError);
  EXPECT_FALSE(std::filesystem::exists(dir / "none"));
}

TEST(DatabaseDirectory, prefers_what_was_given) {
  setenv("ROV_DB", "/from/environment", 1);
  EXPECT_EQ(qimctl::database_directory("given"), "given");
  EXPECT_EQ(qimctl::database_directory(""), "/from/environment");
  unsetenv("ROV_DB");
  EXPECT_EQ(qimctl::database_directory(""), "./qim.db");
}

}  // namespace
