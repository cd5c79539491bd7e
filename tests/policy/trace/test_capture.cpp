// Captures, and many packets at once.
#include "policy/trace/capture.h"

#include "policy/trace/classifier.h"
#include "tests/policy/trace/trace_support.h"

namespace {

using namespace qimctl;

constexpr const char* big_head = "a1b2c3d40002000400000000000000000000ffff00000001";
constexpr const char* little_head = "4d3cb2a1020004000000000000000000ffff000065000000";

// "KIND BYTES cut" of each frame.
std::vector<std::string> frames(const std::string& digits) {
  std::vector<std::string> texts;
  read_capture(*bytes_from_hex(digits), "c.pcap", [&texts](const CapturedFrame& frame) {
    texts.push_back((frame.kind == FrameKind::ethernet ? "eth " : "ip ") +
                    hex_bytes(frame.bytes.data(), frame.bytes.size()) +
                    (frame.is_cut ? " cut" : ""));
  });
  return texts;
}

std::string refusal(const std::string& digits) {
  try {
    frames(digits);
  } catch (const InputError& error) {
    return error.what();
  }
  return "";
}

using Texts = std::vector<std::string>;

TEST(Capture, IsReadInBothByteOrders) {
  const std::string big = std::string(big_head) + "00000000000000000000000200000002aabb" +
                          "00000000000000000000000100000009cc";
  EXPECT_EQ(frames(big), (Texts{"eth aabb", "eth cc cut"}));
  const std::string little = std::string(little_head) + "00000000000000000200000002000000aabb";
  EXPECT_EQ(frames(little), Texts{"ip aabb"});
  EXPECT_EQ(frames(big_head), Texts{});
}

TEST(Capture, SaysWhatCannotBeRead) {
  EXPECT_THAT(refusal("a1b2"), testing::HasSubstr("c.pcap: is no capture in pcap format"));
  EXPECT_THAT(refusal(std::string(48, '0')), testing::HasSubstr("is no capture in pcap format"));
  std::string other = big_head;
  other.replace(other.size() - 2, 2, "69");
  EXPECT_THAT(refusal(other), testing::HasSubstr("frames of link type 105"));
  EXPECT_THAT(refusal(std::string(big_head) + "0000"), testing::HasSubstr("in the middle of"));
  EXPECT_THAT(refusal(std::string(big_head) + "000000000000000000000003" + "00000003aabb"),
              testing::HasSubstr("in the middle of a frame"));
}

TEST(Classifier, SaysWhatAskingOneByOneSays) {
  std::string entries;
  for (int i = 0; i < 1100; i++)
    entries += (i == 0 ? "" : ",") +
               trace_test::entry("e" + std::to_string(i),
                                 R"("tcp":{"destination-port":{"port":)" + std::to_string(i) + "}}",
                                 i % 2 == 0 ? "accept" : "reject");
  qimctl::Model model = trace_test::model_of(R"("acl":[)" + trace_test::list("l", entries) + "]");
  const Tracer tracer({&model.lists[0]});
  const Classifier classifier(tracer);
  for (const std::string packet : {"tcp any > any:5", "tcp any > any:1099", "tcp any > any:1100",
                                   "tcp", "udp any > any:5", "arp", "ipv4", "eth"}) {
    const Packet asked = packet_from_words(packet);
    const TraceResult expected = tracer.trace(asked, false);
    const TraceResult found = classifier.trace(asked);
    ASSERT_EQ(found.outcomes.size(), expected.outcomes.size()) << packet;
    for (size_t i = 0; i < found.outcomes.size(); i++) {
      EXPECT_EQ(found.outcomes[i].entry, expected.outcomes[i].entry);
      EXPECT_EQ(found.outcomes[i].verdict, expected.outcomes[i].verdict);
    }
  }
}

}  // namespace
