// Members of a real store on loopback, with ports and directories of their own.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fleet/etcd/client.h"

namespace fleet_test {

// An empty directory that goes away with the object.
class Directory {
 public:
  Directory();
  ~Directory();
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// A program that ends with the object, or when whoever started it dies.
class Program {
 public:
  Program() = default;
  // Its output goes to the file `log`.
  Program(const std::vector<std::string>& command, const std::string& log);
  ~Program();
  Program(Program&& other) noexcept;
  Program& operator=(Program&& other) noexcept;

  bool runs() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  void signal(int number) const;
  // Sends the signal and waits for the end; its status as of waitpid.
  int end(int number);
  int wait();

 private:
  pid_t pid_ = -1;
};

// Runs a program to its end; what it printed. Throws when it ends with anything but 0.
std::string output_of(const std::vector<std::string>& command);

// A port of loopback that nobody listens at.
int free_port();

class Cluster {
 public:
  struct Options {
    int members = 3;
    bool tls = false;
    std::string quota_bytes = "";  // "" = the store's own
    bool revocation = false;       // it looks at the list of revoked certificates, with tls
    // The port at which a member's own one is reached by the others, for who stands between them.
    std::function<int(int port)> line = {};
  };

  // Starts all members and waits until they have a leader.
  Cluster() : Cluster(Options{}) {}
  explicit Cluster(const Options& options);
  Cluster(const Cluster&) = delete;
  Cluster& operator=(const Cluster&) = delete;

  int size() const { return static_cast<int>(members_.size()); }
  std::string endpoint(int member) const;
  pid_t pid(int member) const { return members_[static_cast<size_t>(member)].program.pid(); }
  // How to reach all of them; with `user`'s certificate, which is made when it is first asked for.
  qim::fleet::EtcdOptions options(const std::string& user = "root") const;
  std::unique_ptr<qim::fleet::Store> connect(const std::string& user = "root") const;

  // The member that leads; -1 when there is none, or it can't be told.
  int leader() const;
  void kill(int member);  // as a loss of power does
  // Again, on its own data; with another quota if one is given.
  void start(int member, const std::string& quota_bytes = "");
  void stop(int member) const;    // it hangs,
  void resume(int member) const;  // and goes on
  // Until the members that run answer a read. Throws after a minute.
  void await() const;
  // The store's own tool, with what it needs to reach the running members.
  std::string control(const std::vector<std::string>& arguments) const;

  // What one member has, to a file; and a store that was made of that in the place of this one, which
  // is the same cluster unless it is given a token of its own.
  void save(const std::string& file) const;
  void restore(const std::string& file, const std::string& token);
  // The store from before the restoration in its place again; or it is gone for good.
  void bring_back();
  void forget_old();

  const std::string& directory() const { return directory_.path(); }

 private:
  struct Member {
    int client = 0;  // ports
    int peer = 0;
    int line = 0;  // at which the others reach it
    Program program;
  };
  std::vector<std::string> command(int member, const std::string& quota_bytes) const;
  std::string data(int member) const;
  std::string peer_url(int member) const;
  std::string all_peers() const;
  std::string control_at(const std::string& endpoints,
                         const std::vector<std::string>& arguments) const;
  std::string scheme() const { return options_.tls ? "https://" : "http://"; }

  Options options_;
  Directory directory_;
  std::vector<Member> members_;
};

}  // namespace fleet_test
