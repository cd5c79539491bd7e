// What nodes are called on the command line.
#include "tools/nodes/node_names.h"

#include <optional>
#include <vector>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/store/stored_model.h"
#include "qim_acl.h"
#include "rov.h"
#include "tools/base/suggest.h"
#include "tools/base/usage.h"

namespace qimctl {

namespace {

constexpr const char* interface_mark = "if:";

[[noreturn]] void fail(const std::string& text, const std::string& reason,
                       const std::vector<std::string>& known) {
  const std::string meant = did_you_mean(text, known);
  throw DatabaseError(ROV_ERR_NO_ITEM, "find " + quoted(text),
                      reason + (meant.empty() ? "; 'qimctl list' names the nodes, 'qimctl acl' the "
                                                "access lists"
                                              : meant));
}

struct Direction {
  const char* ending;
  uint32_t dir;
};
constexpr Direction directions[] = {{"/in", QIM_DIR_IN}, {"/out", dir_out}};

std::string place_text(const PartKey& key) {
  return interface_mark + key.text + (key.number == QIM_DIR_IN ? "/in" : "/out");
}

// Places where lists are attached, each with the Edest of one list.
uint32_t find_place(const StoredModel& stored, const std::string& text) {
  std::string interface = text.substr(std::string(interface_mark).size());
  std::optional<uint32_t> dir;
  for (const Direction& direction : directions) {
    if (!interface.ends_with(direction.ending)) continue;
    interface.erase(interface.size() - std::string(direction.ending).size());
    dir = direction.dir;
    break;
  }
  std::vector<uint32_t> found;
  std::string listed;
  std::vector<std::string> known;
  for (const StoredList& list : stored.lists) {
    for (const auto& [key, id] : list.ids.parts) {
      if (key.part != Part::destination) continue;
      known.push_back(place_text(key));
      if (key.text != interface || (dir && key.number != *dir)) continue;
      found.push_back(id);
      listed +=
          (listed.empty() ? "" : ", ") + node_id_text(id) + " (" + bare_name(known.back()) + ")";
    }
  }
  if (found.empty()) fail(text, "no access list is attached there", known);
  if (found.size() == 1) return found.front();
  throw UsageError(quoted(text) + " are several nodes; give one of " + listed);
}

uint32_t find_entry(const StoredModel& stored, const std::string& text) {
  std::vector<std::string> known;
  for (size_t i = 0; i < stored.lists.size(); i++) {
    const AccessList& list = stored.model.lists[i];
    known.push_back(list.name);
    if (!text.starts_with(list.name + "/")) continue;
    const std::string wanted = text.substr(list.name.size() + 1);
    std::vector<std::string> entries;
    for (size_t n = 0; n < list.entries.size(); n++) {
      if (list.entries[n].name == wanted) return stored.lists[i].ids.filters[n];
      entries.push_back(list.name + "/" + list.entries[n].name);
    }
    fail(text, "the access list " + quoted(list.name) + " has no such entry", entries);
  }
  for (const Unreadable& list : stored.unreadable)
    if (text == list.name || text.starts_with(list.name + "/"))
      no_list(stored, list.name, "find " + quoted(text));
  fail(text, "there is no access list of that name", known);
}

}  // namespace

uint32_t find_node(const ReadSession& session, const std::string& text) {
  const std::optional<uint64_t> number = parse_number(text);
  if (number) return static_cast<uint32_t>(*number);
  const StoredModel stored = read_stored_model(session);
  const StoredList* list = find_stored(stored, text);
  if (list != nullptr) return list->ids.group();
  return text.starts_with(interface_mark) ? find_place(stored, text) : find_entry(stored, text);
}

std::string link_words(uint16_t field) {
  struct Word {
    uint16_t field;
    const char* word;
  };
  constexpr Word words[] = {
      {QIM_LN_FILTER_NEXT, "next"},  {QIM_LN_ACTION_NEXT, "next"},  {QIM_LN_DEF_NEXT, "next"},
      {QIM_LN_HFILTER_2, "policy"},  {QIM_LN_HACTION_2, "policy"},  {QIM_LN_DEF_2, "policy"},
      {QIM_LN_PINST, "policy"},      {QIM_LN_POLICE_1, "policy 1"}, {QIM_LN_POLICE_2, "policy 2"},
      {QIM_LN_POLICE_3, "policy 3"}, {QIM_LN_IFELSE_1, "policy 1"}, {QIM_LN_IFELSE_2, "policy 2"},
      {QIM_LN_IFELSE_3, "policy 3"}, {QIM_LN_IFELSE_4, "policy 4"}, {QIM_LN_GROUP_FIRST, "first"},
      {QIM_LN_GROUP_DEF, "default"}, {QIM_LN_FILTER_TRUE, "true"},  {QIM_LN_GROUP_NAME, "name"},
      {QIM_LN_EDEST_NAME, "name"},   {QIM_LN_POLICE_NAME, "name"}};
  for (const Word& known : words) {
    if (known.field == field) return known.word;
  }
  return slot_name(field);
}

}  // namespace qimctl
