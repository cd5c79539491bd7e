// Asking access lists about a packet.
#include "policy/trace/evaluate.h"

#include <algorithm>

#include "policy/base/criteria.h"
#include "policy/model/words.h"

namespace qimctl {

ListMatcher::ListMatcher(const AccessList& list) : list_(&list) {
  conditions_.resize(list.entries.size());
  for (size_t i = 0; i < list.entries.size(); i++) {
    conditions_[i].reserve(list.entries[i].criteria.size());
    for (const Criterion& criterion : list.entries[i].criteria)
      conditions_[i].push_back(to_condition(criterion));
  }
}

ListMatcher::Answer ListMatcher::ask(size_t entry, const Packet& packet) const {
  Answer answer;
  const std::vector<Condition>& conditions = conditions_[entry];
  for (uint32_t i = 0; i < conditions.size(); i++) {
    const Truth truth = holds(conditions[i], packet);
    if (truth == Truth::no) return {truth, i};
    if (truth == Truth::unknown && answer.truth == Truth::yes) answer = {truth, i};
  }
  return answer;
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

Tracer::Tracer(const Lists& lists) {
  matchers_.reserve(lists.size());
  for (const AccessList* list : lists) matchers_.emplace_back(*list);
}

TraceResult Tracer::trace(const Packet& packet, bool with_asked) const {
  TraceResult result;
  for (size_t list = 0; list < matchers_.size(); list++) {
    const ListMatcher& matcher = matchers_[list];
    for (size_t entry = 0; entry < matcher.list().entries.size(); entry++) {
      const ListMatcher::Answer answer = matcher.ask(entry, packet);
      if (with_asked) result.asked.push_back({list, entry, answer});
      if (answer.truth == Truth::no) continue;
      result.outcomes.push_back({verdict_of(matcher.list().entries[entry]), list, entry});
      if (answer.truth == Truth::yes) return result;
    }
  }
  const Verdict verdict{matchers_.back().list().default_action, false, {}};
  result.outcomes.push_back({verdict, matchers_.size() - 1, {}});
  return result;
}

}  // namespace qimctl
