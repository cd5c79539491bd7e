// JSON input: building the document, and finding the lines of its values.
#include "policy/base/json_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "policy/base/json_tree.h"

namespace qimctl {

namespace {

using nlohmann::json;

// Where the parser stands: an open object or array.
struct Level {
  bool array = false;
  size_t index = 0;  // of the value that comes next, in an array
  std::string key;   // of the value that comes next, in an object
};

std::string path_of(const std::vector<Level>& levels) {
  std::string path;
  for (const Level& level : levels) {
    path = level.array ? pointer_to(path, level.index) : pointer_to(path, level.key);
  }
  return path;
}

// Keeps track of the place while a text is parsed. A value's path is known when begin_value() is
// called for it.
class Tracker {
 public:
  void end_value() {
    if (!levels_.empty() && levels_.back().array) levels_.back().index++;
  }
  void open(bool array) { levels_.push_back({array, 0, {}}); }
  void close() {
    levels_.pop_back();
    end_value();
  }
  void key(const std::string& name) { levels_.back().key = name; }
  const std::vector<Level>& levels() const { return levels_; }

 private:
  std::vector<Level> levels_;
};

unsigned line_at(const std::string& text, size_t offset) {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
  return 1 + static_cast<unsigned>(std::count(text.begin(), end, '\n'));
}

// Everything of nlohmann's message behind its own numbering and position.
std::string reason_of(const json::exception& error) {
  const std::string text = error.what();
  const size_t column = text.find("column ");
  const size_t colon = text.find(": ", column == std::string::npos ? 0 : column);
  return colon == std::string::npos ? text : text.substr(colon + 2);
}

// Finds out what is wrong with a text: what no JSON text has, and what a parser would let pass or
// fall over.
class Explainer : public nlohmann::json_sax<json> {
 public:
  Explainer(const std::string& text, const std::string& file) : text_(text), file_(file) {}

  bool null() override { return value(); }
  bool boolean(bool) override { return value(); }
  bool number_integer(number_integer_t) override { return value(); }
  bool number_unsigned(number_unsigned_t) override { return value(); }
  bool number_float(number_float_t, const string_t&) override { return value(); }
  bool string(string_t&) override { return value(); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(false); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(true); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    tracker_.key(name);
    if (!names_.back().insert(name).second)
      fail("comes twice in one object; remove one of the two");
    return true;
  }

  bool parse_error(std::size_t position, const std::string&,
                   const json::exception& error) override {
    const size_t offset = position == 0 ? 0 : position - 1;
    throw InputError({file_, line_at(text_, offset), path_of(tracker_.levels())},
                     "not valid JSON: " + reason_of(error));
  }

 private:
  [[noreturn]] void fail(const std::string& message) {
    std::vector<Problem> problems{{{file_, 0, path_of(tracker_.levels())}, message}};
    fill_lines(text_, file_, problems);
    throw InputError(std::move(problems));
  }

  bool value() {
    tracker_.end_value();
    return true;
  }

  bool open(bool array) {
    if (names_.size() == max_json_depth) {
      fail("nested deeper than " + std::to_string(max_json_depth) + " levels; flatten the input");
    }
    names_.emplace_back();
    tracker_.open(array);
    return true;
  }

  bool close() {
    names_.pop_back();
    tracker_.close();
    return true;
  }

  const std::string& text_;
  const std::string& file_;
  Tracker tracker_;
  std::vector<std::unordered_set<std::string>> names_;  // of the members of open objects
};

// Counts lines while the parser takes characters.
struct Counter {
  unsigned line = 1;
  char last = '\0';
};

class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, Counter* counter) : at_(at), counter_(counter) {}
  reference operator*() const { return *at_; }
  CountingIterator& operator++() {
    counter_->last = *at_;
    if (*at_ == '\n') counter_->line++;
    ++at_;
    return *this;
  }
  CountingIterator operator++(int) {
    const CountingIterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const CountingIterator& other) const { return at_ == other.at_; }
  bool operator!=(const CountingIterator& other) const { return at_ != other.at_; }

 private:
  const char* at_;
  Counter* counter_;
};

// Notes the lines of the paths that are asked for. Stops at the first error, which leaves the rest
// unknown.
class Locator : public nlohmann::json_sax<json> {
 public:
  Locator(const Counter& counter, std::unordered_map<std::string, unsigned>& wanted)
      : counter_(counter), wanted_(wanted) {}

  bool null() override { return note(false); }
  bool boolean(bool) override { return note(false); }
  bool number_integer(number_integer_t) override { return note(true); }
  bool number_unsigned(number_unsigned_t) override { return note(true); }
  bool number_float(number_float_t, const string_t&) override { return note(true); }
  bool string(string_t&) override { return note(false); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(false); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(true); }
  bool end_array() override { return close(); }
  bool key(string_t& name) override {
    tracker_.key(name);
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const json::exception&) override {
    return false;
  }

 private:
  // The end of a number is seen only at the character behind it, which the parser has taken by
  // then.
  void mark(bool number) {
    const auto found = wanted_.find(path_of(tracker_.levels()));
    if (found == wanted_.end()) return;
    found->second = counter_.line - (number && counter_.last == '\n' ? 1 : 0);
  }

  bool note(bool number) {
    mark(number);
    tracker_.end_value();
    return true;
  }

  // Deeper than a document may be, nothing is asked for.
  bool open(bool array) {
    mark(false);
    tracker_.open(array);
    return tracker_.levels().size() <= max_json_depth;
  }

  bool close() {
    tracker_.close();
    return true;
  }

  const Counter& counter_;
  std::unordered_map<std::string, unsigned>& wanted_;
  Tracker tracker_;
};

// A path and all that it passes through.
void want(const std::string& path, std::unordered_map<std::string, unsigned>& lines) {
  for (std::string part = path;; part.resize(part.rfind('/'))) {
    if (!lines.emplace(part, 0).second || part.find('/') == std::string::npos) return;
  }
}

unsigned nearest(const std::string& path, const std::unordered_map<std::string, unsigned>& lines) {
  for (std::string part = path;; part.resize(part.rfind('/'))) {
    const auto found = lines.find(part);
    if (found != lines.end() && found->second != 0) return found->second;
    if (part.find('/') == std::string::npos) return 0;
  }
}

JsonDocument parsed(std::unique_ptr<JsonTree> tree, const std::string& file) {
  if (tree->parse()) return JsonDocument(std::move(tree));
  Explainer explainer(tree->whole_text(), file);
  json::sax_parse(tree->whole_text(), &explainer);
  throw InputError({file, 0, ""}, "is larger than the 4 GB that can be read");
}

template <typename Item>
void fill_places(const std::string& text, const std::string& file, std::vector<Item>& items) {
  std::vector<Place*> places;
  places.reserve(items.size());
  for (Item& item : items) places.push_back(&item.place);
  fill_lines(text, file, places);
}

}  // namespace

JsonDocument parse_json(const std::string& text, const std::string& file) {
  return parsed(std::make_unique<JsonTree>(text), file);
}

JsonDocument parse_json(std::string&& text, const std::string& file) {
  return parsed(std::make_unique<JsonTree>(std::move(text)), file);
}

std::string pointer_to(const std::string& base, const std::string& member) {
  std::string path = base + '/';
  for (const char c : member) {
    if (c == '~') {
      path += "~0";
    } else if (c == '/') {
      path += "~1";
    } else {
      path += c;
    }
  }
  return path;
}

std::string pointer_to(const std::string& base, size_t index) {
  return base + '/' + std::to_string(index);
}

void fill_lines(const std::string& text, const std::string& file,
                const std::vector<Place*>& places) {
  const auto open = [&file](const Place* place) { return place->line == 0 && place->file == file; };
  std::unordered_map<std::string, unsigned> lines;
  for (const Place* place : places) {
    if (open(place)) want(place->path, lines);
  }
  if (lines.empty()) return;
  Counter counter;
  Locator locator(counter, lines);
  json::sax_parse(CountingIterator(text.data(), &counter),
                  CountingIterator(text.data() + text.size(), &counter), &locator);
  for (Place* place : places) {
    if (open(place)) place->line = nearest(place->path, lines);
  }
}

void fill_lines(const std::string& text, const std::string& file, std::vector<Problem>& problems) {
  fill_places(text, file, problems);
}

void fill_lines(const std::string& text, const std::string& file, std::vector<Finding>& findings) {
  fill_places(text, file, findings);
}

}  // namespace qimctl
