// Data files damaged while a process has them open: what was not stored is never read, what is not
// right is a status, and an assertion of the engine's ends no process.
//
// The engine looks at little before it follows it, so some damage does end the process: how much is
// counted, and limited.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/engine_file.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace fault;
using namespace testing_rov;

constexpr uint32_t kNodes = 300;
constexpr uint32_t kSeen = 10;  // a session does not check again what it has checked
constexpr uint32_t kCut = 4;    // the kind of damage that makes a file shorter

uint32_t bytes_of(uint32_t node) {
  return node % 40 == 0 ? 9000 : 20 + node % 120;
}

// What a child says.
struct Progress {
  uint32_t right;    // nodes read as they were stored
  uint32_t refused;  // calls that met the damage
  uint32_t dead;     // calls after that which found the database given up
  uint32_t missing;  // nodes that were not found
  uint32_t short_walks;
  uint32_t wrong;
  bool done;
  char what[1024];  // the last wrong one
};

class Worker {
 public:
  Worker(std::string path, Progress* progress) : path_(std::move(path)), progress_(progress) {}

  // Damages the file under an open database and uses that for whatever there is.
  void run(uint32_t kind, uint32_t seed, bool write) {
    uint32_t db = 0;
    uint32_t held = 0;
    if (!good(open_database(path_, 0, 1, &db)) || !good(rov_ses_open_ro(db, &held))) return;
    look_around(held);
    EngineFile file(path_);
    Image image = file.bytes();
    Random random(seed);
    damage(image, kind, file.page_size(), random);
    file.replace(image);
    read_all(held, kSeen + 1);
    uint32_t fresh = 0;
    if (good(rov_ses_open_ro(db, &fresh))) {
      read_all(fresh, 1);
      good(rov_ses_close(fresh));
    }
    if (write) change(db);
    good(rov_ses_close(held));
    good(rov_db_close(db, 0));
    open_again();
    progress_->done = true;
  }

 private:
  void wrong(const std::string& what) {
    ++progress_->wrong;
    snprintf(progress_->what, sizeof progress_->what, "%s", what.c_str());
  }

  bool good(uint32_t status) {
    if (status == ROV_OK) return true;
    const std::string message = rov_err_message();
    if (status != ROV_ERR_CORRUPT) {
      wrong(std::string(rov_status_name(status)) + ": " + message);
    } else if (message.find("was damaged while it was open") != std::string::npos) {
      ++progress_->dead;
    } else {
      ++progress_->refused;
    }
    return false;
  }
  // Of a search that finds nothing at its end.
  bool found(uint32_t status) {
    return status != ROV_ERR_NO_ITEM && status != ROV_ERR_NO_LINK && good(status);
  }

  // So that the session has its places in the tables; finds none but the first nodes.
  void look_around(uint32_t ses) {
    rov_node_parms_t parms;
    good(rov_node_parms_get(ses, id(5), &parms));
    good(rov_node_next(ses, id(5), &parms));
    good(rov_ses_dset_get(ses, 0, &parms));
  }

  void read_node(uint32_t ses, uint32_t node) {
    rov_node_parms_t parms;
    const uint32_t status = rov_node_parms_get(ses, id(node), &parms);
    if (status == ROV_ERR_NO_ITEM) ++progress_->missing;
    if (!found(status)) return;
    Bytes tlv(bytes_of(node));
    if (!good(
            rov_node_data_get(ses, id(node), bytes_of(node), tlv.data(), 0, nullptr, 0, nullptr))) {
      return;
    }
    if (tlv != pattern(node, bytes_of(node))) return wrong("another node's data");
    ++progress_->right;
  }

  void read_all(uint32_t ses, uint32_t first) {
    for (uint32_t node = first; node <= kNodes; ++node) read_node(ses, node);
    rov_node_parms_t parms;
    rov_node_id_t after = {};
    uint32_t seen = 0;
    uint32_t status = ROV_OK;
    for (; seen <= kNodes && (status = rov_node_next(ses, after, &parms)) == ROV_OK; ++seen) {
      if (number(parms.id) <= number(after)) return wrong("a node that comes before the last one");
      after = parms.id;
    }
    // Either all of them, or a status that says why not.
    if (status == ROV_ERR_NO_ITEM && seen != kNodes) ++progress_->short_walks;
    static_cast<void>(found(status));
    rov_node_id_t referrers[kNodes];
    for (uint32_t node = 1; node < 12; ++node) {
      found(rov_node_ref_get_all(ses, id(node), referrers, kNodes));
    }
    for (uint32_t n = 0; n <= kNodes && found(rov_ses_dset_get(ses, n, &parms)); ++n) {
    }
  }

  void change(uint32_t db) {
    uint32_t ses = 0;
    if (!good(rov_edit_begin(db, &ses))) return;
    for (uint32_t node = 1; node <= kNodes; node += 7) good(put_node(ses, node, pattern(0, 60)));
    for (uint32_t node = 2; node <= kNodes; node += 11) found(rov_edit_node_del(ses, id(node)));
    good(rov_edit_commit(ses));
  }

  void open_again() {
    uint32_t db = 0;
    const uint32_t status = open_database(path_, 0, 1, &db);
    if (status == ROV_OK) {
      good(rov_db_close(db, 0));
    } else if (status != ROV_ERR_CORRUPT && status != ROV_ERR_FORMAT) {
      wrong(std::string("opened again: ") + rov_err_message());
    }
  }

  std::string path_;
  Progress* progress_;
};

class DamagedWhileOpen : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    for (uint32_t round = 0; round < 4; ++round) fill(round);
    close();
    for (const char* name : {"data.mdb", "changes"}) {
      std::ifstream file(path() + "/" + name, std::ios::binary);
      files_.emplace_back(path() + "/" + name, Image(std::istreambuf_iterator<char>(file), {}));
    }
    progress_ = static_cast<Progress*>(
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(progress_, MAP_FAILED);
  }
  void TearDown() override { munmap(progress_, sizeof *progress_); }

  void fill(uint32_t round) {
    const uint32_t ses = begin();
    const uint32_t step = round == 0 ? 1 : 2;
    for (uint32_t node = 1 + round % 2; node <= kNodes; node += step) {
      ASSERT_OK(put_node(ses, node, pattern(node, bytes_of(node)),
                         node % 5 == 0 ? name("set " + std::to_string(node)) : Bytes()));
      ASSERT_OK(put_link(ses, node, static_cast<uint16_t>(1 + round), 1 + node % 9));
    }
    commit(ses);
  }

  // How a worker ended, as from waitpid; what it wrote to standard error is in error_text().
  int run(uint32_t kind, uint32_t seed, bool write) {
    for (const auto& [name, bytes] : files_) {
      std::ofstream file(name, std::ios::binary | std::ios::trunc);
      file.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
    }
    *progress_ = {};
    const pid_t child = fork();
    if (child == 0) {
      dup2(::open(error_file().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
      Worker(path(), progress_).run(kind, seed, write);
      _exit(0);
    }
    int result = -1;
    waitpid(child, &result, 0);
    return result;
  }
  std::string error_file() const { return directory_.file("stderr"); }
  std::string error_text() const {
    std::ifstream file(error_file());
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::vector<std::pair<std::string, Image>> files_;
  Progress* progress_ = nullptr;
};

TEST_F(DamagedWhileOpen, AnswersWithAStatusOrWhatWasStored) {
  const uint32_t seed = seed_or(20261121);
  const uint32_t count = scaled(400, 96);
  uint32_t ended = 0;
  uint32_t ended_when_cut = 0;
  uint32_t dead = 0;
  uint32_t refused = 0;
  uint32_t missing = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t kind = i % kDamages;
    const int result = run(kind, seed + i, i / kDamages % 2 == 1);
    const std::string which = "file " + std::to_string(i) + ", seed " + std::to_string(seed);
    EXPECT_EQ(progress_->wrong, 0U) << which << ": " << progress_->what;
    EXPECT_EQ(error_text().find("Assertion"), std::string::npos) << which << ": " << error_text();
    EXPECT_EQ(progress_->done, result == 0) << which;
    if (result != 0) ++(kind == kCut ? ended_when_cut : ended);
    if (progress_->dead > 0) ++dead;
    if (progress_->refused > 0) ++refused;
    if (progress_->missing + progress_->short_walks > 0) {
      ++missing;
      printf("%s, kind %u: %u nodes were not found, %u walks were short\n", which.c_str(), kind,
             progress_->missing, progress_->short_walks);
    }
  }
  announce("files damaged while open", seed, count, "files");
  printf(
      "calls refused in %u, given up %u, nodes not found in %u; ended by the system %u, %u cut\n",
      refused, dead, missing, ended, ended_when_cut);
  EXPECT_GT(refused, 0U);
  EXPECT_EQ(ended, 0U);
  EXPECT_EQ(missing, 0U);
}

TEST_F(DamagedWhileOpen, AWriterDoesNotBuildOnAFileThatWasCut) {
  open();
  uint32_t writer = begin();
  ASSERT_OK(rov_edit_abandon(writer));
  const Image& data = files_[0].second;
  ASSERT_EQ(truncate(files_[0].first.c_str(), static_cast<off_t>(data.size() - 512)), 0);
  EXPECT_STATUS(rov_edit_begin(db_, &writer), ROV_ERR_CORRUPT);
  EXPECT_NE(std::string(rov_err_message()).find("it was cut to"), std::string::npos)
      << rov_err_message();
  uint32_t ses = 0;
  EXPECT_STATUS(rov_ses_open_ro(db_, &ses), ROV_ERR_CORRUPT);
}

TEST_F(DamagedWhileOpen, AMetaPageThatCountsTooManyPages) {
  open();
  EngineFile file(path());
  const uint64_t last_page_at = file.meta_at() + 8 + 2 * rov::kWord + 2 * rov::kTreeBytes;
  file.poke<rov::Word>(last_page_at, ~rov::Word{0} / 2);
  uint32_t ses = 0;
  EXPECT_STATUS(rov_ses_open_ro(db_, &ses), ROV_ERR_CORRUPT);
  EXPECT_NE(std::string(rov_err_message()).find("a meta page counts more pages"), std::string::npos)
      << rov_err_message();
  EXPECT_STATUS(rov_edit_begin(db_, &ses), ROV_ERR_CORRUPT);
  file.repair();
}

// One entry of a table that says something else of itself than is true. The engine hands it on.
class WrongEntry : public DamagedWhileOpen {
 protected:
  void SetUp() override {
    DamagedWhileOpen::SetUp();
    open();
    file_ = std::make_unique<EngineFile>(path());
    ses_ = read();
  }
  void TearDown() override {
    file_->repair();
    EXPECT_OK(rov_ses_close(ses_));
    for (uint32_t node = 1; node <= kNodes; ++node) {
      EXPECT_EQ(tlv_of(ses_ = read(), node), pattern(node, bytes_of(node)));
      EXPECT_OK(rov_ses_close(ses_));
    }
    DamagedWhileOpen::TearDown();
  }

  // Where the entry of a node is in the file.
  uint64_t entry_of(uint32_t node) {
    const rov::Word root = file_->table("nodes").root;
    for (uint32_t child = 0; child < file_->entries(root); ++child) {
      const rov::Word leaf = file_->entry(root, child).child;
      for (uint32_t i = 0; i < file_->entries(leaf); ++i) {
        const rov::Entry entry = file_->entry(leaf, i);
        data_at_ = static_cast<uint64_t>(entry.data - file_->bytes().data());
        if (rov::load<uint32_t>(entry.key.data) == node) return file_->entry_at(leaf, i);
      }
    }
    abort();
  }
  void expect_corrupt(uint32_t status, const char* named) {
    EXPECT_STATUS(status, ROV_ERR_CORRUPT);
    EXPECT_NE(std::string(rov_err_message()).find(named), std::string::npos) << rov_err_message();
    rov_node_parms_t parms;
    EXPECT_OK(rov_node_parms_get(ses_, id(300), &parms));
  }

  static constexpr uint32_t kKeyAt = 6;  // the length of the key, in an entry
  std::unique_ptr<EngineFile> file_;
  uint64_t data_at_ = 0;  // of the entry found last
  uint32_t ses_ = 0;
  rov_node_parms_t parms_ = {};
};

TEST_F(WrongEntry, WithAValueBeyondItsPage) {
  for (const uint32_t size : {5000U, 1U << 30, ~0U}) {
    file_->poke(entry_of(17), size);
    expect_corrupt(rov_node_parms_get(ses_, id(17), &parms_), "0x00000011");
  }
}

TEST_F(WrongEntry, WithAValueBeyondThePagesThatItHas) {
  for (const uint32_t size : {3 * file_->page_size() - rov::kPageHead + 1, 1U << 30, ~0U}) {
    file_->poke(entry_of(40), size);
    expect_corrupt(rov_node_parms_get(ses_, id(40), &parms_), "0x00000028");
  }
}

TEST_F(WrongEntry, WithAValueOnAPageThatIsNotForValues) {
  entry_of(80);
  file_->poke(data_at_, file_->table("nodes").root);
  expect_corrupt(rov_node_parms_get(ses_, id(80), &parms_), "0x00000050");
}

TEST_F(WrongEntry, WithAKeyBeyondItsPage) {
  const rov::Word root = file_->table("data sets").root;
  const rov::Word leaf =
      rov::page_flags(file_->page(root)) == rov::kLeafPage ? root : file_->entry(root, 0).child;
  file_->poke<uint16_t>(file_->entry_at(leaf, 0) + kKeyAt, 0xffff);
  expect_corrupt(rov_ses_dset_get(ses_, 0, &parms_), "data-set name");
}

TEST_F(WrongEntry, WithAKeyThatIsNoNodes) {
  file_->poke<uint16_t>(entry_of(20) + kKeyAt, 3);
  expect_corrupt(rov_node_next(ses_, id(19), &parms_), "restore the database");
}

}  // namespace
