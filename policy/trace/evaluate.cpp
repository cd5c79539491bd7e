// Asking access lists about a packet.
#include "policy/trace/evaluate.h"

#include <algorithm>

#include "policy/base/criteria.h"
#include "policy/model/words.h"

namespace qimctl {

namespace {

// `ask` says whether the criterion of a number holds.
template <typename Ask>
EntryAnswer ask_each(size_t count, Ask ask) {
  EntryAnswer answer;
  for (uint32_t i = 0; i < count; i++) {
    const Truth truth = ask(i);
    if (truth == Truth::no) return {truth, i};
    if (truth == Truth::unknown && answer.truth == Truth::yes) answer = {truth, i};
  }
  return answer;
}

// `ask` says whether the entry of a number, of the list of a number, matches.
template <typename Ask>
TraceResult trace_lists(const Lists& lists, bool with_asked, Ask ask) {
  TraceResult result;
  for (size_t list = 0; list < lists.size(); list++) {
    const std::vector<Entry>& entries = lists[list]->entries;
    for (size_t entry = 0; entry < entries.size(); entry++) {
      const EntryAnswer answer = ask(list, entry);
      if (with_asked) result.asked.push_back({list, entry, answer});
      if (answer.truth == Truth::no) continue;
      result.outcomes.push_back({verdict_of(entries[entry]), list, entry});
      if (answer.truth == Truth::yes) return result;
    }
  }
  result.outcomes.push_back({{lists.back()->default_action, false, {}}, lists.size() - 1, {}});
  return result;
}

}  // namespace

ListMatcher::ListMatcher(const AccessList& list) : list_(&list) {
  size_t count = 0;
  for (const Entry& entry : list.entries) count += entry.criteria.size();
  conditions_.reserve(count);
  ends_.reserve(list.entries.size() + 1);
  for (const Entry& entry : list.entries) {
    for (const Criterion& criterion : entry.criteria)
      conditions_.push_back(to_condition(criterion));
    ends_.push_back(conditions_.size());
  }
}

EntryAnswer ListMatcher::ask(size_t entry, const Packet& packet) const {
  const std::span<const Condition> asked = conditions(entry);
  return ask_each(asked.size(), [&](size_t i) { return holds(asked[i], packet); });
}

Verdict verdict_of(const Entry& entry) {
  return {entry.forwarding, entry.log, entry.policer};
}

std::string verdict_text(const Verdict& verdict) {
  Entry entry;
  entry.forwarding = verdict.forwarding;
  entry.log = verdict.log;
  entry.policer = verdict.policer;
  return action_words(entry);
}

Lists lists_at(const Model& model, const std::string& interface, uint8_t dir) {
  std::vector<const Attachment*> there;
  for (const Attachment& attachment : model.attachments) {
    if (attachment.interface == interface && (attachment.dir == QIM_DIR_IN) == (dir == QIM_DIR_IN))
      there.push_back(&attachment);
  }
  std::stable_sort(there.begin(), there.end(),
                   [](const Attachment* a, const Attachment* b) { return a->stage < b->stage; });
  Lists lists;
  for (const Attachment* attachment : there) {
    const AccessList* list = find_list(model, attachment->list);
    if (list != nullptr) lists.push_back(list);
  }
  return lists;
}

bool TraceResult::is_certain() const {
  return std::all_of(outcomes.begin(), outcomes.end(), [this](const Outcome& outcome) {
    return outcome.verdict.forwarding == outcomes.front().verdict.forwarding;
  });
}

TraceResult trace_once(const Lists& lists, const Packet& packet) {
  return trace_lists(lists, true, [&](size_t list, size_t entry) {
    const std::vector<Criterion>& criteria = lists[list]->entries[entry].criteria;
    return ask_each(criteria.size(),
                    [&](size_t i) { return holds(to_condition(criteria[i]), packet); });
  });
}

Tracer::Tracer(const Lists& lists) : all_(lists) {
  matchers_.reserve(lists.size());
  for (const AccessList* list : lists) matchers_.emplace_back(*list);
}

TraceResult Tracer::trace(const Packet& packet, bool with_asked) const {
  return trace_lists(all_, with_asked,
                     [&](size_t list, size_t entry) { return matchers_[list].ask(entry, packet); });
}

}  // namespace qimctl
