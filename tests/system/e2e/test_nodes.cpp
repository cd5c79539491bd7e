// One process writes nodes of every kind into a database, another reads them.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "tests/library/node/samples.h"
#include "tests/system/e2e/client.h"
#include "tests/system/e2e/leaks_allowed.h"
#include "tests/system/e2e/peer.h"
#include "tests/system/e2e/write_samples.h"

namespace {

using e2e::Bytes;
using e2e::bytes_of;
using e2e::Client;
using node_test::Sample;

class EndToEndNodes : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory_ = std::make_unique<e2e::Directory>();
    e2e::Peer({[] { e2e::write_samples(directory_->database()); }}).step();
    client_ = std::make_unique<Client>(directory_->database());
  }

  static void TearDownTestSuite() {
    client_.reset();
    directory_.reset();
  }

  static std::uint32_t ses() { return client_->ses(); }

  // Reads into a record that held old data.
  std::uint32_t read(qim_node_id_t id, std::int32_t type = 0) {
    std::memset(&record_, 0xee, sizeof record_);
    return qim_node_read(ses(), id, type, &record_);
  }

  void expect_cleared() const { EXPECT_EQ(bytes_of(record_), Bytes(sizeof record_)); }

  qim_node_t record_{};
  static std::unique_ptr<e2e::Directory> directory_;
  static std::unique_ptr<Client> client_;
};

std::unique_ptr<e2e::Directory> EndToEndNodes::directory_;
std::unique_ptr<Client> EndToEndNodes::client_;

class EndToEndSamples : public EndToEndNodes, public testing::WithParamInterface<Sample> {
 protected:
  qim_node_id_t id() const { return GetParam().copy.id; }
  std::int32_t type() const { return static_cast<std::int32_t>(GetParam().copy.type); }
};

INSTANTIATE_TEST_SUITE_P(, EndToEndSamples, testing::ValuesIn(node_test::samples()),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(EndToEndSamples, are_read_as_they_were_written) {
  ASSERT_EQ(read(id()), 0u);
  EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
}

TEST_P(EndToEndSamples, are_read_alike_under_both_names_and_with_their_type_required) {
  ASSERT_EQ(read(id(), type()), 0u);
  EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
  ASSERT_EQ(qim_node_read_no_nedest(ses(), id(), type(), &record_), 0u);
  EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
}

TEST_P(EndToEndSamples, are_read_by_parameters_too) {
  rov_node_parms_t parms;
  ASSERT_EQ(rov_node_parms_get(ses(), e2e::db_id(id()), &parms), 0u);
  ASSERT_EQ(qim_node_read_int(ses(), 0, &parms, 0, &record_), 0u);
  EXPECT_EQ(bytes_of(record_), bytes_of(GetParam().copy));
}

// What was decoded inside the refused record stays allocated, which is part of the interface.
TEST_P(EndToEndSamples, are_refused_as_another_type) {
  const e2e::LeaksAllowed refused_records;
  EXPECT_EQ(read(id(), type() == QIM_NODE_FILTER ? QIM_NODE_ACTION : QIM_NODE_FILTER),
            static_cast<std::uint32_t>(QIM_ERR_NODE_TYPE));
  expect_cleared();
}

TEST_P(EndToEndSamples, give_each_of_their_links_by_its_code) {
  for (const qim_link_t& expected : GetParam().links) {
    qim_link_t link;
    ASSERT_EQ(qim_link_field_get(ses(), id(), expected.field, &link), 0u) << expected.field;
    EXPECT_EQ(bytes_of(link), bytes_of(expected)) << expected.field;
  }
}

TEST_P(EndToEndSamples, open_with_their_private_data) {
  qim_node_t* node = nullptr;
  ASSERT_EQ(qim_int_node_open(ses(), id(), nullptr, 0, &node, qim_lib_get()), 0u);
  const Bytes& priv = GetParam().priv;
  ASSERT_EQ(node->priv_len, priv.size());
  if (!priv.empty()) {
    EXPECT_EQ(std::memcmp(node->priv_buf, priv.data(), priv.size()), 0);
  }
  EXPECT_EQ(qim_int_node_close(node, qim_lib_get()), 0u);
}

Bytes arguments(const std::uint8_t* args, std::uint32_t len) {
  EXPECT_EQ(args == nullptr, len == 0);
  return len == 0 ? Bytes() : Bytes(args, args + len);
}

TEST_P(EndToEndSamples, open_with_their_criteria_and_arguments) {
  qim_node_t* node = nullptr;
  ASSERT_EQ(qim_int_node_open(ses(), id(), nullptr, 0, &node, qim_lib_get()), 0u);
  if (node->type == QIM_NODE_FILTER) {
    const qim_criterion_t* crit = node->body.filter.crit;
    for (const node_test::Criterion& expected : GetParam().criteria) {
      ASSERT_NE(crit, nullptr);
      EXPECT_EQ(crit->type, expected.type);
      EXPECT_EQ(arguments(crit->args, crit->args_len), expected.args);
      crit = crit->next;
    }
    EXPECT_EQ(crit, nullptr);
  }
  if (node->type == QIM_NODE_ACTION) {
    EXPECT_EQ(arguments(node->body.action.args, node->body.action.args_len), GetParam().args);
  }
  if (node->type == QIM_NODE_DEF) {
    EXPECT_EQ(arguments(node->body.def.args, node->body.def.args_len), GetParam().args);
  }
  EXPECT_EQ(qim_int_node_close(node, qim_lib_get()), 0u);
}

TEST_F(EndToEndNodes, a_missing_node_gives_the_database_status) {
  EXPECT_EQ(read(0x003fffff), static_cast<std::uint32_t>(ROV_ERR_NO_ITEM));
  expect_cleared();
}

TEST_F(EndToEndNodes, identifier_0_is_invalid) {
  EXPECT_EQ(read(0), static_cast<std::uint32_t>(QIM_ERR_INVALID));
  expect_cleared();
}

TEST_F(EndToEndNodes, a_forged_session_gives_the_database_status) {
  const qim_node_id_t id = node_test::samples().front().copy.id;
  std::memset(&record_, 0xee, sizeof record_);
  EXPECT_EQ(qim_node_read(ses() ^ 0x00010000, id, 0, &record_),
            static_cast<std::uint32_t>(ROV_ERR_HANDLE));
  expect_cleared();
}

TEST_F(EndToEndNodes, the_pointer_value_of_this_process_is_read_with_the_node) {
  const qim_node_id_t id = node_test::samples().front().copy.id;
  const rov_node_id_t at = e2e::db_id(id);
  ASSERT_EQ(rov_node_priv_ptr_set(ses(), &at, &record_), 0u);
  ASSERT_EQ(read(id), 0u);
  EXPECT_EQ(record_.priv_ptr, reinterpret_cast<std::uintptr_t>(&record_));
  ASSERT_EQ(rov_node_priv_ptr_set(ses(), &at, nullptr), 0u);
  ASSERT_EQ(read(id), 0u);
  EXPECT_EQ(record_.priv_ptr, 0u);
}

}  // namespace
