// Snapshots that are kept: made by one process, read by others, listed, removed.

#include <memory>

#include "tests/system/e2e/operations.h"
#include "tests/system/e2e/peer.h"

namespace {

using e2e::Client;
using e2e::gives;
using e2e::ok;
using e2e::Peer;

using Paths = std::vector<std::string>;

constexpr const char* kGroup = "acme://edge-7/nightly";

class OperationsSnapshots : public testing::Test {
 protected:
  void SetUp() override {
    client_ = std::make_unique<Client>(database());
    e2e::commit_value(db(), 1);
  }
  std::string database() const { return directory_.database(); }
  std::uint32_t db() const { return client_->db(); }

  std::uint32_t snapshot(const char* name) const {
    std::uint32_t handle = 0;
    EXPECT_TRUE(ok(qim_db_snapshot(db(), name, &handle)));
    return handle;
  }
  std::uint32_t snapshot(const char* uri, const char* name) const {
    std::uint32_t handle = 0;
    EXPECT_TRUE(ok(qim_db_uri_snapshot(db(), uri, name, &handle)));
    return handle;
  }
  Paths paths() const {
    Paths found;
    char path[ROV_SNAPSHOT_PATH] = "";
    for (;;) {
      const std::uint32_t status = rov_snapshot_next(db(), path, sizeof path, path);
      if (status != 0) {
        EXPECT_TRUE(gives(ROV_ERR_NO_ITEM, status));
        return found;
      }
      found.emplace_back(path);
    }
  }

  e2e::Directory directory_;
  std::unique_ptr<Client> client_;
};

TEST_F(OperationsSnapshots, sessions_on_one_read_the_commit_that_it_was_made_of) {
  const std::uint32_t before = snapshot("before");
  e2e::commit_value(db(), 2);
  EXPECT_EQ(e2e::newest_value(before), 1u);
  EXPECT_EQ(e2e::newest_value(db()), 2u);
  const std::uint32_t again = snapshot("before");
  EXPECT_EQ(e2e::newest_value(again), 1u) << "a name that is there is opened";
  std::uint32_t ses = 0;
  EXPECT_TRUE(ok(qim_ses_open_ro(before, &ses)));
  std::uint32_t exists = 0;
  EXPECT_TRUE(ok(qim_db_ses_exists(db(), ses, &exists)));
  EXPECT_EQ(exists, 1u) << "it was opened through a snapshot of this database";
  EXPECT_TRUE(ok(rov_snapshot_close(before)));
  qim_node_t record;
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, qim_node_read(ses, e2e::kNode, 0, &record)));
  EXPECT_EQ(e2e::newest_value(again), 1u) << "the other handle goes on";
}

TEST_F(OperationsSnapshots, nobody_writes_to_one) {
  const std::uint32_t before = snapshot("before");
  std::uint32_t writer = 0;
  EXPECT_TRUE(gives(ROV_ERR_READ_ONLY, rov_edit_begin(before, &writer)));
  std::uint32_t ses = 0;
  EXPECT_TRUE(ok(qim_ses_open_ro(before, &ses)));
  EXPECT_TRUE(gives(ROV_ERR_READ_ONLY, qim_node_priv_set(ses, e2e::kNode, "x", 1)));
}

TEST_F(OperationsSnapshots, they_outlive_their_process_and_are_every_clients) {
  snapshot("before");
  e2e::commit_value(db(), 2);
  client_.reset();
  e2e::in_process([this] {
    const Client other(database(), e2e::kClient + 1);
    std::uint32_t before = 0;
    EXPECT_TRUE(ok(qim_db_snapshot(other.db(), "before", &before)));
    EXPECT_EQ(e2e::newest_value(before), 1u);
    EXPECT_EQ(e2e::newest_value(other.db()), 2u);
  });
}

TEST_F(OperationsSnapshots, of_a_group_are_listed_and_removed_together) {
  snapshot("before");
  snapshot(kGroup, "tuesday");
  snapshot(kGroup, "monday");
  snapshot("acme://edge-7/weekly", "30");
  EXPECT_EQ(paths(), (Paths{"acme://edge-7/nightly/monday", "acme://edge-7/nightly/tuesday",
                            "acme://edge-7/weekly/30", "before"}));
  EXPECT_TRUE(ok(qim_db_uri_rm(db(), kGroup)));
  EXPECT_EQ(paths(), (Paths{"acme://edge-7/weekly/30", "before"}));
  EXPECT_TRUE(gives(ROV_ERR_NO_ITEM, qim_db_uri_rm(db(), kGroup)));
  EXPECT_TRUE(ok(qim_db_uri_rm(db(), "before"))) << "a single one by its path";
  EXPECT_TRUE(ok(qim_db_uri_rm(db(), "acme://edge-7")));
  EXPECT_EQ(paths(), Paths{});
}

TEST_F(OperationsSnapshots, a_removed_one_goes_on_for_who_reads_it_in_any_process) {
  client_.reset();
  std::unique_ptr<Client> client;
  std::uint32_t monday = 0;
  Peer reader({[&] {
                 client = std::make_unique<Client>(database());
                 EXPECT_TRUE(ok(qim_db_uri_snapshot(client->db(), kGroup, "monday", &monday)));
               },
               [&] {
                 EXPECT_EQ(e2e::newest_value(monday), 1u);
                 std::uint32_t anew = 0;
                 EXPECT_TRUE(ok(qim_db_uri_snapshot(client->db(), kGroup, "monday", &anew)));
                 EXPECT_EQ(e2e::newest_value(anew), 2u) << "the name is free for another one";
                 client.reset();
               }});
  reader.step();
  client_ = std::make_unique<Client>(database());
  e2e::commit_value(db(), 2);
  EXPECT_TRUE(ok(qim_db_uri_rm(db(), kGroup)));
  reader.step();
}

TEST_F(OperationsSnapshots, bad_names_are_refused) {
  std::uint32_t handle = 0;
  EXPECT_TRUE(gives(ROV_ERR_INVALID, qim_db_snapshot(db(), "a/b", &handle)));
  EXPECT_TRUE(gives(ROV_ERR_INVALID, qim_db_snapshot(db(), "", &handle)));
  EXPECT_TRUE(gives(ROV_ERR_INVALID, qim_db_uri_snapshot(db(), "/a", "b", &handle)));
  EXPECT_TRUE(gives(ROV_ERR_LENGTH, qim_db_snapshot(db(), std::string(256, 'a').c_str(), &handle)));
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, qim_db_snapshot(client_->ses(), "a", &handle)));
  EXPECT_EQ(paths(), Paths{});
}

}  // namespace
