// The tool without memory, and with a system that refuses what it asks: an exit code and a message,
// nothing done by halves, and no wrong answer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <set>
#include <sstream>

#include "tests/system/fault/call_faults.h"
#include "tests/system/fault/points.h"
#include "tests/system/fault/scale.h"
#include "tests/system/fault/tool_runs.h"
#include "tools/cli.h"

namespace {

using fault::CallFault;
using fault::Command;
using fault::Needs;
using fault::ToolRuns;
using interpose::kForever;
using interpose::Plan;

// How a command ends, and what the database holds before it and after it.
struct Undisturbed {
  fault::Run run;
  std::string before;
  std::string after;
};

class ToolFaults : public testing::Test {
 protected:
  Undisturbed undisturbed(const Command& command) {
    Undisturbed clean;
    if (command.needs == Needs::kCopy) {
      runs_.run({{"list"}, Needs::kCopy}, nullptr);
      clean.before = runs_.contents();
    }
    clean.run = runs_.run(command, nullptr);
    EXPECT_EQ(clean.run.code, int{qimctl::exit_ok}) << clean.run.err;
    if (command.needs != Needs::kDatabase) clean.after = runs_.contents();
    return clean;
  }

  // A run with faults. What it printed must be right if it says that it succeeded, and its message
  // must say what went wrong if not.
  template <typename NamesCause>
  void check(const Command& command, const Plan& plan, const Undisturbed& clean,
             NamesCause names_cause) {
    SCOPED_TRACE(text_of(command) + ": " + interpose::name_of(plan.call) + " " +
                 std::to_string(plan.from) + " until " + std::to_string(plan.until) + " error " +
                 std::to_string(plan.error));
    const fault::Run run = runs_.run(command, &plan);
    injected_ += run.counts.injected;
    EXPECT_EQ(run.signal, 0) << run.err;
    if (run.code == qimctl::exit_ok) {
      EXPECT_EQ(run.out, clean.run.out);
    } else {
      EXPECT_TRUE(names_cause(run.err)) << "code " << run.code << '\n' << run.err;
    }
    if (command.needs == Needs::kDatabase) return;
    const std::string holds = runs_.contents();
    if (holds == clean.after) return;
    EXPECT_NE(run.code, int{qimctl::exit_ok}) << "what was acknowledged is lost";
    // An empty database may have been made before something failed.
    EXPECT_TRUE(holds == clean.before || (command.needs == Needs::kNoDatabase && holds.empty()))
        << "what was not acknowledged is there by half:\n"
        << holds;
    const fault::Run again = runs_.run_again(command, nullptr);
    EXPECT_EQ(again.code, int{qimctl::exit_ok}) << again.err;
    EXPECT_EQ(runs_.contents(), clean.after);
  }

  ToolRuns runs_;
  uint32_t injected_ = 0;
};

bool tells_of_memory(const std::string& message) {
  return message.find("memory") != std::string::npos;
}

// The help lists a command at the beginning of a line, and what belongs to it further right.
TEST_F(ToolFaults, EveryCommandIsTried) {
  const std::string help = runs_.run({{"--help-all"}, Needs::kDatabase}, nullptr).out;
  std::istringstream lines(help.substr(help.find("Commands:\n") + 10));
  std::set<std::string> offered;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line[0] != ' ') offered.insert(line);
  }
  // This one becomes another program.
  offered.erase("fleet");
  std::set<std::string> tried;
  for (const Command& command : fault::all_commands()) tried.insert(command.words[0]);
  tried.erase("--help-all");
  EXPECT_GT(offered.size(), 10U);
  EXPECT_EQ(tried, offered);
}

TEST_F(ToolFaults, WithoutMemoryEveryCommandFailsWithAMessage) {
  uint32_t requests = 0;
  uint32_t tried = 0;
  for (const Command& command : fault::tried_commands()) {
    const Undisturbed clean = undisturbed(command);
    const uint32_t here = clean.run.counts.calls[interpose::kMemory];
    requests += here;
    for (const uint32_t at : fault::points(here, fault::scaled_processes(15, 2))) {
      check(command, {interpose::kMemory, at, at + 1, 0}, clean, tells_of_memory);
      check(command, {interpose::kMemory, at, kForever, 0}, clean, tells_of_memory);
      tried += 2;
      if (HasFailure()) return;
    }
  }
  fault::announce("requests for memory of the tool", 0, tried, "runs with refused ones");
  printf("there are %u requests, %u were refused\n", requests, injected_);
  EXPECT_GE(injected_, tried);
}

TEST_F(ToolFaults, RefusedCallsAreNamedAndNothingIsDoneByHalves) {
  uint32_t tried = 0;
  for (const Command& command : fault::database_commands()) {
    const Undisturbed clean = undisturbed(command);
    for (const CallFault& fault : fault::call_faults()) {
      const auto names = [&](const std::string& message) {
        return fault::names_cause(message, fault);
      };
      const uint32_t calls = clean.run.counts.calls[fault.call];
      for (const uint32_t at : fault::points(calls, fault::scaled_processes(5, 1))) {
        check(command, {fault.call, at, at + 1, fault.error}, clean, names);
        ++tried;
        if (!fault.lasting) continue;
        check(command, {fault.call, at, kForever, fault.error}, clean, names);
        ++tried;
      }
    }
  }
  fault::announce("system calls of the tool", 0, tried, "runs with refused ones");
  EXPECT_GE(injected_, tried);
}

void into_a_full_device() {
  const int file = open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (file < 0 || dup2(file, STDOUT_FILENO) < 0) abort();
}

void into_a_broken_pipe() {
  int ends[2];
  signal(SIGPIPE, SIG_IGN);
  if (pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) abort();
  close(ends[0]);
}

struct LostOutput {
  void (*redirect)();
  const char* cause;
};

// Only where something would have been printed.
TEST_F(ToolFaults, OutputThatCanNotBeWrittenIsAFailure) {
  uint32_t lost = 0;
  for (const Command& command : fault::tried_commands()) {
    const bool prints = !undisturbed(command).run.out.empty();
    for (const LostOutput& way : {LostOutput{into_a_full_device, "No space left"},
                                  LostOutput{into_a_broken_pipe, "Broken pipe"}}) {
      SCOPED_TRACE(text_of(command) + ": " + way.cause);
      const fault::Run run = runs_.run_after(way.redirect, command);
      EXPECT_EQ(run.code, prints ? int{qimctl::exit_output} : int{qimctl::exit_ok});
      const bool named = run.err.find("cannot write the output") != std::string::npos &&
                         run.err.find(way.cause) != std::string::npos;
      EXPECT_EQ(named, prints) << run.err;
      lost += named ? 1 : 0;
    }
  }
  EXPECT_GT(lost, fault::tried_commands().size());
}

// The work of a command that writes is done before its output.
TEST_F(ToolFaults, WhatWasToBeStoredIsStoredAllTheSame) {
  for (const Command& command : fault::tried_commands()) {
    if (command.needs == Needs::kDatabase) continue;
    const Undisturbed clean = undisturbed(command);
    runs_.run_after(into_a_full_device, command);
    EXPECT_EQ(runs_.contents(), clean.after) << text_of(command);
  }
}

}  // namespace
