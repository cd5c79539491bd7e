// Reading files, and refusing them.
#include "policy/base/input_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace qimctl {

namespace {

std::string system_error() {
  return strerror(errno);
}

}  // namespace

Source read_source(const std::string& name) {
  // What was not opened here is not closed here.
  const bool given = name == "-";
  const std::unique_ptr<FILE, int (*)(FILE*)> file(given ? stdin : fopen(name.c_str(), "rb"),
                                                   given ? fflush : fclose);
  if (!file) throw InputError({name, 0, ""}, "cannot be opened: " + system_error());
  Source source{name, ""};
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
