// Databases, sessions and watches.
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include "bindings/python/module/objects.h"
#include "policy/store/history.h"
#include "rov.h"
#include "rov_edit.h"

namespace qim_python {

namespace {

using SessionObject = Closable<Session>;

DatabaseObject open_database(const std::optional<std::filesystem::path>& path,
                             const std::string& mode, const std::string& snapshot) {
  const std::pair<const char*, qimctl::OpenMode> modes[] = {{"read", qimctl::OpenMode::read},
                                                            {"change", qimctl::OpenMode::change},
                                                            {"create", qimctl::OpenMode::create}};
  const auto* found = std::find_if(std::begin(modes), std::end(modes),
                                   [&mode](const auto& each) { return mode == each.first; });
  if (found == std::end(modes)) throw py::value_error("the mode is none of read, change, create");
  const std::string directory = path ? path->string() : "";
  const py::gil_scoped_release released;
  return DatabaseObject(std::make_shared<qimctl::Database>(directory, found->second, snapshot));
}

SessionObject open_session(const DatabaseObject& object) {
  const DatabasePtr database = database_of(object);
  const py::gil_scoped_release released;
  return SessionObject(std::make_shared<Session>(database));
}

// All nodes, in the order of identifiers.
struct NodeIterator {
  SessionPtr session;
  rov_node_parms_t parms{};

  py::object next() {
    const uint32_t status = rov_node_next(session->handle(), parms.id, &parms);
    if (status == ROV_ERR_NO_ITEM) throw py::stop_iteration();
    if (status != ROV_OK) qimctl::require(status, "list the nodes");
    return read_node(session, parms);
  }
};

struct Change {
  rov_change_t change{};

  const char* kind() const {
    switch (change.kind) {
      case ROV_CHANGE_NODE_PUT:
        return "node put";
      case ROV_CHANGE_NODE_DEL:
        return "node deleted";
      case ROV_CHANGE_LINK_PUT:
        return "link put";
      case ROV_CHANGE_LINK_DEL:
        return "link deleted";
      case ROV_CHANGE_PRIV_POST:
        return "posted";
      default:
        return "gap";
    }
  }
};

// A registration for changes, on a handle of its own: a handle has one at most, and the database's own is
// asked for the newest commit by one, too.
class Registration {
 public:
  Registration(DatabasePtr database, uint64_t since) : database_(std::move(database)) {
    uint32_t library = 0;
    rov_parms_t parms{};
    require(rov_lib_init(qimctl::client_id, &library));
    require(rov_db_init_parms_init(&parms, ROV_VERSION));
    parms.p.init_id = qimctl::client_id;
    parms.p.db_path = database_->directory().c_str();
    require(rov_db_init(library, ROV_VERSION, 0, 0, ROV_PROTO, 0, &parms, ROV_DB_RDONLY, &handle_));
    wanted_.kinds = 1u << ROV_CHANGE_NODE_PUT | 1u << ROV_CHANGE_NODE_DEL |
                    1u << ROV_CHANGE_LINK_PUT | 1u << ROV_CHANGE_LINK_DEL;
    wanted_.revision[0] = static_cast<uint32_t>(since >> 32);
    wanted_.revision[1] = static_cast<uint32_t>(since);
    const uint32_t status = rov_db_ntf(handle_, &wanted_);
    if (status != ROV_OK) rov_db_close(handle_, 0);
    require(status);
  }
  ~Registration() { rov_db_close(handle_, 0); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  int descriptor() const { return wanted_.fd; }
  // The next change, or nothing when there is none now.
  std::optional<rov_change_t> next() const {
    rov_change_t change{};
    uint32_t length = 0;
    const uint32_t status = rov_process_msg(handle_, &change, sizeof change, &length);
    if (status == ROV_ERR_NO_VALUE) return {};
    require(status);
    return change;
  }

 private:
  static void require(uint32_t status) { qimctl::require(status, "follow the database's changes"); }

  DatabasePtr database_;
  uint32_t handle_ = 0;
  rov_ntf_t wanted_{};
};

// The changes of a database behind a revision.
class Watch {
 public:
  Watch(DatabasePtr database, uint64_t since, std::optional<double> timeout)
      : following_(std::make_shared<Registration>(std::move(database), since)), timeout_(timeout) {}

  // The next change, however long it takes, or until the time is over.
  Change next() {
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    for (;;) {
      const auto following = following_;
      if (following == nullptr) throw py::stop_iteration();
      if (const auto change = following->next()) return {*change};
      if (following->descriptor() < 0) throw py::stop_iteration();
      const std::chrono::duration<double> waited = clock::now() - begin;
      double left = slice;
      if (timeout_) left = std::min(left, *timeout_ - waited.count());
      if (left <= 0) throw py::stop_iteration();
      wait(following->descriptor(), left);
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
  }

  int descriptor() const {
    if (following_ == nullptr) throw py::value_error("the watch is closed");
    return following_->descriptor();
  }
  void close() { following_.reset(); }

 private:
  // Between two looks for signals and for another thread's close().
  static constexpr double slice = 0.1;

  static void wait(int descriptor, double seconds) {
    const py::gil_scoped_release released;
    pollfd ready{descriptor, POLLIN, 0};
    poll(&ready, 1, static_cast<int>(seconds * 1000) + 1);
  }

  std::shared_ptr<Registration> following_;
  std::optional<double> timeout_;
};

// Both are what "with" closes.
template <typename T>
void add_closing(py::class_<T>& made, const char* doc) {
  made.def("close", &T::close, doc)
      .def("__enter__", [](const py::object& self) { return self; })
      .def("__exit__", [](T& self, const py::args&) { self.close(); });
}

void add_changes(py::module_& module) {
  py::class_<Change>(module, "Change", "A change that was committed.")
      .def_property_readonly(
          "revision", [](const Change& of) { return qimctl::joined(of.change.revision); },
          "the commit")
      .def_property_readonly("kind", &Change::kind,
                             "'node put', 'node deleted', 'link put', 'link deleted', 'posted', or "
                             "'gap': changes were lost, read everything again")
      .def_property_readonly(
          "node", [](const Change& of) { return qim_from_rov_node_id(&of.change.node); },
          "the node's identifier, 0 = none")
      .def_property_readonly(
          "field", [](const Change& of) { return of.change.field; },
          "the link's field code, or the key of private data")
      .def_property_readonly(
          "user", [](const Change& of) { return qimctl::joined(of.change.user); },
          "who committed, 64 bits");
  py::class_<Watch> watch(module, "Watch", "Changes, one after the other as they are committed.");
  watch.def("__iter__", [](const py::object& self) { return self; })
      .def("__next__", &Watch::next)
      .def("fileno", &Watch::descriptor, "readable when there may be changes, for select()");
  add_closing(watch, "Ends it; a thread that waits in it gets no more changes.");
}

void add_session(py::module_& module) {
  py::class_<NodeIterator>(module, "Nodes", "Nodes, one after the other.")
      .def("__iter__", [](const py::object& self) { return self; })
      .def("__next__", &NodeIterator::next);
  py::class_<SessionObject> session(
      module, "Session", "One commit of a database, held still. For one thread at a time.");
  session
      .def(
          "node",
          [](const SessionObject& self, uint32_t id) { return read_node(self.get("session"), id); },
          py::arg("id"), "The node of that identifier. Error ROV_ERR_NO_ITEM when there is none.")
      .def(
          "nodes", [](const SessionObject& self) { return NodeIterator{self.get("session")}; },
          "All nodes in the order of identifiers.")
      .def("__iter__", [](const SessionObject& self) { return NodeIterator{self.get("session")}; });
  add_closing(session, "Ends it. Nodes that were read keep it until they are gone.");
}

}  // namespace

void add_databases(py::module_& module) {
  add_changes(module);
  add_session(module);
  py::class_<DatabaseObject> database(module, "Database",
                                      "A database, one at a time in a process.");
  database
      .def(py::init(&open_database), py::arg("path") = py::none(), py::arg("mode") = "read",
           py::arg("snapshot") = "",
           "path: its directory; None for $ROV_DB, else ./qim.db. mode: 'read'; 'change', there "
           "must be one; 'create'. snapshot: read that one.")
      .def("session", &open_session, "A session on the newest commit.")
      .def(
          "watch",
          [](const DatabaseObject& self, uint64_t since, std::optional<double> timeout) {
            return Watch(database_of(self), since, timeout);
          },
          py::arg("since") = 0, py::arg("timeout") = py::none(),
          "Changes behind revision `since`, 0 = from now on. timeout: seconds to wait for the next "
          "one, None = for ever.")
      .def_property_readonly(
          "revision",
          [](const DatabaseObject& self) { return qimctl::newest_revision(*database_of(self)); },
          "the number of the newest commit")
      .def_property_readonly(
          "path", [](const DatabaseObject& self) { return database_of(self)->directory(); },
          "its directory");
  add_closing(database, "Closes it, as soon as its sessions and watches are gone.");
}

}  // namespace qim_python
