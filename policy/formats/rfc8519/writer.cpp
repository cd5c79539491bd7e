// Access lists of a model as a document.
#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "policy/base/criteria.h"
#include "policy/formats/parts/attachments.h"
#include "policy/formats/rfc8519/input.h"
#include "policy/formats/rfc8519/reader.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/formats/rfc8519/write_matches.h"

namespace qimctl {

namespace rfc8519 {

namespace {

class Writer {
 public:
  explicit Writer(const Model& model) : model_(model) {}

  ModelText write(const std::vector<std::string>& names);

 private:
  void write_list(const AccessList& list);
  void write_type(const AccessList& list, uint32_t headers);
  static void write_entry(JsonPrinter& printer, const Entry& entry, const Matches& matches);
  void write_attachments();
  void write_interface(const formats::InterfaceLists& interface);

  void note(Fate fate, const std::string& where, std::string what) {
    findings_.push_back({fate, {where, 0, ""}, std::move(what)});
  }

  const Model& model_;
  JsonPrinter printer_;
  std::vector<Finding> findings_;
  std::set<std::string> written_;
};

ModelText Writer::write(const std::vector<std::string>& names) {
  const std::set<std::string> wanted(names.begin(), names.end());
  printer_.object().member(rfc8519_root).object().member("acl").array();
  for (const AccessList& list : model_.lists)
    if (wanted.empty() || wanted.contains(list.name)) write_list(list);
  printer_.close();
  write_attachments();
  printer_.close().close();
  return {printer_.take_pieces(), std::move(findings_)};
}

void Writer::write_list(const AccessList& list) {
  const std::string obstacle = formats::name_obstacle(list.name, longest_name);
  if (!obstacle.empty())
    return note(Fate::skipped, list.name,
                "access list left out, for its name can't be one: " + obstacle);
  written_.insert(list.name);
  // What stands in front of them is known when all have been seen.
  JsonPrinter entries = printer_.part(3);
  uint32_t headers = acl_type_unknown;
  Matches matches;
  for (const Entry& entry : list.entries) {
    sort_matches(entry, matches);
    const std::string bad_name = formats::name_obstacle(entry.name, longest_name);
    if (!bad_name.empty()) matches.obstacle = "a name of which " + bad_name;
    if (!matches.obstacle.empty()) {
      note(Fate::skipped, list.name + "/" + entry.name,
           "entry left out, for this format can't carry " + matches.obstacle);
      continue;
    }
    headers |= matches.headers;
    if (!entry.policer.empty())
      note(Fate::approximated, list.name + "/" + entry.name,
           "written without the policer " + in_quotes(entry.policer) +
               ", which this format has no word for");
    write_entry(entries, entry, matches);
  }
  printer_.object().member("name").text(list.name);
  write_type(list, headers);
  if (list.default_action != ActionType::drop)
    note(Fate::skipped, list.name,
         "this format can't say what becomes of packets that no entry matches: its readers drop "
         "them, "
         "where this list would " +
             std::string(action_name(static_cast<uint32_t>(list.default_action))));
  if (!entries.is_empty())
    printer_.member("aces")
        .object()
        .member("ace")
        .array()
        .elements(std::move(entries))
        .close()
        .close();
  printer_.close();
}

// The model has no type for IPv4 beside IPv6 without Ethernet, and none that is narrower than the
// entries.
void Writer::write_type(const AccessList& list, uint32_t headers) {
  uint32_t bits = list.type | headers;
  if (bits == (acl_type_ipv4 | acl_type_ipv6)) bits |= acl_type_eth;
  const std::string name = list_type_name(bits);
  if (!name.empty()) printer_.member("type").text(name);
  if (bits != list.type)
    note(
        Fate::approximated, list.name,
        "written with the type " + in_quotes(name) + ", the narrowest that this format has for it");
}

void Writer::write_entry(JsonPrinter& printer, const Entry& entry, const Matches& matches) {
  printer.object().member("name").text(entry.name);
  if (matches.any) {
    printer.member("matches");
    print_matches(printer, matches);
  }
  printer.member("actions").object().member("forwarding");
  printer.text(action_name(static_cast<uint32_t>(entry.forwarding)));
  if (entry.log)
    printer.member("logging").text(action_name(static_cast<uint32_t>(ActionType::log_syslog)));
  printer.close().close();
}

void Writer::write_attachments() {
  const auto sound = formats::lists_by_interface(model_, written_, findings_);
  if (sound.empty()) return;
  printer_.member("attachment-points").object().member("interface").array();
  for (const formats::InterfaceLists& interface : sound) write_interface(interface);
  printer_.close().close();
}

void Writer::write_interface(const formats::InterfaceLists& interface) {
  printer_.object().member("interface-id").text(interface.name);
  for (const Direction& direction : directions) {
    const auto& attached = direction.dir == QIM_DIR_IN ? interface.in : interface.out;
    if (attached.empty()) continue;
    printer_.member(direction.name).object().member("acl-sets").object().member("acl-set").array();
    for (const Attachment* attachment : attached)
      printer_.object().member("name").text(attachment->list).close();
    printer_.close().close().close();
  }
  printer_.close();
}

}  // namespace

}  // namespace rfc8519

ModelText write_rfc8519(const Model& model, const std::vector<std::string>& names) {
  return rfc8519::Writer(model).write(names);
}

}  // namespace qimctl
