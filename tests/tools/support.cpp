// What tests of the command-line tool share.
#include "tests/tools/support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace tools_test {

namespace {

std::string from_environment(const char* name) {
  const char* value = getenv(name);
  return value == nullptr ? "" : value;
}

void redirect(int to, const std::filesystem::path& file) {
  const int opened = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (opened < 0 || dup2(opened, to) < 0) _exit(126);
  close(opened);
}

[[noreturn]] void execute(const std::vector<std::string>& words,
                          const std::vector<std::string>& environment) {
  unsetenv("ROV_DB");
  for (const std::string& setting : environment) {
    const size_t equals = setting.find('=');
    setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
  }
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  _exit(127);
}

}  // namespace

std::filesystem::path source_dir() {
  return from_environment("QIM_SOURCE_DIR");
}

std::string read_text(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  EXPECT_TRUE(stream.is_open()) << file;
  return {std::istreambuf_iterator<char>(stream), {}};
}

void write_text(const std::filesystem::path& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  ASSERT_TRUE(stream.good()) << file;
}

TempDir::TempDir() {
  std::string name = (std::filesystem::temp_directory_path() / "qimctl-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
  path_ = name;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<qimctl::Problem> problems_of(const std::function<void()>& read) {
  try {
    read();
  } catch (const qimctl::InputError& error) {
    return error.problems();
  }
  ADD_FAILURE() << "nothing was found wrong";
  return {};
}

std::string brief(const qimctl::Problem& problem) {
  return std::to_string(problem.place.line) + " " + problem.place.path + ": " + problem.message;
}

std::vector<std::string> brief(const std::vector<qimctl::Problem>& problems) {
  std::vector<std::string> lines;
  for (const qimctl::Problem& problem : problems) lines.push_back(brief(problem));
  return lines;
}

Process::Process(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment, const std::string& output)
    : output_(output.empty() ? (dir_ / "out").string() : output) {
  std::istringstream emulator(from_environment("QIM_EMULATOR"));
  std::vector<std::string> words{std::istream_iterator<std::string>(emulator), {}};
  words.push_back(from_environment("QIM_BUILD_DIR") + "/bin/qimctl");
  words.insert(words.end(), arguments.begin(), arguments.end());
  write_text(dir_ / "out", "");
  write_text(dir_ / "err", "");
  child_ = fork();
  if (child_ == 0) {
    redirect(STDOUT_FILENO, output_);
    redirect(STDERR_FILENO, dir_ / "err");
    execute(words, environment);
  }
}

Process::~Process() {
  if (child_ <= 0) return;
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
}

void Process::wait_for(const std::string& text) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (read_text(output_).find(text) == std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), end)
        << "'" << text << "' is not in:\n"
        << read_text(output_) << read_text(dir_ / "err");
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void Process::interrupt() const {
  EXPECT_EQ(kill(child_, SIGINT), 0);
}

Outcome Process::finish() {
  int status = 0;
  EXPECT_EQ(waitpid(child_, &status, 0), child_);
  child_ = -1;
  Outcome outcome;
  outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  outcome.out = read_text(dir_ / "out");
  outcome.err = read_text(dir_ / "err");
  return outcome;
}

Outcome run_qimctl(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment, const std::string& output) {
  return Process(arguments, environment, output).finish();
}

}  // namespace tools_test
