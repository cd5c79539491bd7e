// `qimctl explain`: what a word or a number means.
#include "tools/commands/explain.h"

#include "policy/base/json.h"
#include "policy/base/text.h"
#include "policy/explain/topics.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

void print_documents(const std::vector<Topic>& topics, OutputForm form) {
  JsonValue list = JsonValue::array();
  for (const Topic& topic : topics) {
    JsonValue item;
    item.set("name", topic.names.front());
    item.set("kind", topic.kind);
    JsonValue facts = JsonValue::object();
    for (const auto& [what, fact] : topic.facts) facts.set(what, fact);
    item.set("facts", std::move(facts));
    list.add(std::move(item));
  }
  print_value(list, form);
}

std::string topic_text(const Topic& topic) {
  size_t widest = 0;
  for (const auto& [what, fact] : topic.facts) widest = std::max(widest, what.size());
  std::string text = topic.names.front() + "  " + topic.kind + "\n";
  for (const auto& [what, fact] : topic.facts)
    text.append("  ").append(what).append(widest - what.size() + 2, ' ').append(fact).append("\n");
  return text;
}

void complain_of(const std::string& word) {
  std::string message = "'" + printable(word) + "' is nothing that is known here";
  const std::vector<std::string> similar = similar_topics(word);
  for (size_t i = 0; i < similar.size(); i++) {
    const bool last = i + 1 == similar.size();
    message += (i == 0 ? "; did you mean " : last ? " or " : ", ") + similar[i];
  }
  complain(message + (similar.empty()
                          ? "; give a word that a command prints or takes, a node type, "
                            "field, link, criterion, action or status, by name or number"
                          : "?"));
}

}  // namespace

bool explain_word(const std::string& word, OutputForm form) {
  const std::vector<Topic> topics = find_topics(word);
  if (topics.empty()) {
    complain_of(word);
    return false;
  }
  if (!is_text(form)) {
    print_documents(topics, form);
    return true;
  }
  std::string text;
  for (const Topic& topic : topics) text += (text.empty() ? "" : "\n") + topic_text(topic);
  print(text);
  return true;
}

}  // namespace qimctl
