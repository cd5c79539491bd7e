// Ctrl-C through the whole tool: whatever is under way, all of it is stored or nothing, and it is said.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "policy/store/database.h"
#include "tests/support/pace.h"
#include "tests/tools/support.h"
#include "tools/cli.h"

namespace {

using testing::HasSubstr;
using tools_test::Outcome;
using tools_test::Process;
using tools_test::TempDir;

std::string list_file(size_t entries) {
  std::string aces;
  for (size_t i = 0; i < entries; i++)
    aces += (i == 0 ? "" : ",") + std::string(R"({"name":"e)") + std::to_string(i) +
            R"(","matches":{"ipv4":{"protocol":6},"tcp":{"destination-port":{"port":)" +
            std::to_string(i) + R"(}}},"actions":{"forwarding":"accept"}})";
  return R"({"ietf-access-control-list:acls":{"acl":[{"name":"l","type":"ipv4-acl-type",)"
         R"("aces":{"ace":[)" +
         aces + "]}}]}}";
}

class Interrupt : public testing::Test {
 protected:
  std::string database() const { return dir_ / "db"; }
  std::vector<std::string> on_database(std::vector<std::string> words) const {
    words.insert(words.begin(), {"--db", database()});
    return words;
  }
  size_t stored_entries() const {
    const Outcome all = tools_test::run_qimctl(on_database({"export", "l"}));
    size_t count = 0;
    for (size_t at = 0; (at = all.out.find("\"name\": \"e", at)) != std::string::npos; at++)
      count++;
    return count;
  }

  TempDir dir_;
};

TEST_F(Interrupt, WhileAFileIsReadLeavesNothing) {
  for (const std::string command : {"import", "apply", "restore"}) {
    for (const bool json : {false, true}) {
      const std::string pipe = dir_ / (command + (json ? "-json" : ""));
      ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
      std::vector<std::string> words = on_database({command, pipe});
      if (json) words.insert(words.end(), {"-o", "json"});
      Process reading(words);
      // Opens when the tool does, which goes on waiting for what is to be read.
      std::ofstream writing(pipe);
      reading.interrupt();
      const Outcome outcome = reading.finish();
      EXPECT_EQ(outcome.code, qimctl::exit_interrupted);
      EXPECT_EQ(outcome.err, json ? "{\"what\":\"interrupted\",\"fix\":\"nothing was stored\"}\n"
                                  : "qimctl: interrupted; nothing was stored\n");
      EXPECT_FALSE(std::filesystem::exists(database()));
    }
  }
}

TEST_F(Interrupt, AtAnyTimeLeavesAllOrNothing) {
  const size_t entries = pace::emulated() || pace::kSanitized ? 300 : 3000;
  tools_test::write_text(dir_ / "l.json", list_file(entries));
  for (const std::string command : {"import", "apply"}) {
    for (int milliseconds = 1; milliseconds <= 256; milliseconds *= 2) {
      Process storing(on_database({command, (dir_ / "l.json").string()}));
      std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
      storing.interrupt();
      const Outcome outcome = storing.finish();
      if (outcome.code == 0) {
        EXPECT_EQ(stored_entries(), entries);
        std::filesystem::remove_all(database());
        continue;
      }
      EXPECT_EQ(outcome.code, qimctl::exit_interrupted);
      EXPECT_FALSE(std::filesystem::exists(database())) << outcome.err;
    }
  }
}

// What is stored is said, so nobody ends in between: here where the output has no room yet.
TEST_F(Interrupt, BehindTheCommitComesTooLate) {
  tools_test::write_text(dir_ / "l.json", list_file(1));
  for (const std::string command : {"import", "apply"}) {
    const std::string pipe = dir_ / command;
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reading = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int writing = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    char block[4096] = {};
    while (write(writing, block, sizeof block) > 0) continue;
    Process storing(on_database({command, (dir_ / "l.json").string()}), {}, pipe);
    while (stored_entries() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    storing.interrupt();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    while (read(reading, block, sizeof block) > 0) continue;
    EXPECT_EQ(storing.finish().code, 0) << command;
    close(reading);
    close(writing);
    std::filesystem::remove_all(database());
  }
}

// Here the work is taken back, for a database that was there stays as it was.
TEST_F(Interrupt, WhileAnotherWritesStoresNothing) {
  tools_test::write_text(dir_ / "one.json", list_file(1));
  tools_test::write_text(dir_ / "two.json", list_file(2));
  ASSERT_EQ(tools_test::run_qimctl(on_database({"import", (dir_ / "one.json").string()})).code, 0);
  const qimctl::Database database(this->database(), qimctl::OpenMode::change);
  std::optional<qimctl::WriteSession> session(std::in_place, database);
  Process storing(on_database({"apply", (dir_ / "two.json").string()}));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  storing.interrupt();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  session.reset();
  EXPECT_EQ(storing.finish().code, qimctl::exit_interrupted);
  EXPECT_EQ(stored_entries(), 1u);
}

}  // namespace
