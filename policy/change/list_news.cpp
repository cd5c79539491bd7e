// What became of access lists.
#include "policy/change/list_news.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <unordered_map>

#include "policy/base/criteria.h"
#include "policy/change/change.h"
#include "policy/model/words.h"

namespace qimctl {

namespace {

using Words = std::vector<std::string>;

void add_new(Words& words, const Entry& entry) {
  words.push_back("+" + name_word(entry.name) + ": " + criteria_words(entry) + " " +
                  action_words(entry));
}

void add_changed(Words& words, const Entry& old, const Entry& entry) {
  const std::string name = name_word(entry.name);
  const std::string did = action_words(old);
  const std::string does = action_words(entry);
  if (did != does) words.push_back(name + " " + did + " -> " + does);
  const std::string matched = criteria_words(old);
  const std::string matches = criteria_words(entry);
  if (matched != matches) words.push_back(name + ": " + matched + " -> " + matches);
  if (did == does && matched == matches) words.push_back(name + " is stored differently");
}

// Those that are gone, then what is new or changed, then what stands elsewhere.
void add_entries(Words& words, const AccessList& before, const AccessList& after) {
  const std::vector<EntryChange> changes = compare_entries(before, after);
  for (const EntryChange& change : changes) {
    if (change.fate == EntryFate::removed)
      words.push_back("-" + name_word(before.entries[change.from].name));
  }
  for (const EntryChange& change : changes) {
    if (change.fate == EntryFate::added) add_new(words, after.entries[change.to]);
    if (change.fate == EntryFate::changed)
      add_changed(words, before.entries[change.from], after.entries[change.to]);
  }
  for (const EntryChange& change : changes)
    if (change.moved) words.push_back(name_word(after.entries[change.to].name) + " moved");
}

using Places = std::map<std::string, uint32_t>;  // "if:eth0/in" and the stage

std::unordered_map<std::string_view, Places> places_by_list(const Model& model) {
  std::unordered_map<std::string_view, Places> places;
  for (const Attachment& attachment : model.attachments) {
    const std::string at =
        "if:" + name_word(attachment.interface) + (attachment.dir == QIM_DIR_IN ? "/in" : "/out");
    places[attachment.list][at] = attachment.stage;
  }
  return places;
}

void add_places(Words& words, const Places& before, const Places& after) {
  for (const auto& [place, stage] : before)
    if (!after.contains(place)) words.push_back("detached from " + place);
  for (const auto& [place, stage] : after) {
    const auto old = before.find(place);
    if (old == before.end()) {
      words.push_back("attached to " + place);
    } else if (old->second != stage) {
      words.push_back("stage " + std::to_string(old->second) + " -> " + std::to_string(stage) +
                      " at " + place);
    }
  }
}

Words changes_of(const AccessList& before, const AccessList& after) {
  Words words;
  add_entries(words, before, after);
  if (before.type != after.type)
    words.push_back("type " + list_type_words(before.type) + " -> " + list_type_words(after.type));
  if (before.default_action != after.default_action)
    words.push_back("default " + default_words(before) + " -> " + default_words(after));
  return words;
}

template <typename Named>
std::unordered_map<std::string_view, const Named*> by_name(const std::vector<Named>& all) {
  std::unordered_map<std::string_view, const Named*> found;
  for (const Named& one : all) found[one.name] = &one;
  return found;
}

void add(std::vector<ListNews>& changes, const std::string& name, Words what) {
  if (!what.empty()) changes.push_back({name, std::move(what)});
}

std::string entries_text(const AccessList& list) {
  const size_t count = list.entries.size();
  return std::to_string(count) + (count == 1 ? " entry" : " entries");
}

void add_policers(std::vector<ListNews>& changes, const Model& before, const Model& after) {
  const auto old = by_name(before.policers);
  const auto now = by_name(after.policers);
  for (const Policer& policer : after.policers) {
    const std::string limit = policer_words(policer);
    const auto found = old.find(policer.name);
    if (found == old.end()) {
      add(changes, "policer " + name_word(policer.name), {"new, " + limit});
    } else if (!(*found->second == policer)) {
      add(changes, "policer " + name_word(policer.name),
          {policer_words(*found->second) + " -> " + limit});
    }
  }
  for (const Policer& policer : before.policers)
    if (!now.contains(policer.name))
      add(changes, "policer " + name_word(policer.name), {"deleted"});
}

}  // namespace

std::vector<ListNews> list_news(const Model& before, const Model& after) {
  const auto old = by_name(before.lists);
  const auto now = by_name(after.lists);
  auto old_places = places_by_list(before);
  auto new_places = places_by_list(after);
  std::vector<ListNews> changes;
  for (const AccessList& list : after.lists) {
    const auto found = old.find(list.name);
    Words what =
        found == old.end() ? Words{"new, " + entries_text(list)} : changes_of(*found->second, list);
    add_places(what, old_places[list.name], new_places[list.name]);
    add(changes, name_word(list.name), std::move(what));
  }
  for (const AccessList& list : before.lists)
    if (!now.contains(list.name))
      add(changes, name_word(list.name), {"deleted, it had " + entries_text(list)});
  add_policers(changes, before, after);
  return changes;
}

std::string to_string(const ListNews& change, size_t most) {
  std::string text = change.name + ": ";
  for (size_t i = 0; i < std::min(most, change.what.size()); i++)
    text += (i == 0 ? "" : ", ") + change.what[i];
  if (change.what.size() > most)
    text += ", and " + std::to_string(change.what.size() - most) + " more";
  return text;
}

}  // namespace qimctl
