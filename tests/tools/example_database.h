// A database with the policy of examples/edge-all-types.json, which tests only read, so that one
// serves all of a suite.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/support.h"
#include "tools/cli.h"

namespace tools_test {

class ExampleDatabase : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir;
    const auto example = source_dir() / "examples" / "edge-all-types.json";
    ASSERT_EQ(run_qimctl({"--db", database(), "import", example}).code, 0);
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }

  static std::string database() { return *dir_ / "db"; }

  // What a command that succeeds prints.
  static std::string output(std::vector<std::string> arguments) {
    const Outcome outcome = run(std::move(arguments));
    EXPECT_EQ(outcome.code, qimctl::exit_ok);
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
  }

  // A command that fails, with `complaint` and nothing on standard output.
  static void expect_failure(std::vector<std::string> arguments, int code,
                             const std::string& complaint) {
    const Outcome outcome = run(std::move(arguments));
    EXPECT_EQ(outcome.code, code);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, testing::HasSubstr(complaint));
  }

 private:
  static Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"--db", database()});
    return run_qimctl(arguments);
  }

  static inline TempDir* dir_ = nullptr;
};

}  // namespace tools_test
