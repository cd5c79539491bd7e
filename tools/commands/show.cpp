// `qimctl show`: one node with all that belongs to it.
#include "tools/commands/show.h"

#include "policy/base/json_layout.h"
#include "policy/base/names.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "rov.h"
#include "tools/base/output.h"
#include "tools/nodes/node_names.h"

namespace qimctl {

namespace {

// "0x00300002 Filter"
std::string target_text(const ReadSession& session, uint32_t id) {
  qim_node_t record;
  const uint32_t status = qim_node_read(session.handle(), id, 0, &record);
  if (status == ROV_ERR_NO_ITEM) return node_id_text(id) + " (missing)";
  if (is_about_contents(status)) return node_id_text(id) + " (undecodable)";
  require(status, "read node " + node_id_text(id));
  return node_id_text(id) + " " + node_type_name(record.type);
}

JsonValue describe_links(const ReadSession& session, const std::vector<qim_link_t>& links,
                         bool wide) {
  JsonValue described = JsonValue::object();
  for (const qim_link_t& link : links) {
    std::string text = "-> " + target_text(session, link.node);
    if (link.node2 != 0) text += ", node2 " + target_text(session, link.node2);
    if (link.val != 0) text += ", val " + std::to_string(link.val);
    if (link.tag != 0) text += ", tag " + std::to_string(link.tag);
    described.append(wide ? slot_name(link.field) : link_words(link.field), text);
  }
  return described;
}

void show_text(const ReadSession& session, const NodeImage& image, bool wide) {
  JsonValue value = node_to_json(image);
  print("node " + value.text("id") + "  " + value.text("type") + "\n");
  value.erase("id");
  value.erase("type");
  if (value.contains("links")) value.set("links", describe_links(session, image.links, wide));
  if (!wide) value.drop_zeros();
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
