// Waking whoever follows the changes of a database, in any process: a file in its directory that
// every commit writes to, and inotify(7) on it. Nothing has to be registered with anybody, and a
// process that dies leaves nothing behind. The file may be removed at any time: the next commit
// makes it again, and followers see that.
#pragma once

#include <cstdint>

#include "database/base/tables.h"

namespace rov {

// Which database this is, drawn at random when it was made: copies of the directory are the same one,
// what is kept or backed up of it is another.
struct Identity {
  uint8_t bytes[16] = {};

  bool operator==(const Identity&) const = default;
};

// What a commit leaves outside the data file: its number, and for each table the sum of the checksums
// of the records that it has with it, by which a page shows that was not written, or is an older one.
struct Mark {
  uint64_t revision = 0;
  bool has_sums = false;  // what they were before the commit was known
  uint64_t sums[kTables] = {};
};

// To be made before a commit and to end after it. Its end wakes even when it is that of the
// process: who is killed between its commit and telling of it leaves nobody asleep. A failure costs
// the waking only, so it is none.
class Waking {
 public:
  // directory: of the database, open.
  explicit Waking(int directory);
  ~Waking();
  Waking(const Waking&) = delete;
  Waking& operator=(const Waking&) = delete;

  // Tells of a commit, at once: the end does so only when no forked child has the file open, too.
  void tell(const Identity& database, const Mark& mark) const;

 private:
  int file_;
};

// A descriptor that becomes readable with every later commit to the database in the open directory;
// -1 with errno.
int wake_open(int directory);
// The mark that this database left last in its open directory; of commit 0 when that is not known, or
// the mark there is another database's, which says nothing of this one.
// What was told of is durable: a database whose newest commit is older has lost some.
Mark wake_mark(int directory, const Identity& database);
// Makes it unreadable until the next commit.
void wake_drain(int fd, int directory);

}  // namespace rov
