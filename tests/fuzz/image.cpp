// Damaged data files: each is refused by name, or all of it can be read and written, and is
// verified again after that. What one piece of damage did not touch reads as before.
#include "policy/store/database.h"
#include "rov_edit.h"
#include "tests/fuzz/good_image.h"
#include "tests/fuzz/targets.h"
#include "tests/system/e2e/leaks_allowed.h"
#include "tests/system/fault/contents.h"
#include "tools/commands/check.h"
#include "tools/nodes/defects.h"

namespace fuzz {
namespace {

// How reading and writing may fail where the checksums fit what is wrong, or whole records are gone.
bool is_honest(uint32_t status) {
  return status == ROV_OK || status == ROV_ERR_CORRUPT;
}

void require_named(const qimctl::DatabaseError& error) {
  const std::string message = error.what();
  require(error.status() == ROV_ERR_CORRUPT || error.status() == ROV_ERR_FORMAT,
          "a damaged file is refused as such");
  require(message.find("damaged") != message.npos, "the damage is named");
  require(message.find("restore the database from a dump") != message.npos, "and what to do");
}

// Every node, link and referrer.
void read_all(uint32_t db, const GoodImage& good, const Damage& damage) {
  const fault::Contents contents = fault::read_contents(db);
  require(is_honest(contents.status), "reading ends in one way or the other");
  rov_verify_t report;
  require(rov_edit_verify(db, &report) == ROV_OK, "what was opened is good");
  require(!contents.good || contents.nodes == report.nodes, "all nodes are read");
  // One edit that leaves the checksums alone takes no record away.
  if (damage.mended || damage.edits > 1) return;
  require(contents.good, "what was verified can be read");
  require(contents.digest == good.contents().digest, "what was verified reads as before");
}

// The policy in it may make any sense or none.
void look_for_defects(const qimctl::Database& database) {
  const e2e::LeaksAllowed refused_records;
  try {
    qimctl::find_defects(qimctl::ReadSession(database));
  } catch (const qimctl::DatabaseError& error) {
    require(is_honest(error.status()), "looking for defects ends in one way or the other");
  }
}

// Takes pages that are free, and changes records of all kinds.
uint32_t write_some(uint32_t session) {
  const std::vector<uint8_t> tlv(30000, 0x55);
  rov_edit_node_t node = {};
  node.id = qimctl::database_id(0x111);
  node.tlv_len = static_cast<uint32_t>(tlv.size());
  node.tlv = tlv.data();
  uint32_t status = rov_edit_node_put(session, &node);
  rov_link_t link = {};
  link.owner = node.id;
  link.field = 0x2c1;
  link.node = qimctl::database_id(0x04100080);
  if (status == ROV_OK) status = rov_edit_link_put(session, &link);
  if (status == ROV_OK) status = rov_edit_priv_put(session, node.id, 7, "private", 7);
  if (status == ROV_OK) status = rov_edit_node_del(session, qimctl::database_id(0x04100090));
  return status == ROV_ERR_NO_ITEM ? uint32_t{ROV_OK} : status;
}

void write_all(uint32_t db) {
  uint32_t session = 0;
  require(rov_edit_begin(db, &session) == ROV_OK, "writing begins");
  uint32_t status = write_some(session);
  if (status == ROV_OK) {
    status = rov_edit_commit(session);
  } else {
    require(rov_edit_abandon(session) == ROV_OK, "what failed can be dropped");
  }
  require(is_honest(status), "writing ends in one way or the other");
  rov_verify_t report;
  require(rov_edit_verify(db, &report) == ROV_OK, "what was written can be verified");
}

}  // namespace

void image(const uint8_t* bytes, size_t size) {
  static const GoodImage good;
  Image image = good.image();
  const Damage damage = apply_edits(bytes, size, good.anatomy(), &image);
  good.place(image);
  try {
    const qimctl::Database database(good.directory(), qimctl::OpenMode::change);
    read_all(database.handle(), good, damage);
    look_for_defects(database);
    write_all(database.handle());
  } catch (const qimctl::DatabaseError& error) {
    require_named(error);
  }
}

}  // namespace fuzz
