// Applying files again. Everything that is not simple is left to whoever reads the files whole.
#include "tools/commands/remembered.h"

#include <algorithm>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "policy/base/criteria_codes.h"
#include "policy/change/apply.h"
#include "policy/change/words.h"
#include "policy/store/node_scan.h"
#include "tools/commands/version.h"

namespace qimctl {

namespace {

// The member that holds a list's entries in the one format that says them one by one.
constexpr std::string_view entries_member = "ace";

// What is outside of strings and means nothing has no say only where it is JSON.
formats::CutText cut_source(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\n\r");
  if (first == std::string::npos || text[first] != '{') return {text, {}};
  return formats::cut_entries(text, entries_member);
}

Digest context_of(const FileOptions& options, const DigestKey& key) {
  std::string text = tool_version();
  text +=
      '\0' + std::to_string(static_cast<int>(options.format)) + '\0' + options.reading.interface;
  return digest_of(key, text);
}

// Runs end where a digest happens to, so they are the same ones again behind an entry that is new.
std::vector<AppliedRun> runs_of(const std::deque<std::string_view>& entries, const DigestKey& key) {
  constexpr uint8_t ends = 0x1f;
  std::vector<AppliedRun> runs;
  std::string digests;
  uint32_t count = 0;
  for (size_t i = 0; i < entries.size(); i++) {
    const Digest digest = digest_of(key, entries[i]);
    digests.append(digest.begin(), digest.end());
    count++;
    if ((digest[0] & ends) != 0 && i + 1 < entries.size()) continue;
    runs.push_back({count, digest_of(key, digests)});
    digests.clear();
    count = 0;
  }
  return runs;
}

size_t entries_of(const AppliedRun* from, const AppliedRun* end) {
  size_t count = 0;
  for (; from != end; from++) count += from->entries;
  return count;
}

// All between the first and the last run that differ.
Span span_of(const std::vector<AppliedRun>& before, const std::vector<AppliedRun>& after) {
  const AppliedRun* old = before.data();
  const AppliedRun* now = after.data();
  const AppliedRun* old_end = old + before.size();
  const AppliedRun* now_end = now + after.size();
  Span span;
  span.entries = entries_of(old, old_end);
  const size_t all = entries_of(now, now_end);
  for (; old != old_end && now != now_end && *old == *now; old++, now++)
    span.before.from += old->entries;
  size_t back = 0;
  for (; old != old_end && now != now_end && old_end[-1] == now_end[-1]; old_end--, now_end--)
    back += old_end[-1].entries;
  span.after.from = span.before.from;
  span.before.end = span.entries - back;
  span.after.end = all - back;
  return span;
}

// Two interfaces of one index are found in a whole file only.
bool names_interface(const Entry& entry) {
  return std::any_of(entry.criteria.begin(), entry.criteria.end(), [](const Criterion& criterion) {
    return criterion.type == QIM_CRIT_INGRESS_INTERFACE ||
           criterion.type == QIM_CRIT_EGRESS_INTERFACE;
  });
}

bool is_plain(const ModelInput& input) {
  return input.emptied.empty() &&
         std::all_of(input.findings.begin(), input.findings.end(),
                     [](const Finding& finding) { return finding.fate == Fate::accepted; });
}

// Entries of one list: what is known of those that stay, and what was read of the others.
class ListPatch {
 public:
  ListPatch(uint32_t session, StoredModel& stored, size_t list)
      : session_(session), stored_(stored), list_(list) {}

  // False when it is no case for this.
  bool apply(const Span& span, AccessList& wanted) {
    const auto& names = stored_.lists[list_].names;
    if (names.size() != span.entries || wanted.entries.size() != span.after.end - span.after.from)
      return false;
    if (std::any_of(wanted.entries.begin(), wanted.entries.end(), names_interface)) return false;
    if (meets_others(span, wanted)) return false;
    // The neighbours may become the last one, or be it no longer, and be stored anew.
    fill_entries(session_, stored_, list_, span.before.from - std::min<size_t>(span.before.from, 1),
                 std::min(span.before.end + 1, span.entries));
    const auto& entries = stored_.model.lists[list_].entries;
    const auto at = [&](size_t index) {
      return entries.begin() + static_cast<std::ptrdiff_t>(index);
    };
    wanted.entries.reserve(span.entries + wanted.entries.size());
    wanted.entries.insert(wanted.entries.begin(), entries.begin(), at(span.before.from));
    wanted.entries.insert(wanted.entries.end(), at(span.before.end), entries.end());
    return true;
  }

 private:
  // Is one of them called as one that stays, or may it be?
  bool meets_others(const Span& span, const AccessList& wanted) const {
    std::unordered_set<uint64_t> fresh;
    for (const Entry& entry : wanted.entries) fresh.insert(entry_name_hash(entry.name));
    const auto& names = stored_.lists[list_].names;
    for (size_t i = 0; i < names.size(); i++) {
      const bool stays = i < span.before.from || i >= span.before.end;
      if (stays && fresh.contains(names[i])) return true;
    }
    return false;
  }

  uint32_t session_;
  StoredModel& stored_;
  size_t list_;
};

bool patch_lists(uint32_t session, StoredModel& stored, const std::vector<Span>& spans,
                 const Applied& applied, Model& wanted) {
  std::unordered_map<std::string_view, size_t> places;
  for (size_t i = 0; i < stored.lists.size(); i++) {
    // What is not to the byte what lists are made of is made anew whole.
    if (!stored.lists[i].regular) return false;
    places.emplace(stored.model.lists[i].name, i);
  }
  for (size_t i = 0; i < wanted.lists.size(); i++) {
    const auto known = places.find(wanted.lists[i].name);
    if (known == places.end() || applied.names[i] != known->first) return false;
    if (!ListPatch(session, stored, known->second).apply(spans[i], wanted.lists[i])) return false;
  }
  return true;
}

}  // namespace

FilePrints::FilePrints(const FileOptions& options, const std::vector<Source>& sources,
                       const DigestKey& key)
    : key_(key), context_(context_of(options, key)) {
  for (const Source& source : sources) {
    const formats::CutText& cut = cuts_.emplace_back(cut_source(source.text));
    AppliedText& text = texts_.emplace_back();
    text.frame = digest_of(key, cut.frame);
    for (const formats::CutList& list : cut.lists) text.lists.push_back(runs_of(list.entries, key));
  }
}

bool FilePrints::is_same(const Applied& applied) const {
  return context_ == applied.context && texts_ == applied.texts;
}

std::optional<std::vector<Span>> FilePrints::spans(const Applied& applied) const {
  const bool comparable = applied.by_entry && context_ == applied.context && texts_.size() == 1 &&
                          texts_[0].frame == applied.texts[0].frame &&
                          texts_[0].lists.size() == applied.texts[0].lists.size();
  if (!comparable) return {};
  std::vector<Span> spans;
  for (size_t i = 0; i < texts_[0].lists.size(); i++)
    spans.push_back(span_of(applied.texts[0].lists[i], texts_[0].lists[i]));
  return spans;
}

std::string FilePrints::text_with(const std::vector<Span>& spans) const {
  std::vector<formats::CutRange> kept;
  kept.reserve(spans.size());
  for (const Span& span : spans) kept.push_back(span.after);
  return formats::text_with(cuts_[0], kept);
}

Applied FilePrints::remember(uint64_t revision, const std::vector<AccessList>& lists,
                             bool pruned) const {
  Applied applied{revision, key_, context_, pruned, texts_.size() == 1, {}, texts_};
  for (const AccessList& list : lists) applied.names.push_back(list.name);
  if (!applied.by_entry) return applied;
  const auto has_runs = [](const AccessList& list, const std::vector<AppliedRun>& runs) {
    return list.entries.size() == entries_of(runs.data(), runs.data() + runs.size());
  };
  const auto& runs = texts_[0].lists;
  applied.by_entry = std::equal(lists.begin(), lists.end(), runs.begin(), runs.end(), has_runs);
  return applied;
}

std::optional<AppliedAgain> apply_spans(uint32_t session, const FileOptions& options,
                                        const FilePrints& prints, const Applied& applied,
                                        bool prune) {
  const std::optional<std::vector<Span>> spans = prints.spans(applied);
  if (!spans) return {};
  const std::string& file = options.files[0];
  try {
    const std::string text = prints.text_with(*spans);
    if (format_of(text, file, options.format) != Format::rfc8519) return {};
    ModelInput input = read_model(text, file, Format::rfc8519, options.reading);
    if (!is_plain(input) || input.model.lists.size() != spans->size()) return {};
    StoredModel stored = read_hollow_model(session);
    if (!patch_lists(session, stored, *spans, applied, input.model)) return {};
    const Change change = difference(stored.model, std::move(input.model), {.prune = prune});
    check_pruned(session, stored, change);
    Editor editor(session, stored, {});
    editor.write_lists(change);
    AppliedAgain again;
    again.edits = editor.counts().edits;
    again.remembered = prints.remember(applied.revision + 1, change.named, prune);
    for (const ListChange& list : change.lists)
      again.lists.emplace_back(list.name(), change_summary(list));
    return again;
  } catch (const InputError&) {
    return {};
  }
}

}  // namespace qimctl
