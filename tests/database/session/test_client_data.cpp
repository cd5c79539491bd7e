// What clients keep on the database and on sessions.
#include <sys/wait.h>
#include <unistd.h>

#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

// A piece of private data with room for what comes back.
struct Piece {
  explicit Piece(uint32_t key, size_t room = 64) : bytes(room) {
    priv.key = key;
    priv.len = static_cast<uint32_t>(room);
    priv.data = bytes.data();
  }
  Piece(uint32_t key, const std::string& text) : Piece(key, text.size()) {
    memcpy(bytes.data(), text.data(), text.size());
  }
  std::string text() const { return {bytes.begin(), bytes.begin() + priv.len}; }

  Bytes bytes;
  rov_priv_t priv = {};
};

class ClientDataTest : public DatabaseTest {
 protected:
  void TearDown() override {
    if (other_ != 0) {
      EXPECT_OK(rov_db_close(other_, 0));
    }
    DatabaseTest::TearDown();
  }
  uint32_t other_client() {
    EXPECT_OK(open_database(path(), 0, kClient + 1, &other_));
    return other_;
  }
  std::string read_piece(uint32_t db, uint32_t key) {
    Piece piece(key);
    const uint32_t status = rov_db_priv_read(db, &piece.priv);
    return status == ROV_OK ? piece.text() : rov_status_name(status);
  }
  // In a process of its own that ends without closing anything.
  template <class Work>
  void in_lost_process(Work work) {
    close();
    const pid_t child = fork();
    if (child == 0) {
      uint32_t db = 0;
      const bool ok = open_database(path(), 0, kClient, &db) == ROV_OK && work(db);
      _exit(ok ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);
    open();
  }

  uint32_t other_ = 0;
};

TEST_F(ClientDataTest, WhatAClientWritesItReadsAfterReopening) {
  const Piece piece(7, "hello");
  ASSERT_OK(rov_db_priv_write(db_, &piece.priv));
  reopen();
  EXPECT_EQ(read_piece(db_, 7), "hello");
  const Piece longer(7, "hello again");
  ASSERT_OK(rov_db_priv_write(db_, &longer.priv));
  EXPECT_EQ(read_piece(db_, 7), "hello again");
}

TEST_F(ClientDataTest, OneClientNeverSeesAnothers) {
  const Piece piece(7, "mine");
  ASSERT_OK(rov_db_priv_write(db_, &piece.priv));
  const uint32_t other = other_client();
  EXPECT_EQ(read_piece(other, 7), "ROV_ERR_NO_VALUE");
  EXPECT_STATUS(rov_db_priv_delete(other, 7), ROV_ERR_NO_VALUE);
  Piece out(0);
  EXPECT_STATUS(rov_db_priv_recover2(other, 0, 0, &out.priv), ROV_ERR_NO_VALUE);
  EXPECT_EQ(read_piece(db_, 7), "mine");
}

TEST_F(ClientDataTest, DeletedDataAreGone) {
  const Piece piece(7, "x");
  ASSERT_OK(rov_db_priv_write(db_, &piece.priv));
  ASSERT_OK(rov_db_priv_delete(db_, 7));
  EXPECT_EQ(read_piece(db_, 7), "ROV_ERR_NO_VALUE");
  EXPECT_STATUS(rov_db_priv_delete(db_, 7), ROV_ERR_NO_VALUE);
}

TEST_F(ClientDataTest, AShortBufferTellsTheLengthAndStaysAsItWas) {
  const Piece piece(7, "hello");
  ASSERT_OK(rov_db_priv_write(db_, &piece.priv));
  Piece shorter(7, 4);
  EXPECT_STATUS(rov_db_priv_read(db_, &shorter.priv), ROV_ERR_LENGTH);
  EXPECT_EQ(shorter.priv.len, 5U);
  EXPECT_EQ(shorter.bytes, Bytes(4));
}

TEST_F(ClientDataTest, BadArgumentsAreRefused) {
  Piece zero(0);
  EXPECT_STATUS(rov_db_priv_write(db_, &zero.priv), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_priv_write(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_priv_read(db_, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_priv_recover2(db_, 0, 1, &zero.priv), ROV_ERR_INVALID);
  const rov_priv_t no_data = {1, 4, nullptr};
  EXPECT_STATUS(rov_db_priv_write(db_, &no_data), ROV_ERR_INVALID);
  const Piece large(1, rov::kMaxPrivate + 1);
  EXPECT_STATUS(rov_db_priv_write(db_, &large.priv), ROV_ERR_LENGTH);
  EXPECT_STATUS(rov_db_priv_post(db_, 0, 0, nullptr), ROV_ERR_INVALID);
  EXPECT_STATUS(rov_db_priv_post(db_, 1, 4, nullptr), ROV_ERR_INVALID);
}

TEST_F(ClientDataTest, ARestartedClientRecoversEverythingInOrder) {
  for (const uint32_t key : {9U, 3U, 0xffffffffU}) {
    const Piece piece(key, "data " + std::to_string(key));
    ASSERT_OK(rov_db_priv_write(db_, &piece.priv));
  }
  reopen();
  std::vector<uint32_t> keys;
  for (uint32_t after = 0;; after = keys.back()) {
    Piece piece(0);
    const uint32_t status = rov_db_priv_recover2(db_, after, 0, &piece.priv);
    if (status == ROV_ERR_NO_VALUE) break;
    ASSERT_EQ(status, uint32_t{ROV_OK});
    keys.push_back(piece.priv.key);
    EXPECT_EQ(piece.text(), "data " + std::to_string(piece.priv.key));
  }
  EXPECT_EQ(keys, (std::vector<uint32_t>{3, 9, 0xffffffff}));
}

TEST_F(ClientDataTest, ASessionReadsItsOwnDataOnly) {
  const uint32_t one = read();
  const uint32_t two = read();
  const Piece piece(5, "of one");
  ASSERT_OK(rov_ses_priv_write(one, &piece.priv, 0));
  Piece out(5);
  ASSERT_OK(rov_ses_priv_read(one, &out.priv));
  EXPECT_EQ(out.text(), "of one");
  Piece none(5);
  EXPECT_STATUS(rov_ses_priv_read(two, &none.priv), ROV_ERR_NO_VALUE);
  EXPECT_STATUS(rov_ses_priv_recover(two, 0, &none.priv), ROV_ERR_NO_VALUE);
}

TEST_F(ClientDataTest, AnotherSessionTakesOverWhatAClosedOneLeft) {
  const uint32_t one = read();
  const Piece piece(5, "left");
  ASSERT_OK(rov_ses_priv_write(one, &piece.priv, 0));
  ASSERT_OK(rov_ses_close(one));
  const uint32_t two = read();
  Piece look(0);
  ASSERT_OK(rov_ses_priv_recover2(two, 0, ROV_PRIV_KEEP, &look.priv));
  EXPECT_EQ(look.priv.key, 5U);
  Piece own(5);
  EXPECT_STATUS(rov_ses_priv_read(two, &own.priv), ROV_ERR_NO_VALUE);
  Piece taken(0);
  ASSERT_OK(rov_ses_priv_recover(two, 0, &taken.priv));
  EXPECT_EQ(taken.text(), "left");
  ASSERT_OK(rov_ses_priv_read(two, &own.priv));
  EXPECT_EQ(own.text(), "left");
  Piece again(0);
  EXPECT_STATUS(rov_ses_priv_recover(two, 0, &again.priv), ROV_ERR_NO_VALUE);
}

TEST_F(ClientDataTest, OfSeveralSessionsTheOneThatWroteLastIsTaken) {
  for (const char* text : {"first", "second"}) {
    const uint32_t ses = read();
    const Piece piece(5, text);
    ASSERT_OK(rov_ses_priv_write(ses, &piece.priv, 0));
    ASSERT_OK(rov_ses_close(ses));
  }
  const uint32_t ses = read();
  Piece taken(0);
  ASSERT_OK(rov_ses_priv_recover(ses, 0, &taken.priv));
  EXPECT_EQ(taken.text(), "second");
  EXPECT_STATUS(rov_ses_priv_recover(ses, 0, &taken.priv), ROV_ERR_NO_VALUE);
}

TEST_F(ClientDataTest, AProcessThatDiedLeavesItsSessionsDataToTheNext) {
  in_lost_process([](uint32_t db) {
    uint32_t ses = 0;
    const Piece piece(8, "of the dead");
    return rov_ses_open_ro(db, &ses) == ROV_OK && rov_ses_priv_write(ses, &piece.priv, 0) == ROV_OK;
  });
  const uint32_t ses = read();
  Piece taken(0);
  ASSERT_OK(rov_ses_priv_recover(ses, 0, &taken.priv));
  EXPECT_EQ(taken.priv.key, 8U);
  EXPECT_EQ(taken.text(), "of the dead");
}

TEST_F(ClientDataTest, AShortBufferTakesNothingOver) {
  const uint32_t one = read();
  const Piece piece(5, "left");
  ASSERT_OK(rov_ses_priv_write(one, &piece.priv, 0));
  ASSERT_OK(rov_ses_close(one));
  const uint32_t two = read();
  Piece shorter(0, 2);
  EXPECT_STATUS(rov_ses_priv_recover(two, 0, &shorter.priv), ROV_ERR_LENGTH);
  EXPECT_EQ(shorter.priv.len, 4U);
  Piece taken(0);
  ASSERT_OK(rov_ses_priv_recover(two, 0, &taken.priv));
  EXPECT_EQ(taken.text(), "left");
}

TEST_F(ClientDataTest, ASessionDropsOnePieceOrAll) {
  const uint32_t ses = read();
  for (uint32_t key = 1; key <= 3; ++key) {
    const Piece piece(key, "x");
    ASSERT_OK(rov_ses_priv_write(ses, &piece.priv, 0));
  }
  ASSERT_OK(rov_ses_priv_delete(ses, 2, 0));
  EXPECT_STATUS(rov_ses_priv_delete(ses, 2, 0), ROV_ERR_NO_VALUE);
  ASSERT_OK(rov_ses_priv_delete(ses, 0, ROV_PRIV_ALL));
  for (uint32_t key = 1; key <= 3; ++key) {
    Piece piece(key);
    EXPECT_STATUS(rov_ses_priv_read(ses, &piece.priv), ROV_ERR_NO_VALUE);
  }
  EXPECT_STATUS(rov_ses_priv_delete(ses, 1, 4), ROV_ERR_INVALID);
  const Piece piece(1, "x");
  EXPECT_STATUS(rov_ses_priv_write(ses, &piece.priv, 1), ROV_ERR_INVALID);
}

}  // namespace
