// The kernel's packet filter, where it or what leads to it fails.
#include "processes/enforce/filter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "processes/enforce/kernel_reader.h"
#include "processes/enforce/log.h"
#include "tests/system/enforce/net.h"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string obstacle_of(const std::function<void()>& what) {
  try {
    what();
  } catch (const enforce::FilterError& error) {
    return error.what();
  }
  return "";
}

TEST(Filter, SaysInOneLineWhatIsWrongWithCommands) {
  NEEDS_NET();
  const std::string why = obstacle_of([] {
    enforce::run_commands(
        R"({"nftables":[{"add":{"table":{"family":"netdev","name":"t"}}},)"
        R"({"delete":{"chain":{"family":"netdev","table":"none","name":"none"}}}]})");
  });
  EXPECT_THAT(why, HasSubstr("No such file or directory"));
  EXPECT_THAT(why, Not(HasSubstr("\n")));
  EXPECT_FALSE(enforce::read_kernel("t").is_there) << "a part of the commands took effect";
  EXPECT_NE(obstacle_of([] { enforce::run_commands("no commands"); }), "");
}

TEST(Filter, HasOtherTables) {
  NEEDS_NET();
  ASSERT_TRUE(net::shell("nft add table netdev other && nft add chain netdev other c"));
  EXPECT_FALSE(enforce::read_kernel().is_there);
  EXPECT_TRUE(enforce::read_kernel().chains.empty());
  EXPECT_EQ(enforce::read_kernel("other").chains.size(), 1u);
  EXPECT_TRUE(net::shell("nft delete table netdev other"));
}

// Where no more files can be opened.
TEST(Filter, FailsWithoutDescriptors) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::string reading = obstacle_of([] { enforce::read_kernel(); });
  const std::string running = obstacle_of([] { enforce::run_commands("{}"); });
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_THAT(reading, HasSubstr("can't ask the kernel for anything: "));
  EXPECT_THAT(running, HasSubstr("no pipe: "));
}

TEST(Log, HasALevelForWhoReadsIt) {
  testing::internal::CaptureStderr();
  enforce::say(enforce::Level::warning, "a\nb");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "<4>qim-enforce: a\\x0ab\n");
}

}  // namespace
