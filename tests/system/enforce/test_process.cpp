// The process: what it puts, follows, refuses, takes over and leaves.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>

#include "policy/formats/nft/names.h"
#include "processes/enforce/kernel_reader.h"
#include "tests/support/pace.h"
#include "tests/system/enforce/net.h"
#include "tests/system/enforce/process.h"

namespace {

using process::Enforce;
using process::entry;
using process::eventually;
using process::list;
using process::Place;
using qimctl::nft::KernelTable;

// The labels of a chain's rules.
std::vector<std::string> labels(const std::string& chain) {
  std::vector<std::string> all;
  for (const auto& there : enforce::read_kernel().chains)
    if (there.name == chain)
      for (const auto& rule : there.rules)
        all.push_back(rule.tag.size() > 34 ? rule.tag.substr(34) : rule.tag);
  return all;
}

std::set<uint64_t> handles() {
  std::set<uint64_t> all;
  for (const auto& chain : enforce::read_kernel().chains)
    for (const auto& rule : chain.rules) all.insert(rule.handle);
  return all;
}

uint64_t packets_of(const std::string& list, const std::string& entry) {
  const auto counts = qimctl::nft::counts_of(enforce::read_kernel());
  const auto found = counts.find(qimctl::nft::entry_key(list, entry));
  return found == counts.end() ? 0 : found->second.packets;
}

// A UDP packet to a port, in an Ethernet frame.
std::vector<uint8_t> udp_frame(uint16_t port) {
  const auto high = static_cast<uint8_t>(port >> 8);
  const auto low = static_cast<uint8_t>(port & 0xff);
  return {2, 0,  0,  0, 0, 1,   2, 0, 0, 0,   0, 2, 8, 0, 0x45, 0,    0,   28, 0, 1, 0,
          0, 64, 17, 0, 0, 192, 0, 2, 1, 192, 0, 2, 2, 4, 0,    high, low, 0,  8, 0, 0};
}

class Process : public testing::Test {
 protected:
  void SetUp() override {
    NEEDS_NET();
    net::shell("nft delete table netdev qim");
  }
  Place place_;
};

using Labels = std::vector<std::string>;

TEST_F(Process, PutsThePolicyFollowsItAndLeavesIt) {
  ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  Enforce enforce(place_, {"--metrics", place_.path("metrics")});
  ASSERT_TRUE(eventually([] { return labels("lw.a") == Labels{"a/x"}; })) << enforce.log();
  const std::set<uint64_t> before = handles();
  ASSERT_TRUE(
      place_.apply(list("a", entry("x", 1, "accept") + "," + entry("y", 2, "drop")), {"a"}));
  ASSERT_TRUE(eventually([] { return labels("lw.a") == Labels{"a/x", "a/y"}; })) << enforce.log();
  for (const uint64_t handle : before)
    EXPECT_TRUE(handles().contains(handle)) << "a rule was touched";
  EXPECT_TRUE(
      eventually([this] { return process::metric(place_.path("metrics"), "revision") == 3; }));
  EXPECT_EQ(process::metric(place_.path("metrics"), "entries"), 2u);
  enforce.signal(SIGTERM);
  EXPECT_EQ(enforce.wait(), 0);
  EXPECT_EQ(labels("lw.a"), (Labels{"a/x", "a/y"}));
  EXPECT_EQ(process::run(place_, "--remove").code, 0);
  EXPECT_FALSE(enforce::read_kernel().is_there);
  EXPECT_EQ(process::run(place_, "--remove").code, 0);
}

TEST_F(Process, RefusesARevisionAsAWhole) {
  ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  Enforce enforce(place_, {"--metrics", place_.path("metrics")});
  ASSERT_TRUE(eventually([] { return labels("lw.a") == Labels{"a/x"}; }));
  const std::string opaque =
      R"({"name":"z","matches":{"egress-interface":"near"},"actions":{"forwarding":"accept"}})";
  ASSERT_TRUE(place_.apply(list("a", entry("y", 1, "accept") + "," + opaque), {"a"}));
  ASSERT_TRUE(
      eventually([&] { return enforce.log().find("refused as a whole") != std::string::npos; }));
  EXPECT_NE(enforce.log().find("\"a/z\": the match interface.egress-interface near"),
            std::string::npos)
      << enforce.log();
  EXPECT_EQ(labels("lw.a"), Labels{"a/x"});
  EXPECT_TRUE(eventually(
      [this] { return process::metric(place_.path("metrics"), "refused_revisions_total") == 1; }));
  EXPECT_EQ(process::run(place_, "--once").code, 1);
  EXPECT_EQ(process::run(place_, "--dry-run").code, 1);
  ASSERT_TRUE(place_.apply(list("a", entry("w", 1, "accept")), {"a"}));
  EXPECT_TRUE(eventually([] { return labels("lw.a") == Labels{"a/w"}; }));
}

TEST_F(Process, TakesOverWhatWasLeft) {
  ASSERT_TRUE(
      place_.apply(list("a", entry("x", 1, "accept") + "," + entry("y", 2, "drop")), {"a"}));
  {
    Enforce enforce(place_);
    ASSERT_TRUE(eventually([] { return labels("lw.a").size() == 2; }));
  }  // killed
  const std::set<uint64_t> before = handles();
  net::Sender sender("near");
  for (int i = 0; i < 5; i++) sender.send(udp_frame(2));
  EXPECT_TRUE(eventually([] { return packets_of("a", "y") == 5; }));
  EXPECT_EQ(process::run(place_, "--once").code, 0);
  EXPECT_EQ(handles(), before);
  ASSERT_TRUE(
      place_.apply(list("a", entry("x", 3, "accept") + "," + entry("y", 2, "drop")), {"a"}));
  EXPECT_EQ(process::run(place_, "--once").code, 0);
  EXPECT_EQ(labels("lw.a"), (Labels{"a/x", "a/y"}));
  EXPECT_EQ(packets_of("a", "y"), 5u) << "what did not change goes on counting";
  const process::Ended counters = process::run(place_, "--counters");
  EXPECT_NE(counters.output.find("\"" + qimctl::nft::entry_key("a", "y") + "\""),
            std::string::npos);
}

TEST_F(Process, PutsBackWhatOthersChangeAndLeavesTheirTables) {
  ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  ASSERT_TRUE(net::shell("nft add table netdev other; nft add chain netdev other c"));
  Enforce enforce(place_);
  ASSERT_TRUE(eventually([] { return labels("lw.a").size() == 1; }));
  ASSERT_TRUE(net::shell("nft flush chain netdev qim lw.a; nft add rule netdev qim lw.a accept"));
  enforce.signal(SIGHUP);
  EXPECT_TRUE(eventually([] { return labels("lw.a") == Labels{"a/x"}; })) << enforce.log();
  EXPECT_TRUE(net::shell("nft delete table netdev qim"));
  enforce.signal(SIGHUP);
  EXPECT_TRUE(eventually([] { return labels("lw.a") == Labels{"a/x"}; })) << enforce.log();
  EXPECT_TRUE(net::shell("nft list chain netdev other c"));
  EXPECT_TRUE(net::shell("nft delete table netdev other"));
}

TEST_F(Process, TellsItsSupervisor) {
  ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  const int listening = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  place_.path("notify").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const timeval patience{static_cast<time_t>(pace::patience_ms() / 1000), 0};
  setsockopt(listening, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  Enforce enforce(place_, {}, place_.path("notify"));
  const auto hear = [listening] {
    char text[1024];
    const ssize_t length = recv(listening, text, sizeof text, 0);
    return std::string(text, length < 0 ? 0 : static_cast<size_t>(length));
  };
  EXPECT_EQ(hear(), "READY=1\nSTATUS=revision 2 of 2, 1 entries");
  EXPECT_EQ(hear(), "WATCHDOG=1");
  EXPECT_EQ(hear(), "WATCHDOG=1");
  enforce.signal(SIGTERM);
  std::string last = hear();
  while (last == "WATCHDOG=1") last = hear();
  EXPECT_EQ(last, "STOPPING=1");
  EXPECT_EQ(enforce.wait(), 0);
  close(listening);
}

TEST_F(Process, SaysWhatIsWrong) {
  EXPECT_EQ(process::run(place_, "--once").code, 4) << "there is no database";
  EXPECT_EQ(process::run(place_, "--what").code, 2);
  EXPECT_EQ(process::run(place_, "more").code, 2);
  EXPECT_EQ(process::run(place_, "--help").code, 0);
  ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  const process::Ended dry = process::run(place_, "--dry-run");
  EXPECT_EQ(dry.code, 0);
  EXPECT_NE(dry.output.find("\"lw.a\""), std::string::npos);
  EXPECT_FALSE(enforce::read_kernel().is_there);
  EXPECT_EQ(process::run(place_, "--once --metrics /nowhere/metrics").code, 0);
}

std::string text_of(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Nothing of the kernel is needed for it.
TEST(DryRun, PrintsWhatTheToolExports) {
  size_t printed = 0;
  const std::filesystem::path examples =
      std::filesystem::path(getenv("QIM_SOURCE_DIR")) / "examples";
  for (const auto& example : std::filesystem::directory_iterator(examples)) {
    const Place place;
    if (!process::qimctl(place, "import --lossy " + example.path().string())) continue;
    const std::string file = place.path("ruleset");
    const bool exported = process::qimctl(place, "export --format nft >" + file);
    const std::string dry = place.path("dry");
    const process::Ended ended = process::run(place, "--dry-run >" + dry + " #");
    EXPECT_EQ(ended.code == 0, exported) << example.path();
    EXPECT_EQ(text_of(dry), text_of(file)) << example.path();
    printed += exported ? 1u : 0u;
  }
  EXPECT_GE(printed, 3u);
}

TEST_F(Process, FailsWhereWhatItPrintsIsLost) {
  ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  EXPECT_EQ(process::run(place_, "--once").code, 0);
  for (const std::string print : {"--dry-run", "--counters"}) {
    EXPECT_EQ(process::run(place_, print).code, 0);
    EXPECT_EQ(process::run(place_, print + " >/dev/full #").code, 4);
  }
}

TEST_F(Process, TakesItsTableAwayAndIsContentWithNone) {
  ASSERT_TRUE(place_.apply(list("a", entry("x", 1, "accept")), {"a"}));
  EXPECT_EQ(process::run(place_, "--once").code, 0);
  EXPECT_TRUE(enforce::read_kernel().is_there);
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(process::run(place_, "--remove").code, 0);
    EXPECT_FALSE(enforce::read_kernel().is_there);
  }
}

// Of an even revision the first list decides about all packets, of an odd one the second: a packet that
// met a part of each would be left to the default, which counts.
std::string lists_of(uint32_t revision) {
  const std::string name = "r" + std::to_string(revision);
  const std::string matching = entry(name, 7, "accept");
  const std::string other = entry(name, 8, "drop");
  return revision % 2 == 0 ? list("first", matching) + "," + list("second", other)
                           : list("first", other) + "," + list("second", matching);
}

TEST_F(Process, EachPacketIsDecidedByOneWholeRevision) {
  const uint32_t changes = net::times(20, 500);
  const uint32_t kills = net::times(5, 100);
  ASSERT_TRUE(place_.apply(lists_of(0), {"first", "second"}));
  auto enforce = std::make_unique<Enforce>(place_);
  ASSERT_TRUE(eventually([] { return labels("lw.first") == Labels{"first/r0"}; }));
  std::atomic<bool> stop = false;
  std::atomic<uint64_t> sent = 0;
  std::thread traffic([&] {
    const net::Sender sender("near");
    const std::vector<uint8_t> frame = udp_frame(7);
    while (!stop) {
      for (int i = 0; i < 20; i++) sent += sender.send(frame) ? 1 : 0;
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  });
  for (uint32_t revision = 1; revision <= changes; revision++) {
    EXPECT_TRUE(place_.apply(lists_of(revision), {"first", "second"}));
    if (revision % std::max(1u, changes / std::max(1u, kills)) == 0)
      enforce = std::make_unique<Enforce>(place_);  // the one before is killed
  }
  const std::string last = "first/r" + std::to_string(changes);
  EXPECT_TRUE(eventually([&] { return labels("lw.first") == Labels{last}; })) << enforce->log();
  stop = true;
  traffic.join();
  EXPECT_GT(sent, 100u);
  EXPECT_EQ(packets_of("second", ""), 0u) << "of " << sent << " packets";
  std::cout << sent << " packets while policy changed " << changes << " times\n";
}

TEST_F(Process, PutsManyEntries) {
  std::string entries;
  const uint32_t count = net::times(2500, 10000);
  for (uint32_t i = 0; i < count; i++)
    entries +=
        (i == 0 ? "" : ",") + entry("e" + std::to_string(i), static_cast<uint16_t>(i), "accept");
  ASSERT_TRUE(place_.apply(list("long", entries), {"long"}));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(process::run(place_, "--once").code, 0);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  // 10,000 take 1.3 s at most on a machine that has nothing else to do.
  EXPECT_LT(took, pace::paced(std::chrono::seconds(4)));
  size_t rules = 0;
  for (const auto& chain : enforce::read_kernel().chains)
    if (chain.name.starts_with("lw.long"))
      for (const auto& rule : chain.rules) rules += rule.counts ? 1u : 0u;
  EXPECT_EQ(rules, count);
  const std::set<uint64_t> before = handles();
  const std::string changed = entry("e400", 400, "accept");
  entries.replace(entries.find(changed), changed.size(), entry("e400", 400, "drop"));
  ASSERT_TRUE(place_.apply(list("long", entries), {"long"}));
  const auto again = std::chrono::steady_clock::now();
  const process::Ended ended = process::run(place_, "--once");
  const std::chrono::duration<double> changing = std::chrono::steady_clock::now() - again;
  EXPECT_EQ(ended.output, "<5>qim-enforce: 1 rule added, 1 deleted\n");
  size_t kept = 0;
  for (const uint64_t handle : handles()) kept += before.contains(handle) ? 1u : 0u;
  EXPECT_EQ(kept + 1, before.size());
  std::cout << count << " entries: " << took.count()
            << " s, one of them changed: " << changing.count() << " s\n";
}

}  // namespace
