// Comparing states, and differences as bytes.
#include "fleet/state/difference.h"

#include <map>

#include "fleet/base/error.h"

namespace qim::fleet {

namespace {

constexpr std::string_view difference_magic = "QSD1";

// Forms of a change.
constexpr uint32_t is_removed = 1;
constexpr uint32_t is_added = 2;
constexpr uint32_t has_contents = 4;
constexpr uint32_t has_links = 8;

void append_contents(WireWriter& out, const NodeView& node) {
  out.u32(node.flags);
  out.u8(static_cast<uint32_t>(node.dset.size()));
  out.bytes(node.dset);
  out.sized(node.tlv);
}

void read_contents(WireReader& in, NodeView& node) {
  node.flags = in.u32();
  node.dset = read_dset(in);
  node.tlv = read_tlv(in);
}

// Goes through the links of a node before and after. Calls gone(field) and put(link).
template <typename Gone, typename Put>
void compare_links(const LinkList& before, const LinkList& after, Gone gone, Put put) {
  size_t b = 0;
  size_t a = 0;
  while (b < before.size() || a < after.size()) {
    if (a == after.size() || (b < before.size() && before.at(b).field < after.at(a).field)) {
      gone(before.at(b++).field);
    } else if (b == before.size() || after.at(a).field < before.at(b).field) {
      put(after.at(a++));
    } else {
      if (before.at(b) != after.at(a)) put(after.at(a));
      b++;
      a++;
    }
  }
}

class Writer {
 public:
  Writer() {
    out_.bytes(difference_magic);
    out_.u32(0);
  }

  void remove(const NodeView& node) { begin(node.id, is_removed); }

  void add(const NodeView& node) {
    begin(node.id, is_added);
    append_contents(out_, node);
    out_.u32(static_cast<uint32_t>(node.links.size()));
    out_.bytes(node.links.bytes());
  }

  void change(const NodeView& before, const NodeView& after) {
    WireWriter gone;
    WireWriter put;
    compare_links(
        before.links, after.links, [&](uint16_t field) { gone.u16(field); },
        [&](const NodeLink& link) { append_link(put, link); });
    const bool contents = !before.same_contents(after);
    const bool links = gone.size() + put.size() != 0;
    if (!contents && !links) return;
    begin(after.id, (contents ? has_contents : 0) | (links ? has_links : 0));
    if (contents) append_contents(out_, after);
    if (!links) return;
    out_.u32(static_cast<uint32_t>(gone.size() / 2));
    out_.bytes(gone.take());
    out_.u32(static_cast<uint32_t>(put.size() / LinkList::link_bytes));
    out_.bytes(put.take());
  }

  std::string take() {
    out_.patch_u32(difference_magic.size(), changes_);
    return out_.take();
  }

 private:
  void begin(uint32_t id, uint32_t form) {
    out_.u32(id);
    out_.u8(form);
    changes_++;
  }

  WireWriter out_;
  uint32_t changes_ = 0;
};

FieldList read_fields(WireReader& in) {
  const uint32_t count = in.u32();
  if (count > 65536) in.refuse("a node has more than 65536 links");
  const FieldList fields(in.bytes(count * size_t{2}));
  for (size_t n = 1; n < fields.size(); n++) {
    if (fields.at(n) <= fields.at(n - 1)) in.refuse("links that go are not in order");
  }
  return fields;
}

bool have_common(const FieldList& gone, const LinkList& links) {
  size_t g = 0;
  for (size_t n = 0; n < links.size(); n++) {
    while (g < gone.size() && gone.at(g) < links.at(n).field) g++;
    if (g < gone.size() && gone.at(g) == links.at(n).field) return true;
  }
  return false;
}

void read_changed(WireReader& in, uint32_t form, NodeChange& change) {
  change.contents = (form & has_contents) != 0;
  if (change.contents) read_contents(in, change.node);
  if ((form & has_links) == 0) return;
  change.gone = read_fields(in);
  change.node.links = read_links(in);
  if (change.gone.size() + change.node.links.size() == 0) in.refuse("no link changes");
  if (have_common(change.gone, change.node.links)) in.refuse("a link goes and comes");
}

NodeChange read_change(WireReader& in, uint32_t after) {
  NodeChange change;
  change.node.id = in.u32();
  if (change.node.id <= after) in.refuse("a node's identifier does not follow the one before");
  const uint32_t form = in.u8();
  switch (form) {
    case is_removed:
      change.fate = NodeFate::removed;
      break;
    case is_added:
      change.fate = NodeFate::added;
      read_contents(in, change.node);
      change.node.links = read_links(in);
      break;
    case has_contents:
    case has_links:
    case has_contents | has_links:
      read_changed(in, form, change);
      break;
    default:
      in.refuse("a change has the unknown form " + std::to_string(form));
  }
  return change;
}

[[noreturn]] void does_not_fit_state(uint32_t id, const char* why) {
  throw ForgedError("the difference does not fit the state: node " + std::to_string(id) + " " +
                    why);
}

void add_changed(StateBuilder& made, const NodeView& before, const NodeChange& change) {
  NodeView node = change.contents ? change.node : before;
  std::map<uint16_t, NodeLink> links;
  for (size_t n = 0; n < before.links.size(); n++) {
    links.emplace(before.links.at(n).field, before.links.at(n));
  }
  for (size_t n = 0; n < change.gone.size(); n++) {
    if (links.erase(change.gone.at(n)) == 0)
      does_not_fit_state(node.id, "has no link to take away");
  }
  for (size_t n = 0; n < change.node.links.size(); n++) {
    links[change.node.links.at(n).field] = change.node.links.at(n);
  }
  WireWriter list;
  for (const auto& [field, link] : links) append_link(list, link);
  const std::string bytes = list.take();
  node.links = LinkList(bytes);
  made.add(node);
}

}  // namespace

std::string difference(const State& from, const State& to) {
  Writer out;
  size_t f = 0;
  size_t t = 0;
  while (f < from.size() || t < to.size()) {
    if (t == to.size() || (f < from.size() && from.at(f).id < to.at(t).id)) {
      out.remove(from.at(f++));
    } else if (f == from.size() || to.at(t).id < from.at(f).id) {
      out.add(to.at(t++));
    } else {
      out.change(from.at(f++), to.at(t++));
    }
  }
  return out.take();
}

std::vector<NodeChange> parse_difference(std::string_view bytes) {
  WireReader in(bytes, "difference");
  if (in.bytes(difference_magic.size()) != difference_magic)
    in.refuse("it is no difference of this version");
  const uint32_t count = in.u32();
  std::vector<NodeChange> changes;
  uint32_t after = 0;
  for (uint32_t n = 0; n < count; n++) {
    changes.push_back(read_change(in, after));
    after = changes.back().node.id;
  }
  if (!in.done()) in.refuse("more follows than its changes");
  return changes;
}

State changed(const State& from, const std::vector<NodeChange>& changes) {
  StateBuilder made;
  size_t f = 0;
  for (const NodeChange& change : changes) {
    const uint32_t id = change.node.id;
    while (f < from.size() && from.at(f).id < id) made.add(from.at(f++));
    const bool there = f < from.size() && from.at(f).id == id;
    if (change.fate == NodeFate::added) {
      if (there) does_not_fit_state(id, "is there already");
      made.add(change.node);
      continue;
    }
    if (!there) does_not_fit_state(id, "is not there");
    if (change.fate == NodeFate::changed) add_changed(made, from.at(f), change);
    f++;
  }
  while (f < from.size()) made.add(from.at(f++));
  return made.finish();
}

}  // namespace qim::fleet
