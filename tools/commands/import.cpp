// `qimctl import`: policy files into a database.
#include "tools/commands/import.h"

#include <utility>

#include "policy/base/input_file.h"
#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/base/text.h"
#include "policy/formats/native/native.h"
#include "policy/store/list_nodes.h"
#include "tools/base/output.h"
#include "tools/nodes/write.h"

namespace qimctl {

namespace {

// What the files hold, and the lists among it that would come out empty.
struct Input {
  std::vector<Policy> policies;
  std::vector<Problem> emptied;
};

void read_policy(const Source& source, const ImportOptions& options, Input& input) {
  const Format format = format_of(source.text, source.file, options.format);
  if (format == Format::native) {
    input.policies.push_back(read_native(source.text, source.file));
    return;
  }
  ModelInput read = read_model(source.text, source.file, format, options.reading);
  input.policies.push_back({make_nodes(read.model), std::move(read.findings)});
  for (const EmptiedList& list : read.emptied) input.emptied.push_back(problem_of(list));
}

// Reads all files, so that what is wrong in any of them is said at once.
Input read_policies(const std::vector<Source>& sources, const ImportOptions& options) {
  Input input;
  std::vector<Problem> problems;
  for (const Source& source : sources) {
    try {
      read_policy(source, options, input);
    } catch (const InputError& error) {
      problems.insert(problems.end(), error.problems().begin(), error.problems().end());
    }
  }
  if (!problems.empty()) refuse(sources, std::move(problems));
  std::vector<Problem> conflicts = check_policies(input.policies);
  if (!conflicts.empty()) refuse(sources, std::move(conflicts));
  fill_all_lines(sources, input.emptied);
  return input;
}

const char* fate_name(Fate fate) {
  switch (fate) {
    case Fate::accepted:
      return "accepted";
    case Fate::approximated:
      return "approximated";
    case Fate::skipped:
      break;
  }
  return "skipped";
}

// What became of the input.
class Report {
 public:
  Report(const std::vector<Source>& sources, const std::vector<Policy>& policies) {
    for (const Policy& policy : policies) {
      findings_.insert(findings_.end(), policy.findings.begin(), policy.findings.end());
    }
    fill_all_lines(sources, findings_);
  }

  size_t count(Fate fate) const {
    size_t count = 0;
    for (const Finding& finding : findings_) count += finding.fate == fate ? 1 : 0;
    return count;
  }

  size_t losses() const { return count(Fate::approximated) + count(Fate::skipped); }

  std::string text(bool verbose) const {
    std::string text;
    for (const Finding& finding : findings_) {
      if (finding.fate == Fate::accepted && !verbose) continue;
      text += std::string(fate_name(finding.fate)) + "  " + harmless(to_string(finding.place)) +
              ": " + harmless(finding.what) + "\n";
    }
    return text;
  }

  JsonValue json() const {
    JsonValue list = JsonValue::array();
    for (const Finding& finding : findings_) {
      JsonValue item;
      item.set("fate", fate_name(finding.fate));
      item.set("file", finding.place.file);
      item.set("line", finding.place.line);
      item.set("path", finding.place.path);
      item.set("what", finding.what);
      list.add(std::move(item));
    }
    return list;
  }

 private:
  std::vector<Finding> findings_;
};

std::string tally(const Report& report) {
  return std::to_string(report.count(Fate::accepted)) + " accepted, " +
         std::to_string(report.count(Fate::approximated)) + " approximated, " +
         std::to_string(report.count(Fate::skipped)) + " skipped";
}

void print_report(const ImportOptions& options, const Report& report, const StoreCounts* stored) {
  if (options.json) {
    const StoreCounts counts = stored == nullptr ? StoreCounts() : *stored;
    JsonValue value;
    value.set("imported", stored != nullptr);
    value.set("nodes", counts.nodes);
    value.set("links", counts.links);
    value.set("replaced", counts.replaced);
    value.set("findings", report.json());
    print(value.dump_repaired(2) + "\n");
    return;
  }
  print(report.text(options.verbose));
  if (stored == nullptr) return;
  std::string line = "imported " + counted(stored->nodes, "node") + " and " +
                     counted(stored->links, "link") + " from " +
                     counted(options.files.size(), "file");
  if (stored->replaced != 0) line += ", " + std::to_string(stored->replaced) + " replaced";
  if (report.losses() + report.count(Fate::accepted) != 0) line += ": " + tally(report);
  print(line + "\n");
}

StoreCounts store(const ImportOptions& options, const std::vector<Source>& sources,
                  const std::vector<Policy>& policies) {
  const Database database(options.database, OpenMode::create);
  WriteSession session(database);
  try {
    const StoreCounts counts = write_with_progress(policies, session, {.replace = options.replace});
    session.commit();
    return counts;
  } catch (const InputError& error) {
    refuse(sources, error.problems());
  }
}

}  // namespace

bool import_files(const ImportOptions& options) {
  std::vector<Source> sources;
  for (const std::string& file : options.files) sources.push_back(read_source(file));
  const Input input = read_policies(sources, options);
  const Report report(sources, input.policies);
  if (report.losses() != 0 && !options.lossy) {
    print_report(options, report, nullptr);
    complain(
        "nothing was imported, for not everything above can be carried as it is; "
        "repeat with --lossy to accept that");
    return false;
  }
  if (!input.emptied.empty()) {
    print_report(options, report, nullptr);
    for (const Problem& problem : input.emptied)
      complain(to_string(problem.place) + ": " + problem.message);
    return false;
  }
  const StoreCounts counts = store(options, sources, input.policies);
  print_report(options, report, &counts);
  return true;
}

}  // namespace qimctl
