// Cutting a JSON text into entries.
#include "policy/formats/parts/cut.h"

#include <algorithm>
#include <array>
#include <deque>

namespace qimctl::formats {

namespace {

constexpr std::string_view blanks = " \t\n\r";

// Bytes that are more than others outside of strings.
constexpr std::array<bool, 256> structure = [] {
  std::array<bool, 256> special{};
  for (const char c : {'"', '{', '}', '[', ']', ','}) special[static_cast<unsigned char>(c)] = true;
  return special;
}();

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

class Cutter {
 public:
  Cutter(std::string_view text, std::string_view member) : text_(text), member_(member) {}

  // Nothing is cut out of what is no sound text.
  CutText cut() {
    while (find_structure()) {
      if (text_[at_] != '"') {
        at_++;
        continue;
      }
      const size_t name = at_ + 1;
      if (!pass_string()) return whole();
      if (text_.substr(name, at_ - 1 - name) == member_ && begins_array() && !cut_list())
        return whole();
    }
    cut_.frame += text_.substr(done_);
    return std::move(cut_);
  }

 private:
  CutText whole() const { return {std::string(text_), {}}; }

  // Both go through every byte of a large text.
  bool find_structure() {
    const char* at = text_.data() + at_;
    const char* const end = text_.data() + text_.size();
    while (at != end && !structure[static_cast<unsigned char>(*at)]) at++;
    at_ = static_cast<size_t>(at - text_.data());
    return at != end;
  }

  // From its first quote to behind its last one.
  bool pass_string() {
    const char* at = text_.data() + at_ + 1;
    const char* const end = text_.data() + text_.size();
    while (at < end && *at != '"') at += *at == '\\' ? 2 : 1;
    at_ = static_cast<size_t>(std::min(at, end) - text_.data()) + 1;
    return at < end;
  }

  // A colon and a bracket, to behind the bracket.
  bool begins_array() {
    for (const char wanted : {':', '['}) {
      const size_t next = text_.find_first_not_of(blanks, at_);
      if (next == std::string_view::npos || text_[next] != wanted) return false;
      at_ = next + 1;
    }
    return true;
  }

  // To the bracket at the end. A blank between two commas is no entry, and no JSON.
  bool cut_list() {
    const size_t begin = at_;
    CutList list;
    if (!read_entries(list.entries)) return false;
    const bool empty = list.entries.size() == 1 && list.entries.front().empty();
    if (empty) list.entries.clear();
    for (const std::string_view entry : list.entries)
      if (entry.empty()) return false;
    cut_.frame += text_.substr(done_, begin - done_);
    list.at = cut_.frame.size();
    cut_.lists.push_back(std::move(list));
    done_ = at_;
    return true;
  }

  bool read_entries(std::deque<std::string_view>& entries) {
    size_t begin = at_;
    size_t depth = 0;
    while (find_structure()) {
      const char c = text_[at_];
      if (c == '"') {
        if (!pass_string()) return false;
        continue;
      }
      if (depth == 0 && (c == ',' || c == ']' || c == '}')) {
        entries.push_back(trimmed(text_.substr(begin, at_ - begin)));
        if (c != ',') return c == ']';
        begin = at_ + 1;
      } else if (c == '{' || c == '[') {
        depth++;
      } else if (c != ',') {
        depth--;
      }
      at_++;
    }
    return false;
  }

  std::string_view text_;
  std::string_view member_;
  size_t at_ = 0;
  size_t done_ = 0;  // what is in the frame, or was left out of it
  CutText cut_;
};

}  // namespace

CutText cut_entries(std::string_view text, std::string_view member) {
  return Cutter(text, member).cut();
}

std::string text_with(const CutText& cut, const std::vector<CutRange>& kept) {
  std::string text;
  size_t done = 0;
  for (size_t i = 0; i < cut.lists.size(); i++) {
    const CutList& list = cut.lists[i];
    text.append(cut.frame, done, list.at - done);
    done = list.at;
    for (size_t n = kept[i].from; n < kept[i].end; n++) {
      if (n != kept[i].from) text += ',';
      text += list.entries[n];
    }
  }
  return text.append(cut.frame, done);
}

}  // namespace qimctl::formats
