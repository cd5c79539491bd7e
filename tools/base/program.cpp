// Running another program between two files that nobody else sees, so that neither waits for the
// other.
#include "tools/base/program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/base/output.h"

namespace qimctl {

namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

[[noreturn]] void refused(const std::string& program, int error) {
  throw OutputError("cannot run " + program + ": " + strerror(error));
}

File make_file(const std::string& program) {
  File file(tmpfile(), fclose);
  if (!file) refused(program, errno);
  return file;
}

std::string contents_of(FILE* file) {
  rewind(file);
  std::string text;
  char piece[4096];
  while (const size_t got = fread(piece, 1, sizeof piece, file)) text.append(piece, got);
  return text;
}

int spawn(const std::vector<std::string>& command, int input, int output, pid_t* child) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  const int error = posix_spawnp(child, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

ProgramResult run_program(const std::vector<std::string>& command, const std::string& input) {
  const File in = make_file(command[0]);
  const File out = make_file(command[0]);
  if (fwrite(input.data(), 1, input.size(), in.get()) != input.size() || fflush(in.get()) != 0)
    refused(command[0], errno);
  rewind(in.get());
  ProgramResult result;
  pid_t child = 0;
  const int error = spawn(command, fileno(in.get()), fileno(out.get()), &child);
  if (error == ENOENT) return result;
  if (error != 0) refused(command[0], error);
  result.found = true;
  int ended = 0;
  while (waitpid(child, &ended, 0) < 0 && errno == EINTR) {
  }
  // Where starting a program begins with a copy of this one, its absence shows as this only.
  result.found = !WIFEXITED(ended) || WEXITSTATUS(ended) != 127;
  result.good = WIFEXITED(ended) && WEXITSTATUS(ended) == 0;
  result.output = contents_of(out.get());
  return result;
}

}  // namespace qimctl
