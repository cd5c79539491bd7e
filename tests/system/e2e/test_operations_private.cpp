// What a client keeps on the database, on a session and on a node: it survives the process that set
// it, comes back to the same client, and is nobody else's.

#include <memory>

#include "tests/system/e2e/operations.h"
#include "tests/system/e2e/peer.h"

namespace {

using e2e::Client;
using e2e::gives;
using e2e::kClient;
using e2e::ok;
using e2e::Peer;
using e2e::Piece;

constexpr std::uint32_t kStranger = kClient + 1;

using Pieces = std::vector<std::pair<std::uint32_t, std::string>>;

// Everything that a walk over keys gives, in its order.
template <class Next>
Pieces walk(Next next) {
  Pieces found;
  std::uint32_t after = 0;
  for (;;) {
    Piece piece(0);
    const std::uint32_t status = next(after, piece.get());
    if (status != 0) {
      EXPECT_TRUE(gives(ROV_ERR_NO_VALUE, status));
      return found;
    }
    after = piece.key();
    found.emplace_back(piece.key(), piece.text());
  }
}

class OperationsPrivate : public testing::Test {
 protected:
  std::string database() const { return directory_.database(); }

  // Does that as a client in a process that is killed then, with everything open.
  void in_killed_process(const std::function<void(const Client&)>& body,
                         std::uint32_t id = kClient) {
    Peer peer({[&] {
      static std::unique_ptr<Client> client;
      client = std::make_unique<Client>(database(), id);
      body(*client);
    }});
    peer.step();
    peer.kill();
  }

  e2e::Directory directory_;
};

// ---- On the database -------------------------------------------------------------------------

std::uint32_t write(std::uint32_t db, std::uint32_t key, const std::string& text) {
  Piece piece(key, text);
  return qim_db_priv_write(db, piece.get());
}

std::string read(std::uint32_t db, std::uint32_t key) {
  Piece piece(key);
  const std::uint32_t status = qim_db_priv_read(db, piece.get());
  return status == 0 ? piece.text() : rov_status_name(status);
}

TEST_F(OperationsPrivate, of_the_database_is_written_read_and_deleted) {
  const Client client(database());
  EXPECT_EQ(read(client.db(), 7), "ROV_ERR_NO_VALUE");
  EXPECT_TRUE(ok(write(client.db(), 7, "seven")));
  EXPECT_TRUE(ok(write(client.db(), 8, "eight")));
  EXPECT_TRUE(ok(write(client.db(), 7, "seven again")));
  EXPECT_EQ(read(client.db(), 7), "seven again");
  EXPECT_TRUE(ok(qim_db_priv_delete(client.db(), 7)));
  EXPECT_EQ(read(client.db(), 7), "ROV_ERR_NO_VALUE");
  EXPECT_TRUE(gives(ROV_ERR_NO_VALUE, qim_db_priv_delete(client.db(), 7)));
  EXPECT_EQ(read(client.db(), 8), "eight");
}

TEST_F(OperationsPrivate, of_the_database_comes_back_to_a_client_that_starts_again) {
  in_killed_process([](const Client& client) {
    for (const std::uint32_t key : {9u, 3u, 0xffffffffu}) {
      EXPECT_TRUE(ok(write(client.db(), key, "piece " + std::to_string(key))));
    }
  });
  const Client again(database());
  const Pieces all = {{3, "piece 3"}, {9, "piece 9"}, {0xffffffff, "piece 4294967295"}};
  EXPECT_EQ(walk([&](std::uint32_t after, rov_priv_t* priv) {
              return qim_db_priv_recover(again.db(), after, priv);
            }),
            all);
  EXPECT_EQ(walk([&](std::uint32_t after, rov_priv_t* priv) {
              return qim_db_priv_recover2(again.db(), after, 0, priv);
            }),
            all);
  EXPECT_EQ(read(again.db(), 9), "piece 9");
}

TEST_F(OperationsPrivate, of_the_database_is_no_other_clients) {
  in_killed_process([](const Client& client) { EXPECT_TRUE(ok(write(client.db(), 7, "mine"))); });
  in_killed_process(
      [](const Client& stranger) {
        EXPECT_EQ(read(stranger.db(), 7), "ROV_ERR_NO_VALUE");
        EXPECT_TRUE(gives(ROV_ERR_NO_VALUE, qim_db_priv_delete(stranger.db(), 7)));
        Piece piece(0);
        EXPECT_TRUE(gives(ROV_ERR_NO_VALUE, qim_db_priv_recover(stranger.db(), 0, piece.get())));
        EXPECT_TRUE(ok(write(stranger.db(), 7, "the stranger's")));
      },
      kStranger);
  const Client client(database());
  EXPECT_EQ(read(client.db(), 7), "mine");
}

TEST_F(OperationsPrivate, of_the_database_is_seen_by_the_clients_other_processes_at_once) {
  std::unique_ptr<Client> client;
  Peer other({[&] { client = std::make_unique<Client>(database()); },
              [&] {
                EXPECT_EQ(read(client->db(), 7), "seven");
                EXPECT_TRUE(ok(write(client->db(), 7, "seven again")));
                client.reset();
              }});
  other.step();
  const Client mine(database());
  EXPECT_TRUE(ok(write(mine.db(), 7, "seven")));
  other.step();
  EXPECT_EQ(read(mine.db(), 7), "seven again");
}

// ---- On a session ----------------------------------------------------------------------------

std::uint32_t write_on(std::uint32_t ses, std::uint32_t key, const std::string& text) {
  Piece piece(key, text);
  return qim_ses_priv_write(ses, piece.get(), 0);
}

std::string read_on(std::uint32_t ses, std::uint32_t key) {
  Piece piece(key);
  const std::uint32_t status = qim_ses_priv_read(ses, piece.get());
  return status == 0 ? piece.text() : rov_status_name(status);
}

// What could be recovered, with all left as it is.
Pieces left_for(std::uint32_t ses) {
  return walk([ses](std::uint32_t after, rov_priv_t* priv) {
    return qim_ses_priv_recover2(ses, after, ROV_PRIV_KEEP, priv);
  });
}

TEST_F(OperationsPrivate, of_a_session_is_that_sessions_alone) {
  const Client client(database());
  const std::uint32_t other = client.open_session();
  EXPECT_TRUE(ok(write_on(client.ses(), 1, "one")));
  EXPECT_TRUE(ok(write_on(client.ses(), 2, "two")));
  EXPECT_EQ(read_on(client.ses(), 1), "one");
  EXPECT_EQ(read_on(other, 1), "ROV_ERR_NO_VALUE");
  EXPECT_EQ(left_for(other), Pieces{}) << "its session is open";
  EXPECT_TRUE(ok(qim_ses_priv_delete(client.ses(), 1, 0)));
  EXPECT_EQ(read_on(client.ses(), 1), "ROV_ERR_NO_VALUE");
  EXPECT_TRUE(ok(qim_ses_priv_delete(client.ses(), 0, ROV_PRIV_ALL)));
  EXPECT_EQ(read_on(client.ses(), 2), "ROV_ERR_NO_VALUE");
  EXPECT_TRUE(ok(rov_ses_close(other)));
}

TEST_F(OperationsPrivate, of_a_session_is_recovered_after_its_process_was_killed) {
  in_killed_process([](const Client& client) {
    EXPECT_TRUE(ok(write_on(client.ses(), 5, "five")));
    EXPECT_TRUE(ok(write_on(client.ses(), 2, "two")));
  });
  const Client again(database());
  EXPECT_EQ(read_on(again.ses(), 5), "ROV_ERR_NO_VALUE") << "another session's still";
  const Pieces both = {{2, "two"}, {5, "five"}};
  EXPECT_EQ(left_for(again.ses()), both);
  EXPECT_EQ(left_for(again.ses()), both) << "looking takes nothing";
  Piece piece(0);
  EXPECT_TRUE(ok(qim_ses_priv_recover(again.ses(), 0, piece.get())));
  EXPECT_EQ(piece.key(), 2u);
  EXPECT_EQ(piece.text(), "two");
  EXPECT_EQ(read_on(again.ses(), 2), "two") << "it is this session's now";
  EXPECT_EQ(left_for(again.ses()), (Pieces{{5, "five"}}));
  Piece next(0);
  EXPECT_TRUE(ok(qim_ses_priv_recover2(again.ses(), 2, 0, next.get())));
  EXPECT_EQ(next.text(), "five");
  EXPECT_EQ(left_for(again.ses()), Pieces{});
}

TEST_F(OperationsPrivate, of_a_session_is_not_recovered_while_its_process_lives) {
  std::unique_ptr<Client> client;
  Peer owner({[&] {
    client = std::make_unique<Client>(database());
    EXPECT_TRUE(ok(write_on(client->ses(), 1, "one")));
  }});
  owner.step();
  const Client mine(database());
  EXPECT_EQ(left_for(mine.ses()), Pieces{});
  owner.kill();
  EXPECT_EQ(left_for(mine.ses()), (Pieces{{1, "one"}}));
}

TEST_F(OperationsPrivate, of_a_session_is_never_recovered_by_another_client) {
  in_killed_process(
      [](const Client& client) { EXPECT_TRUE(ok(write_on(client.ses(), 1, "one"))); });
  in_killed_process([](const Client& stranger) { EXPECT_EQ(left_for(stranger.ses()), Pieces{}); },
                    kStranger);
  const Client client(database());
  EXPECT_EQ(left_for(client.ses()), (Pieces{{1, "one"}}));
}

// ---- On a node -------------------------------------------------------------------------------

void* pointer(std::uintptr_t value) {
  return reinterpret_cast<void*>(value);
}

void* pointer_on(std::uint32_t ses) {
  void* value = pointer(0x5117);
  EXPECT_TRUE(ok(qim_node_priv_ptr_get(ses, e2e::kNode, &value)));
  return value;
}

// The bytes that the node's record announces.
std::string bytes_on(std::uint32_t ses) {
  qim_node_t record;
  EXPECT_TRUE(ok(qim_node_read(ses, e2e::kNode, 0, &record)));
  std::string text(record.priv_len, '?');
  EXPECT_TRUE(ok(qim_node_priv_get(ses, e2e::kNode, record.priv_len, text.data())));
  return text;
}

void keep_on_node(const Client& client) {
  e2e::commit_value(client.db(), 1);
  const std::uint32_t ses = client.open_session();
  EXPECT_TRUE(ok(qim_node_priv_set(ses, e2e::kNode, "bytes", 5)));
  EXPECT_TRUE(ok(qim_node_priv_ptr_set(ses, e2e::kNode, pointer(0x1234))));
  EXPECT_EQ(bytes_on(ses), "bytes");
  EXPECT_EQ(pointer_on(ses), pointer(0x1234));
}

TEST_F(OperationsPrivate, bytes_of_a_node_survive_the_process_and_pointers_do_not) {
  in_killed_process(keep_on_node);
  const Client again(database());
  EXPECT_EQ(bytes_on(again.ses()), "bytes");
  EXPECT_EQ(pointer_on(again.ses()), nullptr);
  qim_node_t record;
  EXPECT_TRUE(ok(qim_node_read(again.ses(), e2e::kNode, 0, &record)));
  EXPECT_EQ(record.priv_ptr, 0u);
}

TEST_F(OperationsPrivate, pointers_of_one_process_are_not_seen_in_another) {
  std::unique_ptr<Client> client;
  Peer other({[&] {
                client = std::make_unique<Client>(database());
                keep_on_node(*client);
              },
              [&] {
                const std::uint32_t ses = client->open_session();
                EXPECT_EQ(pointer_on(ses), pointer(0x1234)) << "in every session of the process";
                client.reset();
              }});
  other.step();
  const Client mine(database());
  EXPECT_EQ(pointer_on(mine.ses()), nullptr);
  EXPECT_TRUE(ok(qim_node_priv_ptr_set(mine.ses(), e2e::kNode, pointer(0x99))));
  other.step();
  EXPECT_EQ(pointer_on(mine.ses()), pointer(0x99));
}

TEST_F(OperationsPrivate, of_a_node_is_no_other_clients) {
  in_killed_process(keep_on_node);
  const auto look = [](const Client& stranger) {
    EXPECT_EQ(bytes_on(stranger.ses()), "");
    EXPECT_EQ(pointer_on(stranger.ses()), nullptr);
    EXPECT_TRUE(ok(qim_node_priv_set(stranger.ses(), e2e::kNode, "other", 5)));
  };
  in_killed_process(look, kStranger);
  const Client client(database());
  EXPECT_EQ(bytes_on(client.ses()), "bytes");
  EXPECT_TRUE(ok(qim_node_priv_set(client.ses(), e2e::kNode, nullptr, 0)));
  EXPECT_EQ(bytes_on(client.ses()), "") << "no bytes take them away";
}

}  // namespace
