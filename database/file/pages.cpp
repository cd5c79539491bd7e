#include "database/file/pages.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "database/base/error.h"
#include "database/base/system_error.h"
#include "rov.h"

namespace rov {
namespace {

using Number = unsigned long long;

}  // namespace

Pages::~Pages() {
  free(claimed_);
}

uint32_t Pages::damaged(Word page, const char* format, ...) const {
  char what[192];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(what, sizeof what, format, arguments);
  va_end(arguments);
  return fail_text(ROV_ERR_CORRUPT,
                   "data.mdb of database %s is damaged at page %llu (byte %llu): %s; restore the "
                   "database from a dump",
                   path_, Number{page}, Number{page} * page_size_, what);
}

uint32_t Pages::measure() {
  struct stat info;
  if (fstat(file_, &info) != 0) return system_fail(errno, path_, "examine the data file");
  bytes_ = static_cast<uint64_t>(info.st_size);
  return ROV_OK;
}

uint32_t Pages::set_extent(uint32_t page_size, Word last_page) {
  page_size_ = page_size;
  last_page_ = last_page;
  if (!can_have_pages(bytes_, page_size, last_page)) {
    return damaged(0, "the meta page counts %llu pages, the file has %llu", Number{last_page} + 1,
                   Number{bytes_ / page_size});
  }
  const size_t room = last_page / 8 + 1;
  claimed_ = static_cast<uint8_t*>(calloc(room, 1));
  if (claimed_ == nullptr) {
    return fail(ROV_ERR_NO_MEM, Note::kNoMemory, static_cast<uint32_t>(room));
  }
  claimed_[0] = (1U << kMetaPages) - 1;
  return ROV_OK;
}

uint32_t Pages::read_at(Word page, uint64_t offset, uint8_t* to, size_t len) const {
  size_t done = 0;
  while (done < len) {
    const ssize_t got = pread(file_, to + done, len - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return system_fail(errno, path_, "read the data file");
    if (got == 0) return damaged(page, "the file ends before it");
    done += static_cast<size_t>(got);
  }
  return ROV_OK;
}

uint32_t Pages::read(Word page, uint8_t* to) const {
  return read_at(page, uint64_t{page} * page_size_, to, page_size_);
}

uint32_t Pages::claim(Word page, uint64_t count, Word from, const char* user) {
  if (page < kMetaPages || page > last_page_ || count > uint64_t{last_page_} - page + 1) {
    return damaged(from, "%s leads to page %llu, which the database does not have", user,
                   Number{page});
  }
  for (Word at = page; at < page + count; ++at) {
    if (is_claimed(at)) {
      return damaged(from, "%s leads to page %llu, which is used elsewhere too", user, Number{at});
    }
    claimed_[at / 8] = static_cast<uint8_t>(claimed_[at / 8] | 1U << (at % 8));
  }
  return ROV_OK;
}

uint32_t Pages::check_all_claimed() const {
  for (Word page = 0; page <= last_page_; ++page) {
    if (!is_claimed(page))
      return damaged(page, "it is neither in use nor in the list of free pages");
  }
  return ROV_OK;
}

}  // namespace rov
