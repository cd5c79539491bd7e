// What a logger finds in the outputs of qim_ref_get_all while a failure of it is reported.

#include <cstdlib>

#include "tests/support/fake/fixture.h"

namespace {

using fake::kSes;
using fake::System;

constexpr qim_node_id_t kWatched = 0x08300007;
constexpr std::uint32_t kRefused = 0x41170047;

// The outputs of the call under test, and what they were at the last report.
struct Outputs {
  qim_node_id_t* refs = nullptr;
  std::uint32_t count = 0;
  bool had_array = false;
  std::uint32_t count_then = 0;
  std::vector<qim_node_id_t> contents;
};

void look(std::uint32_t, const char*, void* arg) {
  auto& outputs = *static_cast<Outputs*>(arg);
  outputs.had_array = outputs.refs != nullptr;
  outputs.count_then = outputs.count;
  outputs.contents.clear();
  for (std::uint32_t i = 0; outputs.had_array && i < outputs.count; ++i) {
    outputs.contents.push_back(outputs.refs[i]);
  }
}

class RefGetAllOutputs : public fake::Test {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    fake::report_everything(ctx());
    ctx()->db_parms.logger = look;
    ctx()->db_parms.logger_arg = &outputs_;
  }

  void expect_failure(std::uint32_t status, qim_node_id_t id = kWatched) {
    qim_node_t node = {};
    node.id = id;
    node.refs = 3;
    EXPECT_EQ(qim_ref_get_all(kSes, &node, &outputs_.refs, &outputs_.count), status);
    EXPECT_EQ(outputs_.refs, nullptr) << "the caller has nothing to free";
    EXPECT_EQ(outputs_.count, 0u);
    EXPECT_EQ(fake::system_blocks(), 0u);
  }

  void expect_seen(bool array, std::uint32_t count) {
    EXPECT_EQ(outputs_.had_array, array);
    EXPECT_EQ(outputs_.count_then, count);
    EXPECT_EQ(outputs_.contents, std::vector<qim_node_id_t>(array ? count : 0, 0u));
  }

  Outputs outputs_;
};

TEST_F(RefGetAllOutputs, are_a_zeroed_array_and_its_count_when_the_database_fails) {
  fake::fail("rov_node_ref_get_all", kRefused);
  expect_failure(kRefused);
  expect_seen(true, 3);
}

TEST_F(RefGetAllOutputs, are_set_before_the_database_is_asked) {
  fake::script("rov_node_ref_get_all", [this](const fake::Call&) {
    EXPECT_NE(outputs_.refs, nullptr);
    EXPECT_EQ(outputs_.count, 3u);
    return kRefused;
  });
  expect_failure(kRefused);
}

TEST_F(RefGetAllOutputs, are_a_zeroed_array_and_its_count_when_the_identifier_is_0) {
  expect_failure(QIM_ERR_INVALID, 0);
  expect_seen(true, 3);
}

TEST_F(RefGetAllOutputs, are_the_count_alone_without_memory_for_the_array) {
  fake::fail_system(System::malloc);
  expect_failure(QIM_ERR_NO_MEM);
  expect_seen(false, 3);
}

TEST_F(RefGetAllOutputs, are_clear_without_memory_for_the_scratch_array) {
  fake::fail_system(System::calloc);
  expect_failure(QIM_ERR_NO_MEM);
  expect_seen(false, 0);
}

}  // namespace
