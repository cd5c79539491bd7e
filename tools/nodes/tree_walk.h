// Walks a policy along its links, every node once, without recursion: chains are as long as
// policies are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "policy/store/node_image.h"

namespace qimctl {

// Why a node is not expanded.
enum class TreeMark { none, cycle, shared, missing, deep };

// "cycle"; "" for TreeMark::none.
const char* tree_mark_name(TreeMark mark);

// A node as it is met.
struct TreeStep {
  std::string via;    // the link that leads here, "" for the root: "ln_281", "ln_281 node2"
  qim_link_t link{};  // that link
  uint32_t id = 0;
  size_t depth = 0;   // 0 = the root
  bool last = false;  // nothing follows on the same level
  bool next = false;  // is the next element of the list that the step before it on this level is in
  TreeMark mark = TreeMark::none;
  std::optional<NodeImage> node;  // empty when the mark is `missing`
};

class TreeWalk {
 public:
  TreeWalk(const ReadSession& session, uint32_t root, uint32_t depth);

  // The next node in the order of the tree's lines; nothing at the end. Throws DatabaseError,
  // ROV_ERR_NO_ITEM only for the root.
  std::optional<TreeStep> step();

 private:
  struct Edge {
    std::string via;
    qim_link_t link;
    uint32_t target;
    bool next;
  };
  struct Level {
    std::vector<Edge> edges;
    size_t at = 0;
    std::vector<uint32_t> chain;  // the elements of the list that is under way here
    bool cut = false;             // something below one of them was left out
  };

  TreeMark enter(Level& level, const Edge& edge, std::optional<NodeImage>& node);
  void expand(Level& level, const NodeImage& node, std::vector<Edge>& below) const;
  void leave_chain();

  const ReadSession& session_;
  uint32_t depth_;
  std::vector<Level> levels_;
  struct Seen {
    size_t depth = 0;  // where it was expanded
    bool cut = false;  // not whole
  };
  std::unordered_map<uint32_t, Seen> seen_;
  std::unordered_set<uint32_t> open_;  // leads to where the walk is
};

}  // namespace qimctl
