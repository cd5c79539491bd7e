// Reading a database's nodes as they stand in a state, and editing them.
#include "fleet/state/database_state.h"

#include <cstring>
#include <optional>
#include <string>

#include "fleet/base/error.h"
#include "policy/base/names.h"
#include "rov_edit.h"

namespace qim::fleet {

namespace {

using qimctl::database_id;
using qimctl::DatabaseError;
using qimctl::ReadSession;
using qimctl::WriteSession;

uint32_t number_of(const rov_node_id_t& id) {
  return qim_from_rov_node_id(&id);
}

// Words are made for what fails only.
void require_node(uint32_t status, const char* verb, uint32_t id) {
  if (status != ROV_OK) {
    throw DatabaseError(status, std::string(verb) + " node " + qimctl::node_id_text(id));
  }
}

[[noreturn]] void does_not_fit(uint32_t id, const char* why) {
  throw ForgedError("the difference does not fit the database: node " + qimctl::node_id_text(id) +
                    " " + why);
}

// Walks over the nodes of a session. What node() shows is good until the next step.
class Walk {
 public:
  Walk(uint32_t session, uint32_t first, uint32_t last) : session_(session), last_(last) {
    if (first != 0) parms_.id = database_id(first - 1);
    step();
  }
  bool done() const { return done_; }
  const NodeView& node() const { return node_; }

  void step() {
    const uint32_t status = rov_node_next(session_, parms_.id, &parms_);
    done_ = status == ROV_ERR_NO_ITEM;
    if (done_) return;
    qimctl::require(status, "list the nodes");
    done_ = number_of(parms_.id) > last_;
    if (!done_) read();
  }

 private:
  void read() {
    const uint32_t id = number_of(parms_.id);
    tlv_.resize(parms_.tlv_len);
    dset_.resize(parms_.dset_len);
    require_node(rov_node_data_get(session_, parms_.id, parms_.tlv_len, tlv_.data(),
                                   parms_.dset_len, dset_.data(), 0, nullptr),
                 "read", id);
    read_links(id);
    node_ = {id, parms_.flags, dset_, tlv_, LinkList(links_)};
  }
  void read_links(uint32_t id) {
    WireWriter out;
    rov_link_t link;
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; (status = rov_node_link_nth(session_, parms_.id, n, &link)) == ROV_OK;
         n++) {
      append_link(out,
                  {link.field, link.tag, number_of(link.node), link.val, number_of(link.node2)});
    }
    if (status != ROV_ERR_NO_LINK) require_node(status, "read the links of", id);
    links_ = out.take();
  }

  uint32_t session_;
  uint32_t last_;
  rov_node_parms_t parms_{};
  bool done_ = false;
  std::string tlv_;
  std::string dset_;
  std::string links_;
  NodeView node_;
};

// Makes the edits, or only counts them.
class Editor {
 public:
  explicit Editor(const WriteSession* writer) : writer_(writer) {}

  void put(const NodeView& node) {
    edits_.nodes_put++;
    touch(node.id);
    if (writer_ == nullptr) return;
    const rov_edit_node_t form = {database_id(node.id),
                                  node.flags,
                                  static_cast<uint32_t>(node.tlv.size()),
                                  node.tlv.data(),
                                  static_cast<uint32_t>(node.dset.size()),
                                  node.dset.data()};
    require_node(rov_edit_node_put(writer_->handle(), &form), "store", node.id);
  }
  void remove(uint32_t id) {
    edits_.nodes_removed++;
    touch(id);
    if (writer_ == nullptr) return;
    require_node(rov_edit_node_del(writer_->handle(), database_id(id)), "remove", id);
  }
  void put_link(uint32_t owner, const NodeLink& link) {
    edits_.links++;
    touch(owner);
    if (writer_ == nullptr) return;
    rov_link_t form{};
    form.owner = database_id(owner);
    form.field = link.field;
    form.tag = link.tag;
    form.node = database_id(link.node);
    form.node2 = database_id(link.node2);
    form.val = link.val;
    require_node(rov_edit_link_put(writer_->handle(), &form), "store a link of", owner);
  }
  void remove_link(uint32_t owner, uint16_t field) {
    edits_.links++;
    touch(owner);
    if (writer_ == nullptr) return;
    const uint32_t status = rov_edit_link_del(writer_->handle(), database_id(owner), field);
    if (status == ROV_ERR_NO_LINK) does_not_fit(owner, "has no link to take away");
    require_node(status, "remove a link of", owner);
  }
  StateEdits take() { return std::move(edits_); }

 private:
  void touch(uint32_t id) {
    if (edits_.touched.empty() || edits_.touched.back() != id) edits_.touched.push_back(id);
  }

  const WriteSession* writer_;
  StateEdits edits_;
};

void make_links(Editor& editor, const NodeView& wanted, const LinkList& held) {
  const LinkList& links = wanted.links;
  size_t w = 0;
  size_t h = 0;
  while (w < links.size() || h < held.size()) {
    if (w == links.size() || (h < held.size() && held.at(h).field < links.at(w).field)) {
      editor.remove_link(wanted.id, held.at(h++).field);
    } else if (h == held.size() || links.at(w).field < held.at(h).field) {
      editor.put_link(wanted.id, links.at(w++));
    } else {
      if (links.at(w) != held.at(h)) editor.put_link(wanted.id, links.at(w));
      w++;
      h++;
    }
  }
}

bool is_stored(const WriteSession& writer, uint32_t id) {
  rov_node_parms_t parms;
  const uint32_t status = rov_node_parms_get(writer.handle(), database_id(id), &parms);
  if (status != ROV_ERR_NO_ITEM) require_node(status, "look for", id);
  return status == ROV_OK;
}

void apply_change(Editor& editor, const WriteSession& writer, const NodeChange& change) {
  const NodeView& node = change.node;
  const bool there = is_stored(writer, node.id);
  if (there && change.fate == NodeFate::added) does_not_fit(node.id, "is there already");
  if (!there && change.fate != NodeFate::added) does_not_fit(node.id, "is not there");
  if (change.fate == NodeFate::removed) return editor.remove(node.id);
  if (change.fate == NodeFate::added || change.contents) editor.put(node);
  for (size_t n = 0; n < change.gone.size(); n++) editor.remove_link(node.id, change.gone.at(n));
  for (size_t n = 0; n < node.links.size(); n++) editor.put_link(node.id, node.links.at(n));
}

}  // namespace

void each_stored(uint32_t session, uint32_t first, uint32_t last,
                 const std::function<void(const NodeView&)>& visit) {
  for (Walk walk(session, first, last); !walk.done(); walk.step()) visit(walk.node());
}

State read_state(uint32_t session) {
  StateBuilder made;
  each_stored(session, 0, UINT32_MAX, [&](const NodeView& node) { made.add(node); });
  return made.finish();
}

State read_nodes(uint32_t session, const std::vector<uint32_t>& nodes) {
  StateBuilder made;
  for (const uint32_t id : nodes) {
    const Walk walk(session, id, id);
    if (!walk.done()) made.add(walk.node());
  }
  return made.finish();
}

StateEdits apply_changes(const WriteSession& writer, const std::vector<NodeChange>& changes) {
  Editor editor(&writer);
  for (const NodeChange& change : changes) apply_change(editor, writer, change);
  return editor.take();
}

StateEdits apply_state(const WriteSession* writer, const ReadSession& held, const State& wanted) {
  Editor editor(writer);
  Walk walk(held.handle(), 0, UINT32_MAX);
  for (size_t n = 0; n < wanted.size(); n++) {
    const NodeView node = wanted.at(n);
    for (; !walk.done() && walk.node().id < node.id; walk.step()) editor.remove(walk.node().id);
    const bool there = !walk.done() && walk.node().id == node.id;
    if (!there || !node.same_contents(walk.node())) editor.put(node);
    make_links(editor, node, there ? walk.node().links : LinkList());
    if (there) walk.step();
  }
  for (; !walk.done(); walk.step()) editor.remove(walk.node().id);
  return editor.take();
}

}  // namespace qim::fleet
