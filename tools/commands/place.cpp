// Finding out what is meant by a place on the command line.
#include "tools/commands/place.h"

#include <set>

#include "policy/base/text.h"

namespace qimctl {

namespace {

constexpr std::string_view interface_prefix = "if:";

[[noreturn]] void not_found(const std::string& what, const std::set<std::string>& known) {
  constexpr size_t most = 10;
  std::string names;
  size_t count = 0;
  for (const std::string& name : known) {
    if (count++ == most) {
      names += ", ...";
      break;
    }
    names += (names.empty() ? "" : ", ") + bare_name(name);
  }
  throw NoSuchPlace(what + (names.empty() ? "" : "; there are " + names));
}

PlaceToAsk find_interface(const Model& model, std::string name) {
  uint8_t dir = QIM_DIR_IN;
  if (name.ends_with("/in")) {
    name.erase(name.size() - 3);
  } else if (name.ends_with("/out")) {
    name.erase(name.size() - 4);
    dir = dir_out;
  }
  Attachment wanted;
  wanted.interface = name;
  wanted.dir = dir;
  PlaceToAsk place{attachment_text(wanted), "", "", lists_at(model, name, dir)};
  (dir == QIM_DIR_IN ? place.ingress : place.egress) = name;
  if (!place.lists.empty()) return place;
  std::set<std::string> known;
  for (const Attachment& attachment : model.attachments) known.insert(attachment_text(attachment));
  not_found("no access list is attached to " + quoted(place.text), known);
}

}  // namespace

PlaceToAsk find_place(const Model& model, const std::string& text) {
  if (text.starts_with(interface_prefix))
    return find_interface(model, text.substr(interface_prefix.size()));
  if (const AccessList* list = find_list(model, text)) return {text, "", "", {list}};
  std::set<std::string> known;
  for (const AccessList& list : model.lists) known.insert(list.name);
  not_found("there is no access list " + quoted(text), known);
}

}  // namespace qimctl
