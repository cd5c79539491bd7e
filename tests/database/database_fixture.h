// A database in a directory of its own, and short words for what tests do with it.
#ifndef TESTS_DATABASE_DATABASE_FIXTURE_H
#define TESTS_DATABASE_DATABASE_FIXTURE_H

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "database/base/bytes.h"
#include "database/record/keys.h"
#include "rov.h"
#include "rov_edit.h"

namespace testing_rov {

using Bytes = std::vector<uint8_t>;

// A directory that goes away with the test.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "rov-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) abort();
    path_ = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline rov_node_id_t id(uint32_t number) {
  return rov::id_of(number);
}
inline uint32_t number(const rov_node_id_t& from) {
  return rov::number_of(from);
}

// A data-set name of 21 bytes that begins with `text`.
inline Bytes name(const std::string& text) {
  Bytes bytes(rov::kNameBytes, 0);
  memcpy(bytes.data(), text.data(), std::min<size_t>(text.size(), bytes.size()));
  return bytes;
}

// `size` bytes that differ from those of another seed.
inline Bytes pattern(uint32_t seed, size_t size) {
  Bytes bytes(size);
  uint32_t state = seed * 2654435761U + 1;
  for (uint8_t& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

inline uint32_t open_database(const std::string& path, uint32_t flags, uint32_t client,
                              uint32_t* db) {
  uint32_t lib = 0;
  uint32_t status = rov_lib_init(client, &lib);
  if (status != ROV_OK) return status;
  rov_parms_t parms;
  status = rov_db_init_parms_init(&parms, ROV_VERSION);
  if (status != ROV_OK) return status;
  parms.p.db_path = path.c_str();
  parms.p.init_id = client;
  return rov_db_init(lib, ROV_VERSION, 0, 0, ROV_PROTO, 0, &parms, flags, db);
}

inline uint32_t put_node(uint32_t ses, uint32_t node, const Bytes& tlv, const Bytes& dset = {},
                         uint32_t flags = 0) {
  rov_edit_node_t record = {};
  record.id = id(node);
  record.flags = flags;
  record.tlv_len = static_cast<uint32_t>(tlv.size());
  record.tlv = tlv.data();
  record.dset_len = static_cast<uint32_t>(dset.size());
  record.dset = dset.data();
  return rov_edit_node_put(ses, &record);
}

inline rov_link_t make_link(uint32_t owner, uint16_t field, uint32_t node, uint32_t node2 = 0,
                            uint32_t val = 0, uint16_t tag = 0) {
  rov_link_t link = {};
  link.owner = id(owner);
  link.field = field;
  link.node = id(node);
  link.node2 = id(node2);
  link.val = val;
  link.tag = tag;
  return link;
}

inline uint32_t put_link(uint32_t ses, uint32_t owner, uint16_t field, uint32_t node,
                         uint32_t node2 = 0, uint32_t val = 0, uint16_t tag = 0) {
  const rov_link_t link = make_link(owner, field, node, node2, val, tag);
  return rov_edit_link_put(ses, &link);
}

inline rov_node_parms_t parms_of(uint32_t ses, uint32_t node) {
  rov_node_parms_t parms = {};
  EXPECT_EQ(rov_node_parms_get(ses, id(node), &parms), uint32_t{ROV_OK}) << rov_err_message();
  return parms;
}

inline Bytes tlv_of(uint32_t ses, uint32_t node) {
  Bytes tlv(parms_of(ses, node).tlv_len);
  EXPECT_EQ(rov_node_data_get(ses, id(node), static_cast<uint32_t>(tlv.size()), tlv.data(), 0,
                              nullptr, 0, nullptr),
            uint32_t{ROV_OK})
      << rov_err_message();
  return tlv;
}

inline Bytes private_of(uint32_t ses, uint32_t node) {
  Bytes data(parms_of(ses, node).priv_len);
  EXPECT_EQ(rov_node_data_get(ses, id(node), 0, nullptr, 0, nullptr,
                              static_cast<uint32_t>(data.size()), data.data()),
            uint32_t{ROV_OK})
      << rov_err_message();
  return data;
}

// (referrer, lowest field) in the order of the database.
inline std::vector<std::pair<uint32_t, uint32_t>> referrers_of(uint32_t ses, uint32_t node) {
  std::vector<std::pair<uint32_t, uint32_t>> found;
  for (uint32_t index = 0;; ++index) {
    uint32_t total = 0;
    uint32_t field = 0;
    rov_node_id_t referrer = {};
    const uint32_t status = rov_node_ref_get(ses, id(node), index, &total, &field, &referrer);
    if (status == ROV_ERR_NO_ITEM) {
      EXPECT_EQ(parms_of(ses, node).refs, found.size());
      return found;
    }
    EXPECT_EQ(status, uint32_t{ROV_OK}) << rov_err_message();
    if (status != ROV_OK) return found;
    found.emplace_back(number(referrer), field);
  }
}

// Client 1's database in a fresh directory.
class DatabaseTest : public testing::Test {
 protected:
  static constexpr uint32_t kClient = 1;

  void SetUp() override { open(); }
  void TearDown() override { close(); }

  void open(uint32_t flags = 0) {
    ASSERT_EQ(open_database(path(), flags, kClient, &db_), uint32_t{ROV_OK}) << rov_err_message();
  }
  void close() {
    if (db_ == 0) return;
    EXPECT_EQ(rov_db_close(db_, 0), uint32_t{ROV_OK});
    db_ = 0;
  }
  void reopen() {
    close();
    open();
  }
  std::string path() const { return directory_.file("db"); }

  uint32_t begin() {
    uint32_t ses = 0;
    EXPECT_EQ(rov_edit_begin(db_, &ses), uint32_t{ROV_OK}) << rov_err_message();
    return ses;
  }
  uint32_t read() {
    uint32_t ses = 0;
    EXPECT_EQ(rov_ses_open_ro(db_, &ses), uint32_t{ROV_OK}) << rov_err_message();
    return ses;
  }
  static void commit(uint32_t ses) {
    ASSERT_EQ(rov_edit_commit(ses), uint32_t{ROV_OK}) << rov_err_message();
  }

  TemporaryDirectory directory_;
  uint32_t db_ = 0;
};

}  // namespace testing_rov

#define EXPECT_OK(call) EXPECT_EQ(call, uint32_t{ROV_OK}) << rov_err_message()
#define ASSERT_OK(call) ASSERT_EQ(call, uint32_t{ROV_OK}) << rov_err_message()
#define EXPECT_STATUS(call, status) \
  EXPECT_EQ(call, static_cast<uint32_t>(status)) << rov_err_message()
#define ASSERT_STATUS(call, status) \
  ASSERT_EQ(call, static_cast<uint32_t>(status)) << rov_err_message()

#endif
