#include <hiredis/hiredis.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "bench/database.h"
#include "bench/peers/peers.h"
#include "bench/raw_engine.h"

namespace bench::peers::redis {
namespace {

constexpr int kAttempts = 500;
constexpr useconds_t kPause = 10000;

// A server of our own on a socket in a folder of its own, which keeps nothing on the disk.
class Server {
 public:
  Server() : socket_(folder_.at("socket")) {
    std::string words[] = {"redis-server",
                           "--port",
                           "0",
                           "--unixsocket",
                           socket_,
                           "--save",
                           "",
                           "--appendonly",
                           "no",
                           "--daemonize",
                           "no",
                           "--dir",
                           folder_.at(""),
                           "--logfile",
                           folder_.at("log")};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    check(posix_spawnp(&child_, "redis-server", nullptr, nullptr, arguments.data(), environ) == 0,
          "Redis", "be started");
    for (int attempt = 0; attempt < kAttempts && context_ == nullptr; ++attempt) {
      usleep(kPause);
      context_ = redisConnectUnix(socket_.c_str());
      if (context_ != nullptr && context_->err != 0) {
        redisFree(context_);
        context_ = nullptr;
      }
    }
    check(context_ != nullptr, "Redis", "be reached");
  }
  ~Server() {
    redisFree(context_);
    kill(child_, SIGTERM);
    waitpid(child_, nullptr, 0);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void fill(uint32_t values) {
    reply("FLUSHALL");
    const Bytes bytes(kRawBytes, 0x5a);
    for (uint32_t index = 0; index < values; ++index) {
      uint32_t id = id_at(index);
      check(redisAppendCommand(context_, "SET %b %b", &id, sizeof id, bytes.data(), bytes.size()) ==
                REDIS_OK,
            "Redis", "take a value");
      if (index % 1000 == 999 || index + 1 == values) drain(index % 1000 + 1);
    }
  }
  void get(uint32_t id, uint8_t* to) {
    auto* answer = static_cast<redisReply*>(redisCommand(context_, "GET %b", &id, sizeof id));
    check(answer != nullptr && answer->type == REDIS_REPLY_STRING && answer->len == kRawBytes,
          "Redis", "find a value");
    std::memcpy(to, answer->str, kRawBytes);
    freeReplyObject(answer);
  }

 private:
  void reply(const char* command) { freeReplyObject(redisCommand(context_, command)); }
  void drain(uint32_t answers) {
    for (; answers > 0; --answers) {
      void* answer = nullptr;
      check(redisGetReply(context_, &answer) == REDIS_OK, "Redis", "answer");
      freeReplyObject(answer);
    }
  }

  Folder folder_;
  std::string socket_;
  pid_t child_ = -1;
  redisContext* context_ = nullptr;
};

std::unique_ptr<Server>& server() {
  static std::unique_ptr<Server> one;
  return one;
}

}  // namespace

void add_lookups(uint32_t values, Workload* workload) {
  if (server() == nullptr) server() = std::make_unique<Server>();
  server()->fill(values);
  Side side{"Redis GET, Unix socket", [values](benchmark::State& state) {
              Random random(values);
              uint8_t bytes[kRawBytes];
              for (auto _ : state) {
                server()->get(id_at(random.next(values)), bytes);
                benchmark::DoNotOptimize(bytes);
              }
            }};
  side.wall = true;  // the server's part is in another process
  workload->sides.push_back(side);
  workload->claims.push_back({"qim_node_read", "Redis GET, Unix socket", Rule::kAtMost, 0.05});
}

void drop() {
  server().reset();
}

}  // namespace bench::peers::redis
