// The store that a fleet's publishers and devices share, as they see it: keys and values, changes of
// several keys at once under conditions, and a watch on one key. etcd is one; a test puts another in its
// place.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fleet/base/error.h"

namespace qim::fleet {

enum class StoreFailure {
  unreachable,  // nobody answered in time, or there is no leader: try again later
  unknown,      // a change was sent and no answer came: it may have been made, or may be yet
  denied,       // this client may not do that
  refused,      // too large, no room, or otherwise not to be had by asking again
  compacted     // what was asked for is older than what the store keeps
};

class StoreError : public Error {
 public:
  StoreError(StoreFailure failure, const std::string& what) : Error(what), failure_(failure) {}
  StoreFailure failure() const { return failure_; }

 private:
  StoreFailure failure_;
};

struct KeyValue {
  std::string key;
  std::string value;
  int64_t modified = 0;  // the store's revision that changed it last
  int64_t created = 0;
};

// What came with every answer.
struct StoreHeader {
  uint64_t cluster = 0;  // its identity: a cluster that was restored from a backup has another one
  int64_t revision = 0;  // of the whole store
};

struct GetAnswer {
  StoreHeader header;
  std::optional<KeyValue> found;
};

struct ListAnswer {
  StoreHeader header;
  std::vector<KeyValue> found;  // in the order of keys
  bool more = false;            // there are others behind the last one
};

struct ListQuestion {
  std::string prefix;
  std::string after;  // only keys behind this one, "" = all
  int64_t limit = 0;  // at most so many, 0 = all
  bool keys_only = false;
};

// A key is as it was when it was read: its `modified`, 0 = there is none.
struct Condition {
  std::string key;
  int64_t modified = 0;
};

struct Write {
  std::string key;
  std::string value;
};

// Either all conditions hold and all is done, or nothing is.
struct Change {
  std::vector<Condition> conditions;
  std::vector<Write> writes;
  std::vector<std::string> erased = {};  // keys
};

struct ChangeAnswer {
  StoreHeader header;
  bool done = false;  // false: a condition did not hold
};

enum class WatchNews {
  quiet,   // nothing happened until the time was over, or until it was interrupted
  changed  // the key is not what it was
};

// A watch on one key. It tells that there is something new, not each change: several that come
// together are told once, and what is missed shows when the key is read.
class Watch {
 public:
  virtual ~Watch() = default;
  // Waits. Throws StoreError when the watch is no good any more: make another, after a pause.
  virtual WatchNews wait(std::chrono::milliseconds longest) = 0;
  // What the key became, as the last news had it, which saves a question. Nothing when they did not say
  // it; then read the key.
  virtual std::optional<GetAnswer> told() = 0;
  // Ends a wait, from another thread; later ones end at once.
  virtual void interrupt() = 0;
};

// All calls end in time and throw StoreError. A store is used by one thread at a time, its watches
// by others.
class Store {
 public:
  virtual ~Store() = default;

  virtual GetAnswer get(const std::string& key) = 0;
  virtual ListAnswer list(const ListQuestion& question) = 0;
  virtual ChangeAnswer change(const Change& change) = 0;
  // Tells of changes behind the store's revision `after`, which an answer of get() has.
  virtual std::unique_ptr<Watch> watch(const std::string& key, int64_t after) = 0;

  // From another thread: the call under way fails soon, and all later ones do.
  virtual void give_up() = 0;
};

// All that begins with a prefix, question by question.
std::vector<KeyValue> list_all(Store& store, const std::string& prefix, bool keys_only = false);

}  // namespace qim::fleet
