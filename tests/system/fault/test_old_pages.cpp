// Data files that hold pages of older commits: writes that a disk lost though it said that they were
// done, and old pages and sectors that came back. Each page by itself is a good one. Such a file is
// refused, or the page is one that the newest commit does not use.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/database/database_fixture.h"
#include "tests/database/random.h"
#include "tests/system/fault/contents.h"
#include "tests/system/fault/scale.h"
#include "tests/system/fault/write_recorder.h"

namespace {

using namespace fault;
using namespace testing_rov;

constexpr size_t kOldSector = 512;

Bytes file_bytes(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void set_file_bytes(const std::string& name, const Bytes& bytes) {
  std::ofstream(name, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

void apply(Bytes& image, uint64_t offset, const uint8_t* bytes, size_t len) {
  const auto at = static_cast<size_t>(offset);
  if (image.size() < at + len) image.resize(at + len);
  std::copy_n(bytes, len, image.begin() + static_cast<std::ptrdiff_t>(at));
}

// A page, or a part of one, that a commit writes.
struct Piece {
  uint64_t offset;
  const uint8_t* bytes;
  size_t len;
};

class OldPages : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    for (uint32_t number = 1; number <= 5; ++number) write(number);
    rov_verify_t report;
    ASSERT_OK(rov_edit_verify(db_, &report));
    page_ = report.page_size;
  }

  // Every third commit is one of private data alone.
  void write(uint32_t number) {
    Random random(number);
    const rov_node_id_t node = id(1);
    if (number % 3 == 0) {
      const uint32_t reader = read();
      ASSERT_OK(rov_node_priv_set(reader, &node, &number, sizeof number));
      ASSERT_OK(rov_ses_close(reader));
      return;
    }
    const uint32_t ses = begin();
    ASSERT_OK(put_node(ses, 1, pattern(1, 50)));
    for (uint32_t i = 0; i < 1 + number % 20; ++i) {
      const uint32_t at = 2 + random.below(250);
      ASSERT_OK(put_node(ses, at, pattern(number * 100 + i, 150), name(std::to_string(at))));
      ASSERT_OK(put_link(ses, at, static_cast<uint16_t>(1 + random.below(4)), 1 + random.below(9)));
    }
    rov_edit_node_del(ses, id(2 + random.below(250)));
    commit(ses);
  }

  // What is written by one more commit.
  std::vector<WriteEvent> record(uint32_t number) {
    EXPECT_TRUE(record_begin((path() + "/data.mdb").c_str()));
    write(number);
    std::vector<WriteEvent> events = record_end();
    digest_ = read_contents(db_).digest;
    marks_ = file_bytes(path() + "/changes");
    return events;
  }

  // The page writes of these events, each a piece, meta pages as they were written.
  std::vector<Piece> pieces(const std::vector<WriteEvent>& events) const {
    std::vector<Piece> all;
    for (const WriteEvent& event : events) {
      for (size_t at = 0; at < event.bytes.size(); at += page_) {
        const size_t len = std::min<size_t>(page_, event.bytes.size() - at);
        all.push_back({event.offset + at, event.bytes.data() + at, len});
      }
    }
    return all;
  }

  // Opens a copy that is such a file. False when it reads as something else than was stored.
  bool is_refused_or_right(const Bytes& image) {
    const std::string copy = directory_.file("copy");
    std::filesystem::create_directory(copy);
    std::filesystem::permissions(copy, std::filesystem::perms::owner_all);
    std::filesystem::copy_file(path() + "/format", copy + "/format",
                               std::filesystem::copy_options::overwrite_existing);
    set_file_bytes(copy + "/data.mdb", image);
    set_file_bytes(copy + "/changes", marks_);
    uint32_t db = 0;
    const uint32_t status = open_database(copy, 0, kClient, &db);
    if (status != ROV_OK) {
      ++refused_;
      return status == ROV_ERR_CORRUPT || status == ROV_ERR_FORMAT;
    }
    const Contents contents = read_contents(db);
    EXPECT_OK(rov_db_close(db, 0));
    return contents.good && contents.digest == digest_;
  }

  uint32_t page_ = 0;
  uint64_t digest_ = 0;
  Bytes marks_;
  uint32_t refused_ = 0;
};

TEST_F(OldPages, OfAPageWriteThatWasLost) {
  const uint32_t commits = scaled(60, 6);
  uint32_t cases = 0;
  uint32_t wrong = 0;
  for (uint32_t number = 6; number < 6 + commits; ++number) {
    const Bytes before = file_bytes(path() + "/data.mdb");
    const std::vector<WriteEvent> events = record(number);
    const std::vector<Piece> all = pieces(events);
    ASSERT_FALSE(all.empty());
    for (size_t lost = 0; lost < all.size(); ++lost) {
      Bytes image = before;
      for (size_t i = 0; i < all.size(); ++i) {
        if (i != lost) apply(image, all[i].offset, all[i].bytes, all[i].len);
      }
      ++cases;
      if (is_refused_or_right(image)) continue;
      ++wrong;
      ADD_FAILURE() << "commit " << number << ", write " << lost << " at " << all[lost].offset;
    }
  }
  announce("lost page writes", 0, cases, "cases");
  EXPECT_EQ(wrong, 0U);
  EXPECT_GT(refused_, cases / 2);
}

TEST_F(OldPages, ThatCameBackIntoAClosedFile) {
  const uint32_t seed = seed_or(1123);
  const uint32_t count = scaled(1000, 100);
  std::vector<Bytes> images;
  for (uint32_t number = 6; number < 30; ++number) {
    write(number);
    images.push_back(file_bytes(path() + "/data.mdb"));
  }
  digest_ = read_contents(db_).digest;
  marks_ = file_bytes(path() + "/changes");
  uint32_t wrong = 0;
  for (uint32_t i = 0; i < count; ++i) {
    Random random(seed + i);
    Bytes image = images.back();
    const Bytes& older = images[random.below(static_cast<uint32_t>(images.size()) - 1)];
    const size_t unit = random.below(2) == 0 ? page_ : kOldSector;
    const auto units = static_cast<uint32_t>(older.size() / unit);
    const size_t at = unit * random.below(units);
    apply(image, at, older.data() + at, unit);
    if (is_refused_or_right(image)) continue;
    ++wrong;
    ADD_FAILURE() << "file " << i << " at " << at << ", seed " << seed;
  }
  announce("old pages and sectors", seed, count, "files");
  EXPECT_EQ(wrong, 0U);
  EXPECT_GT(refused_, count / 10);
}

}  // namespace
