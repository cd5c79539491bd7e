// A test of the node cache: entries of its own, and the list's state after every step.
#ifndef TESTS_LIBRARY_NODE_CACHE_TEST_H
#define TESTS_LIBRARY_NODE_CACHE_TEST_H

#include <vector>

#include "node/cache.h"
#include "tests/library/node/support.h"

namespace node_test {

using Ids = std::vector<std::uint32_t>;

class CacheTest : public NodeTest {
 protected:
  // An entry outside the list, of a type that owns nothing.
  static qim_node_cache_entry_t* entry(std::uint32_t id, std::uint32_t ses = kSes) {
    auto* const made = static_cast<qim_node_cache_entry_t*>(
        fake::allocate(sizeof(qim_node_cache_entry_t), pool()));
    made->ses = ses;
    made->node.id = id;
    made->node.type = QIM_NODE_IFELSE;
    return made;
  }

  // An entry that cannot be destroyed: its arguments have a length and no buffer.
  static qim_node_cache_entry_t* indestructible(std::uint32_t id, std::uint32_t ses = kSes) {
    auto* const made = entry(id, ses);
    made->node.type = QIM_NODE_ACTION;
    made->node.body.action.args_len = 1;
    return made;
  }

  static std::uint32_t add(qim_node_cache_entry_t* made) {
    return qim_node_cache_add(made->ses, made, ctx());
  }

  // Adds new entries, the last one ends up at the head.
  static std::vector<qim_node_cache_entry_t*> fill(const Ids& ids) {
    std::vector<qim_node_cache_entry_t*> made;
    for (const std::uint32_t id : ids) {
      made.push_back(entry(id));
      EXPECT_EQ(add(made.back()), 0u);
    }
    return made;
  }

  static qim_node_cache_entry_t* get(std::uint32_t id, std::uint32_t ses = kSes) {
    qim_node_cache_entry_t stray;
    qim_node_cache_entry_t* found = &stray;
    EXPECT_EQ(qim_node_cache_get(ses, id, &found), 0u);
    return found;
  }

  static qim_node_cache_entry_t* unlink(std::uint32_t id, std::uint32_t ses = kSes) {
    qim_node_cache_entry_t stray;
    qim_node_cache_entry_t* found = &stray;
    EXPECT_EQ(qim_node_cache_unlink(ses, id, &found), 0u);
    return found;
  }

  // The list holds these nodes from head to tail, and its ends and count agree with it.
  static void expect_list(const Ids& ids) {
    Ids found;
    const qim_node_cache_entry_t* last = nullptr;
    for (auto* at = node_cache_head; at != nullptr && found.size() <= ids.size(); at = at->next) {
      found.push_back(at->node.id);
      last = at;
    }
    EXPECT_EQ(found, ids);
    EXPECT_EQ(node_cache_tail, last);
    EXPECT_EQ(node_cache_count, static_cast<std::int32_t>(ids.size()));
  }

  static void forget_list() {
    node_cache_head = nullptr;
    node_cache_tail = nullptr;
    node_cache_count = 0;
  }

  void TearDown() override {
    EXPECT_EQ(qim_node_cache_destroy(ctx()), 0u);
    expect_list({});
    forget_list();
    node_cache_max = 0;
    NodeTest::TearDown();
  }
};

}  // namespace node_test

#endif
