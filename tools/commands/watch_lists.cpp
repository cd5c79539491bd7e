// `qimctl watch`: what becomes of access lists, in words.
//
// What was read last is kept, and compared with what there is when changes came. So nothing is lost
// where the database lost changes, and several commits that came at once are told as one.
#include <algorithm>
#include <ctime>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "policy/base/names.h"
#include "policy/change/list_news.h"
#include "policy/model/words.h"
#include "policy/store/history.h"
#include "policy/store/stored_model.h"
#include "rov.h"
#include "tools/base/output.h"
#include "tools/commands/watch.h"

namespace qimctl {

namespace {

// Commits that are told together.
struct Batch {
  uint64_t first = 0;  // 0: none came
  uint64_t last = 0;
  std::set<uint64_t> users;
  std::map<uint32_t, size_t> kinds;  // how many changes of each kind
  std::set<uint32_t> nodes;
  bool gap = false;

  void add(const rov_change_t& change) {
    const uint64_t revision = joined(change.revision);
    if (first == 0) first = revision;
    last = revision;
    if (joined(change.user) != 0) users.insert(joined(change.user));
    kinds[change.kind]++;
    nodes.insert(qim_from_rov_node_id(&change.node));
    gap = gap || change.kind == ROV_CHANGE_GAP;
  }
};

// Who committed, and when.
struct Origin {
  uint64_t seconds = 0;
  std::vector<std::string> authors;
};

Origin origin_of(const Database& database, const Batch& batch) {
  Origin origin;
  for (const uint64_t user : batch.users) {
    const Author author = author_of(database, user);
    origin.seconds = std::max(origin.seconds, author.seconds);
    origin.authors.push_back(author.name);
  }
  if (origin.seconds == 0) origin.seconds = static_cast<uint64_t>(time(nullptr));
  return origin;
}

// "23:44:29 revision 8 by root qimctl[29955]: "
std::string head_of(const Origin& origin, const Batch& batch) {
  std::string authors;
  for (const std::string& author : origin.authors)
    authors += (authors.empty() ? " by " : ", ") + author;
  const std::string revisions =
      batch.first == batch.last
          ? "revision " + std::to_string(batch.last)
          : "revisions " + std::to_string(batch.first) + " to " + std::to_string(batch.last);
  return clock_text(origin.seconds) + " " + revisions + authors + ": ";
}

JsonValue texts_json(const std::vector<std::string>& texts) {
  JsonValue all = JsonValue::array();
  for (const std::string& text : texts) all.add(text);
  return all;
}

void set_origin(JsonValue& value, const Origin& origin, const Batch& batch) {
  value.set("time", origin.seconds);
  value.set("revision", batch.last);
  value.set("first_revision", batch.first);
  value.set("by", texts_json(origin.authors));
}

// "3 nodes put, 1 link deleted"
std::string counts_text(const Batch& batch) {
  struct Kind {
    uint32_t kind;
    const char* noun;
    const char* what;
  };
  static constexpr Kind kinds[] = {{ROV_CHANGE_NODE_PUT, "node", " put"},
                                   {ROV_CHANGE_NODE_DEL, "node", " deleted"},
                                   {ROV_CHANGE_LINK_PUT, "link", " put"},
                                   {ROV_CHANGE_LINK_DEL, "link", " deleted"},
                                   {ROV_CHANGE_PRIV_POST, "piece", " of private data posted"}};
  if (batch.gap) return "more changes than are told";
  std::string text;
  for (const Kind& kind : kinds) {
    const auto found = batch.kinds.find(kind.kind);
    if (found != batch.kinds.end())
      text += (text.empty() ? "" : ", ") + counted(found->second, kind.noun) + kind.what;
  }
  return text;
}

class ListWatch {
 public:
  ListWatch(const Database& database, const WatchOptions& options)
      : database_(database), options_(options), following_(database, options.from) {}

  void run() {
    if (options_.from != 0) tell_of_the_past();
    model_ = read();
    while (!is_done()) {
      flush_output();
      if (!wait_for(following_.descriptor(), options_.seconds)) return;
      tell_of_news();
    }
  }

 private:
  bool is_done() const { return options_.count && told_ >= *options_.count; }

  // A line, or a document that has what `value` has.
  void say(const Batch& batch, const std::string& what, JsonValue value = {}) {
    if (is_done()) return;
    told_++;
    const Origin origin = origin_of(database_, batch);
    if (is_text(options_.form)) return print(head_of(origin, batch) + what + "\n");
    set_origin(value, origin, batch);
    print(line_text(value, options_.form));
  }

  StoredModel read() const { return read_stored_model(ReadSession(database_)); }

  // What lists were in the past is not known any more, only which ones the changes are of.
  void tell_of_the_past() {
    const StoredModel now = read();
    Batch batch;
    while (const std::optional<rov_change_t> change = following_.next()) {
      if (batch.last != 0 && batch.last != joined(change->revision)) {
        tell_past(batch, now);
        batch = {};
      }
      batch.add(*change);
    }
    if (batch.last != 0) tell_past(batch, now);
  }

  void tell_past(const Batch& batch, const StoredModel& now) {
    std::vector<std::string> touched;
    for (size_t i = 0; i < now.lists.size(); i++) {
      const std::vector<uint32_t>& members = now.lists[i].members;
      if (std::any_of(members.begin(), members.end(),
                      [&batch](uint32_t member) { return batch.nodes.contains(member); }))
        touched.push_back(now.model.lists[i].name);
    }
    if (touched.empty() && options_.acl) return;
    std::sort(touched.begin(), touched.end());
    std::string lists;
    for (const std::string& name : touched) lists += (lists.empty() ? "" : ", ") + name_word(name);
    const std::string counts = counts_text(batch);
    JsonValue value;
    value.set("what", counts);
    value.set("lists", texts_json(touched));
    say(batch, counts + (lists.empty() ? "" : ", of " + lists), std::move(value));
  }

  // Reads until nothing more came meanwhile: what is read belongs to the commits that are told.
  void tell_of_news() {
    constexpr size_t most = 8;
    Batch batch;
    StoredModel now;
    for (;;) {
      const uint64_t seen = batch.last;
      while (const std::optional<rov_change_t> change = following_.next()) batch.add(*change);
      if (batch.last == seen) break;
      now = read();
    }
    if (batch.last == 0) return;
    const std::vector<ListNews> all = list_news(model_.model, now.model);
    for (const ListNews& news : all) {
      JsonValue value;
      value.set("list", news.name);
      value.set("changes", texts_json(news.what));
      say(batch, to_string(news, most), std::move(value));
    }
    if (all.empty() && !options_.acl) say(batch, counts_text(batch) + ", no access list changed");
    model_ = std::move(now);
  }

  const Database& database_;
  const WatchOptions& options_;
  Following following_;
  StoredModel model_;
  uint64_t told_ = 0;
};

}  // namespace

void watch_lists(const Database& database, const WatchOptions& options) {
  ListWatch(database, options).run();
}

}  // namespace qimctl
