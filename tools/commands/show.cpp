#include "tools/commands/show.h"

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/formats/native/node_json.h"
#include "policy/store/node_image.h"
#include "rov.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

// "0x00300002 Filter"
std::string target_text(const ReadSession& session, uint32_t id) {
  qim_node_t record;
  const uint32_t status = qim_node_read(session.handle(), id, 0, &record);
  if (status == ROV_ERR_NO_ITEM) return node_id_text(id) + " (missing)";
  if (is_about_contents(status)) return node_id_text(id) + " (undecodable)";
  require(status, "read node " + node_id_text(id));
  return node_id_text(id) + " " + node_type_name(record.type);
}

ordered_json describe_links(const ReadSession& session, const std::vector<qim_link_t>& links) {
  ordered_json described = ordered_json::object();
  for (const qim_link_t& link : links) {
    std::string text = "-> " + target_text(session, link.node);
    if (link.node2 != 0) text += ", node2 " + target_text(session, link.node2);
    if (link.val != 0) text += ", val " + std::to_string(link.val);
    if (link.tag != 0) text += ", tag " + std::to_string(link.tag);
    described[slot_name(link.field)] = text;
  }
  return described;
}

void show_text(const ReadSession& session, const NodeImage& image) {
  ordered_json value = node_to_json(image);
  print("node " + value["id"].get<std::string>() + "  " + value["type"].get<std::string>() + "\n");
  value.erase("id");
  value.erase("type");
  if (value.contains("links")) value["links"] = describe_links(session, image.links);
  const std::string text = private_text(image.record.priv_buf, image.record.priv_len);
  if (!text.empty()) value["priv"] = value["priv"].get<std::string>() + "  " + text;
  print(layout(value, 2));
}

}  // namespace

void show_node(const ReadSession& session, uint32_t id, bool json) {
  const NodeImage image = read_node(session, id);
  if (json) {
    print(node_to_json(image).dump(2) + "\n");
  } else {
    show_text(session, image);
  }
}

}  // namespace qimctl
