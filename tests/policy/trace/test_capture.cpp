// Captures, and many packets at once.
#include "policy/trace/capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

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

TEST(Capture, OfTheNewerFormatIsNamed) {
  const std::string file = refusal("0a0d0d0a1c0000004d3c2b1a01000000ffffffffffffffff1c000000");
  EXPECT_THAT(file, testing::HasSubstr("is a capture in pcapng format; 'editcap -F pcap OLD NEW'"));
  EXPECT_THAT(refusal("0a0d0d0a"), testing::HasSubstr("is a capture in pcapng format"));
}

// Whatever a file holds, frames lie in it and what is wrong is said.
TEST(Capture, ThatIsHostileDoesNoHarm) {
  EXPECT_THAT(refusal(std::string(little_head) + "0000000000000000ffffffffffffffff" + "aa"),
              testing::HasSubstr("in the middle of a frame"));
  std::mt19937 numbers(17);
  const auto upto = [&numbers](size_t end) { return static_cast<size_t>(numbers()) % end; };
  const auto random_byte = [&upto] { return static_cast<uint8_t>(upto(256)); };
  for (int i = 0; i < 2000; i++) {
    std::vector<uint8_t> file = *bytes_from_hex(i % 2 == 0 ? big_head : little_head);
    for (size_t frame = upto(4); frame > 0; frame--) {
      const auto length = static_cast<uint8_t>(upto(90));
      std::vector<uint8_t> head(16);
      for (const size_t at : {size_t{8}, size_t{12}}) head[at + (i % 2 == 0 ? 3 : 0)] = length;
      file.insert(file.end(), head.begin(), head.end());
      for (int byte = 0; byte < length; byte++) file.push_back(random_byte());
    }
    for (size_t change = upto(3); change > 0; change--)
      file[23 + upto(file.size() - 23)] = random_byte();
    if (upto(2) == 0) file.resize(upto(file.size()));
    size_t bytes = 0;
    try {
      read_capture(file, "c.pcap", [&](const CapturedFrame& frame) {
        ASSERT_GE(frame.bytes.data(), file.data());
        ASSERT_LE(frame.bytes.data() + frame.bytes.size(), file.data() + file.size());
        bytes += frame.bytes.size();
        packet_words(packet_from_bytes(frame.bytes, frame.kind, frame.is_cut));
      });
    } catch (const InputError& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr("c.pcap: "));
    }
    EXPECT_LE(bytes, file.size());
  }
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
