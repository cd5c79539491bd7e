// Files that are read and written whole.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "fleet/base/error.h"
#include "fleet/base/files.h"

namespace qim::fleet {
namespace {

class FleetFiles : public testing::Test {
 protected:
  FleetFiles() {
    std::string name = (std::filesystem::temp_directory_path() / "qim-files-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) abort();
    directory_ = name;
  }
  ~FleetFiles() override { std::filesystem::remove_all(directory_); }
  std::string file(const std::string& name) const { return directory_ + "/" + name; }

  std::string directory_;
};

TEST_F(FleetFiles, AreReplacedWhole) {
  write_file(file("a"), "one", 0600);
  write_file(file("a"), "two", 0644);
  EXPECT_EQ(read_file(file("a"), 3), "two");
  struct stat status {};
  ASSERT_EQ(stat(file("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0644u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_), {}), 1);
}

TEST_F(FleetFiles, AreFoundInTheCurrentDirectory) {
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(directory_);
  write_file("here", "x", 0600);
  EXPECT_TRUE(file_exists("here"));
  EXPECT_FALSE(file_exists("there"));
  std::filesystem::current_path(before);
}

TEST_F(FleetFiles, ThatAreTooLongAreRefused) {
  write_file(file("a"), "four", 0600);
  EXPECT_THROW(read_file(file("a"), 3), ConfigError);
}

TEST_F(FleetFiles, ThatAreNoFilesAreRefusedAtOnce) {
  ASSERT_EQ(mkfifo(file("fifo").c_str(), 0600), 0);
  EXPECT_THROW(read_file(file("fifo"), 10), ConfigError);
  EXPECT_THROW(read_file(directory_, 10), ConfigError);
  EXPECT_THROW(read_file(file("none"), 10), ConfigError);
}

TEST_F(FleetFiles, ThatCannotBeWrittenAreSaidAndLeaveNothing) {
  EXPECT_THROW(write_file(file("none/a"), "x", 0600), Error);
  std::filesystem::create_directory(file("folder"));
  EXPECT_THROW(write_file(file("folder"), "x", 0600), Error);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_), {}), 1);
}

TEST(FleetLines, AreTrimmed) {
  EXPECT_EQ(lines_of(" a b \r\n\n\tc"), (std::vector<std::string>{"a b", "", "c"}));
  EXPECT_TRUE(lines_of("").empty());
}

}  // namespace
}  // namespace qim::fleet
