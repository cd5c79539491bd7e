// Finding what a word or a number stands for.
#include "policy/explain/topics.h"

#include <strings.h>

#include <algorithm>
#include <numeric>
#include <optional>

#include "policy/base/names.h"

namespace qimctl {

namespace {

std::vector<Topic> all_topics() {
  std::vector<Topic> all;
  for (const auto& make :
       {node_topics, criterion_topics, action_topics, packet_topics, word_topics, status_topics}) {
    std::vector<Topic> some = make();
    all.insert(all.end(), std::make_move_iterator(some.begin()),
               std::make_move_iterator(some.end()));
  }
  return all;
}

bool is_named(const Topic& topic, const std::string& word) {
  return std::any_of(topic.names.begin(), topic.names.end(), [&word](const std::string& name) {
    return strcasecmp(name.c_str(), word.c_str()) == 0;
  });
}

bool is_numbered(const Topic& topic, uint64_t number) {
  return std::find(topic.numbers.begin(), topic.numbers.end(), number) != topic.numbers.end();
}

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// How many letters must be put in, taken out or changed to make one word of the other.
size_t distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); i++) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); j++) {
      const size_t changed = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::vector<Topic> find_topics(const std::string& word) {
  const std::optional<uint64_t> number = parse_number(word);
  std::vector<Topic> found = all_topics();
  std::erase_if(found, [&](const Topic& topic) {
    return !is_named(topic, word) && !(number && is_numbered(topic, *number));
  });
  return found;
}

std::vector<std::string> similar_topics(const std::string& word) {
  constexpr size_t longest = 64;
  constexpr size_t most = 3;
  if (word.size() > longest) return {};
  std::vector<std::pair<size_t, std::string>> near;
  for (const Topic& topic : all_topics()) {
    for (const std::string& name : topic.names) {
      const size_t apart = distance(word, name);
      if (apart <= name.size() / 3) near.emplace_back(apart, name);
    }
  }
  std::sort(near.begin(), near.end());
  near.erase(std::unique(near.begin(), near.end()), near.end());
  std::vector<std::string> names;
  for (size_t i = 0; i < std::min(near.size(), most); i++) names.push_back(near[i].second);
  return names;
}

}  // namespace qimctl
