#include "tests/system/e2e/client.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "rov_edit.h"

namespace e2e {

rov_node_id_t db_id(qim_node_id_t id) {
  rov_node_id_t made;
  qim_to_rov_node_id_nochk(id, &made);
  return made;
}

Directory::Directory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "qim-e2e-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) std::abort();
  path_ = pattern;
}

Directory::~Directory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Client::Client(const std::string& database, std::uint32_t id) {
  rov_parms_t parms;
  EXPECT_EQ(qim_db_init_parms_init(&parms, 1), 0u);
  parms.p.db_path = database.c_str();
  EXPECT_EQ(qim_lib_init(0, 0, id, 0, &parms, 0, 0, 0, &db_), 0u) << rov_err_message();
  ses_ = open_session();
}

Client::~Client() {
  EXPECT_EQ(rov_ses_close(ses_), 0u) << rov_err_message();
  EXPECT_EQ(qim_lib_close(db_, 0), 0u) << rov_err_message();
}

std::uint32_t Client::open_session() const {
  std::uint32_t ses = 0;
  EXPECT_EQ(qim_ses_open_ro(db_, &ses), 0u) << rov_err_message();
  return ses;
}

}  // namespace e2e
