// Failures of the past, what may be tried again, the logger that both libraries share, debug flags,
// the show of nodes, data sets and the database.

#include <csignal>
#include <cstdlib>
#include <thread>

#include "tests/system/e2e/operations.h"
#include "tests/system/e2e/peer.h"
#include "tests/system/e2e/write_samples.h"

namespace {

using e2e::Client;
using e2e::gives;
using e2e::kNode;
using e2e::ok;

class OperationsDiagnostics : public testing::Test {
 protected:
  std::string database() const { return directory_.database(); }

  static std::uint32_t look_for(std::uint32_t ses, qim_node_id_t node) {
    qim_node_t record;
    return qim_node_read(ses, node, 0, &record);
  }

  e2e::Directory directory_;
};

// ---- Failures of the past --------------------------------------------------------------------

TEST_F(OperationsDiagnostics, failures_are_told_from_the_newest_backwards) {
  const Client client(database());
  EXPECT_TRUE(gives(ROV_ERR_NO_ITEM, look_for(client.ses(), 0x11)));
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, qim_ses_timeout(0x12345)));
  rov_err_t err{};
  ASSERT_TRUE(ok(qim_err_getprev(&err)));
  EXPECT_EQ(err.status, std::uint32_t{ROV_ERR_HANDLE});
  EXPECT_NE(std::string(err.message).find("0x00012345"), std::string::npos) << err.message;
  ASSERT_TRUE(ok(qim_err_getprev(&err)));
  EXPECT_EQ(err.status, std::uint32_t{ROV_ERR_NO_ITEM});
  EXPECT_NE(std::string(err.message).find("0x00000011"), std::string::npos) << err.message;
}

TEST_F(OperationsDiagnostics, failures_of_another_thread_are_its_own) {
  const Client client(database());
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, qim_ses_timeout(0x12345)));
  std::thread([] {
    rov_err_t err{};
    EXPECT_TRUE(gives(ROV_ERR_NO_VALUE, qim_err_getprev(&err)));
  }).join();
}

// ---- What may be tried again -----------------------------------------------------------------

TEST_F(OperationsDiagnostics, what_failed_for_another_writer_succeeds_when_tried_again) {
  const Client client(database());
  e2e::wait_for_writers(0);
  std::uint32_t holder = 0;
  std::uint32_t writer = 0;
  ASSERT_TRUE(ok(rov_edit_begin(client.db(), &holder)));
  const std::uint32_t status = rov_edit_begin(client.db(), &writer);
  EXPECT_TRUE(gives(ROV_ERR_BUSY, status));
  EXPECT_EQ(qim_err_retry_ok(status, 0), 1u);
  EXPECT_EQ(qim_cl_err_retry_ok(status, 0), 1u);
  EXPECT_EQ(qim_err_retry_ok(status, 10), 0u) << "often enough";
  EXPECT_TRUE(ok(rov_edit_abandon(holder)));
  EXPECT_TRUE(ok(rov_edit_begin(client.db(), &writer)));
  EXPECT_TRUE(ok(rov_edit_abandon(writer)));
  e2e::wait_for_writers(10000);
}

TEST_F(OperationsDiagnostics, what_failed_for_an_ended_session_succeeds_on_a_new_one) {
  const Client client(database());
  e2e::commit_value(client.db(), 1);
  const std::uint32_t ended = client.open_session();
  EXPECT_TRUE(ok(rov_ses_close(ended)));
  const std::uint32_t status = look_for(ended, kNode);
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, status));
  EXPECT_EQ(qim_err_retry_ok(status, 0), 0u);
  EXPECT_EQ(qim_cl_err_retry_ok(status, 0), 1u);
  const std::uint32_t anew = client.open_session();
  EXPECT_TRUE(ok(look_for(anew, kNode)));
  EXPECT_TRUE(ok(rov_ses_close(anew)));
}

TEST_F(OperationsDiagnostics, what_is_wrong_in_itself_is_not_worth_another_try) {
  const Client client(database());
  const std::uint32_t of_database = qim_db_priv_post(client.db(), 0, 1, "x");
  const std::uint32_t of_library = look_for(client.ses(), 0);
  EXPECT_TRUE(gives(ROV_ERR_INVALID, of_database));
  EXPECT_TRUE(gives(QIM_ERR_INVALID, of_library));
  for (const std::uint32_t status : {of_database, of_library, 0u}) {
    EXPECT_EQ(qim_err_retry_ok(status, 0), 0u);
    EXPECT_EQ(qim_cl_err_retry_ok(status, 0), 0u);
  }
}

// ---- Logger and debug flags ------------------------------------------------------------------

using Lines = std::vector<std::string>;

void keep(std::uint32_t severity, const char* text, void* lines) {
  EXPECT_EQ(severity, 2u);
  static_cast<Lines*>(lines)->emplace_back(text);
}

bool any_begins(const Lines& lines, const std::string& start) {
  for (const std::string& line : lines) {
    if (line.starts_with(start)) return true;
  }
  return false;
}

TEST_F(OperationsDiagnostics, one_logger_gets_the_lines_of_both_libraries_as_the_flags_say) {
  const Client client(database());
  Lines lines;
  EXPECT_TRUE(ok(qim_db_reg_logger(client.db(), keep, &lines)));
  look_for(client.ses(), 0x11);
  look_for(client.ses(), 0);
  EXPECT_EQ(lines, Lines{}) << "the flags ask for nothing";

  EXPECT_TRUE(ok(qim_db_debug(client.db(), QIM_DBG_REPORT)));
  look_for(client.ses(), 0x11);
  EXPECT_EQ(lines, Lines{}) << "that there is no such node is an answer";
  look_for(client.ses(), 0);
  EXPECT_TRUE(any_begins(lines, "ERROR STATUS: 0x41160005 (qim_int_node_open/495)\n"));
  EXPECT_TRUE(any_begins(lines, "ERROR STATUS: 0x41160005 (qim_node_read_int/1301)\n"));
  lines.clear();
  qim_ses_timeout(0x12345);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(any_begins(lines, "ROV_ERR_HANDLE (0x41170003): ")) << lines[0];

  lines.clear();
  EXPECT_TRUE(ok(qim_db_debug(client.db(), QIM_DBG_REPORT | QIM_DBG_ALL)));
  look_for(client.ses(), 0x11);
  EXPECT_TRUE(any_begins(lines, "ROV_ERR_NO_ITEM (0x41170006): "));
  EXPECT_TRUE(any_begins(lines, "ERROR STATUS: 0x41170006 (qim_int_node_open/503)\n"));

  lines.clear();
  EXPECT_TRUE(ok(qim_db_debug(client.db(), 0)));
  look_for(client.ses(), 0);
  qim_ses_timeout(0x12345);
  EXPECT_EQ(lines, Lines{}) << "they ask for nothing again";
  EXPECT_TRUE(ok(qim_db_debug(client.db(), QIM_DBG_REPORT)));
  EXPECT_TRUE(ok(qim_db_reg_logger(client.db(), nullptr, nullptr)));
  look_for(client.ses(), 0);
  qim_ses_timeout(0x12345);
  EXPECT_EQ(lines, Lines{}) << "the logger was taken away";
}

TEST_F(OperationsDiagnostics,
       logger_and_flags_that_the_database_refuses_are_the_librarys_all_the_same) {
  const Client client(database());
  Lines lines;
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, qim_db_reg_logger(0x777, keep, &lines)));
  EXPECT_TRUE(gives(ROV_ERR_HANDLE, qim_db_debug(0x777, QIM_DBG_REPORT)));
  look_for(client.ses(), 0);
  EXPECT_TRUE(any_begins(lines, "ERROR STATUS: 0x41160005 (qim_node_read_int/1301)\n"));
}

// An internal error, in a process whose database has these flags.
void report_internal_error(const std::string& database, std::uint32_t flags) {
  const Client client(database);
  EXPECT_TRUE(ok(qim_db_debug(client.db(), flags)));
  qim_dbg_errors(QIM_ERR_INTERNAL, "somewhere", 1, qim_lib_get());
}

TEST_F(OperationsDiagnostics, an_internal_error_ends_the_process_only_when_a_setting_says_so) {
  e2e::in_process([this] { report_internal_error(database(), QIM_DBG_REPORT | QIM_DBG_STRICT); });
  EXPECT_EXIT(report_internal_error(database(), ROV_DBG_FLAG_ABORT),
              testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(
      {
        setenv("ROV_DBG_ABORT", "1", 1);
        report_internal_error(database(), 0);
      },
      testing::KilledBySignal(SIGABRT), "");
}

// ---- Show ------------------------------------------------------------------------------------

class OperationsShow : public OperationsDiagnostics {
 protected:
  void SetUp() override {
    e2e::in_process([this] { e2e::write_samples(database()); });
  }

  static std::string show(const Client& client, std::uint32_t what, qim_node_id_t node = 0,
                          std::uint32_t ses = 0) {
    std::string text;
    rov_show_req_t req{};
    req.ses = ses;
    req.what = what;
    req.node = e2e::db_id(node);
    req.prefix = "> ";
    req.out = [](const char* piece, void* to) { *static_cast<std::string*>(to) += piece; };
    req.arg = &text;
    EXPECT_TRUE(ok(qim_db_show_internal(client.db(), &req)));
    return text;
  }
};

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

const char* const kTypeNames[] = {"",       "Filter", "Action", "Ifelse", "Hfilter", "Haction",
                                  "Police", "Group",  "Pinst",  "Def",    "Edest"};

TEST_F(OperationsShow, a_node_of_every_type_is_shown_by_the_registered_names) {
  const Client client(database());
  for (const node_test::Sample& sample : node_test::samples()) {
    SCOPED_TRACE(sample.name);
    const std::string text = show(client, ROV_SHOW_NODE, sample.copy.id);
    EXPECT_TRUE(text.starts_with("> node 0x")) << text;
    EXPECT_FALSE(has(text, "!!")) << text;
    EXPECT_FALSE(has(text, "attribute 0x")) << text;
    EXPECT_EQ(has(text, "data-set name"), !sample.dset_name.empty()) << text;
    if (!sample.is_data_set()) {
      const std::string type = std::to_string(sample.copy.type);
      EXPECT_TRUE(has(text, "type " + std::string(kTypeNames[sample.copy.type]) + " (" + type))
          << text;
    }
    std::size_t links = 0;
    for (std::size_t at = text.find("\n>   link 0x"); at != std::string::npos;
         at = text.find("\n>   link 0x", at + 1)) {
      ++links;
    }
    EXPECT_EQ(links, sample.links.size()) << text;
  }
}

TEST_F(OperationsShow, data_sets_are_shown_by_the_registered_line) {
  const Client client(database());
  const std::string text = show(client, ROV_SHOW_DSETS);
  std::size_t lines = 0;
  for (const char c : text) lines += c == '\n' ? 1 : 0;
  std::uint32_t count = 0;
  EXPECT_TRUE(ok(rov_ses_get_num_dsets(client.ses(), &count)));
  EXPECT_EQ(lines, count);
  EXPECT_GT(count, 0u);
  EXPECT_FALSE(has(text, "no printer")) << text;
  EXPECT_TRUE(has(text, "inp") || has(text, "out")) << text;
}

TEST_F(OperationsShow, the_database_is_shown_with_its_counts_and_its_client) {
  const Client client(database());
  const std::string text = show(client, ROV_SHOW_DATABASE);
  EXPECT_TRUE(has(text, database())) << text;
  EXPECT_TRUE(has(text, std::to_string(node_test::samples().size()) + " nodes")) << text;
  EXPECT_TRUE(has(text, "client 0x51")) << text;
  EXPECT_TRUE(has(text, "names printed by the client")) << text;
}

TEST_F(OperationsShow, a_session_shows_what_it_sees) {
  const Client client(database());
  const qim_node_id_t added = kNode + 0x100;
  e2e::commit_value(client.db(), 0x4d2, added);
  EXPECT_TRUE(has(show(client, ROV_SHOW_NODE, added), "subtype 1234 (0x4d2)"));
  rov_show_req_t req{};
  req.ses = client.ses();
  req.what = ROV_SHOW_NODE;
  req.node = e2e::db_id(added);
  req.out = [](const char*, void*) { ADD_FAILURE() << "there is nothing to show"; };
  EXPECT_TRUE(gives(ROV_ERR_NO_ITEM, qim_db_show_internal(client.db(), &req)));
}

}  // namespace
