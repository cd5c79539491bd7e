// Reading files, and refusing them.
#include "policy/base/input_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace qimctl {

namespace {

std::string system_error() {
  return strerror(errno);
}

// Mostly it is as much as will be read; 0 of what is no file. One that claims to be huge is not
// believed before it is read.
size_t expected_size(FILE* file) {
  constexpr off_t believed = 1 << 30;
  struct stat about {};
  return fstat(fileno(file), &about) == 0 && about.st_size <= believed
             ? static_cast<size_t>(about.st_size)
             : 0;
}

}  // namespace

Source read_source(const std::string& name) {
  // What was not opened here is not closed here.
  const bool given = name == "-";
  const std::unique_ptr<FILE, int (*)(FILE*)> file(given ? stdin : fopen(name.c_str(), "rb"),
                                                   given ? fflush : fclose);
  if (!file) throw InputError({name, 0, ""}, "cannot be opened: " + system_error());
  Source source{name, ""};
  source.text.reserve(expected_size(file.get()));
  char part[65536];
  size_t count;
  while ((count = fread(part, 1, sizeof(part), file.get())) > 0) source.text.append(part, count);
  if (ferror(file.get()) != 0) throw InputError({name, 0, ""}, "cannot be read: " + system_error());
  return source;
}

void refuse(const std::vector<Source>& sources, std::vector<Problem> problems) {
  fill_all_lines(sources, problems);
  throw InputError(std::move(problems));
}

}  // namespace qimctl
