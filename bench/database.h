// Databases of the measured policy, and sessions on them.
#ifndef BENCH_DATABASE_H
#define BENCH_DATABASE_H

#include <memory>
#include <string>

#include "bench/policy.h"
#include "rov.h"

namespace bench {

// Ends the program with the words of the database's last failure unless `status` is 0.
void check(uint32_t status, const char* what);

// A folder that goes away with the object.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string at(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

rov_node_id_t db_id(qim_node_id_t id);

// An open database. The first one of the process starts the policy library.
class Database {
 public:
  explicit Database(const std::string& path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  const std::string& path() const { return path_; }
  uint32_t handle() const { return handle_; }
  uint32_t open_session() const;

 private:
  std::string path_;
  uint32_t handle_ = 0;
};

// Writes images in one transaction.
void write_images(const Database& database, const std::vector<Image>& images);
// Writes all that the plan says.
void write_plan(const Database& database, const Plan& plan);

// A database of the plan in a folder of its own, with a session that stays open.
struct Prepared {
  explicit Prepared(const Plan& wanted);
  ~Prepared();
  Prepared(const Prepared&) = delete;
  Prepared& operator=(const Prepared&) = delete;

  Folder folder;
  Plan plan;
  Database database;
  uint32_t ses = 0;
};

// The prepared database of the plan, the same one every time.
Prepared& prepared(const Plan& plan);
// Gives all of them back. No session of a client may be open any more.
void drop_prepared();

}  // namespace bench

#endif
