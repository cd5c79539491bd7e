// `qimctl fleet`, which becomes another program if that is installed.
#include <cstdlib>
#include <filesystem>

#include "tests/tools/support.h"

namespace tools_test {
namespace {

bool is_built() {
  const char* folder = getenv("QIM_BUILD_DIR");
  return std::filesystem::exists(std::filesystem::path(folder == nullptr ? "." : folder) /
                                 "bin/qimctl-fleet");
}

TEST(ToolFleet, BecomesTheProgramForFleetsOrSaysWhatToInstall) {
  const Outcome outcome = run_qimctl({"fleet", "status", "--help"});
  if (is_built()) {
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("--refused"), std::string::npos) << outcome.out;
  } else {
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.err.find("qimctl-fleet, is not installed; "), std::string::npos)
        << outcome.err;
  }
}

}  // namespace
}  // namespace tools_test
