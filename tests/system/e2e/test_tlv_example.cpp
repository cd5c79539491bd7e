// The example in docs/tlv.md is what the libraries write and read.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "mem.h"
#include "qim.h"
#include "tlvo.h"

namespace {

using Bytes = std::vector<uint8_t>;

// The bytes of the lines that begin with a position; each position must be where the bytes are.
Bytes documented_bytes() {
  const char* source = std::getenv("QIM_SOURCE_DIR");
  std::ifstream page(std::string(source != nullptr ? source : ".") + "/docs/tlv.md");
  EXPECT_TRUE(page.is_open());
  const std::regex line_form("^ +([0-9]+)((?: {1,2}[0-9a-f]{2})+)(?: {2,}.*)?$");
  Bytes bytes;
  std::string line;
  while (std::getline(page, line)) {
    std::smatch match;
    if (!std::regex_match(line, match, line_form)) continue;
    EXPECT_EQ(std::stoul(match[1]), bytes.size()) << line;
    const std::string hex = match[2];
    for (size_t at = hex.find_first_not_of(' '); at != std::string::npos;
         at = hex.find_first_not_of(' ', at + 2)) {
      bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    }
  }
  return bytes;
}

TEST(TlvExample, IsWhatTheFilterEncodesTo) {
  unsigned char args[] = {0x0a, 0x01, 0x02};
  qim_criterion_t criterion{};
  criterion.type = 5;
  criterion.args = args;
  criterion.args_len = sizeof args;
  qim_node_t node{};
  node.group = 7;
  node.flags = 1;
  node.type = QIM_NODE_FILTER;
  node.body.filter.match = 1;
  node.body.filter.nomatch = 2;
  node.body.filter.crit = &criterion;

  Bytes out(qim_node_get_tlv_sz(&node));
  uint32_t len = 0;
  ASSERT_EQ(qim_node_to_tlv(&node, out.data(), static_cast<uint32_t>(out.size()), &len, nullptr, 0),
            0u);
  EXPECT_EQ(len, out.size());
  EXPECT_EQ(out, documented_bytes());
}

TEST(TlvExample, DecodesToTheFilter) {
  Bytes tlva = documented_bytes();
  ASSERT_EQ(tlva.size(), 104u);
  qim_node_t node{};
  qim_node_t* record = &node;
  ASSERT_EQ(qim_node_to_struct(&record, tlva.data(), static_cast<uint32_t>(tlva.size()),
                               TLVO_DEC_IN_PLACE),
            0u);
  EXPECT_EQ(node.group, 7u);
  EXPECT_EQ(node.flags, 1u);
  EXPECT_EQ(node.type, uint32_t{QIM_NODE_FILTER});
  EXPECT_EQ(node.body.filter.match, 1u);
  EXPECT_EQ(node.body.filter.nomatch, 2u);
  qim_criterion_t* criterion = node.body.filter.crit;
  ASSERT_NE(criterion, nullptr);
  EXPECT_EQ(criterion->next, nullptr);
  EXPECT_EQ(criterion->type, 5u);
  ASSERT_EQ(criterion->args_len, 3u);
  const auto* args = static_cast<const uint8_t*>(criterion->args);
  EXPECT_EQ(Bytes(args, args + 3), (Bytes{0x0a, 0x01, 0x02}));
  EXPECT_EQ(mem_free(criterion->args, nullptr), 0u);
  EXPECT_EQ(mem_free(criterion, nullptr), 0u);
}

}  // namespace
