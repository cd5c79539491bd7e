#include "tests/system/e2e/operations.h"
#include "tests/support/pace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace e2e {

testing::AssertionResult gives(std::uint32_t expected, std::uint32_t status) {
  if (status == expected) return testing::AssertionSuccess();
  char number[16];
  std::snprintf(number, sizeof number, "0x%08x", static_cast<unsigned>(status));
  return testing::AssertionFailure()
         << "gives " << rov_status_name(status) << " (" << number << "), not "
         << rov_status_name(expected) << "; the last failure was: " << rov_err_message();
}

testing::AssertionResult ok(std::uint32_t status) {
  return gives(ROV_OK, status);
}

void put_value(std::uint32_t writer, qim_node_id_t node, std::uint32_t value,
               const Bytes& dset_name) {
  qim_node_t record{};
  record.type = QIM_NODE_GROUP;
  record.body.group.subtype = value;
  Bytes tlv(qim_node_get_tlv_sz(&record));
  std::uint32_t len = 0;
  EXPECT_TRUE(ok(qim_node_to_tlv(&record, tlv.data(), static_cast<std::uint32_t>(tlv.size()), &len,
                                 nullptr, 0)));
  rov_edit_node_t edit{};
  edit.id = db_id(node);
  edit.tlv_len = len;
  edit.tlv = tlv.data();
  edit.dset_len = static_cast<std::uint32_t>(dset_name.size());
  edit.dset = dset_name.data();
  EXPECT_TRUE(ok(rov_edit_node_put(writer, &edit)));
}

void put_link(std::uint32_t writer, qim_node_id_t owner, std::uint16_t field, qim_node_id_t node) {
  rov_link_t link{};
  link.owner = db_id(owner);
  link.field = field;
  link.node = db_id(node);
  EXPECT_TRUE(ok(rov_edit_link_put(writer, &link)));
}

void commit_value(std::uint32_t db, std::uint32_t value, qim_node_id_t node) {
  std::uint32_t writer = 0;
  ASSERT_TRUE(ok(rov_edit_begin(db, &writer)));
  put_value(writer, node, value);
  EXPECT_TRUE(ok(rov_edit_commit(writer)));
}

std::uint32_t value_in(std::uint32_t ses, qim_node_id_t node) {
  qim_node_t record;
  EXPECT_TRUE(ok(qim_node_read(ses, node, QIM_NODE_GROUP, &record)));
  return record.body.group.subtype;
}

std::uint32_t newest_value(std::uint32_t db, qim_node_id_t node) {
  std::uint32_t ses = 0;
  EXPECT_TRUE(ok(qim_ses_open_ro(db, &ses)));
  const std::uint32_t value = value_in(ses, node);
  EXPECT_TRUE(ok(rov_ses_close(ses)));
  return value;
}

Bytes interface_name(std::uint32_t ifix) {
  qim_dsetname_t name;
  qim_dsetname_for_if_policy(0x305, QIM_DIR_IN, 1, 2, 3, ifix, &name);
  return bytes_of(name);
}

Piece::Piece(std::uint32_t key, std::size_t room) : bytes_(room) {
  priv_ = {key, static_cast<std::uint32_t>(room), bytes_.data()};
}

Piece::Piece(std::uint32_t key, const std::string& text) : Piece(key, text.size()) {
  std::copy(text.begin(), text.end(), bytes_.begin());
}

void wait_for_writers(std::uint32_t milliseconds) {
  EXPECT_TRUE(ok(qim_lib_init_locks(0, milliseconds, 2, 0, 0)));
}

std::int64_t StopWatch::elapsed() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start_)
      .count();
}

std::int64_t soon() {
  return pace::at_once().count();
}

}  // namespace e2e
