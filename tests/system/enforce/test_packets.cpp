// Frames through the kernel's packet filter, and what a trace says of them: the verdict and the entry
// that decides must be the same.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <thread>

#include "policy/base/names.h"
#include "policy/formats/nft/names.h"
#include "policy/formats/nft/ruleset.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/trace/evaluate.h"
#include "policy/trace/packet_bytes.h"
#include "policy/trace/packet_words.h"
#include "processes/enforce/filter.h"
#include "processes/enforce/kernel_reader.h"
#include "tests/support/pace.h"
#include "tests/system/enforce/frames.h"
#include "tests/system/enforce/net.h"
#include "tests/system/enforce/random_policy.h"

namespace {

using frames::Frame;
using qimctl::ActionType;
using testing_rov::Random;

// The keys that rules of sorted-out packets have, told by their labels.
constexpr const char* cannot_tell = "cannot tell";

// How often each key was counted.
using Counts = std::map<std::string, uint64_t>;

// An interface and direction: who sends packets through it, and what is decided there.
struct Path {
  const char* sender;
  const char* interface;
  bool egress;
};

class Comparison {
 public:
  Comparison(const qimctl::Model& model, const Path& path)
      : path_(path),
        lists_(qimctl::lists_at(model, path.interface,
                                path.egress ? qimctl::dir_out : uint8_t{QIM_DIR_IN})),
        tracer_(lists_),
        sender_(path.sender) {
    for (const qimctl::AccessList* list : lists_) {
      note(qimctl::nft::entry_key(list->name, ""), "default of " + list->name,
           list->default_action);
      for (const qimctl::Entry& entry : list->entries)
        note(qimctl::nft::entry_key(list->name, entry.name), list->name + '/' + entry.name,
             entry.forwarding);
    }
    counted_ = counts();
  }

  // Halves what differs until single frames are left.
  void check(std::span<const Frame> frames) {
    Counts expected;
    for (const Frame& frame : frames) expected[expected_key(frame)]++;
    const Counts seen = send(frames);
    if (seen == expected) {
      equal_ += frames.size();
      return;
    }
    if (frames.size() > 1) {
      check(frames.first(frames.size() / 2));
      check(frames.subspan(frames.size() / 2));
      return;
    }
    judge(frames.front(), expected, seen);
  }

  uint64_t equal() const { return equal_; }
  uint64_t open() const { return open_; }
  uint64_t lost() const { return lost_; }

 private:
  void note(const std::string& key, const std::string& name, ActionType verdict) {
    names_[key] = name;
    verdicts_[key] = verdict;
  }

  qimctl::Packet packet_of(const Frame& frame) const {
    qimctl::Packet packet = qimctl::packet_from_bytes(frame.bytes, qimctl::FrameKind::ethernet);
    (path_.egress ? packet.egress : packet.ingress) = path_.interface;
    return packet;
  }

  std::string expected_key(const Frame& frame) const {
    const qimctl::TraceResult result = tracer_.trace(packet_of(frame), false);
    EXPECT_EQ(result.outcomes.size(), 1u) << "a trace is not certain";
    const qimctl::Outcome& outcome = result.outcomes.back();
    const qimctl::AccessList& list = *lists_[outcome.list];
    std::string key = qimctl::nft::entry_key(
        list.name, outcome.entry ? list.entries[*outcome.entry].name : std::string());
    key += outcome.verdict.forwarding == ActionType::accept ? " passed" : " stopped";
    return key;
  }

  // The counters of the direction's chains, by key and what became of the packets.
  Counts counts() const {
    Counts all;
    const qimctl::nft::KernelTable table = enforce::read_kernel();
    for (const qimctl::nft::KernelChain& chain : table.chains) {
      for (const qimctl::nft::KernelRule& rule : chain.rules) {
        if (!rule.counts || rule.packets == 0) continue;
        const std::string key = rule.tag.substr(0, 16);
        if (names_.contains(key)) all[key] += rule.packets;
        if (rule.tag.find(cannot_tell) != std::string::npos &&
            rule.tag.find(path_.egress ? "tell: out" : "tell: in") != std::string::npos)
          all[cannot_tell] += rule.packets;
      }
    }
    return all;
  }

  static uint64_t sum(const Counts& counts) {
    uint64_t all = 0;
    for (const auto& [key, count] : counts) all += count;
    return all;
  }

  uint64_t passed() const {
    const qimctl::nft::KernelTable table = enforce::read_kernel("probe");
    return table.chains.at(path_.egress ? 1 : 0).rules.at(0).packets;
  }

  // What was counted for these frames. Without a verdict of its own the kernel tells only of one frame
  // whether it passed; of more it tells how many.
  Counts send(std::span<const Frame> frames) {
    const Counts before = counted_;
    const uint64_t passed_before = passed();
    for (const Frame& frame : frames) EXPECT_TRUE(sender_.send(frame.bytes));
    Counts after = counts();
    // Only odd frames may never come to the filter.
    const bool may_be_lost =
        std::any_of(frames.begin(), frames.end(), [](const Frame& frame) { return frame.is_odd; });
    const auto end =
        std::chrono::steady_clock::now() +
        (may_be_lost ? pace::at_once() : std::chrono::milliseconds(pace::patience_ms()));
    while (sum(after) - sum(before) < frames.size() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      after = counts();
    }
    counted_ = after;
    const uint64_t passed_now = passed() - passed_before;
    Counts seen;
    uint64_t accepted = 0;
    for (const auto& [key, count] : after) {
      const auto found = before.find(key);
      const uint64_t added = count - (found == before.end() ? 0 : found->second);
      if (added == 0) continue;
      const bool passes = verdict_of(key) == ActionType::accept;
      if (passes) accepted += added;
      seen[key == cannot_tell ? key : key + (passes ? " passed" : " stopped")] = added;
    }
    if (accepted != passed_now) seen["passed"] = passed_now;
    return seen;
  }

  ActionType verdict_of(const std::string& key) const {
    const auto found = verdicts_.find(key);
    return found == verdicts_.end() ? ActionType::drop : found->second;
  }

  void judge(const Frame& frame, const Counts& expected, const Counts& seen) {
    if (seen.contains(cannot_tell) && frame.is_odd && sum(seen) == 1) {
      open_++;
      return;
    }
    if (seen.empty() && frame.is_odd) {
      lost_++;
      return;
    }
    std::string text;
    for (const auto& [key, count] : seen)
      text += names_[key.substr(0, 16)] + " [" + key + "] x " + std::to_string(count) + ' ';
    ADD_FAILURE() << path_.interface << (path_.egress ? "/out " : "/in ")
                  << qimctl::packet_words(packet_of(frame)) << "\nframe "
                  << qimctl::hex_bytes(frame.bytes)
                  << "\ntrace: " << names_[expected.begin()->first.substr(0, 16)] << ' '
                  << expected.begin()->first << "\nkernel: " << text;
  }

  Path path_;
  qimctl::Lists lists_;
  qimctl::Tracer tracer_;
  net::Sender sender_;
  std::map<std::string, std::string> names_;
  std::map<std::string, ActionType> verdicts_;
  Counts counted_;  // up to now
  uint64_t equal_ = 0;
  uint64_t open_ = 0;
  uint64_t lost_ = 0;
};

constexpr const char* probe =
    "nft add table netdev probe; "
    "nft 'add chain netdev probe i { type filter hook ingress device far priority 100; }'; "
    "nft 'add chain netdev probe o { type filter hook egress device far priority 100; }'; "
    "nft add rule netdev probe i counter; nft add rule netdev probe o counter";

void put(const qimctl::Model& model) {
  const qimctl::nft::Translation made = qimctl::nft::translate(model);
  for (const qimctl::nft::Refusal& refusal : made.refusals)
    ADD_FAILURE() << refusal.where << ": " << refusal.what;
  const qimctl::nft::Changes todo = qimctl::nft::changes(enforce::read_kernel(), made.ruleset);
  if (!todo.commands.empty()) enforce::run_commands(todo.commands);
  EXPECT_TRUE(qimctl::nft::changes(enforce::read_kernel(), made.ruleset).commands.empty());
}

uint32_t packets_wanted() {
  return net::times(2000, 20000);
}

void compare(const qimctl::Model& model, const Path& path, Random& random, uint32_t count,
             uint32_t batch, bool deep) {
  Comparison comparison(model, path);
  std::vector<Frame> sent;
  for (uint32_t done = 0; done < count; done += batch) {
    sent.clear();
    for (uint32_t i = 0; i < batch; i++)
      sent.push_back(frames::random_frame(random, path.egress ? 0 : 3, deep));
    // Odd ones apart: their batches are halved often.
    std::stable_partition(sent.begin(), sent.end(),
                          [](const Frame& frame) { return !frame.is_odd; });
    const auto odd =
        std::find_if(sent.begin(), sent.end(), [](const Frame& frame) { return frame.is_odd; });
    const auto sound = static_cast<size_t>(odd - sent.begin());
    comparison.check(std::span<const Frame>(sent).first(sound));
    for (size_t i = sound; i < sent.size(); i += 8)
      comparison.check(
          std::span<const Frame>(sent).subspan(i, std::min<size_t>(8, sent.size() - i)));
    if (testing::Test::HasFailure()) return;
  }
  std::cout << path.interface << (path.egress ? "/out: " : "/in: ") << comparison.equal()
            << " equal, " << comparison.open() << " that can't be told, " << comparison.lost()
            << " lost before the filter\n";
}

void run(uint32_t seed, size_t entries, uint32_t count, uint32_t batch, bool deep = false) {
  NEEDS_NET();
  ASSERT_TRUE(net::shell(std::string("nft list table netdev probe || { ") + probe + "; }"));
  Random random(seed);
  qimctl::Model model;
  model.lists.push_back(random_policy::make_list(random, "in-first", entries / 2, false, deep));
  model.lists.push_back(
      random_policy::make_list(random, "in-second", entries - entries / 2, false, deep));
  model.lists.push_back(random_policy::make_list(random, "out-only", entries, true, deep));
  model.attachments = {{"in-second", "far", QIM_DIR_IN, 7, {}},
                       {"in-first", "far", QIM_DIR_IN, 3, {}},
                       {"out-only", "far", qimctl::dir_out, 1, {}}};
  put(model);
  compare(model, {"near", "far", false}, random, count / 2, batch, deep);
  compare(model, {"far", "far", true}, random, count / 2, batch, deep);
}

TEST(Packets, OfManySmallPolicies) {
  for (uint32_t seed = 0; seed < 10; seed++) {
    run(seed, 4 + 3 * seed, packets_wanted() / 20, 50);
    if (HasFailure() || IsSkipped()) return;
  }
}

TEST(Packets, OfListsThatAskForOptionsAndBytes) {
  for (uint32_t seed = 50; seed < 55; seed++) {
    run(seed, 30 * (seed - 49), packets_wanted() / 20, 50, true);
    if (HasFailure() || IsSkipped()) return;
  }
}

// Lists that are put in pieces.
TEST(Packets, OfLongListsOfEntriesThatAskForTheSame) {
  NEEDS_NET();
  ASSERT_TRUE(net::shell(std::string("nft list table netdev probe || { ") + probe + "; }"));
  Random random(200);
  qimctl::Model model;
  model.lists.push_back(random_policy::make_regular_list(random, "in-pieces", 600));
  model.lists.push_back(random_policy::make_regular_list(random, "out-pieces", 600));
  model.attachments = {{"in-pieces", "far", QIM_DIR_IN, 1, {}},
                       {"out-pieces", "far", qimctl::dir_out, 1, {}}};
  put(model);
  size_t pieces = 0;
  for (const auto& chain : enforce::read_kernel().chains)
    pieces += chain.name.find("_-") == std::string::npos ? 0u : 1u;
  EXPECT_GT(pieces, 5u);
  compare(model, {"near", "far", false}, random, packets_wanted() / 8, 250, false);
  compare(model, {"far", "far", true}, random, packets_wanted() / 8, 250, false);
}

TEST(Packets, OfListsOfTwoHundredEntries) {
  run(100, 200, packets_wanted() / 4, 100);
}

TEST(Packets, OfListsOfAThousandEntries) {
  run(101, 1000, packets_wanted() / 8, 250);
}

// Gives an IPv4 packet without a tag addresses and a port that an entry asks for.
void aim_at(const qimctl::Entry& entry, frames::Bytes& frame) {
  if (frame.size() < 38 || frame[12] != 8 || frame[13] != 0) return;
  for (const qimctl::Criterion& criterion : entry.criteria) {
    if (criterion.type == 0x030a) std::copy_n(criterion.args.begin(), 4, frame.begin() + 30);
    if (criterion.type == 0x030b) std::copy_n(criterion.args.begin(), 4, frame.begin() + 26);
    if (criterion.type == 0x0305) frame[23] = criterion.args[0];
    const bool is_tcp = criterion.type == 0x050a;
    if (!is_tcp && criterion.type != 0x0603) continue;
    frame[23] = is_tcp ? 6 : 17;
    std::copy_n(criterion.args.begin() + 1, 2, frame.begin() + 36);
  }
}

// The lists of the example, each alone, without the entry that asks for where packets will leave.
TEST(Packets, OfTheExample) {
  NEEDS_NET();
  ASSERT_TRUE(net::shell(std::string("nft list table netdev probe || { ") + probe + "; }"));
  const std::string file =
      std::string(getenv("QIM_SOURCE_DIR")) + "/examples/edge-router.rfc8519.json";
  std::ifstream stream(file);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  const qimctl::Model example = qimctl::read_rfc8519(text, file).model;
  ASSERT_GT(example.lists.size(), 5u);
  Random random(300);
  for (const qimctl::AccessList& list : example.lists) {
    qimctl::Model model;
    model.lists = {list};
    std::vector<qimctl::Entry>& entries = model.lists[0].entries;
    std::erase_if(entries, [](const qimctl::Entry& entry) {
      return !entry.criteria.empty() &&
             std::any_of(entry.criteria.begin(), entry.criteria.end(),
                         [](const auto& each) { return each.type >> 8 == 1; });
    });
    model.attachments = {{list.name, "far", QIM_DIR_IN, 1, {}}};
    put(model);
    Comparison comparison(model, {"near", "far", false});
    std::vector<Frame> sent;
    for (uint32_t i = 0; i < packets_wanted() / 20; i++) {
      Frame frame = frames::random_frame(random, 1, false);
      if (frame.is_odd) continue;
      aim_at(entries[random.below(static_cast<uint32_t>(entries.size()))], frame.bytes);
      frame.is_odd = true;  // a protocol that was changed may have less than its header
      sent.push_back(std::move(frame));
    }
    comparison.check(sent);
    std::cout << list.name << ": " << comparison.equal() << " equal, " << comparison.open()
              << " that can't be told\n";
    EXPECT_EQ(comparison.open() + comparison.lost(), 0u);
  }
}

}  // namespace
