// qimd as a process: its command line, its settings, and what it tells of itself.
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "fleet/state/state_digest.h"
#include "tests/fleet/agent/publisher.h"
#include "tests/fleet/support/cluster.h"
#include "tests/support/pace.h"
#include "tests/tools/support.h"

namespace {

using fleet_test::Program;
using qim::fleet::PrivateKey;
using testing::HasSubstr;
using testing::Not;

class QimdTest : public testing::Test {
 protected:
  QimdTest() {
    std::filesystem::create_directory(dir_ / "kept");
    tools_test::write_text(
        dir_ / "publishers",
        qim::fleet::trusted_line(publisher_.trusted().all().front().bytes, "publisher"));
    tools_test::write_text(dir_ / "key.pem", PrivateKey::generate().pem());
    std::filesystem::permissions(dir_ / "key.pem", std::filesystem::perms::owner_read);
    settings_ = "scope = edge\ndevice = d1\ndatabase = " + path("db") +
                "\ndirectory = " + path("kept") + "\nendpoints = " + cluster_.endpoint(0) +
                "\npublishers = " + path("publishers") + "\nsigning_key = " + path("key.pem") +
                "\nmetrics = " + path("metrics") + "\nreport_spread = 1ms\n";
    configure(settings_);
    fleet_test::SmallPolicy policy;
    policy.actions[1] = "one";
    first_ = policy.state();
  }

  std::string path(const std::string& name) const { return (dir_ / name).string(); }
  void configure(const std::string& text) const { tools_test::write_text(dir_ / "conf", text); }

  std::vector<std::string> command(std::vector<std::string> arguments) const {
    const std::string qimd = std::string(getenv("QIM_BUILD_DIR")) + "/bin/qimd";
    std::vector<std::string> all{qimd, "--config", path("conf")};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }
  // Its exit status; what it said is in `said_`.
  int run(const std::vector<std::string>& arguments) {
    const int status = Program(command(arguments), path("out")).wait();
    said_ = tools_test::read_text(dir_ / "out");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  fleet_test::Cluster cluster_{{1, false, ""}};
  std::unique_ptr<qim::fleet::Store> store_ = cluster_.connect();
  fleet_test::Publisher publisher_{[this](const std::string& key, const std::string& value) {
                                     store_->change({{}, {{key, value}}});
                                   },
                                   "edge"};
  tools_test::TempDir dir_;
  std::string settings_;
  std::string said_;
  qim::fleet::State first_;
};

TEST_F(QimdTest, ChecksItsSettingsAndWhatTheyName) {
  EXPECT_EQ(run({"--check"}), 1);
  EXPECT_EQ(said_, "the store has no policy for scope \"edge\"\n");
  publisher_.publish(first_);
  EXPECT_EQ(run({"--check"}), 0) << said_;
  EXPECT_THAT(said_, HasSubstr("is good"));
  configure("scope = a/b\npoll = soon\nunknown = yes\n" + settings_);
  EXPECT_EQ(run({"--check"}), 1);
  EXPECT_THAT(said_, HasSubstr("poll"));
  EXPECT_EQ(run({}), 2);
  tools_test::write_text(dir_ / "publishers", "");
  configure(settings_);
  EXPECT_EQ(run({"--check"}), 1);
  EXPECT_THAT(said_, HasSubstr("publishers"));
  std::filesystem::remove(dir_ / "conf");
  EXPECT_EQ(run({"--check"}), 1);
}

TEST_F(QimdTest, EndsWhenTheDatabaseHoldsWhatItShould) {
  publisher_.publish(first_, true);
  EXPECT_EQ(run({"--once", "60"}), 0) << said_;
  EXPECT_THAT(said_, HasSubstr("holds revision 1"));
  EXPECT_THAT(tools_test::read_text(dir_ / "metrics"), HasSubstr("\nqimd_revision 1\n"));
  const auto answer = store_->get(publisher_.keys().status("edge", "d1"));
  ASSERT_TRUE(answer.found);
  EXPECT_EQ(qim::fleet::open_status(answer.found->value, nullptr, "edge", "d1").applied, 1U);
}

TEST_F(QimdTest, SaysThatItDoesNotHoldIt) {
  EXPECT_EQ(run({"--once", "1"}), 1);
}

TEST_F(QimdTest, EndsInTimeThoughNoMemberAnswers) {
  cluster_.stop(0);
  configure(settings_ + "timeout = 10min\n");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run({"--once", "1"}), 1);
  EXPECT_LT(std::chrono::steady_clock::now() - begin,
            std::chrono::milliseconds(pace::patience_ms()) / 4);
  cluster_.resume(0);
}

TEST_F(QimdTest, IsAloneAndIsAskedByOthers) {
  EXPECT_EQ(run({"--repair"}), 0);
  EXPECT_THAT(said_, HasSubstr("no agent runs"));
  publisher_.publish(first_, true);
  tools_test::write_text(dir_ / "log", "");  // which the agent may not have opened yet
  Program agent(command({}), path("log"));
  const auto until =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(pace::patience_ms());
  while (tools_test::read_text(dir_ / "log").find("holds revision 1") == std::string::npos &&
         std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(run({}), 4);
  EXPECT_THAT(said_, HasSubstr("another agent"));
  for (const char* request : {"--repair", "--force", "--accept-cluster"}) {
    EXPECT_EQ(run({request}), 0);
    EXPECT_THAT(said_, HasSubstr("told process"));
  }
  EXPECT_EQ(agent.end(SIGTERM), 0);
  const std::string log = tools_test::read_text(dir_ / "log");
  EXPECT_THAT(log, HasSubstr("was asked to repair"));
  EXPECT_THAT(log, HasSubstr("the database keeps what it has"));
}

TEST_F(QimdTest, EndsAtOnceWhileNoMemberAnswers) {
  cluster_.stop(0);
  configure(settings_ + "timeout = 10min\n");
  Program agent(command({}), path("log"));
  const auto begin = std::chrono::steady_clock::now();
  const std::chrono::milliseconds patience(pace::patience_ms());
  // It leaves signals to their thread before it says here who it is.
  const std::filesystem::path lock = dir_ / "kept" / "lock";
  while ((!std::filesystem::exists(lock) || std::filesystem::file_size(lock) == 0) &&
         std::chrono::steady_clock::now() - begin < patience) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const auto told = std::chrono::steady_clock::now();
  EXPECT_EQ(agent.end(SIGTERM), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - told, patience / 4);
  cluster_.resume(0);
}

TEST_F(QimdTest, ADiskThatIsFullLeavesWhatIsThere) {
  publisher_.publish(first_, true);
  ASSERT_EQ(run({"--once", "60"}), 0) << said_;
  fleet_test::SmallPolicy large;
  for (uint32_t id = 1; id <= 4000; id++) {
    large.actions[id] = qim::fleet::to_hex(qim::fleet::sha256(std::to_string(id)));
  }
  publisher_.publish(large.state(), true);
  // No file becomes longer than the database's is: a write fails as on a full disk.
  std::string line = "trap '' XFSZ; ulimit -f 256; exec";
  for (const std::string& word : command({"--once", "3"})) line += " '" + word + "'";
  EXPECT_NE(Program({"sh", "-c", line}, path("out")).wait(), 0);
  EXPECT_THAT(tools_test::read_text(dir_ / "out"), Not(HasSubstr("holds revision 2")));
  EXPECT_EQ(run({"--check"}), 0) << said_;
  EXPECT_EQ(run({"--once", "60"}), 0) << said_;
  EXPECT_THAT(said_, HasSubstr("holds revision 2"));
}

TEST_F(QimdTest, RefusesAWrongCommandLine) {
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_EQ(run({"--once", "x"}), 2);
  EXPECT_EQ(run({"--unknown"}), 2);
  EXPECT_EQ(run({"word"}), 2);
}

}  // namespace
