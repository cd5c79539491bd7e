// One process writes, another one watches with a poll loop of its own.

#include <poll.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "tests/support/pace.h"
#include "tests/system/e2e/operations.h"
#include "tests/system/e2e/peer.h"

namespace {

using e2e::bytes_of;
using e2e::Client;
using e2e::gives;
using e2e::kClient;
using e2e::kNode;
using e2e::ok;
using e2e::Peer;

constexpr std::uint32_t kNobody = kClient + 1;
constexpr std::uint32_t kAllKinds = 0xffffffff;
constexpr std::uint16_t kField = 0x281;

std::uint64_t joined(const std::uint32_t (&words)[2]) {
  return std::uint64_t{words[0]} << 32 | words[1];
}

bool readable(int fd, int milliseconds) {
  pollfd waiting = {fd, POLLIN, 0};
  return poll(&waiting, 1, milliseconds) == 1;
}

// A registration, and what comes by it.
class Watcher {
 public:
  explicit Watcher(std::uint32_t db, std::uint64_t revision = 0, std::uint32_t kinds = kAllKinds)
      : db_(db) {
    rov_ntf_t ntf{};
    ntf.kinds = kinds;
    ntf.revision[0] = static_cast<std::uint32_t>(revision >> 32);
    ntf.revision[1] = static_cast<std::uint32_t>(revision);
    EXPECT_TRUE(ok(qim_db_ntf(db, &ntf)));
    fd_ = ntf.fd;
    from_ = joined(ntf.revision);
  }

  int fd() const { return fd_; }
  std::uint64_t from() const { return from_; }

  // Everything that is there, read as the descriptor's readiness asks for.
  std::vector<rov_change_t> take() const {
    std::vector<rov_change_t> changes;
    for (;;) {
      rov_change_t change{};
      std::uint32_t len = 99;
      const std::uint32_t status = qim_process_msg(db_, &change, sizeof change, &len);
      if (status != 0) {
        EXPECT_TRUE(gives(ROV_ERR_NO_VALUE, status));
        EXPECT_EQ(len, 0u);
        return changes;
      }
      EXPECT_EQ(len, sizeof change);
      EXPECT_EQ(qim_msg_is_qim(&change), 1u);
      changes.push_back(change);
    }
  }
  // The next ones, which must be there soon.
  std::vector<rov_change_t> wait() const {
    EXPECT_TRUE(readable(fd_, static_cast<int>(pace::patience_ms())));
    return take();
  }

 private:
  std::uint32_t db_;
  int fd_ = -1;
  std::uint64_t from_ = 0;
};

// What a change tells apart from who and when.
struct What {
  std::uint32_t kind;
  qim_node_id_t node;
  std::uint32_t field;
  friend bool operator==(const What&, const What&) = default;
};
void PrintTo(const What& what, std::ostream* os) {
  *os << "kind " << what.kind << " node " << what.node << " field " << what.field;
}

std::vector<What> told(const std::vector<rov_change_t>& changes) {
  std::vector<What> all;
  for (const rov_change_t& change : changes) {
    all.push_back({change.kind, qim_from_rov_node_id(&change.node), change.field});
  }
  return all;
}

class OperationsChanges : public testing::Test {
 protected:
  std::string database() const { return directory_.database(); }
  // Ends the other process's client.
  std::function<void()> leave() {
    return [this] { other_.reset(); };
  }
  std::function<void()> come(std::uint32_t id = kClient) {
    return [this, id] { other_ = std::make_unique<Client>(database(), id); };
  }

  e2e::Directory directory_;
  std::unique_ptr<Client> other_;  // in the other process
};

TEST_F(OperationsChanges, every_change_comes_with_its_commit_node_and_data_set) {
  const auto write = [this] {
    std::uint32_t writer = 0;
    ASSERT_TRUE(ok(rov_edit_begin(other_->db(), &writer)));
    e2e::put_value(writer, kNode, 1, e2e::interface_name(5));
    e2e::put_value(writer, kNode + 1, 2);
    e2e::put_link(writer, kNode + 1, kField, kNode);
    EXPECT_TRUE(ok(rov_edit_commit(writer)));
  };
  const auto remove = [this] {
    std::uint32_t writer = 0;
    ASSERT_TRUE(ok(rov_edit_begin(other_->db(), &writer)));
    EXPECT_TRUE(ok(rov_edit_link_del(writer, e2e::db_id(kNode + 1), kField)));
    EXPECT_TRUE(ok(rov_edit_node_del(writer, e2e::db_id(kNode))));
    EXPECT_TRUE(ok(rov_edit_commit(writer)));
  };
  Peer writer({come(), write, remove, leave()});
  writer.step();
  const Client client(database());
  const Watcher watcher(client.db());
  EXPECT_EQ(watcher.take().size(), 0u);
  EXPECT_FALSE(readable(watcher.fd(), 0));

  writer.step();
  const std::vector<rov_change_t> first = watcher.wait();
  EXPECT_EQ(told(first), (std::vector<What>{{ROV_CHANGE_NODE_PUT, kNode, 0},
                                            {ROV_CHANGE_NODE_PUT, kNode + 1, 0},
                                            {ROV_CHANGE_LINK_PUT, kNode + 1, kField}}));
  for (const rov_change_t& change : first) EXPECT_EQ(joined(change.revision), watcher.from() + 1);
  ASSERT_EQ(first.at(0).dset_len, 21u);
  EXPECT_EQ(e2e::Bytes(first[0].dset, first[0].dset + 21), e2e::interface_name(5));
  EXPECT_EQ(first.at(1).dset_len, 0u);
  EXPECT_FALSE(readable(watcher.fd(), 0)) << "all of it was read";

  writer.step();
  const std::vector<rov_change_t> second = watcher.wait();
  EXPECT_EQ(told(second), (std::vector<What>{{ROV_CHANGE_LINK_DEL, kNode + 1, kField},
                                             {ROV_CHANGE_NODE_DEL, kNode, 0}}));
  for (const rov_change_t& change : second) EXPECT_EQ(joined(change.revision), watcher.from() + 2);
  writer.step();
}

TEST_F(OperationsChanges, a_watcher_that_sleeps_in_its_poll_is_woken) {
  Peer writer({come(), [this] { e2e::commit_value(other_->db(), 1); }, leave()});
  writer.step();
  const Client client(database());
  const Watcher watcher(client.db());
  std::thread later([&writer] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    writer.step();
  });
  EXPECT_TRUE(readable(watcher.fd(), static_cast<int>(pace::patience_ms())));
  later.join();
  EXPECT_EQ(told(watcher.take()), (std::vector<What>{{ROV_CHANGE_NODE_PUT, kNode, 0}}));
  writer.step();
}

TEST_F(OperationsChanges, of_a_watchers_own_process_come_too) {
  const Client client(database());
  const Watcher watcher(client.db());
  e2e::commit_value(client.db(), 1);
  EXPECT_EQ(told(watcher.wait()), (std::vector<What>{{ROV_CHANGE_NODE_PUT, kNode, 0}}));
}

TEST_F(OperationsChanges, only_the_kinds_asked_for_come_and_none_after_the_end) {
  const Client client(database());
  const Watcher watcher(client.db(), 0, 1u << ROV_CHANGE_NODE_DEL);
  e2e::commit_value(client.db(), 1);
  EXPECT_EQ(watcher.take().size(), 0u);
  std::uint32_t writer = 0;
  ASSERT_TRUE(ok(rov_edit_begin(client.db(), &writer)));
  EXPECT_TRUE(ok(rov_edit_node_del(writer, e2e::db_id(kNode))));
  EXPECT_TRUE(ok(rov_edit_commit(writer)));
  EXPECT_EQ(told(watcher.wait()), (std::vector<What>{{ROV_CHANGE_NODE_DEL, kNode, 0}}));
  rov_ntf_t ntf{};
  EXPECT_TRUE(ok(qim_db_ntf(client.db(), &ntf)));
  rov_change_t change;
  std::uint32_t len = 0;
  EXPECT_TRUE(gives(ROV_ERR_INVALID, qim_process_msg(client.db(), &change, sizeof change, &len)));
}

TEST_F(OperationsChanges, a_client_that_starts_again_goes_on_where_it_was) {
  std::uint64_t known = 0;
  {
    const Client client(database());
    const Watcher watcher(client.db());
    e2e::commit_value(client.db(), 1);
    known = joined(watcher.wait().at(0).revision);
  }
  e2e::in_process([this] {
    const Client other(database());
    e2e::commit_value(other.db(), 2, kNode + 2);
  });
  const Client again(database());
  const Watcher watcher(again.db(), known);
  EXPECT_EQ(told(watcher.take()), (std::vector<What>{{ROV_CHANGE_NODE_PUT, kNode + 2, 0}}));
}

// Writes that many changes into nodes that count up from kNode.
void commit_many(std::uint32_t db, std::uint32_t many) {
  std::uint32_t writer = 0;
  ASSERT_TRUE(ok(rov_edit_begin(db, &writer)));
  for (std::uint32_t i = 0; i < many; ++i) e2e::put_value(writer, kNode + i, i);
  EXPECT_TRUE(ok(rov_edit_commit(writer)));
}

// More in all, in commits of a size that is kept, than the database keeps.
TEST_F(OperationsChanges, a_watcher_that_was_too_slow_learns_it_once_and_goes_on) {
  constexpr std::uint32_t kCommits = 17;
  const auto write_many = [this] {
    for (std::uint32_t i = 0; i < kCommits; ++i) commit_many(other_->db(), 4096);
  };
  Peer writer({come(), write_many, [this] { e2e::commit_value(other_->db(), 7); }, leave()});
  writer.step();
  const Client client(database());
  const Watcher watcher(client.db());
  writer.step();
  const std::vector<rov_change_t> lost = watcher.wait();
  ASSERT_EQ(told(lost), (std::vector<What>{{ROV_CHANGE_GAP, 0, 0}}));
  EXPECT_EQ(joined(lost[0].revision), watcher.from() + kCommits) << "where it can go on";
  EXPECT_EQ(e2e::newest_value(client.db(), kNode + 4095), 4095u) << "it reads again";
  writer.step();
  EXPECT_EQ(told(watcher.wait()), (std::vector<What>{{ROV_CHANGE_NODE_PUT, kNode, 0}}));
  writer.step();
}

// More in one commit than the database keeps.
TEST_F(OperationsChanges, a_commit_too_large_to_be_told_is_a_gap) {
  constexpr std::uint32_t kMany = 4097;
  const auto write_many = [this] { commit_many(other_->db(), kMany); };
  Peer writer({come(), write_many, [this] { e2e::commit_value(other_->db(), 7); }, leave()});
  writer.step();
  const Client client(database());
  const Watcher watcher(client.db());
  writer.step();
  const std::vector<rov_change_t> lost = watcher.wait();
  ASSERT_EQ(told(lost), (std::vector<What>{{ROV_CHANGE_GAP, 0, 0}}));
  EXPECT_EQ(joined(lost[0].revision), watcher.from() + 1);
  EXPECT_EQ(e2e::newest_value(client.db(), kNode + kMany - 1), kMany - 1) << "it reads again";
  writer.step();
  const std::vector<rov_change_t> next = watcher.wait();
  EXPECT_EQ(told(next), (std::vector<What>{{ROV_CHANGE_NODE_PUT, kNode, 0}}));
  EXPECT_EQ(joined(next.at(0).revision), watcher.from() + 2);
  writer.step();
}

TEST_F(OperationsChanges, a_post_reaches_the_clients_other_processes_alone) {
  const auto post = [this] { EXPECT_TRUE(ok(qim_db_priv_post(other_->db(), 9, 4, "post"))); };
  std::unique_ptr<Watcher> theirs;
  const auto watch = [&] { theirs = std::make_unique<Watcher>(other_->db()); };
  const auto expect_nothing = [&] { EXPECT_EQ(told(theirs->take()), std::vector<What>{}); };
  Peer poster({come(), watch, post, expect_nothing, leave()});
  Peer stranger({come(kNobody), watch, expect_nothing, leave()});
  for (Peer* const peer : {&poster, &poster, &stranger, &stranger}) peer->step();
  const Client client(database());
  const Watcher watcher(client.db());
  poster.step();
  EXPECT_EQ(told(watcher.wait()), (std::vector<What>{{ROV_CHANGE_PRIV_POST, 0, 9}}));
  e2e::Piece piece(9);
  EXPECT_TRUE(ok(qim_db_priv_read(client.db(), piece.get())));
  EXPECT_EQ(piece.text(), "post");
  for (Peer* const peer : {&poster, &stranger, &poster, &stranger}) peer->step();
}

TEST_F(OperationsChanges, messages_of_others_are_told_apart) {
  const std::uint32_t foreign[2] = {0x12345678, sizeof(rov_change_t)};
  EXPECT_EQ(qim_msg_is_qim(foreign), 0u);
  EXPECT_EQ(qim_msg_is_qim(nullptr), 0u);
  const Client client(database());
  const Watcher watcher(client.db());
  e2e::commit_value(client.db(), 1);
  std::uint8_t small[sizeof(rov_change_t) - 1];
  std::uint32_t len = 0;
  EXPECT_TRUE(gives(ROV_ERR_LENGTH, qim_process_msg(client.db(), small, sizeof small, &len)));
  EXPECT_EQ(watcher.take().size(), 1u) << "it is not lost by that";
}

// ---- Who it was ------------------------------------------------------------------------------

TEST_F(OperationsChanges, tell_the_user_and_the_group_that_committed) {
  const auto write = [this] {
    EXPECT_TRUE(ok(qim_db_usr_group(other_->db(), 0x77)));
    e2e::commit_value(other_->db(), 1);
  };
  Peer writer({come(kNobody), write, leave()});
  writer.step();
  const Client client(database());
  const Watcher watcher(client.db());
  writer.step();
  const std::uint64_t user = joined(watcher.wait().at(0).user);
  EXPECT_EQ(user, std::uint64_t{kNobody} << 32 | static_cast<std::uint32_t>(writer.process()));
  rov_usr_t info{};
  ASSERT_TRUE(ok(qim_usr_id_info(client.db(), user, &info)));
  EXPECT_EQ(info.client, kNobody);
  EXPECT_EQ(info.pid, static_cast<std::uint32_t>(writer.process()));
  EXPECT_EQ(info.uid, getuid());
  EXPECT_EQ(info.group, 0x77u);
  EXPECT_NEAR(static_cast<double>(joined(info.time)), static_cast<double>(time(nullptr)), 60);
  writer.step();
  EXPECT_TRUE(ok(qim_usr_id_info(client.db(), user, &info))) << "also when its process has ended";
  EXPECT_TRUE(gives(ROV_ERR_NO_ITEM, qim_usr_id_info(client.db(), user + 1, &info)));
}

}  // namespace
