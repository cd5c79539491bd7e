// Links read from a decoded record.

#include <algorithm>
#include <cstring>

#include "tests/support/fake/fixture.h"
#include "tests/support/fake/records.h"

namespace {

using fake::any;
using fake::call;
using fake::kSes;

struct Place {
  std::uint16_t code;
  std::vector<std::uint32_t> types;
  bool single;
  std::size_t at;  // byte position in the body
};

std::vector<Place> make_places() {
  std::vector<Place> places;
  for (const fake::RecordLayout& record : fake::record_layouts()) {
    for (const fake::RecordMember& member : record.members) {
      if (!member.is_slot()) continue;
      const std::uint16_t code = fake::link_code(member);
      const auto known = std::find_if(places.begin(), places.end(),
                                      [code](const Place& place) { return place.code == code; });
      Place& place = known != places.end()
                         ? *known
                         : places.emplace_back(
                               Place{code, {}, member.is == fake::Is::single, record.here(member)});
      for (const fake::TypeLayout& type : fake::type_layouts) {
        if (std::string_view(type.kind) == record.kind) place.types.push_back(type.code);
      }
    }
  }
  return places;
}
const std::vector<Place> kPlaces = make_places();

// Records that came after those of the table have codes of their own.
#define COUNT_KIND(K) +1
constexpr std::uint32_t kRecords = QIM_CODEC_KINDS(COUNT_KIND);
bool may_be_new(std::uint32_t code) {
  return code / 64 > fake::record_layouts().size() && code / 64 <= kRecords;
}

const Place* place_of(std::uint32_t code) {
  const auto found = std::find_if(kPlaces.begin(), kPlaces.end(),
                                  [code](const Place& p) { return p.code == code; });
  return found == kPlaces.end() ? nullptr : &*found;
}

bool has(const Place& place, std::uint32_t type) {
  return std::find(place.types.begin(), place.types.end(), type) != place.types.end();
}

// Types with a meaning, their neighbours, and words whose low bits look like one.
const std::uint32_t kTypes[] = {0,  1,  2,  3,  4,  5,  6,  7,    8,     9,          10,
                                11, 31, 32, 33, 34, 63, 64, 0x41, 0x101, 0x80000001, 0xffffffff};

const std::uint8_t* body_of(const qim_node_t& node) {
  return reinterpret_cast<const std::uint8_t*>(&node.body);
}

class LinkPtr : public fake::Test {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    fake::report_everything(ctx());
  }
  void TearDown() override {
    EXPECT_EQ(fake::calls(), fake::Calls{}) << "the record is all it reads";
    EXPECT_EQ(fake::reports().size(), 0u);
    fake::Test::TearDown();
  }

  std::uint32_t find(std::uint32_t type, std::uint16_t code) {
    node_.type = type;
    single_ = &node_.id;
    full_ = &node_.body.ifelse.ln_241;
    return qim_link_ptr(&node_, code, &single_, &full_);
  }

  qim_node_t node_{};
  const qim_node_id_t* single_ = nullptr;
  const qim_link_t* full_ = nullptr;
};

TEST_F(LinkPtr, finds_every_code_in_its_place_and_only_in_nodes_of_its_types) {
  for (const Place& place : kPlaces) {
    for (const std::uint32_t type : kTypes) {
      SCOPED_TRACE(testing::Message() << std::hex << "code " << place.code << " type " << type);
      EXPECT_EQ(find(type, place.code), 0u);
      const void* const at = has(place, type) ? body_of(node_) + place.at : nullptr;
      EXPECT_EQ(static_cast<const void*>(single_), place.single ? at : nullptr);
      EXPECT_EQ(static_cast<const void*>(full_), place.single ? nullptr : at);
    }
  }
}

TEST_F(LinkPtr, puts_the_body_40_bytes_into_the_device_record) {
  ASSERT_EQ(find(3, 0x241), 0u);
  const auto* const start = reinterpret_cast<const std::uint8_t*>(&node_);
  EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(full_) - start,
            static_cast<std::ptrdiff_t>(offsetof(qim_node_t, body)));
  if (sizeof(void*) == 4) {
    EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(full_), start + 40);
  }
}

TEST_F(LinkPtr, refuses_every_other_code_whatever_the_type) {
  for (std::uint32_t code = 0; code <= 0xffff; ++code) {
    if (place_of(code) != nullptr || may_be_new(code)) continue;
    for (const std::uint32_t type : {1u, 3u, 6u, 8u, 32u}) {
      ASSERT_EQ(find(type, static_cast<std::uint16_t>(code)), 0x41160005u) << code;
      ASSERT_EQ(single_, nullptr);
      ASSERT_EQ(full_, nullptr);
    }
  }
}

TEST_F(LinkPtr, needs_neither_output) {
  node_.type = 6;
  EXPECT_EQ(qim_link_ptr(&node_, 0x141, nullptr, nullptr), 0u);
  EXPECT_EQ(qim_link_ptr(&node_, 0x201, nullptr, nullptr), 0u);
  EXPECT_EQ(qim_link_ptr(&node_, 0x999, nullptr, nullptr), 0x41160005u);
  single_ = nullptr;
  EXPECT_EQ(qim_link_ptr(&node_, 0x141, &single_, nullptr), 0u);
  EXPECT_EQ(single_, &node_.body.police.ln_141);
  full_ = &node_.body.ifelse.ln_241;
  EXPECT_EQ(qim_link_ptr(&node_, 0x141, nullptr, &full_), 0u);
  EXPECT_EQ(full_, nullptr);
  full_ = nullptr;
  EXPECT_EQ(qim_link_ptr(&node_, 0x203, nullptr, &full_), 0u);
  EXPECT_EQ(full_, &node_.body.police.ln_203);
}

TEST(LinkSlots, are_named_by_their_codes) {
  qim_node_t node{};
  const std::pair<std::uint16_t, const void*> slots[] = {
      {0x102, &node.body.hfilter.ln_102}, {0x182, &node.body.haction.ln_182},
      {0x201, &node.body.police.ln_201},  {0x202, &node.body.police.ln_202},
      {0x203, &node.body.police.ln_203},  {0x241, &node.body.ifelse.ln_241},
      {0x242, &node.body.ifelse.ln_242},  {0x243, &node.body.ifelse.ln_243},
      {0x244, &node.body.ifelse.ln_244},  {0x281, &node.body.group.ln_281},
      {0x2c1, &node.body.pinst.ln_2c1},   {0x302, &node.body.def.ln_302}};
  for (const auto& [code, slot] : slots) {
    SCOPED_TRACE(code);
    const Place* const place = place_of(code);
    ASSERT_NE(place, nullptr);
    EXPECT_EQ(slot, body_of(node) + place->at);
  }
  EXPECT_EQ(static_cast<const void*>(&node.body.filter.ln_081), body_of(node));
  EXPECT_EQ(static_cast<const void*>(&node.body.hfilter.ln_081), body_of(node));
  EXPECT_EQ(static_cast<const void*>(&node.body.action.ln_141), body_of(node));
  EXPECT_EQ(static_cast<const void*>(&node.body.haction.ln_141), body_of(node));
  EXPECT_EQ(static_cast<const void*>(&node.body.police.ln_141), body_of(node));
  EXPECT_EQ(static_cast<const void*>(&node.body.group.ln_282), body_of(node));
  EXPECT_EQ(static_cast<const void*>(&node.body.def.ln_301), body_of(node));
}

// ---- Values ------------------------------------------------------------------------------------

class LinkVal : public fake::Test {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    auto* const bytes = reinterpret_cast<std::uint8_t*>(&node_.body);
    for (std::size_t i = 0; i < sizeof node_.body; ++i) bytes[i] = static_cast<std::uint8_t>(i);
    node_.id = 0x77;
    std::memset(&link_, fake::kGarbage, sizeof link_);
  }

  std::uint32_t value(std::uint32_t type, std::uint16_t code) {
    node_.type = type;
    return qim_link_val(kSes, &node_, code, &link_);
  }
  bool link_is_zero() const {
    const qim_link_t zero{};
    return std::memcmp(&link_, &zero, sizeof zero) == 0;
  }

  qim_node_t node_{};
  qim_link_t link_;
};

TEST_F(LinkVal, copies_each_slot_of_each_type) {
  for (const Place& place : kPlaces) {
    for (const std::uint32_t type : place.types) {
      SCOPED_TRACE(testing::Message() << std::hex << "code " << place.code << " type " << type);
      std::memset(&link_, fake::kGarbage, sizeof link_);
      ASSERT_EQ(value(type, place.code), 0u);
      qim_link_t expected{};
      std::memcpy(&expected, body_of(node_) + place.at, place.single ? 4 : 16);
      EXPECT_EQ(std::memcmp(&link_, &expected, sizeof expected), 0);
    }
  }
  EXPECT_EQ(fake::calls(), fake::Calls{}) << "slots are read without the database";
}

TEST_F(LinkVal, of_a_single_slot_has_nothing_but_the_node) {
  ASSERT_EQ(value(1, 0x081), 0u);
  EXPECT_EQ(link_.node, node_.body.filter.ln_081);
  EXPECT_EQ(link_.node2, 0u);
  EXPECT_EQ(link_.val, 0u);
  EXPECT_EQ(link_.tag, 0u);
  EXPECT_EQ(link_.field, 0u);
}

TEST_F(LinkVal, of_an_unknown_code_is_refused_at_line_1182_with_a_zeroed_link) {
  fake::report_everything(ctx());
  for (const std::uint16_t code :
       std::initializer_list<std::uint16_t>{0x0000, 0x0001, 0x0245, 0x7fff}) {
    EXPECT_EQ(value(1, code), 0x41160005u);
    EXPECT_TRUE(link_is_zero());
    EXPECT_EQ(fake::report_texts().back(), fake::report(0x41160005, "qim_link_val", 1182));
  }
  EXPECT_EQ(fake::reports().size(), 4u);
  EXPECT_EQ(fake::calls(), fake::Calls{});
}

TEST_F(LinkVal, reports_under_the_debug_bit_only) {
  ctx()->db_parms.logger = fake::logger;
  EXPECT_EQ(value(1, 1), 0x41160005u);
  EXPECT_EQ(fake::reports().size(), 0u);
}

TEST_F(LinkVal, of_a_code_with_bit_15_comes_from_the_database_by_the_nodes_own_identifier) {
  fake::node(0x77).link(0x8000, {.node = 9, .node2 = 8, .val = 7, .tag = 6});
  for (const std::uint32_t type : kTypes) {
    ASSERT_EQ(value(type, 0x8000), 0u) << type;
    EXPECT_EQ(link_.node, 9u);
    EXPECT_EQ(link_.node2, 8u);
    EXPECT_EQ(link_.val, 7u);
    EXPECT_EQ(link_.tag, 6u);
    EXPECT_EQ(link_.field, 0x8000u);
  }
  EXPECT_EQ(fake::calls()[0], call("rov_node_ln_field_get", kSes, fake::id(0x77), 0x8000, any));
  EXPECT_EQ(fake::count("rov_node_ln_field_get"), std::size(kTypes));
}

TEST_F(LinkVal, of_a_slots_code_with_bit_15_comes_from_the_database_too) {
  EXPECT_EQ(value(1, 0x8081), 0x41170006u);
  EXPECT_EQ(value(1, 0xffff), 0x41170006u);
  EXPECT_EQ(fake::calls(),
            (fake::Calls{call("rov_node_ln_field_get", kSes, fake::id(0x77), 0x8081, any),
                         call("rov_node_ln_field_get", kSes, fake::id(0x77), 0xffff, any)}));
}

TEST_F(LinkVal, adds_no_report_of_its_own_to_the_databases_failure) {
  fake::report_everything(ctx());
  fake::fail("rov_node_ln_field_get", 0x4117000f);
  EXPECT_EQ(value(1, 0x8000), 0x4117000fu);
  EXPECT_TRUE(link_is_zero());
  EXPECT_EQ(fake::report_texts(),
            std::vector<std::string>{fake::report(0x4117000f, "qim_link_field_get", 1038)});
}

TEST_F(LinkVal, of_a_code_with_bit_15_in_a_node_without_identifier_is_refused) {
  fake::report_everything(ctx());
  node_.id = 0;
  EXPECT_EQ(value(1, 0x8000), 0x41160005u);
  EXPECT_TRUE(link_is_zero());
  EXPECT_EQ(fake::report_texts(),
            std::vector<std::string>{fake::report(0x41160005, "qim_link_field_get", 1034)});
}

TEST_F(LinkVal, of_another_types_link_faults) {
  for (const Place& place : kPlaces) {
    SCOPED_TRACE(place.code);
    const std::uint32_t other = has(place, 9) ? 1 : 9;
    EXPECT_FALSE(fake::ending_of([&] { value(other, place.code); }).returned);
  }
}

}  // namespace
