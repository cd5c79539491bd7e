// The scratch database: made of a state, changed by the same editor that changes any other, read and
// dropped. Nothing is ever committed to it.
#include "fleet/publish/scratch.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "fleet/base/error.h"
#include "fleet/state/database_state.h"
#include "policy/change/apply.h"
#include "policy/store/stored_model.h"

namespace qim::fleet {

namespace {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "qim-fleet-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
      throw Error("no temporary directory can be made: " + std::string(strerror(errno)) +
                  "; TMPDIR says where");
    path_ = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A write session that sees a state.
class Scratch {
 public:
  explicit Scratch(const State& state)
      : database_(folder_.path() + "/db", qimctl::OpenMode::create), session_(database_) {
    const qimctl::ReadSession empty(database_);
    apply_state(&session_, empty, state);
  }
  uint32_t session() const { return session_.handle(); }

 private:
  ScratchFolder folder_;
  qimctl::Database database_;
  qimctl::WriteSession session_;
};

}  // namespace

PushTarget build_target(const State& from, Wanted wanted) {
  const Scratch scratch(from);
  qimctl::StoredModel stored = qimctl::read_stored_model(scratch.session());
  qimctl::Editor editor(scratch.session(), stored, {});
  editor.write_nodes(wanted.nodes, {});
  const qimctl::Change change =
      qimctl::difference(stored.model, std::move(wanted.model), {.prune = wanted.prune});
  qimctl::check_pruned(scratch.session(), stored, change);
  PushTarget target;
  target.lines = qimctl::difference_lines(change);
  editor.write_lists(change);
  target.state = read_state(scratch.session());
  return target;
}

std::vector<qimctl::DifferenceLine> difference_of_lists(const State& before, const State& after) {
  // There is one database at a time in a process.
  qimctl::Model old;
  {
    const Scratch scratch(before);
    old = qimctl::read_stored_model(scratch.session()).model;
  }
  const Scratch scratch(after);
  qimctl::Model wanted = qimctl::read_stored_model(scratch.session()).model;
  return qimctl::difference_lines(qimctl::difference(old, std::move(wanted), {.prune = true}));
}

}  // namespace qim::fleet
