// Readers while another process writes: what a session sees, and who sees whose private data.

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "rov_edit.h"
#include "tests/library/node/samples.h"
#include "tests/system/e2e/client.h"
#include "tests/system/e2e/peer.h"
#include "tests/system/e2e/write_samples.h"

namespace {

using e2e::bytes_of;
using e2e::Client;
using e2e::Peer;
using node_test::Sample;

const Sample& filter_sample() {
  return node_test::samples().front();
}

// The filter with other flags.
Sample changed_filter() {
  Sample changed = filter_sample();
  changed.copy.body.filter.flags = 0x77;
  return changed;
}

void rewrite_filter(const std::string& database) {
  const Client client(database);
  std::uint32_t writer = 0;
  EXPECT_EQ(rov_edit_begin(client.db(), &writer), 0u) << rov_err_message();
  e2e::put(writer, changed_filter());
  EXPECT_EQ(rov_edit_commit(writer), 0u) << rov_err_message();
}

std::uint32_t flags_in(std::uint32_t ses) {
  qim_node_t record;
  EXPECT_EQ(qim_node_read(ses, filter_sample().copy.id, QIM_NODE_FILTER, &record), 0u);
  return record.body.filter.flags;
}

class EndToEndSessions : public testing::Test {
 protected:
  std::string database() const { return directory_.database(); }
  e2e::Directory directory_;
};

TEST_F(EndToEndSessions, a_session_keeps_what_it_saw_and_a_later_one_sees_the_change) {
  Peer writer({[this] { e2e::write_samples(database()); }, [this] { rewrite_filter(database()); }});
  writer.step();
  const Client client(database());
  const std::uint32_t before = filter_sample().copy.body.filter.flags;
  EXPECT_EQ(flags_in(client.ses()), before);
  writer.step();
  EXPECT_EQ(flags_in(client.ses()), before);
  const std::uint32_t later = client.open_session();
  EXPECT_EQ(flags_in(later), 0x77u);
  EXPECT_EQ(rov_ses_close(later), 0u);
}

TEST_F(EndToEndSessions, the_base_session_sees_the_newest_commit) {
  Peer writer({[this] { e2e::write_samples(database()); }, [this] { rewrite_filter(database()); }});
  writer.step();
  const Client client(database());
  std::uint32_t base = 0;
  ASSERT_EQ(qim_ses_orig_handle(client.ses(), &base), 0u);
  EXPECT_EQ(flags_in(base), filter_sample().copy.body.filter.flags);
  writer.step();
  EXPECT_EQ(flags_in(base), 0x77u);
}

TEST_F(EndToEndSessions, an_abandoned_write_leaves_nothing) {
  Peer writer({[this] { e2e::write_samples(database()); },
               [this] {
                 const Client client(database());
                 std::uint32_t ses = 0;
                 EXPECT_EQ(rov_edit_begin(client.db(), &ses), 0u);
                 e2e::put(ses, changed_filter());
                 EXPECT_EQ(rov_edit_abandon(ses), 0u);
               }});
  writer.step();
  writer.step();
  const Client client(database());
  EXPECT_EQ(flags_in(client.ses()), filter_sample().copy.body.filter.flags);
}

TEST_F(EndToEndSessions, another_client_does_not_see_private_data) {
  Peer writer({[this] { e2e::write_samples(database()); }});
  writer.step();
  const Client stranger(database(), e2e::kClient + 1);
  qim_node_t expected = filter_sample().copy;
  ASSERT_NE(expected.priv_len, 0u);
  expected.priv_len = 0;
  qim_node_t record;
  ASSERT_EQ(qim_node_read(stranger.ses(), expected.id, 0, &record), 0u);
  EXPECT_EQ(bytes_of(record), bytes_of(expected));
}

// Number of samples that a thread's own session reads otherwise than they were written.
int wrong_reads(const Client& client) {
  const std::uint32_t ses = client.open_session();
  int wrong = 0;
  for (int round = 0; round < 20; ++round) {
    for (const Sample& sample : node_test::samples()) {
      qim_node_t record;
      std::memset(&record, 0xee, sizeof record);
      const std::uint32_t status = qim_node_read(ses, sample.copy.id, 0, &record);
      if (status != 0 || bytes_of(record) != bytes_of(sample.copy)) ++wrong;
    }
  }
  EXPECT_EQ(rov_ses_close(ses), 0u);
  return wrong;
}

TEST_F(EndToEndSessions, threads_read_side_by_side_through_sessions_of_their_own) {
  Peer writer({[this] { e2e::write_samples(database()); }});
  writer.step();
  const Client client(database());
  int wrong[4] = {};
  std::vector<std::thread> threads;
  for (int& count : wrong) threads.emplace_back([&] { count = wrong_reads(client); });
  for (std::thread& thread : threads) thread.join();
  for (const int count : wrong) EXPECT_EQ(count, 0);
}

TEST_F(EndToEndSessions, a_process_reads_what_it_wrote_itself) {
  e2e::write_samples(database());
  const Client client(database());
  for (const Sample& sample : node_test::samples()) {
    qim_node_t record;
    ASSERT_EQ(qim_node_read(client.ses(), sample.copy.id, 0, &record), 0u) << sample.name;
    EXPECT_EQ(bytes_of(record), bytes_of(sample.copy)) << sample.name;
  }
}

}  // namespace
