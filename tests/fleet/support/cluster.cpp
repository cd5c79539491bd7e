// Starting, breaking and asking members of a store.
#include "tests/fleet/support/cluster.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/fleet/support/certificates.h"
#include "tests/support/pace.h"

namespace fleet_test {

namespace fs = std::filesystem;

Directory::Directory() {
  std::string name = (fs::temp_directory_path() / "qim-fleet-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
  path_ = name;
}

Directory::~Directory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

Program::Program(const std::vector<std::string>& command, const std::string& log) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(125);
  const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  dup2(out, STDOUT_FILENO);
  dup2(out, STDERR_FILENO);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

Program::~Program() {
  end(SIGKILL);
}

Program::Program(Program&& other) noexcept : pid_(std::exchange(other.pid_, -1)) {}

Program& Program::operator=(Program&& other) noexcept {
  end(SIGKILL);
  pid_ = std::exchange(other.pid_, -1);
  return *this;
}

void Program::signal(int number) const {
  if (pid_ > 0) ::kill(pid_, number);
}

int Program::end(int number) {
  signal(number);
  return wait();
}

int Program::wait() {
  int status = -1;
  if (pid_ > 0) waitpid(pid_, &status, 0);
  pid_ = -1;
  return status;
}

std::string output_of(const std::vector<std::string>& command) {
  const Directory directory;
  const int status = Program(command, directory / "out").wait();
  std::ostringstream text;
  text << std::ifstream(directory / "out").rdbuf();
  if (status != 0) throw std::runtime_error(command.front() + " failed: " + text.str());
  return text.str();
}

int free_port() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw std::runtime_error("no free port");
  close(socket);
  return ntohs(address.sin_port);
}

Cluster::Cluster(const Options& options) : options_(options) {
  if (options_.tls) {
    make_authority(directory_.path());
    make_certificate(directory_.path(), "server");
    make_certificate(directory_.path(), "root");
    if (options_.revocation) revoke_certificate(directory_.path());
  }
  members_.resize(static_cast<size_t>(options_.members));
  for (Member& member : members_) {
    member.client = free_port();
    member.peer = free_port();
    member.line = options_.line ? options_.line(member.peer) : member.peer;
  }
  for (int i = 0; i < size(); i++) start(i);
  await();
}

std::string Cluster::data(int member) const {
  return directory_.path() + "/m" + std::to_string(member);
}

std::string Cluster::peer_url(int member) const {
  return "http://127.0.0.1:" + std::to_string(members_[static_cast<size_t>(member)].line);
}

std::string Cluster::all_peers() const {
  std::string all;
  for (int i = 0; i < size(); i++)
    all += (i == 0 ? "m" : ",m") + std::to_string(i) + "=" + peer_url(i);
  return all;
}

std::vector<std::string> Cluster::command(int member, const std::string& quota_bytes) const {
  const Member& self = members_[static_cast<size_t>(member)];
  const std::string listens = "http://127.0.0.1:" + std::to_string(self.peer);
  std::vector<std::string> words{"etcd",
                                 "--name=m" + std::to_string(member),
                                 "--data-dir=" + data(member),
                                 "--listen-client-urls=" + scheme() + endpoint(member),
                                 "--advertise-client-urls=" + scheme() + endpoint(member),
                                 "--listen-peer-urls=" + listens,
                                 "--initial-advertise-peer-urls=" + peer_url(member),
                                 "--initial-cluster=" + all_peers(),
                                 "--log-level=error"};
  if (!quota_bytes.empty()) words.push_back("--quota-backend-bytes=" + quota_bytes);
  if (options_.tls) {
    words.push_back("--client-cert-auth");
    words.push_back("--trusted-ca-file=" + directory_.path() + "/ca.pem");
    words.push_back("--cert-file=" + directory_.path() + "/server.pem");
    words.push_back("--key-file=" + directory_.path() + "/server.key");
    if (options_.revocation) words.push_back("--client-crl-file=" + directory_.path() + "/crl.pem");
  }
  return words;
}

std::string Cluster::endpoint(int member) const {
  return "127.0.0.1:" + std::to_string(members_[static_cast<size_t>(member)].client);
}

qim::fleet::EtcdOptions Cluster::options(const std::string& user) const {
  qim::fleet::EtcdOptions options;
  for (int i = 0; i < size(); i++) options.endpoints.push_back(endpoint(i));
  options.timeout = pace::paced(std::chrono::milliseconds(3000));
  if (options_.tls) {
    if (!fs::exists(directory_.path() + "/" + user + ".pem"))
      make_certificate(directory_.path(), user);
    options.ca = directory_.path() + "/ca.pem";
    options.certificate = directory_.path() + "/" + user + ".pem";
    options.key = directory_.path() + "/" + user + ".key";
  }
  return options;
}

std::unique_ptr<qim::fleet::Store> Cluster::connect(const std::string& user) const {
  return qim::fleet::connect_etcd(options(user));
}

void Cluster::start(int member, const std::string& quota_bytes) {
  const std::string& quota = quota_bytes.empty() ? options_.quota_bytes : quota_bytes;
  members_[static_cast<size_t>(member)].program =
      Program(command(member, quota), directory_.path() + "/m" + std::to_string(member) + ".log");
}

void Cluster::kill(int member) {
  members_[static_cast<size_t>(member)].program.end(SIGKILL);
}

void Cluster::stop(int member) const {
  members_[static_cast<size_t>(member)].program.signal(SIGSTOP);
}

void Cluster::resume(int member) const {
  members_[static_cast<size_t>(member)].program.signal(SIGCONT);
}

void Cluster::await() const {
  const auto store = connect();
  const auto until =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(pace::patience_ms());
  for (;;) {
    try {
      (void)store->get("anything");
      return;
    } catch (const qim::fleet::StoreError& error) {
      if (error.failure() != qim::fleet::StoreFailure::unreachable ||
          std::chrono::steady_clock::now() > until)
        throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
}

std::string Cluster::control(const std::vector<std::string>& arguments) const {
  std::string endpoints;
  for (int i = 0; i < size(); i++) {
    if (!members_[static_cast<size_t>(i)].program.runs()) continue;
    endpoints += (endpoints.empty() ? "" : ",") + scheme() + endpoint(i);
  }
  return control_at(endpoints, arguments);
}

std::string Cluster::control_at(const std::string& endpoints,
                                const std::vector<std::string>& arguments) const {
  std::vector<std::string> command{"env", "ETCDCTL_API=3", "etcdctl", "--endpoints=" + endpoints};
  if (options_.tls) {
    command.push_back("--cacert=" + directory_.path() + "/ca.pem");
    command.push_back("--cert=" + directory_.path() + "/root.pem");
    command.push_back("--key=" + directory_.path() + "/root.key");
  }
  command.insert(command.end(), arguments.begin(), arguments.end());
  return output_of(command);
}

void Cluster::save(const std::string& file) const {
  control_at(scheme() + endpoint(0), {"snapshot", "save", file});
}

void Cluster::restore(const std::string& file, const std::string& token) {
  for (int i = 0; i < size(); i++) kill(i);
  for (int i = 0; i < size(); i++) {
    fs::rename(data(i), data(i) + ".old");
    std::vector<std::string> words{"snapshot",
                                   "restore",
                                   file,
                                   "--name=m" + std::to_string(i),
                                   "--data-dir=" + data(i),
                                   "--initial-cluster=" + all_peers(),
                                   "--initial-advertise-peer-urls=" + peer_url(i)};
    if (!token.empty()) words.push_back("--initial-cluster-token=" + token);
    control_at(scheme() + endpoint(i), words);
  }
  for (int i = 0; i < size(); i++) start(i);
  await();
}

void Cluster::bring_back() {
  for (int i = 0; i < size(); i++) kill(i);
  for (int i = 0; i < size(); i++) {
    fs::remove_all(data(i));
    fs::rename(data(i) + ".old", data(i));
  }
  for (int i = 0; i < size(); i++) start(i);
  await();
}

void Cluster::forget_old() {
  for (int i = 0; i < size(); i++) fs::remove_all(data(i) + ".old");
}

int Cluster::leader() const {
  // A line a member: endpoint, id, version, size, is it the leader, ...
  std::istringstream lines(control({"endpoint", "status"}));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.find(", true,") == std::string::npos) continue;
    for (int i = 0; i < size(); i++) {
      if (line.find(endpoint(i) + ",") != std::string::npos) return i;
    }
  }
  return -1;
}

}  // namespace fleet_test
