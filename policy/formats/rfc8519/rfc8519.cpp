// Finding the access lists in a document, and reading them into a model.
#include "policy/formats/rfc8519/rfc8519.h"

#include <utility>

#include "policy/base/json_text.h"
#include "policy/formats/rfc8519/reader.h"

namespace qimctl {

namespace {

using formats::in_quotes;
using formats::Notes;
using formats::Value;

// Finds the access lists in `document`, and what lies beside them on the way there.
class RootFinder {
 public:
  explicit RootFinder(Notes& notes) : notes_(notes) {}

  // Nothing, with a problem reported, unless they are there once.
  Value find(JsonView document) {
    search({document});
    if (!found_) {
      notes_.problem(Value{document},
                     "has no access lists; they are in a member " + in_quotes(rfc8519_root));
    }
    return found_;
  }

  // Those beside the access lists.
  const std::vector<Value>& profiles() const { return profiles_; }

 private:
  // True when `value` is or holds the access lists.
  bool search(const Value& value) {
    if (!value.json.is_object()) return false;
    bool here = false;
    std::vector<std::pair<std::string_view, Value>> beside;
    for (const auto& [name, json] : value.json.members()) {
      const Value member{json};
      if (name == rfc8519_root) {
        take(member);
        here = true;
      } else if (search(member)) {
        here = true;
      } else {
        beside.emplace_back(name, member);
      }
    }
    if (!here) return false;
    for (const auto& [name, member] : beside) {
      if (name == profile_root) {
        profiles_.push_back(member);
        continue;
      }
      if (name == "$schema") continue;  // for editors
      notes_.finding(Fate::skipped, member, in_quotes(name) + " is no access list and is left out");
    }
    return true;
  }

  void take(const Value& value) {
    if (found_) {
      notes_.problem(value, "access lists come twice, here and at " + found_.path() +
                                "; merge them or keep them in files of their own");
      return;
    }
    found_ = value;
  }

  Notes& notes_;
  Value found_;
  std::vector<Value> profiles_;
};

}  // namespace

ModelInput read_rfc8519(const std::string& text, const std::string& file,
                        const ReadOptions& options) {
  const JsonDocument document = parse_json(text, file);
  rfc8519::Reading reading{Notes(file), {}, {}, {}, {}};
  RootFinder finder(reading.notes);
  const Value acls = finder.find(document.view());
  if (acls) read_acls(reading, acls);
  for (const Value& profile : finder.profiles())
    read_device_profile(reading, profile, options.interface);
  if (reading.notes.has_problems()) throw InputError(reading.notes.take_problems());
  return {std::move(reading.model), std::move(reading.notes.findings()),
          std::move(reading.emptied)};
}

}  // namespace qimctl
