// The tool on a storage engine that fails, or that finds damaged records: an exit code and a message
// that tells of it, or the right answer.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/engine_faults.h"
#include "tests/system/fault/scale.h"
#include "tests/system/fault/tool_commands.h"
#include "tools/cli.h"

namespace {

using failing_engine::Plan;
using fault::Command;
using fault::Needs;
using fault::Sealed;

// What goes to a file descriptor as long as the object lives.
class Capture {
 public:
  explicit Capture(int to) : to_(to), before_(dup(to)), file_(memfd_create("output", MFD_CLOEXEC)) {
    fflush(nullptr);
    dup2(file_, to_);
  }
  ~Capture() {
    fflush(nullptr);
    dup2(before_, to_);
    close(before_);
    close(file_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::string text() const {
    fflush(nullptr);
    std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    return text;
  }

 private:
  int to_;
  int before_;
  int file_;
};

struct Output {
  int code = -1;
  std::string out;
  std::string err;
};

class ToolOnFailingEngine : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(run({{"import", "@edge-all-types.json"}, Needs::kNoDatabase}, nullptr, nullptr).code,
              int{qimctl::exit_ok});
    for (const Command& command : fault::preparing_commands(directory_.path())) {
      const Output made = run(command, nullptr, nullptr);
      ASSERT_EQ(made.code, int{qimctl::exit_ok}) << made.err;
    }
    std::filesystem::copy(database(), copy(), std::filesystem::copy_options::recursive);
  }

  Output run(const Command& command, const Plan* plan, failing_engine::Counts* counts) const {
    const std::vector<std::string> words = fault::words_of(command, database(), directory_.path());
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    Output output;
    const Capture out(STDOUT_FILENO);
    const Capture err(STDERR_FILENO);
    const failing_engine::Counts counted = fault::count_calls(
        plan, [&] { output.code = qimctl::run(static_cast<int>(argv.size()), argv.data()); });
    if (counts != nullptr) *counts = counted;
    output.out = out.text();
    output.err = err.text();
    return output;
  }

  void check(const Command& command, const Plan& plan, const Output& clean) {
    failing_engine::Counts counts;
    const Output output = run(command, &plan, &counts);
    injected_ += counts.injected;
    if (fault::is_sealed(plan.error)) return;  // it can't know: that it comes to an end is enough
    if (output.code == clean.code && output.err == clean.err) {
      EXPECT_EQ(output.out, clean.out);
      return;
    }
    EXPECT_NE(output.code, int{qimctl::exit_ok});
    const bool is_said = output.err.starts_with("qimctl: ") || output.err.starts_with("{\"what\":");
    EXPECT_TRUE(is_said) << output.err;
    ++failed_;
  }

  // All that was changed is undone.
  void restore() const {
    std::filesystem::remove_all(database());
    std::filesystem::copy(copy(), database(), std::filesystem::copy_options::recursive);
  }

  std::string database() const { return directory_.file("db"); }
  std::string copy() const { return directory_.file("copy"); }

  testing_rov::TemporaryDirectory directory_;
  uint32_t injected_ = 0;
  uint32_t failed_ = 0;
};

TEST_F(ToolOnFailingEngine, SaysWhatFailedOrAnswersRight) {
  for (const Command& command : fault::tried_commands()) {
    if (command.needs == Needs::kNoDatabase) continue;
    SCOPED_TRACE(text_of(command));
    const bool writes = command.needs != Needs::kDatabase;
    failing_engine::Counts calls;
    const Output clean = run(command, nullptr, &calls);
    ASSERT_EQ(clean.code, int{qimctl::exit_ok}) << clean.err;
    const Sealed sealed = writes ? Sealed::kNone : Sealed::kToo;
    fault::each_point(calls, fault::scaled(6, 1), sealed, [&](const Plan& plan) {
      if (writes) restore();
      check(command, plan, clean);
    });
    if (writes) restore();
  }
  fault::announce("the tool's engine", 0, injected_, "faults");
  printf("%u of them made a command fail\n", failed_);
  EXPECT_GT(failed_, 50U);
}

}  // namespace
