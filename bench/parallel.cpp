// Two threads, and two processes, at once.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "bench/database.h"
#include "bench/workloads.h"

namespace bench {
namespace {

using benchmark::State;

void read_in_thread(State& state, const Prepared& in) {
  check(qim_lib_tls_init(0), "set up a thread");
  const uint32_t ses = in.database.open_session();
  Random random(static_cast<uint64_t>(state.thread_index()) + 1);
  qim_node_t node;
  for (auto _ : state) {
    if (qim_node_read(ses, id_at(random.next(in.plan.nodes)), 0, &node) != 0) {
      state.SkipWithError("a node can't be read");
    }
    benchmark::DoNotOptimize(node);
  }
  check(rov_ses_close(ses), "close a session");
}

// Another process that reads the same database as long as the object lives.
class Neighbour {
 public:
  Neighbour(const char* program, const Prepared& in) {
    int orders[2];
    int answers[2];
    if (pipe(orders) != 0 || pipe(answers) != 0) fail();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, orders[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, answers[1], STDOUT_FILENO);
    for (const int end : {orders[0], orders[1], answers[0], answers[1]}) {
      posix_spawn_file_actions_addclose(&actions, end);
    }
    std::string words[] = {program, "--read", in.database.path(), std::to_string(in.plan.nodes)};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(),
                         nullptr};
    if (posix_spawn(&child_, program, &actions, nullptr, arguments, environ) != 0) fail();
    posix_spawn_file_actions_destroy(&actions);
    close(orders[0]);
    close(answers[1]);
    char ready = 0;
    if (read(answers[0], &ready, 1) != 1) fail();
    close(answers[0]);
    order_ = orders[1];
  }
  ~Neighbour() {
    close(order_);
    waitpid(child_, nullptr, 0);
  }
  Neighbour(const Neighbour&) = delete;
  Neighbour& operator=(const Neighbour&) = delete;

 private:
  [[noreturn]] static void fail() {
    std::perror("bench: cannot start another process");
    std::exit(1);
  }
  pid_t child_ = -1;
  int order_ = -1;
};

void read_beside(State& state, const Prepared& in, const char* program) {
  std::unique_ptr<Neighbour> neighbour;
  if (program != nullptr) neighbour = std::make_unique<Neighbour>(program, in);
  read_in_thread(state, in);
}

}  // namespace

int read_meanwhile(const char* path, uint32_t nodes) {
  const Database database(path);
  const uint32_t ses = database.open_session();
  Random random(77);
  qim_node_t node;
  bool told = false;
  pid_t parent = getppid();
  // The parent's end of the pipe is looked at now and then.
  for (;;) {
    for (uint32_t i = 0; i < 10000; ++i) {
      check(qim_node_read(ses, id_at(random.next(nodes)), 0, &node), "read a node");
    }
    if (!told) {
      told = write(STDOUT_FILENO, "r", 1) == 1;
      if (!told) break;
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(STDIN_FILENO, &set);
    timeval none = {};
    if (select(1, &set, nullptr, nullptr, &none) != 0 || getppid() != parent) break;
  }
  check(rov_ses_close(ses), "close a session");
  return 0;
}

void run_parallel(Harness& harness, const char* program) {
  const Sizes sizes = sizes_of(harness.options());
  for (const uint32_t nodes : {sizes.small, sizes.middle}) {
    const std::string threads = "two threads, " + size_text(nodes);
    const std::string processes = "two processes, " + size_text(nodes);
    if (!harness.wanted(threads) && !harness.wanted(processes)) continue;
    check(qim_lib_tls_init(0), "set up a thread");
    const Prepared& in = prepared({nodes});
    const auto body = [&in](State& state) { read_in_thread(state, in); };
    harness.run({threads + ", time by the wall",
                 {{"two threads", body, 1, 2, true}, {"one thread", body, 1, 1, true}},
                 {{"two threads", "one thread", Rule::kSpeedup, 1.9}}});
    // What a shared machine takes away does not count here; what the threads take from one another
    // does.
    harness.run({threads + ", time by the processor",
                 {{"two threads", body, 2, 2, false}, {"one thread", body, 1, 1, false}},
                 {{"two threads", "one thread", Rule::kSpeedup, 1.9}}});
    harness.run({processes + ", time by the processor",
                 {{"beside another", [&](State& state) { read_beside(state, in, program); }},
                  {"alone", [&](State& state) { read_beside(state, in, nullptr); }}},
                 {{"beside another", "alone"}}});
  }
}

}  // namespace bench
