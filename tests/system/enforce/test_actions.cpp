// What becomes of packets beside being counted: limits, errors to the sender, tags, interfaces that come
// late.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <thread>

#include "policy/formats/nft/kernel_table.h"
#include "policy/formats/nft/names.h"
#include "policy/formats/nft/ruleset.h"
#include "processes/enforce/filter.h"
#include "processes/enforce/kernel_reader.h"
#include "tests/system/enforce/net.h"
#include "tests/system/enforce/process.h"

namespace {

using process::eventually;
using qimctl::ActionType;

qimctl::Entry entry(const std::string& name, ActionType forwarding,
                    std::vector<qimctl::Criterion> criteria = {}) {
  qimctl::Entry made;
  made.name = name;
  made.forwarding = forwarding;
  made.criteria = std::move(criteria);
  return made;
}

qimctl::Model model_of(std::vector<qimctl::Entry> entries, const std::string& interface = "far",
                       uint8_t dir = QIM_DIR_IN) {
  qimctl::Model model;
  model.lists.emplace_back();
  model.lists[0].name = "list";
  model.lists[0].entries = std::move(entries);
  model.attachments = {{"list", interface, dir, 1, {}}};
  return model;
}

void put(const qimctl::Model& model) {
  const qimctl::nft::Translation made = qimctl::nft::translate(model);
  ASSERT_TRUE(made.refusals.empty());
  const qimctl::nft::Changes todo = changes(enforce::read_kernel(), made.ruleset);
  if (!todo.commands.empty()) enforce::run_commands(todo.commands);
}

uint64_t packets_of(const std::string& name) {
  const auto counts = qimctl::nft::counts_of(enforce::read_kernel());
  const auto found = counts.find(qimctl::nft::entry_key("list", name));
  return found == counts.end() ? 0 : found->second.packets;
}

// Of rules whose labels begin so.
uint64_t packets_labelled(const std::string& label) {
  uint64_t packets = 0;
  for (const auto& chain : enforce::read_kernel().chains)
    for (const auto& rule : chain.rules)
      if (rule.tag.find(" " + label) != std::string::npos) packets += rule.packets;
  return packets;
}

std::vector<uint8_t> udp_frame(const std::vector<uint8_t>& tags = {}) {
  std::vector<uint8_t> frame{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2};
  frame.insert(frame.end(), tags.begin(), tags.end());
  const std::vector<uint8_t> packet{8, 0, 0x45, 0,   0, 28, 0, 1, 0, 0, 64, 17, 0xf6, 0xce, 192,
                                    0, 2, 1,    192, 0, 2,  2, 4, 0, 0, 7,  0,  8,    0,    0};
  frame.insert(frame.end(), packet.begin(), packet.end());
  return frame;
}

class Actions : public testing::Test {
 protected:
  void SetUp() override {
    NEEDS_NET();
    net::shell("nft delete table netdev qim");
  }
};

TEST_F(Actions, PolicersDropWhatIsAboveTheirLimit) {
  qimctl::Entry limited = entry("limited", ActionType::accept);
  limited.policer = "slow";
  qimctl::Model model = model_of({limited});
  model.policers = {{"slow", qimctl::Policer::Unit::packets, 1, 5, 0, 0}};
  put(model);
  const net::Sender sender("near");
  for (int i = 0; i < 50; i++) sender.send(udp_frame());
  EXPECT_TRUE(eventually([] { return packets_of("limited") == 50; }));
  EXPECT_GE(packets_labelled("over the limit: "), 30u);
  EXPECT_LE(packets_labelled("over the limit: "), 45u);
}

TEST_F(Actions, RejectTellsTheSender) {
  put(model_of({entry("no", ActionType::reject)}));
  const net::Receiver receiver("near");
  const net::Sender sender("near");
  sender.send(udp_frame());
  const std::vector<uint8_t> answer = receiver.next();
  ASSERT_GE(answer.size(), 14u + 20 + 8);
  EXPECT_EQ(answer[23], 1) << "ICMP";
  EXPECT_EQ(answer[34], 3) << "unreachable";
  EXPECT_EQ(answer[35], 13) << "administratively prohibited";
}

TEST_F(Actions, LogsArePossible) {
  qimctl::Entry logged = entry("logged", ActionType::drop);
  logged.log = true;
  put(model_of({logged}));
  const net::Sender sender("near");
  sender.send(udp_frame());
  EXPECT_TRUE(eventually([] { return packets_of("logged") == 1; }));
}

TEST_F(Actions, TagsAreThoseOfTheWireInBothDirections) {
  const std::vector<qimctl::Entry> entries{
      entry("tagged", ActionType::drop, {{0x0203, {0x81, 0}}, {0x0602, {1, 4, 0, 4, 0}}}),
      entry("plain", ActionType::drop, {{0x0203, {8, 0}}})};
  put(model_of(entries));
  const net::Sender sender("near");
  sender.send(udp_frame({0x81, 0, 0, 5}));
  sender.send(udp_frame());
  EXPECT_TRUE(eventually([] { return packets_of("tagged") == 1 && packets_of("plain") == 1; }));
  // Of a frame that a bridge hands on the kernel keeps the tag beside the rest.
  ASSERT_TRUE(
      net::shell("ip link add bridge type bridge && ip link set bridge up && "
                 "ip link add left type veth peer name right && "
                 "ip link set left up && ip link set right up && "
                 "ip link set far master bridge && ip link set left master bridge"));
  ASSERT_TRUE(net::shell("nft delete table netdev qim"));
  put(model_of(entries, "left", qimctl::dir_out));
  EXPECT_TRUE(eventually([&sender] {
    sender.send(udp_frame({0x81, 0, 0, 5}));
    return packets_of("tagged") > 0;
  }));
  EXPECT_EQ(packets_of("plain"), 0u);
  EXPECT_TRUE(net::shell("ip link del bridge && ip link del left"));
}

TEST_F(Actions, InterfacesMayComeLate) {
  const process::Place place;
  ASSERT_TRUE(place.apply(process::list("list", process::entry("x", 7, "drop")), {"list"}));
  ASSERT_TRUE(net::shell("ip link del far"));
  process::Enforce enforce(place);
  EXPECT_TRUE(eventually([] { return enforce::read_kernel().is_there; })) << enforce.log();
  ASSERT_TRUE(
      net::shell("ip link add near mtu 9000 type veth peer name far mtu 9000 && "
                 "ip link set near arp off up && ip link set far arp off up"));
  EXPECT_TRUE(eventually([] {
    const net::Sender sender("near");
    sender.send(udp_frame());
    return packets_of("x") > 0;
  })) << enforce.log();
}

}  // namespace
