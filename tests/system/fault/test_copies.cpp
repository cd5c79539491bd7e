// What is written out of a database that was damaged while another process has it open, so that nobody
// verifies it when it is opened: `dump`, `export` and `backup` fail and say why, or have written all of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/database/random.h"
#include "tests/system/fault/damage.h"
#include "tests/system/fault/engine_file.h"
#include "tests/system/fault/scale.h"
#include "tools/cli.h"

namespace {

using namespace testing_rov;
using fault::EngineFile;
using fault::Image;

constexpr uint32_t kCutFile = 4;  // the kind of damage that makes a file shorter

// What a command of the tool left, run in a process of its own.
struct Told {
  int code = -1;
  int signal = 0;
  std::string out;
  std::string err;
};

std::string all_of(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class CopiesOfDamaged : public testing::Test {
 protected:
  void SetUp() override {
    const std::string source = getenv("QIM_SOURCE_DIR");
    ASSERT_EQ(run({"import", "--lossy", source + "/examples/edge-all-types.json",
                   source + "/examples/edge-router.rfc8519.json"})
                  .code,
              int{qimctl::exit_ok});
    // Commits of their own: pages that are free, and others that were written one by one.
    for (const char* value : {"01", "02", "03", "04"}) {
      ASSERT_EQ(run({"priv", "set", "0x04100001", value}).code, int{qimctl::exit_ok});
    }
    dumped_ = run({"dump"}).out;
    exported_ = run({"export", "--lossy"}).out;
    ASSERT_NE(dumped_, "");
    ASSERT_NE(exported_, "");
  }

  Told run(std::vector<std::string> words) const { return run_on("db", std::move(words)); }
  Told run_on(const char* database, std::vector<std::string> words) const {
    const std::string path = directory_.file(database);
    words.insert(words.begin(), {"qimctl", "--db", path});
    const std::string out = directory_.file("out");
    const std::string err = directory_.file("err");
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
      dup2(::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
      std::vector<const char*> argv;
      for (const std::string& word : words) argv.push_back(word.c_str());
      const int code = qimctl::run(static_cast<int>(argv.size()), argv.data());
      fflush(nullptr);
      _exit(code);
    }
    int result = -1;
    waitpid(child, &result, 0);
    const bool exited = WIFEXITED(result);
    return {exited ? WEXITSTATUS(result) : -1, exited ? 0 : WTERMSIG(result), all_of(out),
            all_of(err)};
  }

  // Makes the data file that, without taking it away from who has it open.
  void put_file(const Image& image) const {
    const int file = ::open(directory_.file("db/data.mdb").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(pwrite(file, image.data(), image.size(), 0), static_cast<ssize_t>(image.size()));
    ASSERT_EQ(ftruncate(file, static_cast<off_t>(image.size())), 0);
    close(file);
  }

  // Whether the command wrote everything; counts those that did not.
  bool is_whole(const Told& told, uint32_t kind, const std::string& which) {
    if (told.code == qimctl::exit_ok) return true;
    if (told.signal != 0 && kind == kCutFile) {
      ++ended_;
      return false;
    }
    EXPECT_EQ(told.signal, 0) << which;
    EXPECT_NE(told.err, "") << which;
    ++refused_;
    return false;
  }

  void write_all_out(uint32_t kind, const std::string& which) {
    const Told dump = run({"dump"});
    if (is_whole(dump, kind, which)) {
      EXPECT_EQ(dump.out, dumped_) << which;
    } else {
      EXPECT_EQ(dump.out.find("\"checksum\""), std::string::npos) << which;
    }
    const Told lists = run({"export", "--lossy"});
    EXPECT_EQ(lists.out, is_whole(lists, kind, which) ? exported_ : "") << which;
    const bool whole = is_whole(run({"backup", directory_.file("kept")}), kind, which);
    EXPECT_EQ(std::filesystem::exists(directory_.file("kept")), whole) << which;
    if (!whole) return;
    EXPECT_EQ(run_on("kept", {"dump"}).out, dumped_) << which;
    std::filesystem::remove_all(directory_.file("kept"));
  }

  TemporaryDirectory directory_;
  std::string dumped_;
  std::string exported_;
  uint32_t refused_ = 0;
  uint32_t ended_ = 0;
};

TEST_F(CopiesOfDamaged, FailOrAreWhole) {
  const uint32_t seed = fault::seed_or(20261122);
  const uint32_t count = fault::scaled_processes(72, 8);
  Child holder(directory_.file("db"), [](uint32_t db, int pipe) {
    uint32_t ses = 0;
    if (rov_ses_open_ro(db, &ses) != ROV_OK) return false;
    say(pipe, 1);
    return pause() == 0;
  });
  uint32_t ready = 0;
  ASSERT_TRUE(holder.next(&ready));
  const EngineFile file(directory_.file("db"));
  const Image& good = file.bytes();
  const uint32_t page = file.page_size();
  for (uint32_t i = 0; i < count; ++i) {
    Image image = good;
    Random random(seed + i);
    const uint32_t kind = i % fault::kDamages;
    const std::string what = fault::damage(image, kind, page, random);
    put_file(image);
    write_all_out(kind,
                  "file " + std::to_string(i) + ", seed " + std::to_string(seed) + ": " + what);
    put_file(good);
  }
  fault::announce("damaged in use and written out", seed, count, "files");
  printf("refused %u of %u; ended by the system %u\n", refused_, 3 * count, ended_);
  EXPECT_GT(refused_, count / 2);
  const uint32_t cut = (count + fault::kDamages - 1) / fault::kDamages;
  EXPECT_LE(ended_, 3 * cut);
}

}  // namespace
