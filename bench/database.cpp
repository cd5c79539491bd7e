#include "bench/database.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <tuple>

#include "rov_edit.h"

namespace bench {
namespace {

constexpr uint32_t kClient = 0x51;
constexpr uint32_t kNodesPerCommit = 100000;

using Key = std::tuple<uint32_t, uint32_t, uint32_t>;
std::map<Key, std::unique_ptr<Prepared>>& all_prepared() {
  static std::map<Key, std::unique_ptr<Prepared>> all;
  return all;
}

bool g_started = false;

void write_image(uint32_t writer, const Image& image) {
  rov_edit_node_t node = {};
  node.id = db_id(image.id);
  node.tlv_len = static_cast<uint32_t>(image.tlv.size());
  node.tlv = image.tlv.data();
  node.dset_len = static_cast<uint32_t>(image.name.size());
  node.dset = image.name.data();
  check(rov_edit_node_put(writer, &node), "write a node");
  for (const qim_link_t& from : image.links) {
    rov_link_t link = {};
    link.owner = node.id;
    link.field = from.field;
    link.node = db_id(from.node);
    link.val = from.val;
    link.tag = from.tag;
    check(rov_edit_link_put(writer, &link), "write a link");
  }
}

}  // namespace

void check(uint32_t status, const char* what) {
  if (status == 0) return;
  std::fprintf(stderr, "bench: cannot %s: status 0x%08x: %s\n", what, status, rov_err_message());
  std::exit(1);
}

Folder::Folder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "qim-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::fprintf(stderr, "bench: cannot make a folder like %s\n", pattern.c_str());
    std::exit(1);
  }
  path_ = pattern;
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

rov_node_id_t db_id(qim_node_id_t id) {
  rov_node_id_t made;
  qim_to_rov_node_id_nochk(id, &made);
  return made;
}

Database::Database(const std::string& path) : path_(path) {
  rov_parms_t parms;
  check(qim_db_init_parms_init(&parms, 1), "make a parameter block");
  parms.p.db_path = path.c_str();
  parms.p.init_id = kClient;
  if (!g_started) {
    g_started = true;
    // The library has one database; this one stays open as long as the program runs.
    static const Folder first;
    static const std::string first_path = first.at("db");
    rov_parms_t own = parms;
    own.p.db_path = first_path.c_str();
    uint32_t ignored = 0;
    check(qim_lib_init(0, 0, kClient, 0, &own, 0, 0, 0, &ignored), "start the library");
  }
  check(rov_db_init(qim_lib_get()->rov_lib, ROV_VERSION, 0, 0, ROV_PROTO, 0, &parms, 0, &handle_),
        "open a database");
}

Database::~Database() {
  check(rov_db_close(handle_, 0), "close a database");
}

uint32_t Database::open_session() const {
  uint32_t ses = 0;
  check(qim_ses_open_ro(handle_, &ses), "open a session");
  return ses;
}

void write_images(const Database& database, const std::vector<Image>& images) {
  uint32_t writer = 0;
  check(rov_edit_begin(database.handle(), &writer), "begin to write");
  for (const Image& image : images) write_image(writer, image);
  check(rov_edit_commit(writer), "commit");
}

void write_plan(const Database& database, const Plan& plan) {
  for (uint32_t from = 0; from < plan.nodes; from += kNodesPerCommit) {
    uint32_t writer = 0;
    check(rov_edit_begin(database.handle(), &writer), "begin to write");
    const uint32_t to = std::min(plan.nodes, from + kNodesPerCommit);
    for (uint32_t index = from; index < to; ++index) write_image(writer, image_at(plan, index));
    check(rov_edit_commit(writer), "commit");
  }
}

Prepared::Prepared(const Plan& wanted) : plan(wanted), database(folder.at("db")) {
  write_plan(database, wanted);
  ses = database.open_session();
}

Prepared::~Prepared() {
  check(rov_ses_close(ses), "close a session");
}

Prepared& prepared(const Plan& plan) {
  std::unique_ptr<Prepared>& one = all_prepared()[{plan.nodes, plan.named_every, plan.criteria}];
  if (one == nullptr) one = std::make_unique<Prepared>(plan);
  return *one;
}

void drop_prepared() {
  all_prepared().clear();
}

}  // namespace bench
