// Reading files with care and replacing them whole.
#include "fleet/base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "fleet/base/error.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return number_; }

 private:
  int number_;
};

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
  throw ConfigError(qimctl::quoted(file) + " " + why);
}

std::string system_reason(int error) {
  return std::string(": ") + strerror(error);
}

// A secret lies open when others may read it; root may own what a service reads.
void check_secret(const std::string& file, const struct stat& status) {
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    refuse(file, "can be read or written by others; take that from them with 'chmod 600'");
  if (status.st_uid != geteuid() && status.st_uid != 0)
    refuse(file, "belongs to somebody else; give it to the user that runs this");
}

std::string read_whole(const std::string& file, size_t most, bool secret) {
  // Opening something that waits for a writer, or is a device, would hang.
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (descriptor.get() < 0) refuse(file, "cannot be opened" + system_reason(errno));
  struct stat status {};
  if (fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode))
    refuse(file, "is no regular file");
  if (secret) check_secret(file, status);
  std::string text;
  char room[16384];
  for (;;) {
    const ssize_t got = read(descriptor.get(), room, sizeof room);
    if (got == 0) return text;
    if (got < 0) refuse(file, "cannot be read" + system_reason(errno));
    text.append(room, static_cast<size_t>(got));
    if (text.size() > most)
      refuse(file, "is longer than the " + std::to_string(most) + " bytes that it may have");
  }
}

std::string folder_of(const std::string& file) {
  const size_t slash = file.rfind('/');
  return slash == std::string::npos ? "." : file.substr(0, slash + 1);
}

bool write_all(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t done = write(descriptor, bytes.data(), bytes.size());
    if (done < 0 && errno == EINTR) continue;
    if (done < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(done));
  }
  return true;
}

}  // namespace

std::string read_file(const std::string& file, size_t most) {
  return read_whole(file, most, false);
}

std::string read_secret_file(const std::string& file, size_t most) {
  return read_whole(file, most, true);
}

bool file_exists(const std::string& file) {
  struct stat status {};
  return lstat(file.c_str(), &status) == 0;
}

void write_file(const std::string& file, std::string_view bytes, mode_t mode) {
  std::string temporary = file + ".XXXXXX";
  const Descriptor made(mkostemp(temporary.data(), O_CLOEXEC));
  const auto refuse_to_write = [&file](int error) {
    throw Error(qimctl::quoted(file) + " cannot be written" + system_reason(error));
  };
  if (made.get() < 0) refuse_to_write(errno);
  if (fchmod(made.get(), mode) != 0 || !write_all(made.get(), bytes) || fsync(made.get()) != 0 ||
      rename(temporary.c_str(), file.c_str()) != 0) {
    const int error = errno;
    unlink(temporary.c_str());
    refuse_to_write(error);
  }
  const Descriptor folder(open(folder_of(file).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.get() < 0 || fsync(folder.get()) != 0) refuse_to_write(errno);
}

std::vector<std::string> lines_of(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  std::vector<std::string> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const size_t first = line.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
      lines.emplace_back();
      continue;
    }
    lines.emplace_back(line.substr(first, line.find_last_not_of(blanks) - first + 1));
  }
  return lines;
}

}  // namespace qim::fleet
