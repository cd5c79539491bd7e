// The connection to the node database, sessions on it, and what went wrong with them in words.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "qim.h"

namespace qimctl {

// The identity under which this tool is the database's client. Private data that it writes belongs
// to it: other clients of the database see their own.
inline constexpr uint32_t client_id = 0x71696d63;

// A failure of the database or of the policy library. what() says what was attempted, where, why it
// failed and what to do.
class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(uint32_t status, const std::string& attempt);
  // For what the tool can explain better than the status or the database.
  DatabaseError(uint32_t status, const std::string& attempt, const std::string& reason);
  uint32_t status() const { return status_; }

 private:
  uint32_t status_;
};

// "QIM_ERR_NODE_TYPE", "ROV_ERR_NO_ITEM"
std::string status_name(uint32_t status);
// What it means and what to do about it.
std::string status_text(uint32_t status);

// Throws DatabaseError unless `status` is ROV_OK. `attempt` completes "cannot ...".
void require(uint32_t status, const std::string& attempt);
// The same for what was attempted with a node, which may not be there.
void require_node(uint32_t status, const std::string& attempt);

// Is the status one of a node's contents, which the policy library can't make sense of, and not one
// of the database?
bool is_about_contents(uint32_t status);

// The directory that a database is looked for in: `given` if not empty, else $ROV_DB, else
// ./qim.db.
std::string database_directory(const std::string& given);

// read: nothing is written, and nothing needs to be writable. change: there must be one.
enum class OpenMode { read, change, create };

// A database, open as long as the object lives. One at a time in a process.
class Database {
 public:
  // directory: as in database_directory. Where `snapshot` is the path of one ("before-upgrade",
  // "acme://edge-7/nightly/monday"), sessions read that one; it must be there. group: the number of
  // the system's group that may use a database which is made, 0 for nobody but its owner.
  Database(const std::string& directory, OpenMode mode, const std::string& snapshot = "",
           uint32_t group = 0);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  uint32_t handle() const { return handle_; }
  // What sessions for reading are opened on: the database, or its snapshot.
  uint32_t read_handle() const { return snapshot_ != 0 ? snapshot_ : handle_; }
  const std::string& directory() const { return directory_; }

 private:
  void open_snapshot(const std::string& path);

  std::string directory_;
  uint32_t handle_ = 0;
  uint32_t snapshot_ = 0;
};

// The nodes of a database: their number, and the sum of the checksums of their records and of what
// clients keep on them.
struct Stored {
  uint64_t nodes = 0;
  uint64_t sum = 0;

  // Adds a node as a session reads it. Throws DatabaseError.
  void add(uint32_t session, const rov_node_id_t& id);
};

// The newest state of a database, or that of its snapshot, held still.
class ReadSession {
 public:
  explicit ReadSession(const Database& database);
  // The same of whatever has sessions: the handle of a database or a snapshot. `what` names it.
  ReadSession(uint32_t handle, const std::string& what);
  ~ReadSession();
  ReadSession(const ReadSession&) = delete;
  ReadSession& operator=(const ReadSession&) = delete;

  uint32_t handle() const { return handle_; }

  // Verifies the file that the session reads, and gives what there is in it: who reads all of it to
  // write it elsewhere compares. When others commit meanwhile the session moves on, and
  // begins with the newest state again.
  Stored verify();

 private:
  uint32_t database_ = 0;
  uint32_t handle_ = 0;
  std::string what_;
};

// Throws DatabaseError when what was read of a verified database is not what is stored in it.
void require_all_nodes(const Stored& verified, const Stored& read);

// A transaction. Dropped unless commit() is called.
class WriteSession {
 public:
  explicit WriteSession(const Database& database);
  ~WriteSession();
  WriteSession(const WriteSession&) = delete;
  WriteSession& operator=(const WriteSession&) = delete;

  uint32_t handle() const { return handle_; }
  void commit();

 private:
  uint32_t handle_ = 0;
};

// Opens the snapshot of that path; one that is not there is made where the database is open for
// writing. Gives a status of the database.
uint32_t snapshot_open(uint32_t database, const std::string& path, uint32_t* handle);
// The paths of all snapshots of a database, in the order of their bytes.
std::vector<std::string> snapshot_paths(const Database& database);

// A node's identifier in the database's form.
rov_node_id_t database_id(uint32_t id);

}  // namespace qimctl
