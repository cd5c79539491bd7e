// Reading policy files.
#include "tools/commands/policy_files.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "policy/base/policy_check.h"
#include "policy/base/text.h"
#include "policy/change/change.h"
#include "policy/formats/native/native.h"
#include "tools/base/complaint.h"
#include "tools/base/progress.h"

namespace qimctl {

namespace {

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

class Reader {
 public:
  Reader(const FileOptions& options, std::vector<Source> sources) : options_(options) {
    files_.sources = std::move(sources);
  }

  PolicyFiles read() {
    for (Source& source : files_.sources) {
      const Phase phase("reading " + printable(source.file), progress_wanted());
      try {
        read(source);
      } catch (const InputError& error) {
        problems_.insert(problems_.end(), error.problems().begin(), error.problems().end());
      }
    }
    refuse_if_any();
    const Phase phase("checking", progress_wanted());
    problems_ = check_policies(files_.nodes);
    refuse_if_any();
    try {
      files_.model = merge_models(std::move(models_));
    } catch (const InputError& error) {
      files_.refuse(error);
    }
    if (options_.all_lines || files_.has_losses()) fill_all_lines(files_.sources, files_.findings);
    if (!files_.emptied.empty()) fill_all_lines(files_.sources, files_.emptied);
    return std::move(files_);
  }

 private:
  void read(Source& source) {
    const Format format = format_of(source.text, source.file, options_.format);
    if (format == Format::native) {
      Policy policy = read_native(source.text, source.file);
      add(std::move(policy.findings));
      files_.nodes.push_back(std::move(policy));
      return;
    }
    ModelInput input = read_model(source.text, source.file, format, options_.reading);
    models_.push_back(std::move(input.model));
    // Texts are looked at again for lines that are not known; they are as large as what was read.
    const bool has_lines =
        std::all_of(input.findings.begin(), input.findings.end(),
                    [](const Finding& finding) { return finding.place.line != 0; });
    if (has_lines) std::string().swap(source.text);
    add(std::move(input.findings));
    for (const EmptiedList& list : input.emptied) files_.emptied.push_back(problem_of(list));
  }

  void add(std::vector<Finding> findings) {
    std::move(findings.begin(), findings.end(), std::back_inserter(files_.findings));
  }

  void refuse_if_any() {
    if (!problems_.empty()) qimctl::refuse(files_.sources, std::move(problems_));
  }

  const FileOptions& options_;
  PolicyFiles files_;
  std::vector<Model> models_;
  std::vector<Problem> problems_;
};

}  // namespace

void PolicyFiles::refuse(const InputError& error) const {
  qimctl::refuse(sources, error.problems());
}

size_t PolicyFiles::count(Fate fate) const {
  size_t count = 0;
  for (const Finding& finding : findings) count += finding.fate == fate ? 1 : 0;
  return count;
}

bool PolicyFiles::has_losses() const {
  return count(Fate::approximated) + count(Fate::skipped) != 0;
}

std::string PolicyFiles::text(bool verbose) const {
  std::string text;
  for (const Finding& finding : findings) {
    if (finding.fate == Fate::accepted && !verbose) continue;
    text += std::string(fate_name(finding.fate)) + "  " + harmless(to_string(finding.place)) +
            ": " + harmless(finding.what) + "\n";
  }
  return text;
}

JsonValue PolicyFiles::json() const {
  JsonValue list = JsonValue::array();
  for (const Finding& finding : findings) {
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

std::string PolicyFiles::tally() const {
  return std::to_string(count(Fate::accepted)) + " accepted, " +
         std::to_string(count(Fate::approximated)) + " approximated, " +
         std::to_string(count(Fate::skipped)) + " skipped";
}

void say_losses(const PolicyFiles& files) {
  for (const Finding& finding : files.findings)
    if (finding.fate != Fate::accepted) complain(Problem{finding.place, finding.what});
}

PolicyFiles read_files(const FileOptions& options) {
  return read_files(options, read_sources(options));
}

PolicyFiles read_files(const FileOptions& options, std::vector<Source> sources) {
  const Abandoning abandoning;
  return Reader(options, std::move(sources)).read();
}

std::vector<Source> read_sources(const FileOptions& options) {
  const Abandoning abandoning;
  std::vector<Source> sources;
  for (const std::string& file : options.files) sources.push_back(read_source(file));
  return sources;
}

}  // namespace qimctl
