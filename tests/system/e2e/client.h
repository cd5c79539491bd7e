// A client of the policy library on a database in a directory: started, with a session.
#ifndef TESTS_SYSTEM_E2E_CLIENT_H
#define TESTS_SYSTEM_E2E_CLIENT_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qim.h"
#include "rov.h"

namespace e2e {

using Bytes = std::vector<std::uint8_t>;

// Whose private data on nodes a client sees.
inline constexpr std::uint32_t kClient = 0x51;

template <class T>
Bytes bytes_of(const T& object) {
  const auto* const at = reinterpret_cast<const std::uint8_t*>(&object);
  return Bytes(at, at + sizeof object);
}

// The database's form of an identifier.
rov_node_id_t db_id(qim_node_id_t id);

// A directory that goes away with the test.
class Directory {
 public:
  Directory();
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  // Where the database goes: it is made by its first client.
  std::string database() const { return path_ + "/db"; }

 private:
  std::string path_;
};

// Failures to start or end make the test fail; one client at a time in a process.
class Client {
 public:
  explicit Client(const std::string& database, std::uint32_t id = kClient);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  std::uint32_t db() const { return db_; }
  std::uint32_t ses() const { return ses_; }
  // Another session, which sees what has been committed by now; closed with rov_ses_close.
  std::uint32_t open_session() const;

 private:
  std::uint32_t db_ = 0;
  std::uint32_t ses_ = 0;
};

}  // namespace e2e

#endif
