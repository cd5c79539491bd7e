// What every store can do.
#include "fleet/etcd/store.h"

#include <algorithm>
#include <iterator>

namespace qim::fleet {

namespace {

// Values are as small as a status or as large as a revision: a page is asked for with as many as the
// last ones allow.
constexpr int64_t first_page = 16;
constexpr int64_t most_page = 1024;
constexpr size_t small_page = 256 * 1024;  // bytes

size_t bytes_of(const std::vector<KeyValue>& page) {
  size_t bytes = 0;
  for (const KeyValue& item : page) bytes += item.key.size() + item.value.size();
  return bytes;
}

}  // namespace

std::vector<KeyValue> list_all(Store& store, const std::string& prefix, bool keys_only) {
  std::vector<KeyValue> all;
  ListQuestion question{prefix, "", first_page, keys_only};
  for (;;) {
    ListAnswer answer;
    try {
      answer = store.list(question);
    } catch (const StoreError& error) {
      // Together they were too long for one message.
      if (error.failure() != StoreFailure::refused || question.limit == 1) throw;
      question.limit = std::max<int64_t>(1, question.limit / 8);
      continue;
    }
    if (bytes_of(answer.found) < small_page)
      question.limit = std::min(question.limit * 4, most_page);
    std::move(answer.found.begin(), answer.found.end(), std::back_inserter(all));
    if (!answer.more || all.empty()) return all;
    question.after = all.back().key;
  }
}

}  // namespace qim::fleet
