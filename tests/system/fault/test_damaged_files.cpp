// Damaged data files: each is refused with a message that names the damage, or the damage is where
// nothing is, and then everything reads as before and can be written to. No signal, no wrong
// answer.
//
// The images are opened by child processes, which tell through shared memory how far they came.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/database/database_fixture.h"
#include "tests/system/fault/contents.h"
#include "tests/system/fault/damage.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace fault;
using namespace testing_rov;

constexpr uint32_t kBatch = 250;

Image read_file(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::string& name, const Image& bytes) {
  std::ofstream file(name, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// What a child says.
struct Progress {
  uint32_t image;  // that it is at
  uint32_t injected;
  uint32_t refused;
  uint32_t harmless;
  uint32_t wrong;
  char what[1024];  // the first wrong one
};

class DamagedFiles : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    fill();
    const Contents contents = read_contents(db_);
    ASSERT_TRUE(contents.good) << contents.message;
    digest_ = contents.digest;
    rov_verify_t report;
    ASSERT_OK(rov_edit_verify(db_, &report));
    ASSERT_GT(report.free_pages, 0U);
    page_ = report.page_size;
    close();
    for (const char* name : {"data.mdb", "format", "changes"}) {
      files_.emplace_back(path() + "/" + name, read_file(path() + "/" + name));
    }
    shared_ = static_cast<Progress*>(
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(shared_, MAP_FAILED);
  }

  void TearDown() override { munmap(shared_, sizeof *shared_); }

  // Trees of several levels, values on pages of their own, free pages, records in every table.
  void fill() {
    for (uint32_t round = 0; round < 6; ++round) {
      const uint32_t ses = begin();
      for (uint32_t i = 0; i < 120; ++i) {
        const uint32_t node = 1 + (i * 7 + round * 31) % 300;
        const uint32_t size = i % 40 == 0 ? 9000 : 20 + i;
        ASSERT_OK(put_node(ses, node, pattern(node + round, size),
                           node % 5 == 0 ? name("set " + std::to_string(node)) : Bytes()));
        ASSERT_OK(put_link(ses, node, static_cast<uint16_t>(1 + round), 1 + node % 9));
        if (node % 11 != 0) continue;
        const rov_node_id_t owner = id(node);
        ASSERT_OK(rov_node_priv_set(ses, &owner, "private", 7));
      }
      if (round % 2 == 1) rov_edit_node_del(ses, id(1 + round * 13));
      commit(ses);
    }
  }

  void place(const Image& data) {
    for (const auto& [name, bytes] : files_) write_file(name, bytes);
    write_file(files_[0].first, data);
  }

  // "" when all is as it must be.
  std::string try_image(const Image& image) {
    place(image);
    uint32_t db = 0;
    const uint32_t status = open_database(path(), 0, kClient, &db);
    if (status != ROV_OK) return check_refusal(status);
    const std::string wrong = check_harmless(db);
    rov_db_close(db, 0);
    if (wrong.empty()) ++shared_->harmless;
    return wrong;
  }

  std::string check_refusal(uint32_t status) {
    const std::string message = rov_err_message();
    const bool named = message.find("damaged") != std::string::npos &&
                       message.find("restore the database from a dump") != std::string::npos;
    if (!named || (status != ROV_ERR_CORRUPT && status != ROV_ERR_FORMAT)) {
      return "refused with: " + message;
    }
    ++shared_->refused;
    return "";
  }

  std::string check_harmless(uint32_t db) const {
    const Contents contents = read_contents(db);
    if (!contents.good) return "opened, but a read failed: " + contents.message;
    if (contents.digest != digest_) return "opened, and reads something else";
    uint32_t ses = 0;
    rov_verify_t report;
    if (rov_edit_begin(db, &ses) != ROV_OK || put_node(ses, 5, pattern(5, 10000)) != ROV_OK ||
        rov_edit_commit(ses) != ROV_OK || rov_edit_verify(db, &report) != ROV_OK) {
      return std::string("opened, but a write failed: ") + rov_err_message();
    }
    return "";
  }

  // In a child: the images from `first` to the one before `end`.
  void try_images(uint32_t seed, uint32_t first, uint32_t end) {
    for (uint32_t i = first; i < end; ++i) {
      shared_->image = i;
      Random random(seed + i);
      Image image = files_[0].second;
      const std::string what = damage(image, i % kDamages, page_, random);
      ++shared_->injected;
      const std::string wrong = try_image(image);
      if (wrong.empty()) continue;
      if (shared_->wrong++ == 0) {
        snprintf(shared_->what, sizeof shared_->what, "image %u (%s): %s", i, what.c_str(),
                 wrong.c_str());
      }
    }
  }

  uint64_t digest_ = 0;
  uint32_t page_ = 0;
  std::vector<std::pair<std::string, Image>> files_;
  Progress* shared_ = nullptr;
};

TEST_F(DamagedFiles, AreRefusedOrReadAsBefore) {
  const uint32_t seed = seed_or(20260117);
  const uint32_t count = scaled(3000, 400);
  for (uint32_t first = 0; first < count; first += kBatch) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      try_images(seed, first, std::min(first + kBatch, count));
      _exit(0);
    }
    int result = -1;
    ASSERT_EQ(waitpid(child, &result, 0), child);
    ASSERT_EQ(result, 0) << "image " << shared_->image << " ended the process that opened it (seed "
                         << seed << ")";
  }
  announce("damaged files", seed, shared_->injected, "files");
  printf("%u refused, %u damaged where nothing is\n", shared_->refused, shared_->harmless);
  EXPECT_EQ(shared_->wrong, 0U) << shared_->what;
  EXPECT_EQ(shared_->injected, count);
  EXPECT_EQ(shared_->refused + shared_->harmless + shared_->wrong, count);
  EXPECT_GT(shared_->refused, count / 2);
}

TEST_F(DamagedFiles, TheUndamagedOneIsGood) {
  EXPECT_EQ(try_image(files_[0].second), "");
  EXPECT_EQ(shared_->harmless, 1U);
}

}  // namespace
