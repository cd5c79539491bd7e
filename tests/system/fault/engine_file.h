// The storage engine's file of a database that somebody has open, changed behind the engine's back.
#ifndef TESTS_SYSTEM_FAULT_ENGINE_FILE_H
#define TESTS_SYSTEM_FAULT_ENGINE_FILE_H

#include <string>
#include <utility>
#include <vector>

#include "database/file/layout.h"
#include "tests/system/fault/damage.h"

namespace fault {

class EngineFile {
 public:
  explicit EngineFile(const std::string& database);
  ~EngineFile();
  EngineFile(const EngineFile&) = delete;
  EngineFile& operator=(const EngineFile&) = delete;

  // Reads it as it is now. What the functions below tell is of that moment.
  void load();
  const Image& bytes() const { return bytes_; }
  uint32_t page_size() const { return page_size_; }

  // The newest meta page, as an offset in the file and in numbers.
  uint64_t meta_at() const;
  rov::Meta meta() const { return rov::read_meta(bytes_.data() + meta_at()); }
  // Where a table is described, and its tree.
  uint64_t table_at(const char* name) const;
  rov::Tree table(const char* name) const { return rov::read_tree(bytes_.data() + table_at(name)); }

  uint64_t page_at(rov::Word page) const { return uint64_t{page} * page_size_; }
  const uint8_t* page(rov::Word page) const { return bytes_.data() + page_at(page); }
  // An entry of a tree page, as an offset in the file and in its parts.
  uint64_t entry_at(rov::Word page, uint32_t index) const;
  rov::Entry entry(rov::Word page, uint32_t index) const {
    return rov::read_entry(bytes_.data() + entry_at(page, index));
  }
  uint32_t entries(rov::Word page) const;

  // Puts the bytes of a number there.
  template <class Number>
  void poke(uint64_t at, Number number) {
    uint8_t bytes[sizeof number];
    rov::store(bytes, number);
    write(at, bytes, sizeof bytes);
  }
  void write(uint64_t at, const uint8_t* bytes, size_t len);
  // Makes it what `image` is, of the same or a smaller length.
  void replace(const Image& image);
  // Undoes all of that.
  void repair();

 private:
  int file_;
  uint32_t page_size_ = 0;
  Image bytes_;
  std::vector<std::pair<uint64_t, Image>> before_;
};

// Offsets within a page's head.
constexpr uint32_t kFlagsAt = rov::kWord + 2;
constexpr uint32_t kLowerAt = rov::kWord + 4;
constexpr uint32_t kUpperAt = rov::kWord + 6;

}  // namespace fault

#endif
