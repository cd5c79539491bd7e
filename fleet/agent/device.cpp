// Taking revisions, going back, and looking for drift.
#include "fleet/agent/device.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <set>

#include "fleet/base/compression.h"
#include "fleet/base/files.h"
#include "rov_edit.h"

namespace qim::fleet {

namespace {

constexpr size_t most_kept = size_t{1} << 30;
constexpr mode_t kept_mode = 0600;
constexpr const char* back_name = "back";

std::string line_of(const Held& held) {
  return std::to_string(held.number) + " " + to_hex(held.state);
}

std::string way_back_head(const Held& from, uint64_t number, const Digest& state) {
  return line_of(from) + " to " + std::to_string(number) + " " + to_hex(state) + "\n";
}

std::string snapshot_head(const Held& held) {
  return line_of(held) + "\n";
}

[[noreturn]] void another_state(const std::string& whose, const Digest& found,
                                const Digest& wanted) {
  throw RefusedError(whose + " makes the state " + short_hex(found) + ", not " + short_hex(wanted) +
                     " as its publisher says");
}

// The commit that this process reads: the newest, with a session that was begun as the only writer. To
// begin following the database says it, too, and takes milliseconds.
uint64_t commit_read(const qimctl::Database& database) {
  uint64_t newest = 0;
  const auto look = [](const rov_holder_t* holder, void* found) {
    auto& most = *static_cast<uint64_t*>(found);
    const bool is_ours = holder->pid == static_cast<uint32_t>(getpid());
    if (is_ours && holder->what == ROV_HOLDER_READER) most = std::max(most, holder->revision);
  };
  qimctl::require(rov_edit_holders(database.handle(), look, &newest), "see which commit is read");
  return newest;
}

// The nodes that were touched, and those that led to nodes which are gone.
std::vector<uint32_t> with_those_left(uint32_t before, const State& had, const State& has,
                                      std::set<uint32_t> nodes) {
  size_t at = 0;
  for (size_t n = 0; n < had.size(); n++) {
    const uint32_t id = had.at(n).id;
    while (at < has.size() && has.at(at).id < id) at++;
    if (at < has.size() && has.at(at).id == id) continue;
    const std::vector<uint32_t> referrers = referrers_of(before, id);
    nodes.insert(referrers.begin(), referrers.end());
  }
  return {nodes.begin(), nodes.end()};
}

// "" when there is none.
std::string mark_text(uint32_t session, const char* name) {
  std::array<char, ROV_MARK_BYTES> bytes;
  uint32_t length = 0;
  const uint32_t status = rov_mark_get(session, name, bytes.size(), bytes.data(), &length);
  if (status == ROV_ERR_NO_VALUE) return "";
  qimctl::require(status, "read the database's mark");
  return std::string(bytes.data(), length);
}

std::optional<std::string> kept_in(const std::string& text, const std::string& head) {
  if (text.compare(0, head.size(), head) != 0) return std::nullopt;
  return decompress(std::string_view(text).substr(head.size()), most_kept);
}

}  // namespace

Held read_mark(uint32_t session) {
  const std::string text = mark_text(session, mark_name);
  return text.empty() ? Held{} : parse_held(text);
}

void write_mark(uint32_t session, const Held& held) {
  const std::string text = to_text(held);
  qimctl::require(
      rov_edit_mark_put(session, mark_name, text.data(), static_cast<uint32_t>(text.size())),
      "mark the database");
}

// What a commit is made of.
struct Device::Plan {
  const State* whole = nullptr;  // one of both
  std::vector<std::vector<NodeChange>> changes;
  Held held;           // afterwards
  std::string whose;   // in complaints: "revision 7"
  bool mends = false;  // the database may be anything before
};

Device::Device(const DeviceOptions& options)
    : options_(options), database_(options.database, qimctl::OpenMode::create) {}

Held Device::held() const {
  return read_mark(qimctl::ReadSession(database_).handle());
}

void Device::require_base(uint32_t session, const Held& held, uint64_t revision) {
  if (digests_of_ != revision) digests_.read(session);
  digests_of_ = revision;
  if (held.number == 0 || digests_.digest() == held.state) return;
  throw DriftError("the database is not what revision " + std::to_string(held.number) +
                   " made it: its state is " + short_hex(digests_.digest()) + ", not " +
                   short_hex(held.state));
}

Held Device::commit(qimctl::WriteSession& writer, const Plan& plan) {
  const qimctl::ReadSession before(database_);  // nobody else commits now
  const Held old = read_mark(before.handle());
  const uint64_t revision = commit_read(database_);
  if (!plan.mends) require_base(before.handle(), old, revision);
  if (plan.mends) digests_.read(before.handle());
  digests_of_ = 0;

  std::set<uint32_t> touched;
  if (plan.whole != nullptr) {
    const StateEdits edits = apply_state(&writer, before, *plan.whole);
    touched.insert(edits.touched.begin(), edits.touched.end());
  }
  for (const std::vector<NodeChange>& changes : plan.changes) {
    const StateEdits edits = apply_changes(writer, changes);
    touched.insert(edits.touched.begin(), edits.touched.end());
  }
  const std::vector<uint32_t> nodes(touched.begin(), touched.end());
  digests_.refresh(writer.handle(), nodes);
  if (digests_.digest() != plan.held.state) {
    another_state(plan.whose, digests_.digest(), plan.held.state);
  }

  check(before.handle(), writer.handle(), touched, plan);
  write_mark(writer.handle(), plan.held);
  writer.commit();
  digests_of_ = revision + 1;
  return plan.held;
}

// Looks at what was touched, and keeps the way back.
void Device::check(uint32_t before, uint32_t after, const std::set<uint32_t>& touched,
                   const Plan& plan) const {
  const std::vector<uint32_t> nodes(touched.begin(), touched.end());
  const State parts = read_nodes(before, nodes);
  // A database that was empty had nothing that could be missing, nor is there a way back to it.
  const bool first = parts.size() == 0 && plan.held.previous == 0;
  const State made = first ? State() : read_nodes(after, nodes);
  const std::string wrong = check_nodes(
      after, first ? nodes : with_those_left(before, parts, made, touched), options_.checks);
  if (!wrong.empty()) throw RefusedError(wrong);
  if (plan.held.previous != 0) keep_way_back(after, plan.held, difference(made, parts));
}

void Device::keep_way_back(uint32_t session, const Held& held, const std::string& back) const {
  const std::string text = way_back_head(held, held.previous, held.previous_state) + compress(back);
  if (text.size() > ROV_MARK_BYTES) {
    write_file(options_.directory + "/back", text, kept_mode);
    return;
  }
  qimctl::require(
      rov_edit_mark_put(session, back_name, text.data(), static_cast<uint32_t>(text.size())),
      "keep the way back in the database");
}

Held Device::take(const Supply& supply, const Target& target, const std::string& scope) {
  qimctl::WriteSession writer(database_);
  const Held old = held();
  Plan plan;
  plan.held = {scope,     target.number,          target.state, old.number,
               old.state, target.confirm_seconds, seen_};
  plan.whose = "revision " + std::to_string(target.number);
  if (!supply.snapshot) {
    for (const std::string& step : supply.differences)
      plan.changes.push_back(parse_difference(step));
    return commit(writer, plan);
  }
  State whole = *supply.snapshot;
  for (const std::string& step : supply.differences) whole = changed(whole, parse_difference(step));
  plan.whole = &whole;
  return commit(writer, plan);
}

std::optional<std::string> Device::kept(const std::string& name, const std::string& head) const {
  const std::string file = options_.directory + "/" + name;
  if (!file_exists(file)) return std::nullopt;
  return kept_in(read_file(file, most_kept), head);
}

std::optional<std::string> Device::way_back(const Held& from, const Target& target) const {
  const std::string head = way_back_head(from, target.number, target.state);
  auto back = kept_in(mark_text(qimctl::ReadSession(database_).handle(), back_name), head);
  return back ? back : kept("back", head);
}

bool Device::can_go_back(const Target& target) const {
  return way_back(held(), target).has_value();
}

Held Device::go_back(const Target& target) {
  qimctl::WriteSession writer(database_);
  const Held old = held();
  const auto back = way_back(old, target);
  if (!back) {
    throw Error("there is no way back to revision " + std::to_string(target.number) +
                " on this device");
  }
  Plan plan;
  plan.changes.push_back(parse_difference(*back));
  plan.held = {old.scope, target.number, target.state, 0, {}, 0, seen_};
  plan.whose = "the way back to revision " + std::to_string(target.number);
  return commit(writer, plan);
}

bool Device::can_repair() const {
  return kept("snapshot", snapshot_head(held())).has_value();
}

Held Device::repair(const Supply* fetched) {
  qimctl::WriteSession writer(database_);
  Plan plan;
  plan.held = held();
  plan.whose = "what is kept of revision " + std::to_string(plan.held.number);
  plan.mends = true;
  State whole;
  if (fetched == nullptr) {
    whole = State::parse(kept("snapshot", snapshot_head(plan.held)).value());
  } else {
    whole = *fetched->snapshot;
    for (const std::string& step : fetched->differences) {
      whole = changed(whole, parse_difference(step));
    }
  }
  if (state_digest(whole) != plan.held.state) {
    another_state(plan.whose, state_digest(whole), plan.held.state);
  }
  // What differs was somebody else's, and there is no way back to it.
  plan.held.previous = 0;
  plan.held.seen = seen_;
  plan.whole = &whole;
  return commit(writer, plan);
}

std::string Device::find_drift() {
  const qimctl::ReadSession session(database_);
  const Held now = read_mark(session.handle());
  digests_of_ = 0;
  digests_.read(session.handle());
  const Digest found = digests_.digest();
  if (now.number == 0) return "";
  if (found != now.state) {
    return "the state is " + short_hex(found) + ", not " + short_hex(now.state) +
           " as of revision " + std::to_string(now.number);
  }
  keep_snapshot(now, session.handle());
  return "";
}

void Device::keep_snapshot(const Held& held, uint32_t session) const {
  if (can_repair()) return;
  write_file(options_.directory + "/snapshot",
             snapshot_head(held) + compress(read_state(session).bytes()), kept_mode);
}

}  // namespace qim::fleet
