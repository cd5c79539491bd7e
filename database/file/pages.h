// The pages of a data file while it is being verified: reading them, and who uses which.
#ifndef DATABASE_FILE_PAGES_H
#define DATABASE_FILE_PAGES_H

#include "database/file/layout.h"

namespace rov {

class Pages {
 public:
  Pages(int file, const char* path) : file_(file), path_(path) {}
  ~Pages();
  Pages(const Pages&) = delete;
  Pages& operator=(const Pages&) = delete;

  // Finds out how long the file is.
  uint32_t measure();
  uint64_t file_bytes() const { return bytes_; }

  // Says how long a page is and which is the last. That must be possible in a file of this length.
  uint32_t set_extent(uint32_t page_size, Word last_page);
  uint32_t page_size() const { return page_size_; }
  Word last_page() const { return last_page_; }

  // `len` bytes from there on. Less than that in the file is damage of `page`.
  uint32_t read_at(Word page, uint64_t offset, uint8_t* to, size_t len) const;
  uint32_t read(Word page, uint8_t* to) const;

  // Takes pages for `user` ("table nodes"): they must lie in the file's extent and belong to nobody
  // yet. `from`: the page that names them.
  uint32_t claim(Word page, uint64_t count, Word from, const char* user);
  // Every page belongs to somebody.
  uint32_t check_all_claimed() const;

  // Notes what is wrong with a page: ROV_ERR_CORRUPT.
  [[gnu::format(printf, 3, 4)]] uint32_t damaged(Word page, const char* format, ...) const;
  const char* path() const { return path_; }

 private:
  bool is_claimed(Word page) const { return (claimed_[page / 8] >> (page % 8) & 1) != 0; }

  int file_;
  const char* path_;
  uint64_t bytes_ = 0;
  uint32_t page_size_ = 0;
  Word last_page_ = 0;
  uint8_t* claimed_ = nullptr;  // a bit a page
};

}  // namespace rov

#endif
