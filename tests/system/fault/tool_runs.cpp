#include "tests/system/fault/tool_runs.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tools/cli.h"

namespace fault {
namespace {

int run_tool(const std::vector<std::string>& words) {
  std::vector<const char*> argv;
  for (const std::string& word : words) argv.push_back(word.c_str());
  disturb();
  return qimctl::run(static_cast<int>(argv.size()), argv.data());
}

}  // namespace

ToolRuns::ToolRuns() : database_(directory_.file("db")), copy_(directory_.file("copy")) {
  const Run made = run({{"import", "@edge-all-types.json"}, Needs::kNoDatabase}, nullptr);
  EXPECT_EQ(made.code, int{qimctl::exit_ok}) << made.err;
  for (const Command& command : preparing_commands(directory_.path())) {
    const Run more = run_again(command, nullptr);
    EXPECT_EQ(more.code, int{qimctl::exit_ok}) << more.err;
  }
  std::filesystem::rename(copy_, database_);
  const Run dumped = run({{"dump"}, Needs::kDatabase}, nullptr);
  EXPECT_EQ(dumped.code, int{qimctl::exit_ok}) << dumped.err;
  std::ofstream(directory_.file("dump.json")) << dumped.out;
}

void ToolRuns::prepare(Needs needs) {
  used_ = needs == Needs::kDatabase ? database_ : copy_;
  if (needs == Needs::kDatabase) return;
  std::filesystem::remove_all(copy_);
  if (needs == Needs::kCopy)
    std::filesystem::copy(database_, copy_, std::filesystem::copy_options::recursive);
}

Run ToolRuns::run(const Command& command, const interpose::Plan* plan) {
  prepare(command.needs);
  return run_again(command, plan);
}

Run ToolRuns::run_again(const Command& command, const interpose::Plan* plan) {
  const std::vector<std::string> words = words_of(command, used_, directory_.path());
  return run_forked([&] { return run_tool(words); }, plan);
}

Run ToolRuns::run_after(const std::function<void()>& first, const Command& command) {
  prepare(command.needs);
  const std::vector<std::string> words = words_of(command, used_, directory_.path());
  return run_forked(
      [&] {
        first();
        return run_tool(words);
      },
      nullptr);
}

std::string ToolRuns::contents() {
  for (const char* part : {"/format", "/data.mdb"}) {
    if (!std::filesystem::exists(used_ + part)) return "";
  }
  const std::vector<std::vector<std::string>> questions = {{"list", "--json"},
                                                           {"acl", "guard", "--json"},
                                                           {"tree", "0x04100080", "--json"},
                                                           {"priv", "get", "0x04100001"}};
  // All in one process: a sweep asks thousands of times.
  const Run run = run_forked(
      [&] {
        for (const std::vector<std::string>& question : questions) {
          std::vector<std::string> words = {"qimctl", "--db", used_};
          words.insert(words.end(), question.begin(), question.end());
          const int code = run_tool(words);
          if (code != qimctl::exit_ok && code != qimctl::exit_not_found) return code;
        }
        return int{qimctl::exit_ok};
      },
      nullptr);
  EXPECT_EQ(run.signal, 0);
  EXPECT_EQ(run.code, int{qimctl::exit_ok}) << run.err;
  return run.out == "[]\n" ? "" : run.out;
}

}  // namespace fault
