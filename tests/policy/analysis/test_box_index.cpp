// Boxes found through an index are those found by asking all; answers for lists in which entries are
// many, and regions too many to tell.
#include "policy/analysis/box_index.h"

#include <random>

#include "policy/analysis/difference.h"
#include "policy/analysis/list_analysis.h"
#include "tests/policy/trace/trace_support.h"
#include "tests/support/pace.h"

namespace {

using namespace qimctl;

// Ranges of 0 to 255; half of them ask for nothing, and the last dimension is one of bits.
std::vector<Range> random_box(std::mt19937& random) {
  std::vector<Range> box;
  for (int i = 0; i < 3; i++) {
    const uint64_t first = random() % 250;
    const bool all = random() % 2 == 0;
    box.push_back({{0, all ? 0 : first}, {0, all ? 255 : first + random() % (256 - first)}});
  }
  const uint64_t mask = random() % 4;
  box.push_back({{0, random() & mask}, {0, mask}});
  return box;
}

TEST(BoxIndex, FindsWhatAskingAllFinds) {
  const Masked masked{false, false, false, true};
  const std::vector<Range> whole{{{}, {0, 255}}, {{}, {0, 255}}, {{}, {0, 255}}, {}};
  std::mt19937 random(5);
  for (const size_t count : {size_t{0}, size_t{1}, size_t{9}, size_t{300}}) {
    Boxes boxes(4);
    for (size_t i = 0; i < count; i++) boxes.add(random_box(random));
    const BoxIndex index(masked, whole, boxes);
    for (int i = 0; i < 200; i++) {
      const std::vector<Range> box = random_box(random);
      std::vector<uint32_t> wanted;
      for (uint32_t number = 0; number < count; number++)
        if (overlap(masked, box, boxes[number])) wanted.push_back(number);
      EXPECT_EQ(index.overlapping(box), wanted);
    }
  }
}

TEST(BoxIndex, OfASpaceWithoutDimensionsFindsAll) {
  Boxes boxes(0);
  boxes.add({});
  boxes.add({});
  EXPECT_EQ(BoxIndex({}, {}, boxes).overlapping({}), (std::vector<uint32_t>{0, 1}));
}

// Addresses of few networks with prefixes of all lengths, well-known ports: what filter sets are made of.
class FilterSet {
 public:
  AccessList list(size_t count) {
    for (int i = 0; i < 8; i++) networks_.push_back(static_cast<uint32_t>(random_()) & 0xffff0000);
    AccessList made;
    made.name = "l";
    for (size_t i = 0; i < count; i++) made.entries.push_back(entry("e" + std::to_string(i)));
    return made;
  }

 private:
  uint32_t upto(uint32_t end) { return static_cast<uint32_t>(random_() % end); }

  Criterion prefix(uint32_t type) {
    static constexpr uint8_t lengths[] = {32, 32, 32, 28, 24, 24, 16, 12};
    const uint8_t length = lengths[upto(8)];
    const uint32_t address = (networks_[upto(8)] | upto(0x10000)) & ~0u << (32 - length);
    return {type,
            {static_cast<uint8_t>(address >> 24), static_cast<uint8_t>(address >> 16),
             static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address), length}};
  }

  Entry entry(const std::string& name) {
    Entry made;
    made.name = name;
    made.forwarding = upto(3) == 0 ? ActionType::drop : ActionType::accept;
    const bool tcp = upto(4) != 0;
    made.criteria.push_back({0x0305, {static_cast<uint8_t>(tcp ? 6 : 17)}});
    made.criteria.push_back(prefix(0x030a));
    if (upto(2) == 0) made.criteria.push_back(prefix(0x030b));
    const auto port = static_cast<uint8_t>(upto(100));
    made.criteria.push_back({tcp ? 0x050au : 0x0603u, {1, 0, port, 0, port}});
    return made;
  }

  std::mt19937 random_{11};
  std::vector<uint32_t> networks_;
};

TEST(ManyEntries, AreAnalysedToTheEnd) {
  const bool slow = pace::emulated() || pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  const AccessList list = FilterSet().list(slow ? 200 : 2000);
  for (const EntryFinding& finding : analyse_list(list, false).findings)
    EXPECT_NE(finding.fault, EntryFault::gave_up) << finding.entry;
  AccessList after = list;
  after.entries.back().forwarding = ActionType::reject;
  EXPECT_TRUE(semantic_difference(Lists{&list}, Lists{&after}).complete);
}

TEST(ManyEntries, LeaveOneRegionWhereTheyLeaveTooManyToTell) {
  AccessList list = FilterSet().list(60);
  list.entries.push_back({});
  list.entries.back().name = "rest";
  AccessList after = list;
  after.entries.back().forwarding = ActionType::accept;
  AnalysisLimits limits;
  limits.pieces = 5;
  const Differences found = semantic_difference(Lists{&list}, Lists{&after}, {}, limits);
  EXPECT_TRUE(found.complete);
  size_t rests = 0;
  for (const DifferentRegion& region : found.regions) {
    const Packet packet = packet_from_words(region.example);
    EXPECT_EQ(Tracer({&list}).trace(packet, false).outcomes[0].entry, list.entries.size() - 1);
    EXPECT_EQ(region.before.forwarding, ActionType::drop);
    EXPECT_EQ(region.after.forwarding, ActionType::accept);
    if (region.unless == 0) continue;
    rests++;
    EXPECT_NE(region.words.find(", where none of the " + std::to_string(region.unless) +
                                " entries before matches"),
              std::string::npos);
  }
  EXPECT_EQ(rests, 2u);  // of TCP and of UDP with IPv4
}

TEST(ManyEntries, ThatTakeTooLongAreSaidToDoSo) {
  AccessList list = FilterSet().list(60);
  list.entries.push_back({});
  AccessList after = list;
  after.entries.back().forwarding = ActionType::accept;
  AnalysisLimits limits;
  limits.total = 30;
  EXPECT_FALSE(semantic_difference(Lists{&list}, Lists{&after}, {}, limits).complete);
}

}  // namespace
