// `qimctl acl`: access lists as people think of them.
#include "tools/commands/acl.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <unordered_map>

#include "policy/base/criteria.h"
#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/model/words.h"
#include "policy/store/stored_model.h"
#include "rov.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"
#include "tools/base/table.h"
#include "tools/base/terminal.h"

namespace qimctl {

namespace {

// What is attached at each place: several lists have stages, one has none worth a word.
class Places {
 public:
  explicit Places(const Model& model) {
    for (const Attachment& attachment : model.attachments) {
      counts_[attachment_text(attachment)]++;
      by_list_[attachment.list].push_back(&attachment);
    }
  }
  const std::vector<const Attachment*>& of(const std::string& list) { return by_list_[list]; }
  // "if:eth0/in", "if:eth0/in stage 2"
  std::string text(const Attachment& attachment) const {
    const std::string place = attachment_text(attachment);
    const bool alone = counts_.at(place) == 1;
    return bare_name(place) + (alone ? "" : " stage " + std::to_string(attachment.stage));
  }
  std::string text_of(const std::string& list) {
    std::string all;
    for (const Attachment* attachment : of(list))
      all += (all.empty() ? "" : ", ") + text(*attachment);
    return all.empty() ? "nowhere" : all;
  }

 private:
  std::unordered_map<std::string, size_t> counts_;
  std::unordered_map<std::string, std::vector<const Attachment*>> by_list_;
};

std::string default_text(const AccessList& list) {
  return std::string(action_name(static_cast<uint32_t>(list.default_action)));
}

JsonValue places_json(Places& places, const std::string& list) {
  JsonValue all = JsonValue::array();
  for (const Attachment* attachment : places.of(list)) {
    JsonValue place;
    place.set("interface", attachment->interface);
    place.set("direction", attachment->dir == QIM_DIR_IN ? "in" : "out");
    place.set("stage", attachment->stage);
    all.add(std::move(place));
  }
  return all;
}

JsonValue list_json(const AccessList& list, const StoredList& nodes, Places& places) {
  JsonValue value;
  value.set("name", list.name);
  value.set("type", list_type_words(list.type));
  value.set("entries", nodes.entries);
  value.set("default", default_text(list));
  value.set("attached", places_json(places, list.name));
  return value;
}

JsonValue entry_json(const Entry& entry, size_t number) {
  JsonValue value;
  value.set("number", number);
  value.set("name", entry.name);
  value.set("matches", criteria_words(entry));
  value.set("action", action_words(entry));
  return value;
}

void add_count(JsonValue& json, const EntryCounters::Count& count) {
  json.set("packets", count.packets);
  json.set("bytes", count.bytes);
}

// The places of lists in the order of their names.
std::vector<size_t> by_name(const std::vector<AccessList>& lists) {
  std::vector<size_t> order(lists.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(),
            [&lists](size_t a, size_t b) { return lists[a].name < lists[b].name; });
  return order;
}

void print_text(const StoredModel& stored, OutputForm form) {
  Places places(stored.model);
  Rows rows(form, {{"LIST"}, {"TYPE"}, {"ENTRIES"}, {"DEFAULT"}, {"ATTACHED"}});
  for (const size_t i : by_name(stored.model.lists)) {
    const AccessList& list = stored.model.lists[i];
    rows.add({bare_name(list.name), list_type_words(list.type),
              std::to_string(stored.lists[i].entries), default_text(list),
              places.text_of(list.name)});
  }
  rows.finish("access list");
  for (const Unreadable& unreadable : stored.unreadable)
    print(unreadable_name(unreadable) + " " + printable(unreadable_text(unreadable)) + "\n");
}

JsonValue unreadable_json(const Unreadable& unreadable) {
  JsonValue value;
  value.set("name", unreadable.name);
  value.set("node", node_id_text(unreadable.node));
  value.set("unreadable", unreadable.why);
  return value;
}

const AccessList& require_list(const StoredModel& stored, const std::string& name) {
  const AccessList* list = find_list(stored.model, name);
  if (list == nullptr) no_list(stored, name, "show the access list " + quoted(name));
  return *list;
}

// How much of a list's table is kept in memory.
constexpr size_t most_text = 8 * size_t{1024} * 1024;

// The lines of a list's entries. Columns are as wide as their widest cell, so that the first line
// can be printed when the last one is known: what is too large to be kept is made twice.
class EntryTable {
 public:
  // `counters` may be NULL.
  EntryTable(const ReadSession& session, const StoredList& list, OutputForm form,
             const std::string& name, const EntryCounters* counters)
      : session_(session),
        list_(list),
        width_(form == OutputForm::wide ? 0 : terminal().width),
        name_(name),
        counters_(counters) {}

  void print_all() {
    if (list_.entries == 0) return;
    Row head;
    for (const char* name : {"NO", "ENTRY", "MATCHES", "ACTION"})
      head.push_back(styled(Style::head, name));
    if (counters_ != nullptr)
      for (const char* name : {"PACKETS", "BYTES"}) head.push_back(styled(Style::head, name));
    TableColumns columns(head);
    each_row([&](const Row& row) {
      columns.fit(row);
      keep(row);
    });
    print(columns.line(head, width_));
    if (cells_.size() <= most_text) return print_kept(columns);
    each_row([&](const Row& row) { print(columns.line(row, width_)); });
  }

 private:
  using Row = std::vector<std::string>;

  template <typename Visit>
  void each_row(Visit visit) const {
    Row row(cells());
    size_t number = 0;
    each_stored_entry(session_, list_, [&](const Entry& entry) {
      row[0] = std::to_string(++number);
      row[1] = bare_name(entry.name);
      row[2] = criteria_words(entry);
      row[3] = action_words(entry);
      if (counters_ != nullptr) {
        const EntryCounters::Count count = counters_->of(name_, entry.name);
        row[4] = std::to_string(count.packets);
        row[5] = std::to_string(count.bytes);
      }
      visit(row);
    });
  }

  void keep(const Row& row) {
    if (cells_.size() > most_text) return;
    for (const std::string& cell : row) {
      cells_ += cell;
      cells_ += '\n';  // which no cell holds
    }
  }

  size_t cells() const { return counters_ == nullptr ? 4 : 6; }

  void print_kept(const TableColumns& columns) const {
    Row row(cells());
    for (size_t at = 0; at < cells_.size();) {
      for (std::string& cell : row) {
        const size_t end = cells_.find('\n', at);
        cell.assign(cells_, at, end - at);
        at = end + 1;
      }
      print(columns.line(row, width_));
    }
  }

  const ReadSession& session_;
  const StoredList& list_;
  size_t width_;
  const std::string& name_;
  const EntryCounters* counters_;
  std::string cells_;
};

}  // namespace

void print_lists(const ReadSession& session, OutputForm form) {
  const StoredModel stored = read_outline(session);
  if (is_text(form)) return print_text(stored, form);
  Places places(stored.model);
  Rows rows(form, {});
  for (const size_t i : by_name(stored.model.lists))
    rows.add(list_json(stored.model.lists[i], stored.lists[i], places));
  for (const Unreadable& unreadable : stored.unreadable) rows.add(unreadable_json(unreadable));
  rows.finish();
}

void print_list(const ReadSession& session, const std::string& name, OutputForm form,
                const EntryCounters* counters) {
  const StoredModel stored = read_outline(session);
  const AccessList& list = require_list(stored, name);
  const StoredList& nodes = *find_stored(stored, name);
  Places places(stored.model);
  if (!is_text(form)) {
    JsonValue value = list_json(list, nodes, places);
    JsonValue entries = JsonValue::array();
    size_t number = 0;
    each_stored_entry(session, nodes, [&](const Entry& entry) {
      JsonValue json = entry_json(entry, ++number);
      if (counters != nullptr) add_count(json, counters->of(name, entry.name));
      entries.add(std::move(json));
    });
    value.set("entries", std::move(entries));
    if (counters != nullptr) add_count(value, counters->of(name, ""));
    return print_value(value, form);
  }
  print(bare_name(list.name) + "  type " + list_type_words(list.type) + ", " +
        std::to_string(nodes.entries) + (nodes.entries == 1 ? " entry" : " entries") +
        ", default " + default_text(list) + ", attached " + (places.of(name).empty() ? "" : "at ") +
        places.text_of(name) + "\n");
  EntryTable(session, nodes, form, name, counters).print_all();
  if (counters != nullptr) {
    const EntryCounters::Count rest = counters->of(name, "");
    print("by default " + counted(rest.packets, "packet") + ", " + counted(rest.bytes, "byte") +
          "\n");
  }
  for (const Policer& policer : stored.model.policers) {
    const bool used = std::any_of(nodes.deeds.begin(), nodes.deeds.end(), [&](const auto& deed) {
      return deed.second.policer == policer.name;
    });
    if (used) print("policer " + name_word(policer.name) + ": " + policer_words(policer) + "\n");
  }
}

}  // namespace qimctl
