#include "tests/system/fault/platform_tour.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstring>

#include "rov.h"
#include "rov_edit.h"
#include "tests/database/database_fixture.h"
#include "tests/system/fault/interpose.h"

namespace fault {
namespace {

using testing_rov::Bytes;
using testing_rov::id;
using testing_rov::pattern;

constexpr uint32_t kClient = 9;
constexpr uint32_t kKey = 5;

constexpr size_t kHead = 8;

// One attribute, whose value begins with `value`. The tour's own memory is always there.
Bytes tlv_for(uint32_t value) {
  const interpose::Pause pause;
  Bytes tlv = pattern(value, 600);
  const uint32_t head[] = {htonl(1), htonl(static_cast<uint32_t>(tlv.size() - kHead))};
  memcpy(tlv.data(), head, kHead);
  rov::store(tlv.data() + kHead, value);
  return tlv;
}

const Bytes& set_name() {
  const interpose::Pause pause;
  static const Bytes name = testing_rov::name("published");
  return name;
}

// The first of two statuses that says something.
uint32_t first(uint32_t one, uint32_t other) {
  return one != ROV_OK ? one : other;
}

uint32_t read_piece(uint32_t handle, uint32_t (*read)(uint32_t, rov_priv_t*)) {
  char room[64];
  rov_priv_t piece = {kKey, sizeof room, room};
  return read(handle, &piece);
}

uint32_t write_piece(uint32_t handle, uint32_t (*write)(uint32_t, const rov_priv_t*)) {
  char text[] = "a piece of private data";
  const rov_priv_t piece = {kKey, sizeof text, text};
  return write(handle, &piece);
}

uint32_t write_session_piece(uint32_t ses, const rov_priv_t* piece) {
  return rov_ses_priv_write(ses, piece, 0);
}

void swallow(const char*, void*) {}

}  // namespace

const std::vector<PlatformTour::Step>& PlatformTour::steps() {
  static const std::vector<Step> all = {
      {"open", &PlatformTour::open},
      {"write", &PlatformTour::write},
      {"read", &PlatformTour::read},
      {"private data of a node", &PlatformTour::keep_on_node},
      {"private data of the database", &PlatformTour::keep_on_database},
      {"private data of a session", &PlatformTour::keep_on_session},
      {"snapshot", &PlatformTour::snapshot},
      {"publish", &PlatformTour::publish},
      {"show", &PlatformTour::show},
      {"administer", &PlatformTour::administer},
      {"write again", &PlatformTour::write},
  };
  return all;
}

const std::vector<PlatformTour::Step>& PlatformTour::watching() {
  static const std::vector<Step> all = {
      {"open", &PlatformTour::open},
      {"watch", &PlatformTour::watch},
  };
  return all;
}

uint32_t PlatformTour::open() {
  return db_ != 0 ? uint32_t{ROV_OK} : testing_rov::open_database(path_, 0, kClient, &db_);
}

void PlatformTour::close() {
  if (db_ != 0) rov_db_close(db_, 0);
  db_ = 0;
}

uint32_t PlatformTour::edit(uint32_t ses) {
  const Bytes tlv = tlv_for(tried_);
  for (uint32_t node = 1; node <= kNodes; ++node) {
    uint32_t status = testing_rov::put_node(ses, node, tlv, node == 1 ? set_name() : Bytes{});
    if (status != ROV_OK) return status;
    const auto field = static_cast<uint16_t>(1 + tried_ % 3);
    status = testing_rov::put_link(ses, node, field, 1 + (node + tried_) % kNodes, 1, tried_);
    if (status != ROV_OK) return status;
  }
  const uint32_t status = testing_rov::put_node(ses, kNodes + 1, tlv);
  return first(status, rov_edit_node_del(ses, id(kNodes + 1)));
}

uint32_t PlatformTour::write() {
  ++tried_;
  uint32_t ses = 0;
  uint32_t status = rov_edit_begin(db_, &ses);
  if (status != ROV_OK) return status;
  status = edit(ses);
  if (status != ROV_OK) {
    rov_edit_abandon(ses);
    return status;
  }
  status = rov_edit_commit(ses);
  if (status == ROV_OK) acknowledged_ = tried_;
  return status;
}

uint32_t PlatformTour::read_node(uint32_t ses) {
  uint8_t room[700];
  rov_node_parms_t parms = {};
  rov_link_t link;
  rov_node_id_t referrer;
  rov_node_id_t referrers[kNodes];
  uint32_t status = rov_node_parms_get(ses, id(2), &parms);
  status = first(status, rov_node_data_get(ses, id(2), sizeof room, room, 0, nullptr, 0, nullptr));
  status = first(status, rov_node_link_nth(ses, id(2), 0, &link));
  status = first(status, rov_node_link_get(ses, id(2), link.field, &link));
  status = first(status, rov_node_ref_get(ses, id(1), 3, nullptr, nullptr, &referrer));
  status = first(status, rov_node_ref_get_all(ses, id(1), referrers, kNodes));
  status = first(status, rov_node_next(ses, id(2), &parms));
  status = first(status, rov_node_dset_get(ses, id(1), 0, &parms));
  status = first(status, rov_ses_dset_get(ses, 0, &parms));
  status = first(status, rov_ses_dset_name_get(ses, 21, set_name().data(), &parms));
  uint32_t count = 0;
  return first(status, rov_ses_get_num_dsets(ses, &count));
}

uint32_t PlatformTour::read() {
  uint32_t ses = 0;
  uint32_t status = rov_ses_open_ro(db_, &ses);
  if (status != ROV_OK) return status;
  status = read_node(ses);
  uint32_t base = 0;
  if (status == ROV_OK) status = rov_ses_orig_handle(ses, &base);
  if (status == ROV_OK) status = read_node(base);
  return first(status, rov_ses_close(ses));
}

uint32_t PlatformTour::keep_on_node() {
  uint32_t ses = 0;
  uint32_t status = rov_ses_open_ro(db_, &ses);
  if (status != ROV_OK) return status;
  const rov_node_id_t node = id(2);
  status = rov_node_priv_set(ses, &node, "kept", 4);
  void* pointer = nullptr;
  if (status == ROV_OK) status = rov_node_priv_ptr_set(ses, &node, this);
  if (status == ROV_OK) status = rov_node_priv_ptr_get(ses, &node, &pointer);
  char room[8];
  if (status == ROV_OK) {
    status = rov_node_data_get(ses, node, 0, nullptr, 0, nullptr, sizeof room, room);
  }
  return first(status, rov_ses_close(ses));
}

uint32_t PlatformTour::keep_on_database() {
  uint32_t status = write_piece(db_, rov_db_priv_write);
  if (status == ROV_OK) status = read_piece(db_, rov_db_priv_read);
  if (status == ROV_OK) status = rov_db_priv_post(db_, kKey + 1, 3, "abc");
  char room[64];
  rov_priv_t piece = {0, sizeof room, room};
  if (status == ROV_OK) status = rov_db_priv_recover2(db_, 0, 0, &piece);
  if (status == ROV_OK) status = rov_db_priv_delete(db_, kKey + 1);
  return status;
}

uint32_t PlatformTour::keep_on_session() {
  uint32_t ses = 0;
  uint32_t status = rov_ses_open_ro(db_, &ses);
  if (status != ROV_OK) return status;
  status = write_piece(ses, write_session_piece);
  if (status == ROV_OK) status = read_piece(ses, rov_ses_priv_read);
  status = first(status, rov_ses_close(ses));
  if (status == ROV_OK) status = rov_ses_open_ro(db_, &ses);
  if (status != ROV_OK) return status;
  char room[64];
  rov_priv_t piece = {0, sizeof room, room};
  status = rov_ses_priv_recover(ses, 0, &piece);
  if (status == ROV_OK) status = rov_ses_priv_delete(ses, 0, ROV_PRIV_ALL);
  return first(status, rov_ses_close(ses));
}

uint32_t PlatformTour::take_snapshot() {
  uint32_t kept = 0;
  uint32_t status = rov_db_uri_snapshot(db_, "group", "kept", &kept);
  if (status != ROV_OK) return status;
  uint32_t ses = 0;
  status = rov_ses_open_ro(kept, &ses);
  if (status == ROV_OK) {
    status = read_node(ses);
    status = first(status, rov_ses_close(ses));
  }
  return first(status, rov_snapshot_close(kept));
}

uint32_t PlatformTour::snapshot() {
  uint32_t status = take_snapshot();
  if (status == ROV_OK) status = take_snapshot();
  char path[ROV_SNAPSHOT_PATH];
  if (status == ROV_OK) status = rov_snapshot_next(db_, "", sizeof path, path);
  return status != ROV_OK ? status : rov_db_uri_rm(db_, "group");
}

uint32_t PlatformTour::watch() {
  rov_ntf_t registration = {};
  registration.kinds = 0xff;
  uint32_t status = rov_db_ntf(db_, &registration);
  if (status == ROV_OK) status = write();
  uint32_t seen = 0;
  while (status == ROV_OK) {
    rov_change_t change;
    uint32_t size = 0;
    status = rov_process_msg(db_, &change, sizeof change, &size);
    if (status == ROV_OK) ++seen;
  }
  rov_ntf_t none = {};
  const uint32_t ended = rov_db_ntf(db_, &none);
  if (status != ROV_ERR_NO_VALUE) return status;
  return seen == 0 ? uint32_t{ROV_ERR_NO_VALUE} : ended;
}

uint32_t PlatformTour::publish() {
  uint32_t ses = 0;
  uint32_t status = rov_ses_open_ro(db_, &ses);
  if (status != ROV_OK) return status;
  uint32_t size = 0;
  status = rov_ps_datasize(ses, set_name().data(), &size);
  if (status == ROV_OK) {
    static uint8_t block[kNodes * 2000];
    status = rov_ps_data(ses, set_name().data(), sizeof block, block);
  }
  return first(status, rov_ses_close(ses));
}

uint32_t PlatformTour::show() {
  rov_show_req_t request = {};
  request.out = swallow;
  request.node = id(2);
  for (const uint32_t what : {ROV_SHOW_NODE, ROV_SHOW_DSETS, ROV_SHOW_DATABASE}) {
    request.what = what;
    const uint32_t status = rov_db_show_internal(db_, &request);
    if (status != ROV_OK) return status;
  }
  return ROV_OK;
}

uint32_t PlatformTour::administer() {
  rov_parms_t parms;
  uint32_t status = rov_db_init_parms_get(db_, ROV_VERSION, &parms);
  if (status == ROV_OK) status = rov_db_usr_group(db_, 3);
  const uint64_t user = uint64_t{kClient} << 32 | static_cast<uint32_t>(getpid());
  rov_usr_t info;
  if (status == ROV_OK) status = rov_usr_id_info(db_, user, &info);
  if (status == ROV_OK) status = rov_db_ses_lock_grant(db_, user);
  return first(status, rov_db_ses_lock_grant(db_, 0));
}

bool PlatformTour::verify() {
  if (open() != ROV_OK) return false;
  uint32_t ses = 0;
  if (rov_ses_open_ro(db_, &ses) != ROV_OK) return false;
  rov_node_parms_t parms;
  uint32_t status = rov_node_parms_get(ses, id(1), &parms);
  bool good = status == ROV_ERR_NO_ITEM && acknowledged_ == 0;
  if (status == ROV_OK) {
    const Bytes tlv = testing_rov::tlv_of(ses, 1);
    const uint32_t value = tlv.size() < kHead + 4 ? 0 : rov::load<uint32_t>(tlv.data() + kHead);
    good = value >= acknowledged_ && value <= tried_ && tlv == tlv_for(value);
    for (uint32_t node = 2; node <= kNodes && good; ++node) {
      good = testing_rov::tlv_of(ses, node) == tlv;
    }
    good = good && rov_node_parms_get(ses, id(kNodes + 1), &parms) == ROV_ERR_NO_ITEM;
  }
  return rov_ses_close(ses) == ROV_OK && good;
}

}  // namespace fault
