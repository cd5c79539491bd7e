// Comparing two states of a database node by node, and writing the difference.
#include "policy/store/rollback.h"

#include <algorithm>
#include <optional>

#include "policy/base/names.h"
#include "policy/store/stored_node.h"
#include "rov_edit.h"

namespace qimctl {

namespace {

// The nodes of a session, one after the other.
class NodeWalk {
 public:
  explicit NodeWalk(const ReadSession& session) : session_(session.handle()), reader_(session) {
    step();
  }
  const std::optional<StoredNode>& node() const { return node_; }
  void step() {
    const uint32_t status = rov_node_next(session_, parms_.id, &parms_);
    if (status == ROV_ERR_NO_ITEM) {
      node_.reset();
      return;
    }
    require(status, "list the nodes");
    node_ = reader_.read(parms_);
  }

 private:
  uint32_t session_;
  StoredNodeReader reader_;
  rov_node_parms_t parms_{};
  std::optional<StoredNode> node_;
};

// Makes the edits, or only counts them.
class Editor {
 public:
  explicit Editor(const WriteSession* writer) : writer_(writer) {}

  const NodeEdits& edits() const { return edits_; }

  void put(const StoredNode& node) {
    edits_.nodes_put++;
    if (writer_ == nullptr) return;
    const rov_edit_node_t image = {node.id,
                                   node.flags,
                                   static_cast<uint32_t>(node.tlv.size()),
                                   node.tlv.data(),
                                   static_cast<uint32_t>(node.dset.size()),
                                   node.dset.data()};
    check(rov_edit_node_put(writer_->handle(), &image), node);
  }
  void remove(const StoredNode& node) {
    edits_.nodes_deleted++;
    if (writer_ != nullptr) check(rov_edit_node_del(writer_->handle(), node.id), node);
  }
  void put_link(const StoredNode& node, const rov_link_t& link) {
    edits_.links++;
    if (writer_ != nullptr) check(rov_edit_link_put(writer_->handle(), &link), node);
  }
  void remove_link(const StoredNode& node, const rov_link_t& link) {
    edits_.links++;
    if (writer_ != nullptr) check(rov_edit_link_del(writer_->handle(), node.id, link.field), node);
  }
  // No data takes them away.
  void put_private(const StoredNode& node, uint32_t client, const std::vector<uint8_t>& data) {
    edits_.privates++;
    if (writer_ == nullptr) return;
    check(rov_edit_priv_put(writer_->handle(), node.id, client, data.data(),
                            static_cast<uint32_t>(data.size())),
          node);
  }

 private:
  static void check(uint32_t status, const StoredNode& node) {
    require(status, "write node " + node_id_text(node.number()));
  }

  const WriteSession* writer_;
  NodeEdits edits_;
};

bool same_id(const rov_node_id_t& a, const rov_node_id_t& b) {
  return std::equal(std::begin(a.word), std::end(a.word), std::begin(b.word));
}

bool same_link(const rov_link_t& a, const rov_link_t& b) {
  return same_id(a.node, b.node) && same_id(a.node2, b.node2) && a.val == b.val && a.tag == b.tag;
}

// Goes through two sequences that ascend by `key`. Calls only_wanted(w), only_held(h), both(w, h).
template <typename Items, typename Key, typename Wanted, typename Held, typename Both>
void merge(const Items& wanted, const Items& held, Key key, Wanted only_wanted, Held only_held,
           Both both) {
  auto w = wanted.begin();
  auto h = held.begin();
  while (w != wanted.end() || h != held.end()) {
    if (h == held.end() || (w != wanted.end() && key(*w) < key(*h))) {
      only_wanted(*w++);
    } else if (w == wanted.end() || key(*h) < key(*w)) {
      only_held(*h++);
    } else {
      both(*w++, *h++);
    }
  }
}

void make_links(Editor& editor, const StoredNode& wanted, const StoredNode& held) {
  merge(
      wanted.links, held.links, [](const rov_link_t& link) { return link.field; },
      [&](const rov_link_t& link) { editor.put_link(wanted, link); },
      [&](const rov_link_t& link) { editor.remove_link(wanted, link); },
      [&](const rov_link_t& link, const rov_link_t& old) {
        if (!same_link(link, old)) editor.put_link(wanted, link);
      });
}

void make_private(Editor& editor, const StoredNode& wanted, const StoredNode& held) {
  merge(
      wanted.clients, held.clients, [](const ClientData& data) { return data.client; },
      [&](const ClientData& data) { editor.put_private(wanted, data.client, data.data); },
      [&](const ClientData& data) { editor.put_private(wanted, data.client, {}); },
      [&](const ClientData& data, const ClientData& old) {
        if (data.data != old.data) editor.put_private(wanted, data.client, data.data);
      });
}

void make_same(Editor& editor, const StoredNode& wanted, const StoredNode& held) {
  if (wanted.flags != held.flags || wanted.tlv != held.tlv || wanted.dset != held.dset)
    editor.put(wanted);
  make_links(editor, wanted, held);
  make_private(editor, wanted, held);
}

}  // namespace

NodeEdits roll_back(const ReadSession& wanted, const ReadSession& held,
                    const WriteSession* writer) {
  Editor editor(writer);
  NodeWalk to(wanted);
  NodeWalk from(held);
  while (to.node() || from.node()) {
    if (!from.node() || (to.node() && to.node()->number() < from.node()->number())) {
      editor.put(*to.node());
      make_links(editor, *to.node(), {});
      make_private(editor, *to.node(), {});
      to.step();
    } else if (!to.node() || from.node()->number() < to.node()->number()) {
      editor.remove(*from.node());
      from.step();
    } else {
      make_same(editor, *to.node(), *from.node());
      to.step();
      from.step();
    }
  }
  return editor.edits();
}

}  // namespace qimctl
