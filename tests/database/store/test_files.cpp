// The database's directory: making it, what it says of itself, and what is wrong with it.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <set>
#include <thread>

#include "database/base/crc32c.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;

class StoreFilesTest : public DatabaseTest {
 protected:
  uint32_t try_open(uint32_t flags = 0) {
    uint32_t db = 0;
    const uint32_t status = open_database(path(), flags, kClient, &db);
    if (status == ROV_OK) {
      EXPECT_OK(rov_db_close(db, 0));
    }
    return status;
  }
  std::string format() const {
    std::ifstream file(path() + "/format");
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void set_format(const std::string& text) {
    std::ofstream(path() + "/format", std::ios::trunc) << text;
  }
  // The format file with another line, its checksum right.
  void replace_line(const std::string& from, const std::string& to) {
    std::string text = format();
    text = text.substr(0, text.find("check "));
    const size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << text;
    text.replace(at, from.size(), to);
    char check[32];
    snprintf(check, sizeof check, "check %08x\n", unsigned{crc32c(0, text.data(), text.size())});
    set_format(text + check);
  }
  static std::string message() { return rov_err_message(); }
};

TEST_F(StoreFilesTest, AFreshDatabaseHasItsFilesAndNoOthers) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path())) {
    names.insert(entry.path().filename().string());
  }
  EXPECT_EQ(names, (std::set<std::string>{"data.mdb", "format", "lock.mdb", "writer.lock"}));
  EXPECT_EQ(format().rfind("node database\nformat 3\nword-bits ", 0), 0U) << format();
}

TEST_F(StoreFilesTest, AnEmptyDirectoryBecomesADatabase) {
  close();
  std::filesystem::remove_all(path());
  std::filesystem::create_directory(path());
  EXPECT_OK(try_open());
}

TEST_F(StoreFilesTest, AnAbandonedAttemptIsClearedAway) {
  close();
  std::filesystem::remove_all(path());
  std::filesystem::create_directories(path() + "/making.tmp");
  std::ofstream(path() + "/making.tmp/data.mdb") << "half";
  std::ofstream(path() + "/format") << "half";
  EXPECT_OK(try_open());
  EXPECT_FALSE(std::filesystem::exists(path() + "/making.tmp"));
}

TEST_F(StoreFilesTest, ManyThreadsMakeOneDatabase) {
  close();
  std::filesystem::remove_all(path());
  std::vector<std::thread> threads;
  std::vector<uint32_t> databases(8);
  for (uint32_t& db : databases) {
    threads.emplace_back([&] { EXPECT_OK(open_database(path(), 0, kClient, &db)); });
  }
  for (std::thread& thread : threads) thread.join();
  for (uint32_t db : databases) EXPECT_OK(rov_db_close(db, 0));
}

TEST_F(StoreFilesTest, AnAbsentDatabaseIsNotMadeWhenTheCallerSaysSo) {
  close();
  std::filesystem::remove_all(path());
  for (uint32_t flags : {uint32_t{ROV_DB_NO_CREATE}, uint32_t{ROV_DB_RDONLY}}) {
    EXPECT_STATUS(try_open(flags), ROV_ERR_OPEN);
    EXPECT_NE(message().find(path()), std::string::npos) << message();
    EXPECT_FALSE(std::filesystem::exists(path()));
  }
  std::filesystem::create_directory(path());
  EXPECT_STATUS(try_open(ROV_DB_NO_CREATE), ROV_ERR_OPEN);
  EXPECT_TRUE(std::filesystem::is_empty(path()));
}

TEST_F(StoreFilesTest, APathThatCannotBeADirectoryIsAnOpenError) {
  uint32_t db = 0;
  EXPECT_STATUS(open_database(directory_.file("no/such/place"), 0, 1, &db), ROV_ERR_OPEN);
  EXPECT_NE(message().find("no/such/place"), std::string::npos) << message();
  std::ofstream(directory_.file("file")) << "x";
  EXPECT_STATUS(open_database(directory_.file("file"), 0, 1, &db), ROV_ERR_OPEN);
  EXPECT_STATUS(open_database(std::string(5000, 'x'), 0, 1, &db), ROV_ERR_OPEN);
}

TEST_F(StoreFilesTest, AnotherWordSizeIsToldApart) {
  close();
  const bool wide = sizeof(void*) == 8;
  replace_line(wide ? "word-bits 64" : "word-bits 32", wide ? "word-bits 32" : "word-bits 64");
  EXPECT_STATUS(try_open(), ROV_ERR_WORD_SIZE);
  EXPECT_NE(message().find("32-bit"), std::string::npos) << message();
  EXPECT_NE(message().find("64-bit"), std::string::npos) << message();
}

TEST_F(StoreFilesTest, AnotherByteOrderIsToldApart) {
  close();
  const bool little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  replace_line(little ? "order little" : "order big", little ? "order big" : "order little");
  EXPECT_STATUS(try_open(), ROV_ERR_BYTE_ORDER);
  EXPECT_NE(message().find("big-endian"), std::string::npos) << message();
  EXPECT_NE(message().find("little-endian"), std::string::npos) << message();
}

TEST_F(StoreFilesTest, ANewerFormatIsRefusedBeforeAnythingElse) {
  close();
  replace_line("format 3", "format 4");
  replace_line(sizeof(void*) == 8 ? "word-bits 64" : "word-bits 32", "word-bits 16");
  EXPECT_STATUS(try_open(), ROV_ERR_FORMAT);
  EXPECT_NE(message().find("format 3"), std::string::npos) << message();
}

TEST_F(StoreFilesTest, ADamagedFormatFileIsRefused) {
  close();
  const std::string good = format();
  for (size_t at = 0; at < good.size() - 1; ++at) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ 1);
    set_format(bad);
    EXPECT_STATUS(try_open(), ROV_ERR_FORMAT) << bad;
  }
  for (size_t len = 0; len < good.size() - 1; ++len) {
    set_format(good.substr(0, len));
    EXPECT_STATUS(try_open(), ROV_ERR_FORMAT) << len;
  }
  set_format(std::string(10000, 'x'));
  EXPECT_STATUS(try_open(), ROV_ERR_FORMAT);
  std::filesystem::remove(path() + "/format");
  EXPECT_STATUS(try_open(), ROV_ERR_FORMAT);
  EXPECT_NE(message().find("format file"), std::string::npos) << message();
  set_format(good);
  EXPECT_OK(try_open());
}

TEST_F(StoreFilesTest, AFileOfSomethingElseIsRefused) {
  close();
  std::ofstream(path() + "/data.mdb", std::ios::trunc) << std::string(20000, 'x');
  EXPECT_STATUS(try_open(), ROV_ERR_FORMAT);
  EXPECT_NE(message().find("data.mdb"), std::string::npos) << message();
}

TEST_F(StoreFilesTest, AReadOnlyOpeningReadsAndRefusesToWrite) {
  uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 1, pattern(1, 5)));
  commit(writer);
  close();
  open(ROV_DB_RDONLY);
  EXPECT_EQ(tlv_of(read(), 1), pattern(1, 5));
  EXPECT_STATUS(rov_edit_begin(db_, &writer), ROV_ERR_READ_ONLY);
  const rov_node_id_t node = id(1);
  EXPECT_STATUS(rov_node_priv_set(read(), &node, "x", 1), ROV_ERR_READ_ONLY);
  uint32_t other = 0;
  EXPECT_STATUS(open_database(path(), 0, 2, &other), ROV_ERR_READ_ONLY);
  ASSERT_OK(open_database(path(), ROV_DB_RDONLY, 2, &other));
  EXPECT_OK(rov_db_close(other, 0));
}

TEST_F(StoreFilesTest, PermissionsAreNamed) {
  close();
  chmod(directory_.path().c_str(), 0755);
  chmod((path() + "/data.mdb").c_str(), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Root may open everything, so be somebody else.
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0 && setuid(kNobody) != 0) _exit(2);
    const bool refused = try_open() == ROV_ERR_OPEN;
    _exit(refused && message().find("permissions") != std::string::npos ? 0 : 1);
  }
  int result = 0;
  ASSERT_EQ(waitpid(child, &result, 0), child);
  EXPECT_EQ(result, 0);
}

}  // namespace
