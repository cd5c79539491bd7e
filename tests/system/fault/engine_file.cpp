#include "tests/system/fault/engine_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace fault {

using namespace rov;

EngineFile::EngineFile(const std::string& database)
    : file_(open((database + "/data.mdb").c_str(), O_RDWR | O_CLOEXEC)) {
  load();
}

EngineFile::~EngineFile() {
  close(file_);
}

void EngineFile::load() {
  struct stat info = {};
  if (fstat(file_, &info) != 0) abort();
  bytes_.resize(static_cast<size_t>(info.st_size));
  if (pread(file_, bytes_.data(), bytes_.size(), 0) != info.st_size) abort();
  page_size_ = read_meta(bytes_.data() + kPageHead).free.pad;
}

uint64_t EngineFile::meta_at() const {
  const uint64_t second = page_size_ + kPageHead;
  const Word revisions[] = {read_meta(bytes_.data() + kPageHead).revision,
                            read_meta(bytes_.data() + second).revision};
  return revisions[0] > revisions[1] ? kPageHead : second;
}

uint64_t EngineFile::entry_at(Word page_number, uint32_t index) const {
  return page_at(page_number) + entry_offset(page(page_number), index);
}

uint32_t EngineFile::entries(Word page_number) const {
  return (page_lower(page(page_number)) - kPageHead) / 2;
}

uint64_t EngineFile::table_at(const char* name) const {
  const Word root = meta().tables.root;
  for (uint32_t i = 0; i < entries(root); ++i) {
    const Entry found = entry(root, i);
    if (found.key.len == strlen(name) && memcmp(found.key.data, name, found.key.len) == 0) {
      return static_cast<uint64_t>(found.data - bytes_.data());
    }
  }
  abort();
}

void EngineFile::write(uint64_t at, const uint8_t* bytes, size_t len) {
  Image old(len);
  if (pread(file_, old.data(), len, static_cast<off_t>(at)) != static_cast<ssize_t>(len)) abort();
  before_.emplace_back(at, old);
  if (pwrite(file_, bytes, len, static_cast<off_t>(at)) != static_cast<ssize_t>(len)) abort();
}

void EngineFile::replace(const Image& image) {
  for (size_t at = 0; at < image.size(); at += page_size_) {
    const size_t len = std::min<size_t>(page_size_, image.size() - at);
    if (memcmp(&image[at], &bytes_[at], len) != 0) write(at, &image[at], len);
  }
  if (ftruncate(file_, static_cast<off_t>(image.size())) != 0) abort();
}

void EngineFile::repair() {
  for (; !before_.empty(); before_.pop_back()) {
    const auto& [at, old] = before_.back();
    const auto len = static_cast<ssize_t>(old.size());
    if (pwrite(file_, old.data(), old.size(), static_cast<off_t>(at)) != len) abort();
  }
}

}  // namespace fault
