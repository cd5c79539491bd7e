#include "tools/commands/import.h"

#include "policy/base/input_file.h"
#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/base/progress.h"
#include "policy/base/text.h"
#include "policy/formats/native/native.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/store/store_policy.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

using nlohmann::ordered_json;

Policy read_policy(const Source& source, Format wanted) {
  const Format format = wanted == Format::guess ? guess_format(source.text) : wanted;
  switch (format) {
    case Format::native:
      return read_native(source.text, source.file);
    case Format::rfc8519:
      return read_rfc8519(source.text, source.file);
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

  ordered_json json() const {
    ordered_json list = ordered_json::array();
    for (const Finding& finding : findings_) {
      list.push_back({{"fate", fate_name(finding.fate)},
                      {"file", finding.place.file},
                      {"line", finding.place.line},
                      {"path", finding.place.path},
                      {"what", finding.what}});
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
    ordered_json value;
    value["imported"] = stored != nullptr;
    value["nodes"] = stored == nullptr ? 0 : stored->nodes;
    value["links"] = stored == nullptr ? 0 : stored->links;
    value["replaced"] = stored == nullptr ? 0 : stored->replaced;
    value["findings"] = report.json();
    print(value.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
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
    const StoreCounts counts = write_policies(
        policies, session, {.replace = options.replace, .progress = progress_wanted()});
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
    return false;
  }
  const StoreCounts counts = store(options, sources, policies);
  print_report(options, report, &counts);
  return true;
}

}  // namespace qimctl
