// `qimctl trace`: what access lists decide about a packet, and why.
#include "tools/commands/trace.h"

#include <algorithm>
#include <utility>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/base/text.h"
#include "policy/model/words.h"
#include "policy/store/stored_model.h"
#include "policy/trace/packet_bytes.h"
#include "policy/trace/packet_words.h"
#include "tools/base/output.h"
#include "tools/base/table.h"
#include "tools/base/usage.h"
#include "tools/commands/trace_capture.h"

namespace qimctl {

namespace {

// Entries that do not match are shown as long as there are so few of them.
constexpr size_t most_shown = 30;
// Entries that would decide otherwise are named as long as there are so few of them.
constexpr size_t most_ways = 3;

Packet read_packet(const std::string& text) {
  constexpr std::string_view frame = "frame ";
  if (!text.starts_with(frame)) {
    try {
      return packet_from_words(text);
    } catch (const PacketError& error) {
      throw UsageError(error.what());
    }
  }
  const auto bytes = bytes_from_hex(text.substr(frame.size()));
  if (!bytes) throw UsageError("'frame' needs the bytes of a frame as hexadecimal digits");
  return packet_from_bytes(*bytes, FrameKind::ethernet);
}

// What the entries were asked and said.
class Report {
 public:
  Report(const PlaceToAsk& place, const Packet& packet)
      : place_(place), packet_(packet), result_(trace_once(place.lists, packet)) {}

  std::string text(bool verbose) const;
  JsonValue json() const;

 private:
  const Entry& entry(const AskedEntry& asked) const {
    return place_.lists[asked.list]->entries[asked.entry];
  }
  // The criterion that decided, or left it open, and what the packet has there.
  std::pair<std::string, std::string> reason(const AskedEntry& asked) const;
  std::string reason_text(const AskedEntry& asked) const;
  std::string name(const Outcome& outcome) const;
  std::string list_text(size_t list, bool verbose) const;
  std::string verdict_line() const;

  const PlaceToAsk& place_;
  const Packet& packet_;
  TraceResult result_;
};

const char* truth_name(Truth truth) {
  if (truth == Truth::unknown) return "cannot tell";
  return truth == Truth::yes ? "yes" : "no";
}

std::pair<std::string, std::string> Report::reason(const AskedEntry& asked) const {
  const uint32_t at = asked.answer.criterion;
  const Criterion& criterion = entry(asked).criteria[at];
  const Condition condition = to_condition(criterion);
  Entry alone;
  alone.criteria = {criterion};
  const std::string wanted = condition.kind == Condition::Kind::undecided
                                 ? criteria_words(alone)
                                 : criterion_text(criterion.type, criterion.args);
  return {wanted, value_text(condition, criterion, packet_)};
}

std::string Report::reason_text(const AskedEntry& asked) const {
  if (asked.answer.truth == Truth::yes) return verdict_text(verdict_of(entry(asked)));
  const auto& [wanted, has] = reason(asked);
  return wanted + "; the packet: " + has;
}

std::string Report::name(const Outcome& outcome) const {
  const AccessList& list = *place_.lists[outcome.list];
  if (!outcome.entry) return "the default of " + name_word(list.name);
  return name_word(list.name) + "/" + name_word(list.entries[*outcome.entry].name);
}

std::string Report::list_text(size_t list, bool verbose) const {
  TextTable table({"", "ENTRY", "MATCH", "WHY"});
  size_t count = 0;
  size_t left_out = 0;
  for (const AskedEntry& asked : result_.asked) {
    if (asked.list != list) continue;
    const bool shown = verbose || asked.answer.truth != Truth::no || count < most_shown;
    if (!shown) left_out++;
    if (!shown) continue;
    count++;
    table.add({std::to_string(asked.entry + 1), name_word(entry(asked).name),
               truth_name(asked.answer.truth), reason_text(asked)});
  }
  std::string text = "list " + name_word(place_.lists[list]->name) + "\n";
  text += count == 0 ? "no entries\n" : table.text();
  if (left_out != 0)
    text +=
        "entries that do not match, left out: " + std::to_string(left_out) + "; -v shows them\n";
  return text;
}

std::string Report::verdict_line() const {
  const Outcome& last = result_.outcomes.back();
  if (result_.outcomes.size() == 1)
    return "verdict: " + verdict_text(last.verdict) + ", by " + name(last) + "\n";
  const std::string otherwise = verdict_text(last.verdict) + ", by " + name(last);
  if (result_.is_certain())
    return "verdict: " + otherwise +
           ", or by another entry that cannot be told, which forwards it "
           "no differently\n";
  std::string ways;
  size_t count = 0;
  for (const Outcome& outcome : result_.outcomes) {
    if (outcome.verdict.forwarding == last.verdict.forwarding || ++count > most_ways) continue;
    ways += (count == 1 ? " unless " : " or ") + name(outcome) + " matches (" +
            verdict_text(outcome.verdict) + ")";
  }
  if (count > most_ways) ways += " or one of " + std::to_string(count - most_ways) + " others";
  return "verdict: cannot tell: " + otherwise + "," + ways + "\n";
}

std::string Report::text(bool verbose) const {
  std::string text = "packet: " + packet_words(packet_) + "\n";
  for (size_t list = 0; list <= result_.outcomes.back().list; list++)
    text += list_text(list, verbose);
  return text + verdict_line();
}

JsonValue Report::json() const {
  JsonValue entries = JsonValue::array();
  for (const AskedEntry& asked : result_.asked) {
    JsonValue item;
    item.set("list", place_.lists[asked.list]->name);
    item.set("entry", entry(asked).name);
    item.set("number", asked.entry + 1);
    item.set("match", truth_name(asked.answer.truth));
    if (asked.answer.truth != Truth::yes) {
      const auto& [wanted, has] = reason(asked);
      item.set("criterion", wanted);
      item.set("packet", has);
    }
    entries.add(std::move(item));
  }
  JsonValue outcomes = JsonValue::array();
  for (const Outcome& outcome : result_.outcomes) {
    JsonValue item;
    item.set("verdict",
             std::string(action_name(static_cast<uint32_t>(outcome.verdict.forwarding))));
    item.set("log", outcome.verdict.log);
    item.set("policer", outcome.verdict.policer);
    item.set("list", place_.lists[outcome.list]->name);
    if (outcome.entry) item.set("entry", place_.lists[outcome.list]->entries[*outcome.entry].name);
    outcomes.add(std::move(item));
  }
  JsonValue value;
  value.set("at", place_.text);
  value.set("packet", packet_words(packet_));
  value.set("certain", result_.is_certain());
  value.set("outcomes", std::move(outcomes));
  value.set("asked", std::move(entries));
  return value;
}

void be_at(const PlaceToAsk& place, Packet& packet) {
  for (const auto& [own, there] :
       {std::pair(&packet.ingress, &place.ingress), std::pair(&packet.egress, &place.egress)}) {
    if (!own->empty() && !there->empty() && *own != *there)
      throw UsageError("the packet is at interface " + quoted(*own) + ", but " +
                       quoted(place.text) + " is asked; leave one of them out");
    if (own->empty()) *own = *there;
  }
}

void trace_packet(const PlaceToAsk& place, const TraceOptions& options) {
  Packet packet = read_packet(options.packet);
  be_at(place, packet);
  const Report report(place, packet);
  if (is_text(options.form)) return print(report.text(options.verbose));
  print_value(report.json(), options.form);
}

}  // namespace

bool trace_packets(const ReadSession& session, const TraceOptions& options) {
  const StoredModel stored = read_stored_model(session);
  try {
    const PlaceToAsk place = find_place(stored.model, options.where);
    options.capture.empty() ? trace_packet(place, options) : trace_capture(place, options);
    return true;
  } catch (const NoSuchPlace& error) {
    complain(error.what());
    return false;
  }
}

}  // namespace qimctl
