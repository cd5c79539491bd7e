// Running processes.
#include "tests/system/enforce/process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/support/pace.h"
#include "tests/system/enforce/net.h"

namespace process {

namespace {

std::string program(const std::string& name) {
  return std::string(getenv("QIM_BUILD_DIR")) + "/bin/" + name;
}

std::string contents(const std::string& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

Place::Place() {
  std::string pattern = std::filesystem::temp_directory_path() / "enforce-XXXXXX";
  folder_ = mkdtemp(pattern.data());
}

Place::~Place() {
  std::filesystem::remove_all(folder_);
}

bool Place::apply(const std::string& lists, const std::vector<std::string>& attached) const {
  std::string sets;
  for (const std::string& name : attached)
    sets += (sets.empty() ? "" : ",") + ("{\"name\":\"" + name + "\"}");
  std::ofstream(path("policy.json"))
      << R"({"ietf-access-control-list:acls":{"acl":[)" << lists
      << R"(],"attachment-points":{"interface":[{"interface-id":"far","ingress":{"acl-sets":{"acl-set":[)"
      << sets << "]}}}]}}}";
  return qimctl(*this, "apply --prune " + path("policy.json"));
}

bool qimctl(const Place& place, const std::string& arguments) {
  return net::shell(program("qimctl") + " --db " + place.path("db") + " " + arguments);
}

std::string list(const std::string& name, const std::string& entries) {
  return R"({"name":")" + name + R"(","type":"mixed-eth-ipv4-ipv6-acl-type","aces":{"ace":[)" +
         entries + "]}}";
}

std::string entry(const std::string& name, uint16_t port, const std::string& forwarding) {
  return R"({"name":")" + name +
         R"(","matches":{"udp":{"destination-port":{"operator":"eq","port":)" +
         std::to_string(port) + R"(}}},"actions":{"forwarding":")" + forwarding + R"("}})";
}

Ended run(const Place& place, const std::string& options) {
  const std::string output = place.path("output");
  const std::string command = program("qim-enforce") + " --db " + place.path("db") + " " + options +
                              " >" + output + " 2>&1";
  const int status = system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(output)};
}

Enforce::Enforce(const Place& place, const std::vector<std::string>& options,
                 const std::string& notify_socket)
    : log_file_(place.path("log")) {
  std::vector<std::string> words{program("qim-enforce"), "--db", place.path("db")};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_ = fork();
  if (pid_ != 0) return;
  const int log = open(log_file_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(log, STDERR_FILENO);
  if (!notify_socket.empty()) {
    setenv("NOTIFY_SOCKET", notify_socket.c_str(), 1);
    setenv("WATCHDOG_USEC", "300000", 1);
  }
  execv(arguments[0], arguments.data());
  _exit(127);
}

Enforce::~Enforce() {
  if (pid_ <= 0) return;
  signal(SIGKILL);
  wait();
}

void Enforce::signal(int number) const {
  kill(pid_, number);
}

int Enforce::wait() {
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Enforce::log() const {
  return contents(log_file_);
}

bool eventually(const std::function<bool()>& holds) {
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(pace::patience_ms());
  while (std::chrono::steady_clock::now() < end) {
    if (holds()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return holds();
}

uint64_t metric(const std::string& file, const std::string& name) {
  const std::string text = contents(file);
  const size_t at = text.find("\nqim_enforce_" + name + " ");
  return at == std::string::npos ? 0 : std::stoull(text.substr(at + name.size() + 14));
}

}  // namespace process
