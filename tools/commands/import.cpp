// `qimctl import`: policy files into a database.
#include "tools/commands/import.h"

#include <utility>

#include "policy/base/input_file.h"
#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/base/text.h"
#include "policy/formats/native/native.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/store/list_nodes.h"
#include "tools/base/output.h"
#include "tools/nodes/write.h"

namespace qimctl {

namespace {

Policy nodes_of(ModelInput input) {
  return {make_nodes(input.model), std::move(input.findings)};
}

Policy read_policy(const Source& source, Format wanted) {
  const Format format = wanted == Format::guess ? guess_format(source.text) : wanted;
  switch (format) {
    case Format::native:
      return read_native(source.text, source.file);
    case Format::rfc8519:
      return nodes_of(read_rfc8519(source.text, source.file));
    case Format::guess:
      break;
  }
  throw InputError(
      {source.file, 0, ""},
      "is in no format known here; say which with --format native or --format rfc8519");
}

// Reads all files, so that what is wrong in any of them is said at once.
std::vector<Policy> read_policies(const std::vector<Source>& sources, Format format) {
  std::vector<Policy> policies;
  std::vector<Problem> problems;
  for (const Source& source : sources) {
    try {
      policies.push_back(read_policy(source, format));
    } catch (const InputError& error) {
      problems.insert(problems.end(), error.problems().begin(), error.problems().end());
    }
  }
  if (!problems.empty()) refuse(sources, std::move(problems));
  std::vector<Problem> conflicts = check_policies(policies);
  if (!conflicts.empty()) refuse(sources, std::move(conflicts));
  return policies;
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
      text += std::string(fate_name(finding.fate)) + "  " + printable(to_string(finding.place)) +
              ": " + printable(finding.what) + "\n";
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

Format guess_format(const std::string& text) {
  const bool native = text.find('"' + std::string(native_format_name) + '"') != text.npos;
  const bool rfc8519 = text.find('"' + std::string(rfc8519_root) + '"') != text.npos;
  if (native == rfc8519) return Format::guess;
  return native ? Format::native : Format::rfc8519;
}

bool import_files(const ImportOptions& options) {
  std::vector<Source> sources;
  for (const std::string& file : options.files) sources.push_back(read_source(file));
  const std::vector<Policy> policies = read_policies(sources, options.format);
  const Report report(sources, policies);
  if (report.losses() != 0 && !options.lossy) {
    print_report(options, report, nullptr);
    complain(
        "nothing was imported, for not everything above can be carried as it is; "
        "repeat with --lossy to accept that");
    return false;
  }
  const StoreCounts counts = store(options, sources, policies);
  print_report(options, report, &counts);
  return true;
}

}  // namespace qimctl
