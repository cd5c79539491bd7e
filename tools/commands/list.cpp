// `qimctl list`: the nodes of a database.
#include "tools/commands/list.h"

#include "policy/base/names.h"
#include "policy/store/node_image.h"
#include "tools/base/rows.h"
#include "tools/nodes/node_words.h"
#include "tools/nodes/records.h"

namespace qimctl {

namespace {

std::string count_text(uint64_t count, bool wide) {
  return count == 0 && !wide ? "" : std::to_string(count);
}

class Listing {
 public:
  Listing(const ReadSession& session, OutputForm form)
      : session_(session),
        groups_(session),
        wide_(form == OutputForm::wide),
        rows_(form, {{"NODE"}, {"TYPE"}, {"GROUP"}, {"FLAGS"}, {"LINKS"}, {"REFS"}, {"CONTENTS"}}) {
  }

  void add(const ListedNode& node) {
    if (!rows_.is_text()) return rows_.add(listed_to_json(node));
    if (!node.record) return rows_.add({node_id_text(node.id), "?", "", "", "", "", node.why});
    const qim_node_t& record = *node.record;
    rows_.add({node_id_text(record.id), node_type_name(record.type),
               wide_ ? std::to_string(record.group) : groups_.words(record.group),
               record.flags == 0 && !wide_ ? "" : hex_number(record.flags, 1),
               count_text(record.links_total, wide_), count_text(record.refs, wide_),
               node_words(session_, read_contents(session_, record.id), wide_)});
  }
  void finish() { rows_.finish("node"); }

 private:
  const ReadSession& session_;
  GroupWords groups_;
  bool wide_;
  Rows rows_;
};

}  // namespace

bool list_nodes(const ReadSession& session, const ListOptions& options) {
  Listing listing(session, options.form);
  bool all = true;
  each_node(session.handle(), [&](const rov_node_parms_t& parms) {
    const ListedNode node = read_listed(session, qim_from_rov_node_id(&parms.id));
    if (options.type && (!node.record || node.record->type != *options.type)) return;
    if (!node.record) all = false;
    listing.add(node);
  });
  listing.finish();
  return all;
}

}  // namespace qimctl
