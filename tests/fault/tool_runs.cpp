#include "tests/fault/tool_runs.h"

#include <gtest/gtest.h>

#include <cstdlib>
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

const std::vector<Command>& database_commands() {
  using enum Needs;
  static const std::vector<Command> commands = {
      {{"import", "@edge-all-types.json"}, kNoDatabase},
      {{"import", "--replace", "--json", "@edge-all-types.json"}, kCopy},
      {{"show", "0x04100001", "--json"}, kDatabase},
      {{"watch", "--from", "1", "--count", "5"}, kDatabase},
      {{"priv", "set", "0x04100001", "0102"}, kCopy},
  };
  return commands;
}

const std::vector<Command>& all_commands() {
  using enum Needs;
  static const std::vector<Command> commands = [] {
    std::vector<Command> all = database_commands();
    const std::vector<Command> others = {
        {{"import", "--lossy", "-v", "@edge-router.rfc8519.json"}, kNoDatabase},
        {{"list"}, kDatabase},
        {{"list", "--type", "filter", "--json"}, kDatabase},
        {{"show", "0x04100010"}, kDatabase},
        {{"show", "0x04100010", "--engine"}, kDatabase},
        {{"tree", "0x04100080"}, kDatabase},
        {{"tree", "0x04100010", "--json"}, kDatabase},
        {{"refs", "0x04100001"}, kDatabase},
        {{"criteria", "0x04100010"}, kDatabase},
        {{"args", "0x04100030"}, kDatabase},
        {{"edest", "0x04100080"}, kDatabase},
        {{"pinst", "0"}, kDatabase},
        {{"name", "build", "interface", "3"}, kDatabase},
        {{"name", "parse", "010000000300000000000000000000000000000000"}, kDatabase},
        {{"priv", "get", "0x04100001"}, kDatabase},
        {{"watch", "--from", "1", "--count", "3", "--json"}, kDatabase},
        {{"check"}, kDatabase},
        {{"check", "--json"}, kDatabase},
        {{"dump"}, kDatabase},
        {{"restore", "@@dump.json"}, kNoDatabase},
        {{"compact"}, kCopy},
        {{"--help-all"}, kDatabase},
    };
    all.insert(all.end(), others.begin(), others.end());
    return all;
  }();
  return commands;
}

std::string text_of(const Command& command) {
  std::string text;
  for (const std::string& word : command.words) text += (text.empty() ? "" : " ") + word;
  return text;
}

ToolRuns::ToolRuns() : database_(directory_.file("db")), copy_(directory_.file("copy")) {
  const char* source = getenv("QIM_SOURCE_DIR");
  examples_ = std::string(source == nullptr ? "." : source) + "/examples/";
  const Run made = run({{"import", "@edge-all-types.json"}, Needs::kNoDatabase}, nullptr);
  EXPECT_EQ(made.code, int{qimctl::exit_ok}) << made.err;
  std::filesystem::rename(copy_, database_);
  const Run dumped = run({{"dump"}, Needs::kDatabase}, nullptr);
  EXPECT_EQ(dumped.code, int{qimctl::exit_ok}) << dumped.err;
  std::ofstream(directory_.file("dump.json")) << dumped.out;
}

void ToolRuns::prepare(Needs needs) {
  used_ = needs == Needs::kDatabase ? database_ : copy_;
  if (needs == Needs::kDatabase) return;
  std::filesystem::remove_all(copy_);
  if (needs == Needs::kCopy) std::filesystem::copy(database_, copy_);
}

Run ToolRuns::run(const Command& command, const interpose::Plan* plan) {
  prepare(command.needs);
  return run_again(command, plan);
}

std::string ToolRuns::file_of(const std::string& word) const {
  if (word.rfind("@@", 0) == 0) return directory_.file(word.substr(2));
  return word[0] == '@' ? examples_ + word.substr(1) : word;
}

std::vector<std::string> ToolRuns::words_of(const Command& command) const {
  std::vector<std::string> words = {"qimctl", "--db", used_};
  for (const std::string& word : command.words) words.push_back(file_of(word));
  return words;
}

Run ToolRuns::run_again(const Command& command, const interpose::Plan* plan) {
  const std::vector<std::string> words = words_of(command);
  return run_forked([&] { return run_tool(words); }, plan);
}

Run ToolRuns::run_after(const std::function<void()>& first, const Command& command) {
  prepare(command.needs);
  const std::vector<std::string> words = words_of(command);
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
  const std::vector<std::vector<std::string>> questions = {
      {"list", "--json"}, {"tree", "0x04100080", "--json"}, {"priv", "get", "0x04100001"}};
  std::string text;
  for (const std::vector<std::string>& question : questions) {
    std::vector<std::string> words = {"qimctl", "--db", used_};
    words.insert(words.end(), question.begin(), question.end());
    const Run run = run_forked([&] { return run_tool(words); }, nullptr);
    EXPECT_EQ(run.signal, 0);
    EXPECT_TRUE(run.code == qimctl::exit_ok || run.code == qimctl::exit_not_found) << run.err;
    text += run.out;
  }
  return text == "[]\n" ? "" : text;
}

}  // namespace fault
