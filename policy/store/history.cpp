// Following the changes of a database, and who made them.
#include "policy/store/history.h"

#include <array>
#include <ctime>

#include "policy/base/names.h"
#include "policy/base/text.h"
#include "rov.h"

namespace qimctl {

namespace {

std::string formatted(uint64_t seconds, const char* format) {
  const auto when = static_cast<time_t>(seconds);
  tm parts{};
  localtime_r(&when, &parts);
  std::array<char, 64> text{};
  const size_t length = strftime(text.data(), text.size(), format, &parts);
  return {text.data(), length};
}

}  // namespace

uint64_t joined(const uint32_t (&words)[2]) {
  return uint64_t{words[0]} << 32 | words[1];
}

Following::Following(const Database& database, uint64_t revision) : database_(database) {
  registration_.kinds = UINT32_MAX;
  registration_.revision[0] = static_cast<uint32_t>(revision >> 32);
  registration_.revision[1] = static_cast<uint32_t>(revision);
  const std::string attempt = "follow the changes of " + database.directory();
  const uint32_t status = qim_db_ntf(database.handle(), &registration_);
  if (status == ROV_ERR_INVALID && revision != 0) {
    throw DatabaseError(status, attempt,
                        "there is no revision " + std::to_string(revision) +
                            " yet; without --from, changes from now on are printed");
  }
  require(status, attempt);
}

Following::~Following() {
  registration_.kinds = 0;
  qim_db_ntf(database_.handle(), &registration_);
}

uint64_t Following::from() const {
  return joined(registration_.revision);
}

std::optional<rov_change_t> Following::next() const {
  rov_change_t change;
  uint32_t length = 0;
  const uint32_t status = qim_process_msg(database_.handle(), &change, sizeof change, &length);
  if (status == ROV_ERR_NO_VALUE) return std::nullopt;
  require(status, "read the changes of " + database_.directory());
  return change;
}

uint64_t newest_revision(const Database& database) {
  return Following(database, 0).from();
}

Author author_of(const Database& database, uint64_t user) {
  Author author;
  author.user = user;
  const auto client = static_cast<uint32_t>(user >> 32);
  const std::string program = (client == client_id ? "qimctl" : "client " + hex_number(client, 8)) +
                              "[" + std::to_string(static_cast<uint32_t>(user)) + "]";
  rov_usr_t info;
  const uint32_t status = qim_usr_id_info(database.handle(), user, &info);
  if (status == ROV_ERR_NO_ITEM) {
    author.name = program;
    return author;
  }
  require(status, "look for the author of a commit");
  const std::string name = info.name[0] != '\0' ? printable(info.name) : std::to_string(info.uid);
  author.name = name + " " + program;
  author.seconds = joined(info.time);
  return author;
}

// Commits of private data log nothing, so the newest changes may lie some commits back.
std::optional<LastChange> last_change(const Database& database) {
  const uint64_t newest = newest_revision(database);
  for (uint64_t back = 1;; back *= 8) {
    const uint64_t from = newest > back ? newest - back : 1;
    const Following following(database, from);
    std::optional<rov_change_t> last;
    while (const std::optional<rov_change_t> change = following.next())
      if (joined(change->user) != 0) last = change;
    if (last) return LastChange{joined(last->revision), author_of(database, joined(last->user))};
    if (from == 1) return std::nullopt;
  }
}

std::string clock_text(uint64_t seconds) {
  return formatted(seconds, "%H:%M:%S");
}

std::string time_text(uint64_t seconds) {
  return formatted(seconds, "%Y-%m-%d %H:%M:%S");
}

}  // namespace qimctl
