// Reading a file piece by piece.
#include "policy/formats/parts/notes.h"

#include <algorithm>

#include "policy/base/names.h"

namespace qimctl::formats {

namespace {

std::string range_text(uint32_t min, uint32_t max) {
  return std::to_string(min) + " to " + std::to_string(max);
}

// What leaving an entry out means for the packets that it would have matched.
std::string consequence(const Entry& entry) {
  switch (entry.forwarding) {
    case ActionType::accept:
      return "what it would accept is left to the entries behind it";
    case ActionType::reject:
      return "what it would reject is left to the entries behind it, which may accept it";
    default:
      return "what it would drop is left to the entries behind it, which may accept it";
  }
}

}  // namespace

size_t characters(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
  }));
}

// A file of nothing but faults is known for one long before the last of them.
void Notes::problem(Place at, std::string message) {
  if (is_full()) {
    more_++;
  } else {
    problems_.push_back({std::move(at), std::move(message)});
  }
}

// Where it is takes longer to find out than anything else.
void Notes::problem(const Value& at, std::string message) {
  problem(is_full() ? Place() : place(at), std::move(message));
}

std::vector<Problem> Notes::take_problems() {
  if (more_ != 0)
    problems_.push_back({{file_, 0, ""}, "and " + counted(more_, "problem") + " more"});
  return std::move(problems_);
}

void Notes::finding(Fate fate, const Value& at, std::string what) {
  finding(fate, place(at), std::move(what));
}

void Notes::finding(Fate fate, Place at, std::string what) {
  findings_.push_back({fate, std::move(at), std::move(what)});
}

std::vector<Value> elements(Notes& notes, const Value& list) {
  std::vector<Value> found;
  if (!list) return found;
  if (!list.json.is_array()) {
    notes.problem(list, std::string("must be an array, not ") + list.json.kind());
    return found;
  }
  found.reserve(list.json.size());
  for (const JsonView element : list.json.elements()) found.push_back({element});
  return found;
}

std::optional<uint32_t> read_number(Notes& notes, const Value& leaf, uint32_t min, uint32_t max) {
  const JsonView json = leaf.json;
  if (json.is_count() && json.number() >= min && json.number() <= max)
    return static_cast<uint32_t>(json.number());
  const std::string wanted = "must be a whole number, " + range_text(min, max);
  if (!json.is_number()) {
    notes.problem(leaf, wanted + ", not " + json.kind());
    return {};
  }
  notes.problem(leaf, "is " + json.dump() + ", but " + wanted);
  return {};
}

std::optional<std::string> read_string(Notes& notes, const Value& leaf) {
  if (!leaf.json.is_string()) {
    notes.problem(leaf, std::string("must be a string, not ") + leaf.json.kind());
    return {};
  }
  std::string text = leaf.json.text();
  if (std::any_of(text.begin(), text.end(), is_forbidden)) {
    notes.problem(leaf, "holds a control character; remove it");
    return {};
  }
  return text;
}

std::optional<std::string> read_name(Notes& notes, const Value& leaf, size_t max) {
  std::optional<std::string> text = read_string(notes, leaf);
  if (!text) return {};
  if (text->empty()) {
    notes.problem(leaf, "must not be empty");
    return {};
  }
  const size_t length = characters(*text);
  if (length > max) {
    notes.problem(leaf, "is " + std::to_string(length) +
                            " characters long, but must not be "
                            "longer than " +
                            std::to_string(max));
    return {};
  }
  return text;
}

void note_left_out(Notes& notes, const Entry& entry, const std::vector<Obstacle>& obstacles) {
  std::string reasons;
  for (const Obstacle& obstacle : obstacles) {
    reasons += (reasons.empty() ? "" : ", ") + obstacle.what;
  }
  notes.finding(Fate::skipped, obstacles.front().place,
                "entry " + in_quotes(entry.name) + " left out, because nothing here can carry " +
                    reasons + "; " + consequence(entry));
}

std::string alternatives(Names names) {
  std::string text;
  for (size_t i = 0; i < names.size(); i++) {
    if (i != 0) text += i + 1 == names.size() ? " or " : ", ";
    text += in_quotes(names[i]);
  }
  return text;
}

std::string in_quotes(std::string_view text) {
  constexpr size_t longest = 80;
  std::string shown(text.substr(0, longest));
  if (text.size() > longest) {
    while (!shown.empty() && (static_cast<unsigned char>(text[shown.size()]) & 0xc0) == 0x80) {
      shown.pop_back();
    }
    shown += "...";
  }
  return '"' + shown + '"';
}

}  // namespace qimctl::formats
