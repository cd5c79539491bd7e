// A process is killed in the middle of everything that it can hold of a database. Nobody waits for
// it from then on: what others do is done at once.

#include <poll.h>

#include <atomic>
#include <memory>
#include <thread>

#include "tests/support/pace.h"
#include "tests/system/e2e/operations.h"
#include "tests/system/e2e/peer.h"

namespace {

using e2e::Client;
using e2e::kClient;
using e2e::ok;
using e2e::Peer;

// What a process holds when it is killed: sessions with their base, one on a snapshot, a begun
// write with edits, pieces of private data, a registration for changes with messages that it has
// not read.
void hold_everything(const std::string& database) {
  auto* const client = new Client(database);  // never ended
  e2e::commit_value(client->db(), 1);
  std::uint32_t ses = client->open_session();
  std::uint32_t base = 0;
  EXPECT_TRUE(ok(qim_ses_orig_handle(ses, &base)));
  EXPECT_EQ(e2e::value_in(base), 1u);
  std::uint32_t snapshot = 0;
  EXPECT_TRUE(ok(qim_db_snapshot(client->db(), "kept", &snapshot)));
  EXPECT_TRUE(ok(qim_ses_open_ro(snapshot, &ses)));
  e2e::Piece piece(1, "mine");
  EXPECT_TRUE(ok(qim_ses_priv_write(client->ses(), piece.get(), 0)));
  rov_ntf_t ntf{};
  ntf.kinds = 0xffffffff;
  EXPECT_TRUE(ok(qim_db_ntf(client->db(), &ntf)));
  e2e::commit_value(client->db(), 2);
  std::uint32_t writer = 0;
  EXPECT_TRUE(ok(rov_edit_begin(client->db(), &writer)));
  e2e::put_value(writer, e2e::kNode, 99);
}

class OperationsKilled : public testing::Test {
 protected:
  OperationsKilled() : victim_({[this] { hold_everything(directory_.database()); }}) {}
  void SetUp() override { victim_.step(); }

  e2e::Directory directory_;
  Peer victim_;
};

TEST_F(OperationsKilled, others_write_read_and_watch_at_once) {
  const Client client(directory_.database(), kClient + 1);
  rov_ntf_t ntf{};
  ntf.kinds = 0xffffffff;
  EXPECT_TRUE(ok(qim_db_ntf(client.db(), &ntf)));
  e2e::wait_for_writers(0);
  std::uint32_t writer = 0;
  EXPECT_TRUE(e2e::gives(ROV_ERR_BUSY, rov_edit_begin(client.db(), &writer)));
  e2e::wait_for_writers(pace::patience_ms());
  victim_.kill();
  const e2e::StopWatch watch;
  EXPECT_EQ(e2e::newest_value(client.db()), 2u) << "what was begun is dropped";
  e2e::commit_value(client.db(), 3);
  EXPECT_EQ(e2e::newest_value(client.db()), 3u);
  pollfd waiting = {ntf.fd, POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, static_cast<int>(e2e::soon())), 1);
  rov_change_t change;
  std::uint32_t len = 0;
  EXPECT_TRUE(ok(qim_process_msg(client.db(), &change, sizeof change, &len)));
  e2e::Piece piece(5, "mine");
  EXPECT_TRUE(ok(qim_db_priv_write(client.db(), piece.get())));
  EXPECT_LT(watch.elapsed(), e2e::soon());
}

TEST_F(OperationsKilled, who_waits_for_its_write_goes_on) {
  const Client client(directory_.database(), kClient + 1);
  std::uint32_t status = 99;
  std::int64_t waited = 0;
  std::atomic<bool> begun{false};
  std::thread waiting([&] {
    const e2e::StopWatch watch;
    std::uint32_t writer = 0;
    begun = true;
    status = rov_edit_begin(client.db(), &writer);
    waited = watch.elapsed();
    EXPECT_TRUE(ok(rov_edit_abandon(writer)));
  });
  while (!begun) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const e2e::StopWatch watch;
  victim_.kill();
  waiting.join();
  EXPECT_LT(watch.elapsed(), e2e::soon());
  EXPECT_EQ(status, 0u);
  EXPECT_GE(waited, 150) << "it did wait until then";
}

TEST_F(OperationsKilled, its_snapshots_are_removed_and_made_anew) {
  victim_.kill();
  const e2e::StopWatch watch;
  const Client client(directory_.database(), kClient + 1);
  std::uint32_t snapshot = 0;
  EXPECT_TRUE(ok(qim_db_snapshot(client.db(), "kept", &snapshot)));
  EXPECT_EQ(e2e::newest_value(snapshot), 1u);
  EXPECT_TRUE(ok(rov_snapshot_close(snapshot)));
  EXPECT_TRUE(ok(qim_db_uri_rm(client.db(), "kept")));
  EXPECT_TRUE(ok(qim_db_snapshot(client.db(), "kept", &snapshot)));
  EXPECT_EQ(e2e::newest_value(snapshot), 2u);
  EXPECT_LT(watch.elapsed(), e2e::soon());
}

TEST_F(OperationsKilled, the_client_starts_again_where_it_was) {
  victim_.kill();
  const e2e::StopWatch watch;
  const Client again(directory_.database());
  e2e::Piece piece(0);
  EXPECT_TRUE(ok(qim_ses_priv_recover(again.ses(), 0, piece.get())));
  EXPECT_EQ(piece.text(), "mine");
  e2e::commit_value(again.db(), 4);
  EXPECT_EQ(e2e::newest_value(again.db()), 4u);
  EXPECT_LT(watch.elapsed(), e2e::soon());
}

// Whether the database's own show names that process among its readers.
bool is_reader(const Client& client, pid_t process) {
  std::string text;
  rov_show_req_t req{};
  req.what = ROV_SHOW_DATABASE;
  req.out = [](const char* piece, void* to) { *static_cast<std::string*>(to) += piece; };
  req.arg = &text;
  EXPECT_TRUE(ok(qim_db_show_internal(client.db(), &req)));
  return text.find(" " + std::to_string(process) + " ") != std::string::npos;
}

TEST_F(OperationsKilled, its_sessions_hold_no_pages_up_once_somebody_opens_the_database) {
  {
    const Client client(directory_.database(), kClient + 1);
    EXPECT_TRUE(is_reader(client, victim_.process()));
  }
  victim_.kill();
  const Client client(directory_.database(), kClient + 1);
  EXPECT_FALSE(is_reader(client, victim_.process()));
}

}  // namespace
