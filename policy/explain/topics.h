// What the words and numbers of policies mean: node types, record fields, links, criteria, actions,
// statuses, and what else is printed or taken.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace qimctl {

// One thing that has a name or a number.
struct Topic {
  std::vector<std::string> names;  // the first is its own, by the others it is found, too
  std::vector<uint64_t> numbers;
  std::string kind;                                        // "node type 1"
  std::vector<std::pair<std::string, std::string>> facts;  // what about it, and what
};

// All that there is, each kind by itself.
std::vector<Topic> node_topics();  // node types, their fields, their links, kinds of links
std::vector<Topic> criterion_topics();
std::vector<Topic> action_topics();
std::vector<Topic> packet_topics();  // words that describe packets
std::vector<Topic> word_topics();    // what else commands print
std::vector<Topic> status_topics();

// The topics of a word: a name in any case, or a number, decimal or 0x...
std::vector<Topic> find_topics(const std::string& word);
// The names that a word of no topic may have been meant for, the nearest first, three at most.
std::vector<std::string> similar_topics(const std::string& word);

}  // namespace qimctl
