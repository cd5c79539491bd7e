// What the objects of Python stand for.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>

#include "policy/store/database.h"
#include "policy/store/stored_node.h"
#include "qim.h"

namespace qim_python {

namespace py = pybind11;

// What an object of Python holds until it is closed.
template <typename T>
class Closable {
 public:
  explicit Closable(std::shared_ptr<T> held) : held_(std::move(held)) {}

  std::shared_ptr<T> get(const char* what) const {
    if (held_ == nullptr) throw py::value_error(std::string("the ") + what + " is closed");
    return held_;
  }
  void close() { held_.reset(); }

 private:
  std::shared_ptr<T> held_;
};

using DatabasePtr = std::shared_ptr<qimctl::Database>;
using DatabaseObject = Closable<qimctl::Database>;
inline DatabasePtr database_of(const DatabaseObject& object) {
  return object.get("database");
}

// A session with the database that it must not outlive. A session serves one thread at a time, so it is
// used under the interpreter's lock only; what reads for longer opens one of its own.
struct Session {
  explicit Session(const DatabasePtr& from) : database(from), read(*from) {}

  uint32_t handle() const { return read.handle(); }

  DatabasePtr database;
  qimctl::ReadSession read;
};
using SessionPtr = std::shared_ptr<Session>;

// A node: its record as clients get it, without what hangs on pointers, which is read on demand.
struct Node {
  SessionPtr session;
  qim_node_t record{};
  bool is_understood = true;  // else only the identifier is known
};

struct Link {
  uint16_t field = 0;
  uint32_t node = 0;
  uint32_t node2 = 0;
  uint32_t val = 0;
  uint16_t tag = 0;
};

void add_errors(py::module_& module);
void add_nodes(py::module_& module);
void add_databases(py::module_& module);
void add_policies(py::module_& module);

// The node of that identifier as an object of its type.
py::object read_node(const SessionPtr& session, uint32_t id);
// What a whole database is read by: the node of these parameters.
py::object read_node(const SessionPtr& session, const rov_node_parms_t& parms);

py::bytes to_bytes(const void* data, size_t size);

}  // namespace qim_python
