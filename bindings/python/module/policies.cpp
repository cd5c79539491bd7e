// Access lists: what they decide about packets, and files into databases.
#include <pybind11/stl.h>

#include <string>
#include <utility>
#include <vector>

#include "bindings/python/module/objects.h"
#include "policy/base/criteria.h"
#include "policy/change/apply.h"
#include "policy/change/referrers.h"
#include "policy/change/words.h"
#include "policy/store/history.h"
#include "policy/store/stored_model.h"
#include "policy/trace/packet_bytes.h"
#include "policy/trace/packet_words.h"
#include "tools/commands/place.h"
#include "tools/commands/policy_files.h"

namespace qim_python {

namespace {

// A way in which a packet may be decided.
struct Outcome {
  std::string verdict;
  bool log = false;
  std::string policer;
  std::string list;
  py::object entry;
};

struct Trace {
  bool certain = false;
  std::string packet;
  std::vector<Outcome> outcomes;
};

// The lists of one commit. The model stays where it is as long as the object lives.
struct Policy {
  qimctl::StoredModel stored;
};

Outcome to_outcome(const qimctl::PlaceToAsk& place, const qimctl::Outcome& outcome) {
  const qimctl::AccessList& list = *place.lists[outcome.list];
  Outcome made;
  made.verdict = qimctl::action_name(static_cast<uint32_t>(outcome.verdict.forwarding));
  made.log = outcome.verdict.log;
  made.policer = outcome.verdict.policer;
  made.list = list.name;
  made.entry = outcome.entry ? py::object(py::str(list.entries[*outcome.entry].name)) : py::none();
  return made;
}

Trace trace_packet(const Policy& policy, const std::string& where, qimctl::Packet packet) {
  const qimctl::PlaceToAsk place = qimctl::find_place(policy.stored.model, where);
  if (packet.ingress.empty()) packet.ingress = place.ingress;
  if (packet.egress.empty()) packet.egress = place.egress;
  const qimctl::TraceResult result = qimctl::trace_once(place.lists, packet);
  Trace trace{result.is_certain(), qimctl::packet_words(packet), {}};
  for (const qimctl::Outcome& outcome : result.outcomes)
    trace.outcomes.push_back(to_outcome(place, outcome));
  return trace;
}

Trace trace_words(const Policy& policy, const std::string& where, const std::string& packet) {
  return trace_packet(policy, where, qimctl::packet_from_words(packet));
}

Trace trace_frame(const Policy& policy, const std::string& where, const py::bytes& frame) {
  const std::string_view bytes = frame;
  const std::vector<uint8_t> copy(bytes.begin(), bytes.end());
  return trace_packet(policy, where, qimctl::packet_from_bytes(copy, qimctl::FrameKind::ethernet));
}

std::shared_ptr<Policy> read_policy(const DatabaseObject& object) {
  const DatabasePtr database = database_of(object);
  const py::gil_scoped_release released;
  const qimctl::ReadSession session(*database);
  return std::make_shared<Policy>(Policy{qimctl::read_stored_model(session)});
}

// What applying files did.
struct Applied {
  std::vector<std::pair<std::string, std::string>> lists;
  size_t edits = 0;
  uint64_t revision = 0;
  std::string findings;
};

[[noreturn]] void refuse_losses(const qimctl::PolicyFiles& files) {
  std::vector<qimctl::Problem> problems = files.emptied;
  if (problems.empty()) problems.push_back({{}, files.text(false)});
  throw qimctl::InputError(std::move(problems));
}

Applied write(const qimctl::Database& database, qimctl::PolicyFiles& files, bool prune,
              bool dry_run) {
  qimctl::WriteSession session(database);
  qimctl::StoredModel stored = qimctl::read_stored_model(session.handle());
  qimctl::Editor editor(session.handle(), stored, nullptr);
  editor.write_nodes(files.nodes, {});
  const qimctl::Change change =
      qimctl::difference(stored.model, std::move(files.model), {.prune = prune});
  qimctl::check_pruned(session.handle(), stored, change);
  editor.write_lists(change);
  Applied applied;
  applied.edits = editor.counts().edits;
  applied.findings = files.text(false);
  for (const qimctl::ListChange& list : change.lists)
    applied.lists.emplace_back(list.name(), qimctl::change_summary(list));
  if (applied.edits != 0 && !dry_run) session.commit();
  return applied;
}

qimctl::Format format_named(const std::string& name) {
  if (name == "guess") return qimctl::Format::guess;
  for (const qimctl::FormatName& each : qimctl::format_names)
    if (each.name == name) return each.format;
  throw qimctl::InputError({}, "there is no format \"" + name + "\"");
}

Applied apply(const DatabaseObject& object, const std::vector<std::string>& files,
              const std::string& format, bool prune, bool dry_run, bool lossy) {
  const DatabasePtr database = database_of(object);
  const py::gil_scoped_release released;
  qimctl::FileOptions options;
  options.files = files;
  options.format = format_named(format);
  qimctl::PolicyFiles read = qimctl::read_files(options);
  if ((read.has_losses() && !lossy) || !read.emptied.empty()) refuse_losses(read);
  Applied applied = write(*database, read, prune, dry_run);
  applied.revision = qimctl::newest_revision(*database);
  return applied;
}

void add_trace(py::module_& module) {
  py::class_<Outcome>(module, "Outcome", "A way in which a packet may be decided.")
      .def_readonly("verdict", &Outcome::verdict, "'accept', 'drop' or 'reject'")
      .def_readonly("log", &Outcome::log, "whether it is logged")
      .def_readonly("policer", &Outcome::policer, "the name of the policer, '' = none")
      .def_readonly("list", &Outcome::list, "the name of the list")
      .def_readonly("entry", &Outcome::entry, "that of the entry, None = the list's default");
  py::class_<Trace>(module, "Trace", "What access lists decide about a packet.")
      .def_readonly("certain", &Trace::certain, "whether all ways forward it, or none does")
      .def_readonly("packet", &Trace::packet, "the packet in words")
      .def_readonly("outcomes", &Trace::outcomes,
                    "the ways, the last one when nothing that is left open matches")
      .def_property_readonly(
          "verdict",
          [](const Trace& trace) {
            return trace.certain ? py::object(py::str(trace.outcomes.back().verdict)) : py::none();
          },
          "'accept', 'drop' or 'reject'; None when that can't be told");
}

}  // namespace

void add_policies(py::module_& module) {
  add_trace(module);
  py::class_<Policy, std::shared_ptr<Policy>>(module, "Policy", "The access lists of a commit.")
      .def_property_readonly(
          "lists",
          [](const Policy& policy) {
            std::vector<std::string> names;
            for (const qimctl::AccessList& list : policy.stored.model.lists)
              names.push_back(list.name);
            return names;
          },
          "the names of the lists")
      .def("trace", &trace_frame, py::arg("where"), py::arg("packet"),
           "where: 'if:NAME', 'if:NAME/in', 'if:NAME/out', or the name of a list. packet: words, "
           "'tcp 192.0.2.5:4000 > 198.51.100.7:22 syn', or the bytes of an Ethernet frame. "
           "LookupError when there is no such place, InputError for other words.")
      .def("trace", &trace_words, py::arg("where"), py::arg("packet"));
  py::class_<Applied>(module, "Applied", "What applying files did.")
      .def_readonly("lists", &Applied::lists, "each list's name and what became of it")
      .def_readonly("edits", &Applied::edits, "how many calls to the database it took")
      .def_readonly("revision", &Applied::revision, "the newest commit")
      .def_readonly("findings", &Applied::findings, "what could not be carried as it is");
  auto database = py::reinterpret_borrow<py::class_<DatabaseObject>>(module.attr("Database"));
  database.def("policy", &read_policy, "The access lists of the newest commit.")
      .def("apply", &apply, py::arg("files"), py::kw_only(), py::arg("format") = "guess",
           py::arg("prune") = false, py::arg("dry_run") = false, py::arg("lossy") = false,
           "Makes the database hold what the files say, in one commit or not at all. format: "
           "'native', 'rfc8519', 'openconfig', 'iptables', 'switch', or 'guess'. prune: lists that "
           "no file names go. lossy: accepts what can't be carried as it is, else InputError.");
}

}  // namespace qim_python
