// Starting, failing to start and ending on a real database: what stays open, what is refreshed, who
// closes what.

#include <gtest/gtest.h>

#include <thread>

#include "rov_edit.h"
#include "tests/system/e2e/client.h"
#include "tests/system/e2e/peer.h"

namespace {

using e2e::kClient;

void logger(std::uint32_t, const char*, void*) {}

// Every test runs in a process of its own, with a context that nobody has used.
class StartUp : public testing::Test {
 protected:
  void in_process(const std::function<void()>& body) {
    e2e::in_process([this, &body] {
      path_ = directory_.database();
      EXPECT_EQ(qim_db_init_parms_init(&parms_, ROV_VERSION), 0u);
      parms_.p.db_path = path_.c_str();
      body();
    });
  }

  std::uint32_t start(std::uint32_t flags = 0, std::uint32_t id = kClient) {
    return qim_lib_init(0, 0, id, 0, &parms_, 0, flags, 0, &db_);
  }

  rov_parms_t parms_ = {};
  std::uint32_t db_ = 0;

 private:
  e2e::Directory directory_;
  std::string path_;
};

TEST_F(StartUp, with_a_vdc_out_of_range_leaves_a_database_that_its_own_close_frees) {
  in_process([this] {
    parms_.p.vdc = 64;
    ASSERT_EQ(start(), QIM_ERR_VDC_RANGE);
    std::uint32_t ses = 0;
    EXPECT_EQ(qim_ses_open_ro(db_, &ses), 0u) << "it is open";
    EXPECT_EQ(rov_ses_close(ses), 0u);
    EXPECT_EQ(qim_lib_close(db_, 0), QIM_ERR_NOT_INIT);
    EXPECT_EQ(qim_ses_open_ro(db_, &ses), 0u) << "still";
    EXPECT_EQ(rov_ses_close(ses), 0u);
    EXPECT_EQ(rov_db_close(db_, 0), 0u);
    EXPECT_EQ(qim_ses_open_ro(db_, &ses), ROV_ERR_HANDLE);

    parms_.p.vdc = 0;
    EXPECT_EQ(start(QIM_INIT_AGAIN, kClient + 1), QIM_ERR_INVALID);
    ASSERT_EQ(start(QIM_INIT_AGAIN), 0u);
    EXPECT_EQ(qim_lib_close(db_, 0), 0u);
    EXPECT_EQ(start(0, kClient + 1), 0u) << "the context is empty again";
    EXPECT_EQ(qim_lib_close(db_, 0), 0u);
  });
}

TEST_F(StartUp, again_loses_the_logger_and_the_flags_that_were_registered_before) {
  in_process([this] {
    ASSERT_EQ(start(QIM_INIT_AGAIN), 0u);
    const std::uint32_t first = db_;
    EXPECT_EQ(qim_db_reg_logger(first, logger, nullptr), 0u);
    EXPECT_EQ(qim_db_debug(first, QIM_DBG_REPORT), 0u);
    ASSERT_EQ(start(QIM_INIT_AGAIN), 0u);
    EXPECT_NE(db_, first);
    EXPECT_EQ(qim_lib_get()->db_parms.logger, nullptr);
    EXPECT_EQ(qim_lib_get()->db_parms.dbg_flags, 0u);
    EXPECT_EQ(qim_lib_close(db_, 0), 0u);

    parms_.p.logger = logger;
    parms_.p.dbg_flags = QIM_DBG_REPORT;
    ASSERT_EQ(start(QIM_INIT_AGAIN), 0u);
    EXPECT_EQ(qim_lib_get()->db_parms.logger, logger) << "parameters bring them along";
    EXPECT_EQ(qim_lib_get()->db_parms.dbg_flags, QIM_DBG_REPORT);
    EXPECT_EQ(qim_lib_close(db_, 0), 0u);
    EXPECT_EQ(qim_lib_close(first, 0), 0u);
  });
}

TEST_F(StartUp, is_taken_back_by_a_close_that_the_database_refuses) {
  in_process([this] {
    ASSERT_EQ(start(), 0u);
    EXPECT_EQ(qim_lib_close(db_ + 1, 0), ROV_ERR_HANDLE);
    EXPECT_EQ(qim_lib_get()->init_id, 0u);
    EXPECT_EQ(qim_lib_close(db_, 0), QIM_ERR_NOT_INIT);
    EXPECT_EQ(rov_db_close(db_, 0), 0u);
  });
}

TEST_F(StartUp, of_the_process_is_counted_in_every_threads_copy) {
  in_process([this] {
    ASSERT_EQ(start(), 0u);
    std::uint32_t ended[2] = {1, 1};
    for (std::uint32_t& status : ended) {
      std::thread([this, &status] {
        ASSERT_EQ(qim_lib_tls_init(0), 0u);
        status = qim_lib_close(db_, 0);
      }).join();
    }
    EXPECT_EQ(ended[0], 0u);
    EXPECT_EQ(ended[1], ROV_ERR_HANDLE) << "closed already, and taken back all the same";
  });
}

TEST_F(StartUp, in_a_thread_is_lost_to_a_second_set_up_of_it) {
  in_process([this] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    ASSERT_EQ(start(), 0u);
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    EXPECT_EQ(qim_lib_close(db_, 0), QIM_ERR_NOT_INIT);
    EXPECT_EQ(rov_db_close(db_, 0), 0u) << "nothing else closes it";
  });
}

TEST_F(StartUp, serves_sessions_that_the_databases_own_call_closes) {
  in_process([this] {
    ASSERT_EQ(start(), 0u);
    std::uint32_t ses = 0;
    std::uint32_t exists = 0;
    ASSERT_EQ(qim_ses_open_ro(db_, &ses), 0u);
    EXPECT_EQ(qim_db_ses_exists(db_, ses, &exists), 0u);
    EXPECT_EQ(exists, 1u);
    EXPECT_EQ(rov_ses_close(ses), 0u);
    EXPECT_EQ(qim_db_ses_exists(db_, ses, &exists), 0u);
    EXPECT_EQ(exists, 0u);
    ASSERT_EQ(qim_ses_open_ro(db_, &ses), 0u);
    EXPECT_EQ(qim_lib_close(db_, 0), 0u);
    EXPECT_EQ(rov_ses_close(ses), ROV_ERR_HANDLE) << "it ended with its database";
  });
}

TEST_F(StartUp, brings_changes_whose_node_is_in_the_databases_order) {
  in_process([this] {
    ASSERT_EQ(start(), 0u);
    rov_ntf_t ntf = {};
    ntf.kinds = 1u << ROV_CHANGE_NODE_PUT;
    ASSERT_EQ(qim_db_ntf(db_, &ntf), 0u);
    std::uint32_t writer = 0;
    ASSERT_EQ(rov_edit_begin(db_, &writer), 0u);
    rov_edit_node_t put = {};
    put.id = e2e::db_id(0x01020304);
    ASSERT_EQ(rov_edit_node_put(writer, &put), 0u) << rov_err_message();
    ASSERT_EQ(rov_edit_commit(writer), 0u);

    rov_change_t change = {};
    std::uint32_t len = 0;
    ASSERT_EQ(qim_process_msg(db_, &change, sizeof change, &len), 0u);
    const e2e::Bytes bytes = e2e::bytes_of(change.node);
    EXPECT_EQ(e2e::Bytes(bytes.begin(), bytes.begin() + 4), (e2e::Bytes{1, 2, 3, 4}));
    EXPECT_EQ(qim_from_rov_node_id(&change.node), 0x01020304u);
    EXPECT_EQ(qim_lib_close(db_, 0), 0u);
  });
}

}  // namespace
