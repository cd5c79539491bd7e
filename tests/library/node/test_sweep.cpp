// Every platform call of a read fails once, for every kind of node. After each failure: the status
// that the call gave, the record as promised, nothing left allocated but what the contract says,
// and a next read that works.

#include <algorithm>
#include <cstring>

#include "rov.h"
#include "tests/library/node/samples_fake.h"
#include "tests/library/node/support.h"
#include "tests/support/fake/sweep.h"

namespace {

using fake::Hit;
using node_test::Bytes;
using node_test::bytes_of;
using node_test::kFailure;
using node_test::kSes;
using node_test::Sample;

enum class Phase {
  none,
  before_decode,  // parameters, allocation, data
  decode,         // the codec, its allocations, the links
  scratch,        // freeing open's own buffers
  close           // freeing the node
};

class NodeSweep : public node_test::NodeTest, public testing::WithParamInterface<Sample> {
 protected:
  // A clean read's calls say what the failures can hit.
  void SetUp() override {
    NodeTest::SetUp();
    node_test::put(GetParam());
    ASSERT_EQ(read(), 0u);
    frees_ = fake::count("mem_free");
  }

  void TearDown() override {
    fake::reset();  // the blocks left behind were counted
    NodeTest::TearDown();
  }

  std::uint32_t read() {
    std::memset(&record_, 0xee, sizeof record_);
    return qim_node_read(kSes, GetParam().copy.id, 0, &record_);
  }

  std::size_t scratch_blocks() const {
    return (GetParam().is_data_set() ? 0u : 1u) + (GetParam().dset_name.empty() ? 0u : 1u);
  }

  Phase phase_of(const Hit& hit) const {
    if (hit.nth == 0) return Phase::none;
    const std::string& name = hit.call.name;
    if (name == "mem_free") return hit.nth <= scratch_blocks() ? Phase::scratch : Phase::close;
    return name == "rov_node_parms_get" || name == "mem_alloc_ary" || name == "rov_node_data_get"
               ? Phase::before_decode
               : Phase::decode;
  }

  // Blocks that the decoder had allocated when the last recorded run failed.
  static std::size_t decoded(const Hit& hit) {
    const std::size_t asked = fake::count("mem_zalloc") + fake::count("rov_tlv_to_bufptr");
    const bool refused = hit.call.name == "mem_zalloc" || hit.call.name == "rov_tlv_to_bufptr";
    return asked - (refused ? 1 : 0);
  }

  // Blocks that stay allocated.
  std::size_t left_by(const Hit& hit) const {
    switch (phase_of(hit)) {
      case Phase::decode:
        return decoded(hit);
      case Phase::scratch:  // the block itself, and the node that nobody closes then
        return 1 + frees_ - scratch_blocks();
      case Phase::close:  // the block and those that come after it
        return frees_ - hit.nth + 1;
      default:
        return 0;
    }
  }

  qim_node_t record_{};
  std::size_t frees_ = 0;
};

INSTANTIATE_TEST_SUITE_P(, NodeSweep, testing::ValuesIn(node_test::samples()),
                         node_test::name_of<Sample>);

// Links that a node does not have are reported too.
bool is_of_a_missing_link(const std::string& text) {
  return text == fake::report(ROV_ERR_NO_LINK, "qim_link_field_get", 1038);
}

// The failure's own status was reported where it arose and on all the way up to the read.
void expect_reports_of(std::uint32_t status) {
  auto texts = fake::report_texts();
  std::erase_if(texts, is_of_a_missing_link);
  ASSERT_FALSE(texts.empty());
  const std::string report = fake::report(status, "qim_", 0);
  const std::string start = report.substr(0, report.find('/'));
  for (const std::string& text : texts) EXPECT_EQ(text.substr(0, start.size()), start);
  EXPECT_NE(texts.back().find("(qim_node_read_int/"), std::string::npos) << texts.back();
}

TEST_P(NodeSweep, survives_the_failure_of_every_platform_call) {
  fake::sweep({.prepare = [] { node_test::put(GetParam()); },
               .run = [this] { return read(); },
               .check =
                   [this](std::uint32_t status, const Hit& hit) {
                     const Phase phase = phase_of(hit);
                     const bool copied = phase == Phase::none || phase == Phase::close;
                     EXPECT_EQ(bytes_of(record_),
                               copied ? bytes_of(GetParam().copy) : Bytes(sizeof record_));
                     if (status != 0) expect_reports_of(status);
                   },
               .left = [this](const Hit& hit) { return left_by(hit); }},
              kFailure);
}

bool asks_for_a_link(const Hit& hit) {
  return hit.call.name == "rov_node_ln_field_get";
}

// What reading the sample gives when the database denies that link.
qim_node_t without_link(const Sample& sample, std::uint16_t field) {
  qim_node_t node = sample.copy;
  const bool had_it = std::any_of(sample.links.begin(), sample.links.end(),
                                  [field](const qim_link_t& link) { return link.field == field; });
  if (!had_it) return node;
  ++node.links_unfixed;
  const qim_node_id_t* single = nullptr;
  const qim_link_t* full = nullptr;
  EXPECT_EQ(qim_link_ptr(&node, field, &single, &full), 0u);
  if (single != nullptr) *const_cast<qim_node_id_t*>(single) = 0;
  if (full != nullptr) *const_cast<qim_link_t*>(full) = {};
  return node;
}

// The same with the status that stands for a missing link, which is no failure where a link is
// asked for.
TEST_P(NodeSweep, takes_the_missing_link_status_of_links_only_for_an_absent_link) {
  const auto check = [this](std::uint32_t, const Hit& hit) {
    if (!asks_for_a_link(hit)) return;
    const auto field = static_cast<std::uint16_t>(hit.call.u32(5));
    EXPECT_EQ(bytes_of(record_), bytes_of(without_link(GetParam(), field)));
  };
  fake::sweep({.prepare = [] { node_test::put(GetParam()); },
               .run = [this] { return read(); },
               .check = check,
               .expected = [](const Hit& hit,
                              std::uint32_t status) { return asks_for_a_link(hit) ? 0u : status; },
               .left = [this](const Hit& hit) { return asks_for_a_link(hit) ? 0 : left_by(hit); }},
              ROV_ERR_NO_LINK);
}

}  // namespace
