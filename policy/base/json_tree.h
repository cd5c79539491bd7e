// A JSON document in memory: a cell of 16 bytes for each value and name, in the order of the text,
// which stays where it was and keeps names, texts and numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qimctl {

enum class JsonKind : uint8_t { null, no, yes, count, whole, real, text, escaped, array, object };

// `at` is where the value begins in the text, or another place of its line. `size` is the number of
// bytes of a text without its quotes, and of children of a container. `link` is the cell behind a
// container, and the place among the unescaped texts of one that has escapes.
struct JsonCell {
  uint32_t at;
  uint32_t link;
  uint32_t size;
  JsonKind kind;
};

class JsonTree {
 public:
  // Refers to the text.
  explicit JsonTree(const std::string& text) : text_(text) {}
  // Keeps it.
  explicit JsonTree(std::string&& text) : own_(std::move(text)), text_(own_) {}
  JsonTree(const JsonTree&) = delete;
  JsonTree& operator=(const JsonTree&) = delete;

  const std::string& whole_text() const { return text_; }

  // Fills the tree. False when the text is no sound JSON document, or is one that explain_json()
  // refuses.
  bool parse();

  const JsonCell& cell(uint32_t index) const { return chunks_[index >> 16][index & 0xffff]; }
  JsonKind kind(uint32_t index) const { return cell(index).kind; }
  std::string_view text(uint32_t index) const;
  // That of a number, as it was spelled.
  std::string_view digits(uint32_t index) const;

  // Children of an object are name, value, name, value. The cell behind a value and all in it:
  uint32_t behind(uint32_t index) const;
  // Of an array. Quick for indices that ascend.
  uint32_t element(uint32_t array, uint32_t index) const;

  std::string path(uint32_t index) const;
  unsigned line(uint32_t index) const;

 private:
  friend class JsonTreeBuilder;
  struct Position {
    uint32_t child = 0;  // its number
    uint32_t cell = 0;
  };

  uint32_t child_with(uint32_t container, uint32_t index, std::string& path) const;

  std::string own_;
  const std::string& text_;
  std::vector<std::unique_ptr<JsonCell[]>> chunks_;
  uint32_t count_ = 0;
  std::vector<std::string> unescaped_;
  // Where the last search in an array ended, so that going through it does not begin anew each time.
  mutable std::unordered_map<uint32_t, Position> positions_;
  mutable std::vector<uint32_t> lines_;  // where each begins
  mutable size_t line_ = 0;              // the last one that was asked about, from 0
  // The container that the last path went through at the end, and its path.
  mutable uint32_t parent_ = 0;
  mutable std::string parent_path_;
};

}  // namespace qimctl
