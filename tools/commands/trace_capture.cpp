// What access lists decide about the packets of a capture.
#include "tools/commands/trace_capture.h"

#include <map>
#include <utility>

#include "policy/base/criteria.h"
#include "policy/base/input_file.h"
#include "policy/base/json.h"
#include "policy/base/names.h"
#include "policy/model/words.h"
#include "policy/trace/capture.h"
#include "policy/trace/classifier.h"
#include "policy/trace/packet_words.h"
#include "tools/base/output.h"
#include "tools/base/table.h"

namespace qimctl {

namespace {

class CaptureCounts {
 public:
  CaptureCounts(const PlaceToAsk& place, const TraceOptions& options)
      : place_(place), options_(options), tracer_(place.lists), classifier_(tracer_) {}

  void count(const CapturedFrame& frame);
  void print_text() const;
  JsonValue json() const;

 private:
  using Decider = std::pair<size_t, size_t>;  // list and entry; behind the last one: the default

  std::string decider_text(const Decider& decider) const;

  const PlaceToAsk& place_;
  const TraceOptions& options_;
  Tracer tracer_;
  Classifier classifier_;
  std::map<Decider, uint64_t> deciders_;
  std::map<std::string, uint64_t> verdicts_;
  uint64_t packets_ = 0;
};

void CaptureCounts::count(const CapturedFrame& frame) {
  Packet packet = packet_from_bytes(frame.bytes, frame.kind, frame.is_cut);
  packet.ingress = place_.ingress;
  packet.egress = place_.egress;
  const TraceResult result = classifier_.trace(packet);
  const Outcome& outcome = result.outcomes.front();
  const Decider decider{outcome.list,
                        outcome.entry.value_or(place_.lists[outcome.list]->entries.size())};
  const std::string verdict =
      result.is_certain()
          ? std::string(action_name(static_cast<uint32_t>(outcome.verdict.forwarding)))
          : "cannot tell";
  packets_++;
  verdicts_[verdict]++;
  if (result.outcomes.size() == 1) deciders_[decider]++;
  if (options_.verbose && is_text(options_.form))
    print(std::to_string(packets_) + "  " + verdict + "  " +
          (result.outcomes.size() == 1 ? decider_text(decider) : "several ways") + "  " +
          packet_summary(packet) + "\n");
}

std::string CaptureCounts::decider_text(const Decider& decider) const {
  const AccessList& list = *place_.lists[decider.first];
  if (decider.second == list.entries.size()) return name_word(list.name) + " default";
  return name_word(list.name) + "/" + name_word(list.entries[decider.second].name);
}

void CaptureCounts::print_text() const {
  TextTable table({"PACKETS", "DECIDED BY"});
  for (const auto& [decider, count] : deciders_)
    table.add({std::to_string(count), decider_text(decider)});
  if (!deciders_.empty()) print(table.text());
  std::string text = counted(packets_, "packet");
  for (const auto& [verdict, count] : verdicts_)
    text += ", " + std::to_string(count) + " " + verdict;
  print(text + "\n");
}

JsonValue CaptureCounts::json() const {
  JsonValue deciders = JsonValue::array();
  for (const auto& [decider, count] : deciders_) {
    const AccessList& list = *place_.lists[decider.first];
    JsonValue item;
    item.set("list", list.name);
    if (decider.second < list.entries.size()) item.set("entry", list.entries[decider.second].name);
    item.set("packets", count);
    deciders.add(std::move(item));
  }
  JsonValue verdicts = JsonValue::object();
  for (const auto& [verdict, count] : verdicts_) verdicts.set(verdict, count);
  JsonValue value;
  value.set("at", place_.text);
  value.set("packets", packets_);
  value.set("verdicts", std::move(verdicts));
  value.set("decided_by", std::move(deciders));
  return value;
}

}  // namespace

void trace_capture(const PlaceToAsk& place, const TraceOptions& options) {
  const Source source = read_source(options.capture);
  const auto* bytes = reinterpret_cast<const uint8_t*>(source.text.data());
  CaptureCounts counts(place, options);
  read_capture({bytes, source.text.size()}, options.capture,
               [&counts](const CapturedFrame& frame) { counts.count(frame); });
  if (is_text(options.form)) return counts.print_text();
  print_value(counts.json(), options.form);
}

}  // namespace qimctl
