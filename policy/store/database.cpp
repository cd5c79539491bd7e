// The connection to the node database, and its failures in words.
#include "policy/store/database.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "qim_acl.h"
#include "rov.h"
#include "rov_edit.h"

namespace qimctl {

namespace {

bool is_of_library(uint32_t status) {
  return status >> 16 == QIM_ERR_GENERIC >> 16;
}

// The database's own words for its last failure are better than those for the status alone.
std::string reason_of(uint32_t status) {
  const std::string message = is_of_library(status) ? "" : rov_err_message();
  return message.empty() ? status_text(status) : message;
}

std::string describe(uint32_t status, const std::string& attempt, const std::string& reason) {
  return "cannot " + attempt + ": " + reason + " (" + status_name(status) + ", " +
         hex_number(status, 8) + ")";
}

// Where nothing was ever stored. A directory that can't be looked into may hold a database.
bool is_absent(const std::string& directory) {
  std::error_code unknown;
  return !std::filesystem::exists(std::filesystem::path(directory) / "data.mdb", unknown) &&
         !unknown;
}

}  // namespace

DatabaseError::DatabaseError(uint32_t status, const std::string& attempt)
    : DatabaseError(status, attempt, reason_of(status)) {}

DatabaseError::DatabaseError(uint32_t status, const std::string& attempt, const std::string& reason)
    : std::runtime_error(describe(status, attempt, reason)), status_(status) {}

std::string status_name(uint32_t status) {
  return qim_status_name(status);
}

std::string status_text(uint32_t status) {
  return qim_status_text(status);
}

void require(uint32_t status, const std::string& attempt) {
  if (status != ROV_OK) throw DatabaseError(status, attempt);
}

void require_node(uint32_t status, const std::string& attempt) {
  if (status != ROV_ERR_NO_ITEM) return require(status, attempt);
  throw DatabaseError(status, attempt,
                      "it is not in the database; 'qimctl list' names the nodes that are");
}

bool is_about_contents(uint32_t status) {
  return is_of_library(status) || (status >= ROV_ERR_TLV_TRUNCATED && status <= ROV_ERR_TLV_ROOM);
}

std::string database_directory(const std::string& given) {
  if (!given.empty()) return given;
  const char* environment = getenv("ROV_DB");
  return environment != nullptr && *environment != '\0' ? environment : "./qim.db";
}

Database::Database(const std::string& directory, OpenMode mode, const std::string& snapshot,
                   uint32_t group)
    : directory_(database_directory(directory)) {
  const std::string attempt = "open the database in " + directory_;
  rov_parms_t parms{};
  require(qim_db_init_parms_init(&parms, 1), attempt);
  parms.p.db_path = directory_.c_str();
  parms.p.db_group = group;
  uint32_t flags = mode == OpenMode::create ? 0 : uint32_t{ROV_DB_NO_CREATE};
  // Snapshots that are not there are made where the database is open for writing.
  if (mode == OpenMode::read || !snapshot.empty()) flags |= ROV_DB_RDONLY;
  const uint32_t status = qim_lib_init(0, 0, client_id, 0, &parms, 0, flags, 0, &handle_);
  if (status == ROV_ERR_OPEN && mode != OpenMode::create && is_absent(directory_)) {
    throw DatabaseError(status, attempt,
                        "there is none; check the directory given with --db or in ROV_DB, or make "
                        "the database with 'qimctl import'");
  }
  require(status, attempt);
  if (snapshot.empty()) return;
  try {
    open_snapshot(snapshot);
  } catch (const DatabaseError&) {
    qim_lib_close(handle_, 0);
    throw;
  }
}

void Database::open_snapshot(const std::string& path) {
  const std::string attempt = "read the snapshot " + quoted(path) + " of " + directory_;
  const std::vector<std::string> paths = snapshot_paths(*this);
  if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
    std::string known;
    for (const std::string& other : paths) known += (known.empty() ? "" : ", ") + quoted(other);
    throw DatabaseError(
        ROV_ERR_NO_ITEM, attempt,
        "there is none of that name; " +
            (known.empty() ? "the database has no snapshots" : "there are " + known));
  }
  require(snapshot_open(handle_, path, &snapshot_), attempt);
}

uint32_t snapshot_open(uint32_t database, const std::string& path, uint32_t* handle) {
  const size_t slash = path.rfind('/');
  if (slash == path.npos) return qim_db_snapshot(database, path.c_str(), handle);
  return qim_db_uri_snapshot(database, path.substr(0, slash).c_str(),
                             path.substr(slash + 1).c_str(), handle);
}

Database::~Database() {
  qim_lib_close(handle_, 0);
}

ReadSession::ReadSession(const Database& database)
    : ReadSession(database.read_handle(), "the database in " + database.directory()) {}

ReadSession::ReadSession(uint32_t handle, const std::string& what)
    : database_(handle), what_(what) {
  require(qim_ses_open_ro(handle, &handle_), "read " + what);
}

void Stored::add(uint32_t session, const rov_node_id_t& id) {
  uint64_t of_node = 0;
  require(rov_edit_node_sum(session, id, &of_node), "read a node's checksum");
  nodes++;
  sum += of_node;
}

Stored ReadSession::verify() {
  constexpr int attempts = 20;
  rov_verify_t report;
  uint32_t status = rov_ses_verify(handle_, &report);
  for (int attempt = 1; attempt < attempts && status == ROV_ERR_BUSY; attempt++) {
    rov_ses_close(handle_);
    handle_ = 0;
    require(qim_ses_open_ro(database_, &handle_), "read " + what_);
    status = rov_ses_verify(handle_, &report);
  }
  require(status, "verify " + what_);
  return {report.nodes, report.sum};
}

ReadSession::~ReadSession() {
  rov_ses_close(handle_);
}

void require_all_nodes(const Stored& verified, const Stored& read) {
  if (read.nodes == verified.nodes && read.sum == verified.sum) return;
  const std::string found =
      read.nodes == verified.nodes
          ? "some of them are not the ones that were verified"
          : std::to_string(read.nodes) + " of " + std::to_string(verified.nodes) + " were found";
  throw DatabaseError(ROV_ERR_CORRUPT, "read all nodes",
                      found +
                          ": the database's file was damaged meanwhile; see 'qimctl "
                          "check', and restore it from an earlier dump");
}

WriteSession::WriteSession(const Database& database) {
  require(rov_edit_begin(database.handle(), &handle_),
          "write to the database in " + database.directory());
}

WriteSession::~WriteSession() {
  if (handle_ != 0) rov_edit_abandon(handle_);
}

void WriteSession::commit() {
  const uint32_t handle = handle_;
  handle_ = 0;  // ends here whatever the outcome
  require(rov_edit_commit(handle), "commit the changes");
}

std::vector<std::string> snapshot_paths(const Database& database) {
  std::vector<std::string> paths;
  char path[ROV_SNAPSHOT_PATH] = "";
  uint32_t status = ROV_OK;
  while ((status = rov_snapshot_next(database.handle(), path, sizeof path, path)) == ROV_OK) {
    paths.emplace_back(path);
  }
  if (status != ROV_ERR_NO_ITEM) {
    require(status, "list the snapshots of " + database.directory());
  }
  return paths;
}

rov_node_id_t database_id(uint32_t id) {
  rov_node_id_t form;
  qim_to_rov_node_id_nochk(id, &form);
  return form;
}

}  // namespace qimctl
