// What the database itself takes for the nodes of a policy: what the tool's commands are held against.
//
//   bench_nodes DB NEW-DB
//
// Writes all nodes, links and names of DB into NEW-DB in one commit, then reads every node of DB with
// qim_node_read. Prints "nodes N, write S, read S", seconds of processor time.
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "qim.h"
#include "rov_edit.h"

namespace {

void require(uint32_t status, const char* what) {
  if (status == ROV_OK) return;
  fprintf(stderr, "bench_nodes: %s: %s\n", what, rov_err_message());
  exit(1);
}

double processor_seconds() {
  struct rusage use;
  getrusage(RUSAGE_SELF, &use);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(use.ru_utime) + seconds(use.ru_stime);
}

struct StoredNode {
  rov_node_parms_t parms;
  std::vector<unsigned char> tlv;
  unsigned char name[21];
  std::vector<rov_link_t> links;
};

uint32_t open_database(const char* path, uint32_t flags) {
  rov_parms_t parms{};
  require(qim_db_init_parms_init(&parms, 1), "prepare");
  parms.p.db_path = path;
  uint32_t db = 0;
  require(qim_lib_init(0, 0, 1, 0, &parms, 0, flags, 0, &db), path);
  return db;
}

std::vector<StoredNode> load(uint32_t ses) {
  std::vector<StoredNode> nodes;
  rov_node_id_t after{};
  rov_node_parms_t parms;
  while (rov_node_next(ses, after, &parms) == ROV_OK) {
    StoredNode& node = nodes.emplace_back();
    node.parms = parms;
    node.tlv.resize(parms.tlv_len);
    require(rov_node_data_get(ses, parms.id, parms.tlv_len, node.tlv.data(), parms.dset_len,
                              parms.dset_len != 0 ? node.name : nullptr, 0, nullptr),
            "load a node");
    rov_link_t link;
    for (uint32_t n = 0; rov_node_link_nth(ses, parms.id, n, &link) == ROV_OK; n++) {
      node.links.push_back(link);
    }
    after = parms.id;
  }
  return nodes;
}

void write(uint32_t db, const std::vector<StoredNode>& nodes) {
  uint32_t ses = 0;
  require(rov_edit_begin(db, &ses), "begin");
  for (const StoredNode& node : nodes) {
    rov_edit_node_t form{};
    form.id = node.parms.id;
    form.flags = node.parms.flags;
    form.tlv_len = node.parms.tlv_len;
    form.tlv = node.tlv.data();
    form.dset_len = node.parms.dset_len;
    form.dset = node.parms.dset_len != 0 ? node.name : nullptr;
    require(rov_edit_node_put(ses, &form), "put a node");
  }
  for (const StoredNode& node : nodes) {
    for (const rov_link_t& link : node.links) require(rov_edit_link_put(ses, &link), "put a link");
  }
  require(rov_edit_commit(ses), "commit");
}

void read(uint32_t ses, const std::vector<StoredNode>& nodes) {
  for (const StoredNode& node : nodes) {
    qim_node_t record;
    require(qim_node_read(ses, qim_from_rov_node_id(&node.parms.id), 0, &record), "read a node");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: bench_nodes DB NEW-DB\n");
    return 2;
  }
  const uint32_t db = open_database(argv[1], ROV_DB_NO_CREATE);
  uint32_t ses = 0;
  require(qim_ses_open_ro(db, &ses), "open a session");
  const std::vector<StoredNode> nodes = load(ses);
  const double before_reading = processor_seconds();
  read(ses, nodes);
  const double after_reading = processor_seconds();
  require(rov_ses_close(ses), "close the session");
  require(qim_lib_close(db, 0), "close");
  const uint32_t fresh = open_database(argv[2], 0);
  const double before_writing = processor_seconds();
  write(fresh, nodes);
  const double after_writing = processor_seconds();
  require(qim_lib_close(fresh, 0), "close");
  printf("nodes %zu, write %.4f, read %.4f\n", nodes.size(), after_writing - before_writing,
         after_reading - before_reading);
  return 0;
}
