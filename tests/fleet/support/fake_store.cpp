// The store in memory.
#include "tests/fleet/support/fake_store.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace fleet_test {

using qim::fleet::ChangeAnswer;
using qim::fleet::GetAnswer;
using qim::fleet::KeyValue;
using qim::fleet::ListAnswer;
using qim::fleet::StoreError;
using qim::fleet::StoreFailure;
using qim::fleet::StoreHeader;
using qim::fleet::WatchNews;

struct FakeStore::Shared {
  mutable std::mutex mutex;
  std::condition_variable changed;
  std::map<std::string, KeyValue> items;
  std::map<std::string, int64_t> erased;  // the revision that erased a key
  int64_t revision = 1;
  uint64_t cluster = 1;
  uint64_t broken = 0;  // how often watches were broken
  size_t calls = 0;
  std::function<Fault(const std::string&, const std::string&)> fault;
  std::function<void(KeyValue&)> lie;

  StoreHeader header() const { return {cluster, revision}; }
  int64_t modified(const std::string& key) const {
    const auto found = items.find(key);
    return found == items.end() ? 0 : found->second.modified;
  }
  int64_t touched(const std::string& key) const {
    const auto gone = erased.find(key);
    return std::max(modified(key), gone == erased.end() ? 0 : gone->second);
  }
  void put(const std::string& key, const std::string& value) {
    KeyValue& item = items[key];
    if (item.created == 0) item.created = revision;
    item = {key, value, revision, item.created};
  }
};

class FakeStore::FakeWatch : public qim::fleet::Watch {
 public:
  FakeWatch(std::shared_ptr<Shared> shared, std::string key, int64_t after)
      : shared_(std::move(shared)), key_(std::move(key)), after_(after), broken_(shared_->broken) {}

  WatchNews wait(std::chrono::milliseconds longest) override {
    std::unique_lock lock(shared_->mutex);
    shared_->changed.wait_for(lock, longest, [this] {
      return interrupted_ || shared_->broken != broken_ || shared_->touched(key_) > after_;
    });
    if (interrupted_) return WatchNews::quiet;
    if (shared_->broken != broken_)
      throw StoreError(StoreFailure::unreachable, "the watch was broken");
    if (shared_->touched(key_) <= after_) return WatchNews::quiet;
    after_ = shared_->touched(key_);
    return WatchNews::changed;
  }

  std::optional<GetAnswer> told() override {
    const std::lock_guard lock(shared_->mutex);
    const auto found = shared_->items.find(key_);
    if (found == shared_->items.end()) return std::nullopt;
    KeyValue item = found->second;
    if (shared_->lie) shared_->lie(item);
    return GetAnswer{shared_->header(), item};
  }

  void interrupt() override {
    const std::lock_guard lock(shared_->mutex);
    interrupted_ = true;
    shared_->changed.notify_all();
  }

 private:
  std::shared_ptr<Shared> shared_;
  std::string key_;
  int64_t after_;
  uint64_t broken_;
  bool interrupted_ = false;
};

class FakeStore::Connection : public qim::fleet::Store {
 public:
  explicit Connection(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

  GetAnswer get(const std::string& key) override {
    before("get", key);
    const std::lock_guard lock(shared_->mutex);
    GetAnswer answer{shared_->header(), {}};
    const auto found = shared_->items.find(key);
    if (found != shared_->items.end()) answer.found = told(found->second);
    return answer;
  }

  ListAnswer list(const qim::fleet::ListQuestion& question) override {
    before("list", question.prefix);
    const std::lock_guard lock(shared_->mutex);
    ListAnswer answer{shared_->header(), {}, false};
    for (auto item = shared_->items.upper_bound(std::max(question.prefix, question.after));
         item != shared_->items.end() && item->first.starts_with(question.prefix); ++item) {
      if (question.limit != 0 && answer.found.size() == static_cast<size_t>(question.limit)) {
        answer.more = true;
        break;
      }
      answer.found.push_back(told(item->second));
      if (question.keys_only) answer.found.back().value.clear();
    }
    return answer;
  }

  void give_up() override { given_up_ = true; }

  ChangeAnswer change(const qim::fleet::Change& change) override {
    const bool lost = before("change", change.writes.empty() ? "" : change.writes.back().key);
    const std::lock_guard lock(shared_->mutex);
    bool holds = true;
    for (const auto& condition : change.conditions)
      holds = holds && shared_->modified(condition.key) == condition.modified;
    if (holds) {
      shared_->revision++;
      for (const auto& write : change.writes) shared_->put(write.key, write.value);
      for (const std::string& key : change.erased) {
        if (shared_->items.erase(key) != 0) shared_->erased[key] = shared_->revision;
      }
      shared_->changed.notify_all();
    }
    if (lost) throw StoreError(StoreFailure::unknown, "the answer was lost");
    return {shared_->header(), holds};
  }

  std::unique_ptr<qim::fleet::Watch> watch(const std::string& key, int64_t after) override {
    before("watch", key);
    const std::lock_guard lock(shared_->mutex);
    return std::make_unique<FakeWatch>(shared_, key, after);
  }

 private:
  KeyValue told(KeyValue item) const {
    if (shared_->lie) shared_->lie(item);
    return item;
  }

  // Is the answer to be lost?
  bool before(const std::string& call, const std::string& key) {
    if (given_up_) throw StoreError(StoreFailure::unreachable, "it was given up");
    std::function<Fault(const std::string&, const std::string&)> fault;
    {
      const std::lock_guard lock(shared_->mutex);
      shared_->calls++;
      fault = shared_->fault;
    }
    const Fault what = fault ? fault(call, key) : Fault::none;
    switch (what) {
      case Fault::unreachable:
        throw StoreError(StoreFailure::unreachable, "nobody is there");
      case Fault::lost_request:
        throw StoreError(StoreFailure::unknown, "the request was lost");
      case Fault::denied:
        throw StoreError(StoreFailure::denied, "that is not allowed");
      case Fault::refused:
        throw StoreError(StoreFailure::refused, "there is no room");
      case Fault::lost_answer:
        return true;
      case Fault::none:
        break;
    }
    return false;
  }

  std::atomic<bool> given_up_{false};
  std::shared_ptr<Shared> shared_;
};

FakeStore::FakeStore() : shared_(std::make_shared<Shared>()) {}
FakeStore::~FakeStore() = default;

std::unique_ptr<qim::fleet::Store> FakeStore::connect() {
  return std::make_unique<Connection>(shared_);
}

void FakeStore::on_call(std::function<Fault(const std::string&, const std::string&)> fault) {
  const std::lock_guard lock(shared_->mutex);
  shared_->fault = std::move(fault);
}

void FakeStore::on_answer(std::function<void(KeyValue&)> lie) {
  const std::lock_guard lock(shared_->mutex);
  shared_->lie = std::move(lie);
}

void FakeStore::put(const std::string& key, const std::string& value) {
  const std::lock_guard lock(shared_->mutex);
  shared_->revision++;
  shared_->put(key, value);
  shared_->changed.notify_all();
}

void FakeStore::erase(const std::string& key) {
  const std::lock_guard lock(shared_->mutex);
  shared_->erased[key] = ++shared_->revision;
  shared_->items.erase(key);
  shared_->changed.notify_all();
}

std::string FakeStore::value(const std::string& key) const {
  const std::lock_guard lock(shared_->mutex);
  const auto found = shared_->items.find(key);
  return found == shared_->items.end() ? "" : found->second.value;
}

std::vector<std::string> FakeStore::keys() const {
  const std::lock_guard lock(shared_->mutex);
  std::vector<std::string> keys;
  for (const auto& [key, item] : shared_->items) keys.push_back(key);
  return keys;
}

size_t FakeStore::calls() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->calls;
}

void FakeStore::set_cluster(uint64_t cluster) {
  const std::lock_guard lock(shared_->mutex);
  shared_->cluster = cluster;
}

void FakeStore::break_watches() {
  const std::lock_guard lock(shared_->mutex);
  shared_->broken++;
  shared_->changed.notify_all();
}

std::map<std::string, KeyValue> FakeStore::save() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->items;
}

void FakeStore::restore(std::map<std::string, KeyValue> items) {
  const std::lock_guard lock(shared_->mutex);
  shared_->revision++;
  shared_->items = std::move(items);
  shared_->changed.notify_all();
}

}  // namespace fleet_test
