// Which packets two policies decide differently, printed.
#include "tools/commands/semantic_diff.h"

#include <utility>

#include "policy/analysis/difference.h"
#include "policy/base/json.h"
#include "policy/base/text.h"
#include "tools/base/output.h"
#include "tools/base/rows.h"

namespace qimctl {

namespace {

constexpr size_t most_regions = 50;

void print_text(const PlaceDifference& place) {
  print(printable(place.place) + "\n");
  const std::vector<DifferentRegion>& regions = place.differences.regions;
  for (size_t i = 0; i < regions.size() && i < most_regions; i++) {
    const DifferentRegion& region = regions[i];
    print("  " + verdict_text(region.before) + " -> " + verdict_text(region.after) + ": " +
          region.words + "\n      such as: " + region.example + "\n");
  }
  if (regions.size() > most_regions)
    print("  and " + std::to_string(regions.size() - most_regions) +
          " more; --json has them all\n");
  if (!place.differences.complete)
    print("  and perhaps more: finding them all would take too long\n");
}

JsonValue to_json(const PlaceDifference& place) {
  JsonValue regions = JsonValue::array();
  for (const DifferentRegion& region : place.differences.regions) {
    JsonValue item;
    item.set("before", verdict_text(region.before));
    item.set("after", verdict_text(region.after));
    item.set("packets", region.words);
    item.set("example", region.example);
    if (region.unless != 0) item.set("unless", region.unless);
    regions.add(std::move(item));
  }
  JsonValue value;
  value.set("at", place.place);
  value.set("complete", place.differences.complete);
  value.set("regions", std::move(regions));
  return value;
}

}  // namespace

Model with_lists_of(const Model& before, Model named) {
  for (const Attachment& attachment : before.attachments)
    if (find_list(named, attachment.list) == nullptr) named.attachments.push_back(attachment);
  for (const AccessList& list : before.lists)
    if (find_list(named, list.name) == nullptr) named.lists.push_back(list);
  return named;
}

bool print_semantic_difference(const Model& before, const Model& after, OutputForm form) {
  const std::vector<PlaceDifference> places = semantic_difference(before, after);
  Rows rows(form, {});
  for (const PlaceDifference& place : places)
    rows.is_text() ? print_text(place) : rows.add(to_json(place));
  rows.finish();
  return !places.empty();
}

}  // namespace qimctl
