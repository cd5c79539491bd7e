// Sessions by the library's names: what they refuse, whether they are there, when they expire, and
// who writes next.

#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include "tests/support/pace.h"
#include "tests/system/e2e/operations.h"
#include "tests/system/e2e/peer.h"

namespace {

using namespace std::chrono_literals;
using e2e::Client;
using e2e::gives;
using e2e::kClient;
using e2e::ok;
using e2e::Peer;

constexpr std::uint32_t kOther = kClient + 1;

class OperationsSessions : public testing::Test {
 protected:
  std::string database() const { return directory_.database(); }

  static std::uint32_t exists(std::uint32_t db, std::uint32_t ses) {
    std::uint32_t is = 7;
    EXPECT_TRUE(ok(qim_db_ses_exists(db, ses, &is)));
    return is;
  }
  static std::uint32_t base_of(std::uint32_t ses) {
    std::uint32_t base = 0;
    EXPECT_TRUE(ok(qim_ses_orig_handle(ses, &base)));
    return base;
  }
  static std::uint32_t look(std::uint32_t ses) {
    qim_node_t record;
    return qim_node_read(ses, e2e::kNode, 0, &record);
  }

  e2e::Directory directory_;
};

TEST_F(OperationsSessions, a_read_only_session_refuses_every_edit) {
  const Client client(database());
  e2e::commit_value(client.db(), 1);
  const std::uint32_t ses = client.open_session();
  rov_edit_node_t node{};
  node.id = e2e::db_id(e2e::kNode);
  EXPECT_TRUE(gives(ROV_ERR_READ_ONLY, rov_edit_node_put(ses, &node)));
  EXPECT_TRUE(gives(ROV_ERR_READ_ONLY, rov_edit_node_del(ses, node.id)));
  EXPECT_TRUE(gives(ROV_ERR_READ_ONLY, rov_edit_node_put(base_of(ses), &node)));
  EXPECT_EQ(e2e::value_in(ses), 1u);
  EXPECT_TRUE(ok(rov_ses_close(ses)));
}

TEST_F(OperationsSessions, a_session_and_its_base_exist_until_it_is_closed) {
  const Client client(database());
  e2e::commit_value(client.db(), 1);
  const std::uint32_t ses = client.open_session();
  const std::uint32_t base = base_of(ses);
  EXPECT_NE(base, ses);
  EXPECT_EQ(base_of(base), base);
  EXPECT_EQ(exists(client.db(), ses), 1u);
  EXPECT_EQ(exists(client.db(), base), 1u);
  EXPECT_TRUE(ok(rov_ses_close(ses)));
  EXPECT_EQ(exists(client.db(), ses), 0u);
  EXPECT_EQ(exists(client.db(), base), 0u);
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, look(ses)));
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, look(base)));
  EXPECT_EQ(exists(client.db(), 0x12345), 0u);
  std::uint32_t is = 7;
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, qim_db_ses_exists(client.ses(), ses, &is)));
}

// ---- Expiry ----------------------------------------------------------------------------------

void expect_expired(std::uint32_t ses) {
  qim_node_t record;
  EXPECT_TRUE(gives(ROV_ERR_SES_EXPIRED, qim_node_read(ses, e2e::kNode, 0, &record)));
  EXPECT_TRUE(gives(ROV_ERR_SES_EXPIRED, qim_ses_timeout(ses)));
  std::uint32_t base = 0;
  EXPECT_TRUE(gives(ROV_ERR_SES_EXPIRED, qim_ses_orig_handle(ses, &base)));
}

TEST_F(OperationsSessions, an_idle_session_expires_with_a_status_of_its_own) {
  e2e::in_process([this] {
    EXPECT_TRUE(ok(qim_lib_defaults(kClient, pace::factor())));
    const Client client(database());
    e2e::commit_value(client.db(), 1);
    const std::uint32_t ses = client.open_session();
    const std::uint32_t base = base_of(ses);
    std::this_thread::sleep_for(pace::paced(1200ms));
    expect_expired(ses);
    expect_expired(base);
    EXPECT_EQ(exists(client.db(), ses), 0u);
    EXPECT_TRUE(ok(rov_ses_close(ses)));
    const std::uint32_t later = client.open_session();
    EXPECT_EQ(e2e::value_in(later), 1u);
    EXPECT_TRUE(ok(rov_ses_close(later)));
  });
}

TEST_F(OperationsSessions, renewing_keeps_a_session_and_asking_whether_it_exists_does_not) {
  e2e::in_process([this] {
    EXPECT_TRUE(ok(qim_lib_defaults(kClient, pace::factor())));
    const Client client(database());
    e2e::commit_value(client.db(), 1);
    const std::uint32_t renewed = client.open_session();
    const std::uint32_t asked = client.open_session();
    for (int i = 0; i < 6; ++i) {
      std::this_thread::sleep_for(pace::paced(250ms));
      EXPECT_TRUE(ok(qim_ses_timeout(renewed)));
      exists(client.db(), asked);
    }
    EXPECT_EQ(exists(client.db(), renewed), 1u);
    EXPECT_EQ(e2e::value_in(renewed), 1u);
    EXPECT_EQ(exists(client.db(), asked), 0u);
    expect_expired(asked);
    EXPECT_TRUE(ok(rov_ses_close(renewed)));
    EXPECT_TRUE(ok(rov_ses_close(asked)));
  });
}

// A process that has begun a write and does nothing more gives its turn away by its own next call.
TEST_F(OperationsSessions, an_expired_write_is_refused_and_somebody_else_writes) {
  std::unique_ptr<Client> client;
  std::uint32_t writer = 0;
  Peer sleeper({[&] {
                  EXPECT_TRUE(ok(qim_lib_defaults(kClient, pace::factor())));
                  client = std::make_unique<Client>(database());
                  EXPECT_TRUE(ok(rov_edit_begin(client->db(), &writer)));
                  e2e::put_value(writer, e2e::kNode, 1);
                },
                [&] {
                  std::this_thread::sleep_for(pace::paced(1200ms));
                  EXPECT_TRUE(ok(rov_ses_close(client->open_session())));
                },
                [&] {
                  EXPECT_TRUE(gives(ROV_ERR_SES_EXPIRED, rov_edit_commit(writer)));
                  client.reset();
                }});
  sleeper.step();
  const Client other(database());
  e2e::wait_for_writers(0);
  std::uint32_t mine = 0;
  EXPECT_TRUE(gives(ROV_ERR_BUSY, rov_edit_begin(other.db(), &mine)));
  sleeper.step();
  e2e::commit_value(other.db(), 2);
  sleeper.step();
  EXPECT_EQ(e2e::newest_value(other.db()), 2u);
  e2e::wait_for_writers(10000);
}

// ---- Grants ----------------------------------------------------------------------------------

std::uint64_t user_of(std::uint32_t client, pid_t process) {
  return std::uint64_t{client} << 32 | static_cast<std::uint32_t>(process);
}

class OperationsGrants : public OperationsSessions {
 protected:
  // The other client's process: started, writing, gone on its way.
  OperationsGrants()
      : chosen_({[this] {
                   client_ = std::make_unique<Client>(database(), kOther);
                   e2e::wait_for_writers(30);
                 },
                 [this] { e2e::commit_value(client_->db(), 2); }, [this] { client_.reset(); }}) {}

  void SetUp() override {
    chosen_.step();
    mine_ = std::make_unique<Client>(database());
    e2e::wait_for_writers(30);
  }
  void TearDown() override {
    e2e::wait_for_writers(10000);
    mine_.reset();
  }

  void grant(std::uint64_t user) { EXPECT_TRUE(ok(qim_db_ses_lock_grant(mine_->db(), user))); }
  std::uint32_t try_write() {
    std::uint32_t writer = 0;
    const std::uint32_t status = rov_edit_begin(mine_->db(), &writer);
    return status != 0 ? status : rov_edit_abandon(writer);
  }

  std::unique_ptr<Client> client_;  // in the other process
  std::unique_ptr<Client> mine_;
  Peer chosen_;
};

TEST_F(OperationsGrants, the_next_write_is_the_one_users_and_then_anybodys) {
  grant(user_of(kOther, chosen_.process()));
  EXPECT_TRUE(gives(ROV_ERR_BUSY, try_write()));
  EXPECT_TRUE(gives(ROV_ERR_BUSY, qim_db_priv_post(mine_->db(), 1, 1, "x")));
  chosen_.step();
  EXPECT_TRUE(ok(try_write()));
  EXPECT_EQ(e2e::newest_value(mine_->db()), 2u);
}

TEST_F(OperationsGrants, an_open_writer_hands_the_next_turn_on) {
  std::uint32_t writer = 0;
  ASSERT_TRUE(ok(rov_edit_begin(mine_->db(), &writer)));
  e2e::put_value(writer, e2e::kNode, 1);
  grant(user_of(kOther, chosen_.process()));
  EXPECT_TRUE(ok(rov_edit_commit(writer)));
  EXPECT_TRUE(gives(ROV_ERR_BUSY, try_write()));
  chosen_.step();
  EXPECT_TRUE(ok(try_write()));
}

TEST_F(OperationsGrants, zero_takes_it_back) {
  grant(user_of(kOther, chosen_.process()));
  grant(0);
  EXPECT_TRUE(ok(try_write()));
}

TEST_F(OperationsGrants, it_ends_with_the_users_process) {
  grant(user_of(kOther, chosen_.process()));
  EXPECT_TRUE(gives(ROV_ERR_BUSY, try_write()));
  chosen_.kill();
  const e2e::StopWatch watch;
  e2e::wait_for_writers(pace::patience_ms());
  EXPECT_TRUE(ok(try_write()));
  EXPECT_LT(watch.elapsed(), e2e::soon());
  EXPECT_TRUE(gives(ROV_ERR_NO_ITEM,
                    qim_db_ses_lock_grant(mine_->db(), user_of(kOther, chosen_.process()))));
}

}  // namespace
