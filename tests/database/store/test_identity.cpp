// Which database is which: its identity, and the directory that it was opened in, wherever that and the
// process have gone since.
#include <fstream>
#include <iterator>

#include "tests/database/child.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;
namespace fs = std::filesystem;

std::string text_of(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// The line of the format file that begins with "identity".
std::string identity_of(const std::string& database) {
  const std::string text = text_of(database + "/format");
  const size_t at = text.find("identity ");
  return at == std::string::npos ? "" : text.substr(at, text.find('\n', at) - at);
}

class IdentityTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    store(db_, 1);
  }

  static void store(uint32_t db, uint32_t node) {
    uint32_t ses = 0;
    ASSERT_OK(rov_edit_begin(db, &ses));
    ASSERT_OK(put_node(ses, node, pattern(node, 9)));
    commit(ses);
  }
  // Another database, with so many commits.
  std::string make_other(const std::string& name, uint32_t commits) const {
    const std::string place = directory_.file(name);
    uint32_t db = 0;
    EXPECT_OK(open_database(place, 0, kClient, &db));
    for (uint32_t node = 1; node <= commits; ++node) store(db, 100 + node);
    EXPECT_OK(rov_db_close(db, 0));
    return place;
  }
  static uint32_t try_open(const std::string& place) {
    uint32_t db = 0;
    const uint32_t status = open_database(place, 0, kClient, &db);
    if (status == ROV_OK) {
      EXPECT_OK(rov_db_close(db, 0));
    }
    return status;
  }
  static bool has_node(uint32_t db, uint32_t node) {
    uint32_t ses = 0;
    EXPECT_OK(rov_ses_open_ro(db, &ses));
    rov_node_parms_t parms = {};
    const uint32_t status = rov_node_parms_get(ses, id(node), &parms);
    EXPECT_OK(rov_ses_close(ses));
    return status == ROV_OK;
  }
};

TEST_F(IdentityTest, EveryDatabaseHasItsOwn) {
  const std::string own = identity_of(path());
  ASSERT_EQ(own.size(), std::string("identity ").size() + 32) << own;
  EXPECT_NE(identity_of(make_other("other", 1)), own);
  uint32_t snapshot = 0;
  ASSERT_OK(rov_db_snapshot(db_, "kept", &snapshot));
  ASSERT_OK(rov_snapshot_close(snapshot));
  EXPECT_NE(identity_of(path() + "/snapshots/kept"), own) << "it goes its own way from there";
  close();
  ASSERT_OK(rov_edit_compact(path().c_str(), nullptr, nullptr));
  EXPECT_EQ(identity_of(path()), own);
}

TEST_F(IdentityTest, ACopiedDirectoryIsTheSameDatabase) {
  const fs::path older = directory_.file("older");
  fs::copy_file(path() + "/data.mdb", older);
  store(db_, 2);
  close();
  const std::string copy = directory_.file("copy");
  fs::copy(path(), copy, fs::copy_options::recursive);
  fs::permissions(copy, fs::perms::owner_all);
  EXPECT_EQ(identity_of(copy), identity_of(path()));
  EXPECT_OK(try_open(copy));
  // Its marks came with it.
  fs::rename(older, copy + "/data.mdb");
  EXPECT_STATUS(try_open(copy), ROV_ERR_CORRUPT);
}

TEST_F(IdentityTest, MarksOfAnotherDatabaseSayNothing) {
  const std::string other = make_other("other", 20);
  close();
  const auto overwrite = fs::copy_options::overwrite_existing;
  fs::copy_file(other + "/changes", path() + "/changes", overwrite);
  EXPECT_OK(try_open(path())) << "they do not condemn this one";
  open();
  store(db_, 2);
  const std::string own = text_of(path() + "/changes");
  EXPECT_NE(own, text_of(other + "/changes"));
  close();
  EXPECT_OK(try_open(path()));
  EXPECT_EQ(text_of(path() + "/changes"), own) << "its own took their place";
}

// Who puts a whole kept copy in the place of a database means it, other than who puts the older file there.
TEST_F(IdentityTest, AWholeKeptCopyMayComeBack) {
  uint32_t snapshot = 0;
  ASSERT_OK(rov_db_snapshot(db_, "kept", &snapshot));
  ASSERT_OK(rov_snapshot_close(snapshot));
  store(db_, 2);
  close();
  const auto overwrite = fs::copy_options::overwrite_existing;
  fs::copy_file(path() + "/snapshots/kept/data.mdb", path() + "/data.mdb", overwrite);
  EXPECT_STATUS(try_open(path()), ROV_ERR_CORRUPT);
  fs::copy_file(path() + "/snapshots/kept/format", path() + "/format", overwrite);
  open();
  EXPECT_TRUE(has_node(db_, 1));
  EXPECT_FALSE(has_node(db_, 2));
}

// Everything that is done with a database after it was opened by a relative path.
TEST_F(IdentityTest, AChangeOfTheWorkingDirectoryChangesNothing) {
  close();
  fs::create_directory(directory_.file("away"));
  const std::string other = make_other("away/db", 1);
  const std::string before = text_of(other + "/changes");
  const fs::path home = fs::current_path();
  fs::current_path(directory_.path());
  ASSERT_OK(open_database("./db", 0, kClient, &db_));
  fs::current_path(directory_.file("away"));
  store(db_, 2);
  rov_ntf_t ntf = {.kinds = 0xff, .fd = 0, .revision = {0, 0}};
  EXPECT_OK(rov_db_ntf(db_, &ntf));
  uint32_t snapshot = 0;
  EXPECT_OK(rov_db_snapshot(db_, "kept", &snapshot));
  EXPECT_TRUE(has_node(snapshot, 2));
  EXPECT_OK(rov_snapshot_close(snapshot));
  rov_verify_t report = {};
  EXPECT_OK(rov_edit_verify(db_, &report));
  EXPECT_EQ(report.nodes, 2U);
  close();
  fs::current_path(home);
  EXPECT_EQ(text_of(other + "/changes"), before);
  EXPECT_FALSE(fs::exists(other + "/snapshots"));
  EXPECT_TRUE(fs::exists(path() + "/snapshots/kept/data.mdb"));
  EXPECT_OK(try_open(other));
}

TEST_F(IdentityTest, SnapshotsAreThoseOfTheDirectoryThatIsOpen) {
  uint32_t snapshot = 0;
  ASSERT_OK(rov_db_snapshot(db_, "nightly", &snapshot));
  ASSERT_OK(rov_snapshot_close(snapshot));
  const std::string other = make_other("other", 1);
  uint32_t db = 0;
  ASSERT_OK(open_database(other, 0, kClient, &db));
  ASSERT_OK(rov_db_snapshot(db, "nightly", &snapshot));
  ASSERT_OK(rov_db_close(db, 0));
  fs::rename(path(), directory_.file("moved"));
  fs::rename(other, path());
  ASSERT_OK(rov_db_snapshot(db_, "nightly", &snapshot));
  EXPECT_TRUE(has_node(snapshot, 1));
  EXPECT_FALSE(has_node(snapshot, 101));
  ASSERT_OK(rov_snapshot_close(snapshot));
  ASSERT_OK(rov_db_snapshot(db_, "later", &snapshot));
  ASSERT_OK(rov_snapshot_close(snapshot));
  EXPECT_TRUE(fs::exists(directory_.file("moved/snapshots/later")));
  EXPECT_FALSE(fs::exists(path() + "/snapshots/later"));
}

// The locks lie in the directory, under whatever name it is found.
TEST_F(IdentityTest, ADirectoryThatWasRenamedHasOneWriterStill) {
  fs::rename(path(), directory_.file("moved"));
  const uint32_t ses = begin();
  Child writer(directory_.file("moved"), [](uint32_t db, int) {
    uint32_t lib = 0;
    uint32_t theirs = 0;
    return rov_lib_init(7, &lib) == ROV_OK && rov_lib_init_locks(lib, 10, 1, 0, 0) == ROV_OK &&
           rov_edit_begin(db, &theirs) == ROV_ERR_BUSY;
  });
  EXPECT_EQ(writer.wait(), 0);
  commit(ses);
  EXPECT_FALSE(fs::exists(path()));
}

}  // namespace
