// Waking whoever follows the changes of a database, in any process: a file in its directory that
// every commit writes to, and inotify(7) on it. Nothing has to be registered with anybody, and a
// process that dies leaves nothing behind. The file may be removed at any time: the next commit
// makes it again, and followers see that.
#pragma once

#include <cstdint>

namespace rov {

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
  void tell(uint64_t revision) const;

 private:
  int file_;
};

// A descriptor that becomes readable with every later commit to the database in the open directory;
// -1 with errno.
int wake_open(int directory);
// The commit that was told of last, of a database's open directory; 0 when that is not known. What
// was told of is durable: a database whose newest commit is older has lost some.
uint64_t wake_revision(int directory);
// Makes it unreadable until the next commit.
void wake_drain(int fd, int directory);

}  // namespace rov
