// `qimctl show`: one node with all that belongs to it.
#include "tools/commands/show.h"

#include <utility>

#include "policy/base/criteria_codes.h"
#include "policy/base/dsetname.h"
#include "policy/base/json_layout.h"
#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "rov.h"
#include "tools/base/output.h"
#include "tools/nodes/node_names.h"
#include "tools/nodes/node_words.h"

namespace qimctl {

namespace {

JsonValue describe_links(const ReadSession& session, const std::vector<qim_link_t>& links,
                         bool wide) {
  JsonValue described = JsonValue::object();
  for (const qim_link_t& link : links) {
    std::string text = "-> " + target_words(session, link.node, wide);
    if (link.node2 != 0) text += ", node2 " + target_words(session, link.node2, wide);
    if (link.val != 0) text += ", val " + std::to_string(link.val);
    if (link.tag != 0) text += ", tag " + std::to_string(link.tag);
    described.append(wide ? slot_name(link.field) : link_words(link.field), text);
  }
  return described;
}

void name_codes(const ReadSession& session, const NodeImage& image, JsonValue& value) {
  const uint32_t group = image.record.group;
  if (group != 0) value.set("group", GroupWords(session).words(group));
  if (image.dset) {
    JsonValue dset = dset_to_json(*image.dset);
    const uint32_t policy = image.record.body.pinst.fields.type;
    const bool is_list = (policy & ~policy_type_stages) == policy_type_access_list;
    if (is_list && !dset.is_string()) dset.set("type", policy_type_words(policy));
    value.set("dset", std::move(dset));
  }
  value.drop_zeros();
}

void show_text(const ReadSession& session, const NodeImage& image, bool wide) {
  JsonValue value = wide ? node_to_json(image) : node_to_worded_json(image);
  const std::string name = node_name(session, image);
  print("node " + value.text("id") + "  " + value.text("type") + (name.empty() ? "" : "  " + name) +
        "\n");
  value.erase("id");
  value.erase("type");
  if (value.contains("links")) value.set("links", describe_links(session, image.links, wide));
  if (!wide) name_codes(session, image, value);
  const std::string text = private_text(image.record.priv_buf, image.record.priv_len);
  if (!text.empty()) value.set("priv", value.text("priv") + "  " + text);
  print(layout(value.get(), 2));
}

}  // namespace

void show_node(const ReadSession& session, uint32_t id, OutputForm form) {
  const NodeImage image = read_node(session, id);
  if (!is_text(form)) return print_value(node_to_json(image), form);
  show_text(session, image, form == OutputForm::wide);
}

void print_shown(const Database& database, const ReadSession& session, uint32_t id) {
  std::string text;
  rov_show_req_t request{};
  request.ses = session.handle();
  request.what = ROV_SHOW_NODE;
  request.node = database_id(id);
  // Collected first: the database's caller must not be left by an exception.
  request.out = [](const char* piece, void* to) { *static_cast<std::string*>(to) += piece; };
  request.arg = &text;
  const uint32_t status = qim_db_show_internal(database.handle(), &request);
  print(text);
  require_node(status, "show node " + node_id_text(id));
}

}  // namespace qimctl
