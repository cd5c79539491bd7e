// The commits of a database: which is the newest, and who made them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "policy/store/database.h"

namespace qimctl {

// The number of the newest commit.
uint64_t newest_revision(const Database& database);

// Who made a commit, and when.
struct Author {
  uint64_t user = 0;
  std::string name;      // "root qimctl[29955]"
  uint64_t seconds = 0;  // since 1970, of its last commit; 0 = not known
};
Author author_of(const Database& database, uint64_t user);

// The author of the newest commit that changed nodes or links; nothing when the log of changes has
// none any more. Registers for changes, and ends that again.
struct LastChange {
  uint64_t revision = 0;
  Author author;
};
std::optional<LastChange> last_change(const Database& database);

// A registration for the changes behind a revision, 0 = those from now on. Ends with the object.
class Following {
 public:
  Following(const Database& database, uint64_t revision);
  ~Following();
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;

  uint64_t from() const;  // the revision that it starts from
  int descriptor() const { return registration_.fd; }
  // The next change, or nothing when there is none now.
  std::optional<rov_change_t> next() const;

 private:
  const Database& database_;
  rov_ntf_t registration_{};
};

// Two words, the high one first.
uint64_t joined(const uint32_t (&words)[2]);

// "23:44:29", of the local time.
std::string clock_text(uint64_t seconds);
// "2026-11-22 23:44:29"
std::string time_text(uint64_t seconds);

}  // namespace qimctl
