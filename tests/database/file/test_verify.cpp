// The verifier, one kind of damage after the other: each is found, and named by its page.
#include "database/file/verify.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>

#include "database/file/layout.h"
#include "tests/database/database_fixture.h"

namespace {

using namespace testing_rov;
using rov::kPageHead;
using rov::kWord;
using rov::Word;
using testing::Test;

constexpr uint32_t kTrees = kPageHead + 8 + 2 * kWord;  // of a meta page: where its two trees are
constexpr uint32_t kLastPage = kTrees + 2 * rov::kTreeBytes;
constexpr uint32_t kRevision = kLastPage + kWord;

class VerifyTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    for (uint32_t round = 0; round < 3; ++round) {
      const uint32_t ses = begin();
      for (uint32_t node = 1; node <= 200; ++node) {
        ASSERT_OK(put_node(ses, node, pattern(node + round, node == 7 ? 20000 : 100)));
      }
      commit(ses);
    }
    close();
    std::ifstream file(path() + "/data.mdb", std::ios::binary);
    image_.assign(std::istreambuf_iterator<char>(file), {});
    ASSERT_STATUS(verify(), ROV_OK);
    size_ = report_.page_size;
    newest_ = static_cast<uint32_t>(report_.revision % 2);
    meta_ = rov::read_meta(page(newest_) + kPageHead);
  }

  // Verifies the image as it is now.
  uint32_t verify() {
    const std::string name = directory_.file("image");
    std::ofstream(name, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(image_.data()),
               static_cast<std::streamsize>(image_.size()));
    const int file = ::open(name.c_str(), O_RDONLY);
    const uint32_t status = rov::verify_data(file, "the-path", &report_);
    ::close(file);
    return status;
  }

  uint8_t* page(Word number) { return image_.data() + number * size_; }
  // The first page of that type that a tree of the newest commit has.
  uint32_t find_page(uint16_t type) {
    for (uint32_t at = 2; at <= meta_.last_page; ++at) {
      if (rov::page_flags(page(at)) != type || rov::page_number(page(at)) != at) continue;
      const Bytes before(page(at), page(at) + kPageHead);
      memset(page(at), 0xff, kPageHead);
      const bool used = verify() != ROV_OK;
      memcpy(page(at), before.data(), before.size());
      if (used) return at;
    }
    ADD_FAILURE() << "no page of type " << type;
    return 2;
  }

  // Changes the image, and back. The message must have all of `words`.
  void expect_found(const std::function<void()>& change, std::initializer_list<std::string> words,
                    uint32_t status = ROV_ERR_CORRUPT) {
    const Bytes before = image_;
    change();
    EXPECT_STATUS(verify(), status);
    const std::string message = rov_err_message();
    for (const std::string& word : words) EXPECT_NE(message.find(word), message.npos) << message;
    EXPECT_NE(message.find("the-path"), message.npos) << message;
    EXPECT_NE(message.find("restore the database from a dump"), message.npos) << message;
    image_ = before;
  }
  static std::string at_page(Word number) { return "page " + std::to_string(number); }

  template <typename Int>
  void set(Word number, uint32_t at, Int value) {
    rov::store(page(number) + at, value);
  }

  Bytes image_;
  uint32_t size_ = 4096;
  uint32_t newest_ = 0;
  rov::Meta meta_;
  rov::VerifyReport report_;
};

TEST_F(VerifyTest, AGoodFileIsCounted) {
  EXPECT_STATUS(verify(), ROV_OK);
  EXPECT_EQ(report_.records[0], 200U);
  EXPECT_EQ(report_.bytes, image_.size());
  EXPECT_EQ(report_.pages, meta_.last_page + 1);
  EXPECT_GT(report_.free_pages, 0U);
}

TEST_F(VerifyTest, WhatIsNoFileOfTheEngine) {
  expect_found([&] { set<uint32_t>(0, kPageHead, 1); }, {"page 0", "no meta page"}, ROV_ERR_FORMAT);
  expect_found([&] { set<uint32_t>(1, kPageHead + 4, 7); }, {"page 1", "version"}, ROV_ERR_FORMAT);
  expect_found([&] { set<uint16_t>(1, kWord + 2, 0); }, {"page 1", "no meta page"}, ROV_ERR_FORMAT);
  expect_found([&] { set<uint32_t>(0, kTrees, 1000); }, {"page size"}, ROV_ERR_FORMAT);
  expect_found([&] { image_.clear(); }, {"page 0", "ends"}, ROV_ERR_FORMAT);
  expect_found([&] { image_.resize(size_ + 20); }, {"page 1", "ends"}, ROV_ERR_FORMAT);
}

TEST_F(VerifyTest, CommitsThatAreNoNeighbours) {
  const Word revision = meta_.revision;
  for (const Word other : {revision - 3, Word{0}, revision + 2, revision + 3}) {
    expect_found([&] { set(newest_ ^ 1, kRevision, other); }, {"commits"});
  }
  // A neighbour, but of the wrong side: the commit before would pass for the one to come.
  expect_found([&] { set(newest_ ^ 1, kRevision, revision + 1); }, {"it says commit"});
}

TEST_F(VerifyTest, CountsOfTheMetaPage) {
  expect_found([&] { set(newest_, kLastPage, meta_.last_page + 1); }, {"neither in use nor"});
  expect_found([&] { set(newest_, kLastPage, Word{1}); }, {"does not have"});
  expect_found([&] { set(newest_, kLastPage, rov::kNoPage - 1); }, {"counts"});
  expect_found([&] { set<uint16_t>(newest_, kTrees + 4, 4); }, {"flags"});
  expect_found([&] { set<uint16_t>(newest_, kTrees + 6, 99); }, {"depth"});
  expect_found([&] { set(newest_, kTrees + 8 + 3 * kWord, Word{77}); }, {"entries"});
  expect_found([&] { set(newest_, kTrees + 8 + 4 * kWord, Word{1}); }, {"does not have"});
  expect_found([&] { set(newest_, kTrees + 8 + 4 * kWord, rov::kNoPage); }, {"contradicts"});
  if (kWord > 4) {
    expect_found([&] { set(newest_, kPageHead + 8 + kWord, ~Word{0}); }, {"map"});
  }
}

TEST_F(VerifyTest, HeadsOfPages) {
  const uint32_t leaf = find_page(rov::kLeafPage);
  expect_found([&] { set(leaf, 0, Word{leaf} + 1); }, {at_page(leaf), "number"});
  expect_found([&] { set(leaf, kWord + 2, rov::kBranchPage); }, {at_page(leaf), "type"});
  expect_found([&] { set<uint16_t>(leaf, kWord + 4, 0); }, {at_page(leaf), "bounds"});
  expect_found([&] { set<uint16_t>(leaf, kWord + 6, 0xfffe); }, {at_page(leaf), "bounds"});
  expect_found([&] { set<uint16_t>(leaf, kWord + 4, uint16_t{kPageHead}); },
               {at_page(leaf), "0 entries"});
  expect_found([&] { memset(page(leaf), 0, size_); }, {at_page(leaf)});
}

TEST_F(VerifyTest, EntriesOfPages) {
  const uint32_t leaf = find_page(rov::kLeafPage);
  const auto first = rov::load<uint16_t>(page(leaf) + kPageHead);
  expect_found([&] { set<uint16_t>(leaf, kPageHead, 0); }, {at_page(leaf), "outside"});
  expect_found([&] { set<uint16_t>(leaf, kPageHead + 2, first); }, {at_page(leaf), "as another"});
  expect_found([&] { set<uint16_t>(leaf, first + 6U, 0xffff); }, {at_page(leaf)});
  expect_found([&] { set<uint32_t>(leaf, first, 0x7fffffff); }, {at_page(leaf)});
  expect_found([&] { set<uint16_t>(leaf, first + 4U, 0x40); }, {at_page(leaf), "flags"});
}

TEST_F(VerifyTest, KeysOutOfOrder) {
  const uint32_t branch = find_page(rov::kBranchPage);
  const auto second = rov::load<uint16_t>(page(branch) + kPageHead + 2);
  expect_found([&] { set<uint32_t>(branch, second + 8U, 0xffffff); }, {"out of order"});
  expect_found([&] { set<uint32_t>(branch, second + 8U, 1); }, {"out of order"});
}

TEST_F(VerifyTest, PagesUsedTwice) {
  const uint32_t branch = find_page(rov::kBranchPage);
  const auto first = rov::load<uint16_t>(page(branch) + kPageHead);
  const auto second = rov::load<uint16_t>(page(branch) + kPageHead + 2);
  const auto child = rov::load<uint32_t>(page(branch) + first);
  expect_found([&] { set(branch, second, child); }, {at_page(branch), "used elsewhere"});
  expect_found([&] { set(branch, second, uint32_t{branch}); }, {at_page(branch), "used elsewhere"});
}

TEST_F(VerifyTest, TheListOfFreePages) {
  const Word root = meta_.free.root;
  ASSERT_EQ(meta_.free.depth, 1);
  const uint32_t entry = rov::entry_offset(page(root), 0);
  const uint32_t value = entry + rov::kEntryHead + kWord;
  const auto count = rov::load<Word>(page(root) + value);
  ASSERT_GT(count, 1U);
  expect_found([&] { set(root, value, count - 1); }, {"neither in use nor"});
  expect_found([&] { set(root, value, count + 1000); }, {at_page(root), "contradicts"});
  expect_found([&] { set(root, value + kWord, Word{1}); }, {at_page(root)});
  expect_found([&] { set(root, value + kWord, meta_.tables.root); }, {at_page(root)});
  expect_found([&] { set(root, entry + rov::kEntryHead, Word{0}); }, {at_page(root), "commit 0"});
}

TEST_F(VerifyTest, ValuesOnPagesOfTheirOwn) {
  const uint32_t first = find_page(rov::kOverflowPage);
  const std::string node = "record of 0x00000007 in table nodes";
  expect_found([&] { page(first)[kPageHead + 100] ^= 1; }, {node, "checksum"});
  expect_found([&] { page(first + 3)[9] ^= 1; }, {node, "checksum"});
  expect_found([&] { set<uint32_t>(first, kWord + 4, 1); }, {at_page(first), "20012 bytes"});
  expect_found([&] { set<uint32_t>(first, kWord + 4, 1000000); }, {"does not have"});
  expect_found([&] { set(first, kWord + 2, rov::kLeafPage); }, {at_page(first), "overflow"});
}

TEST_F(VerifyTest, Truncation) {
  for (size_t pages = 2; pages <= meta_.last_page; ++pages) {
    const Bytes before = image_;
    image_.resize(pages * size_);
    // What is cut off may be free; then the file is as good as before.
    if (verify() != ROV_OK) {
      EXPECT_NE(std::string(rov_err_message()).find("page"), std::string::npos)
          << rov_err_message();
    } else {
      EXPECT_EQ(report_.records[0], 200U);
    }
    image_ = before;
  }
}

TEST_F(VerifyTest, AnOlderFileThanTheOneThatWasMadeKnown) {
  const Bytes old = image_;
  open();
  const uint32_t ses = begin();
  ASSERT_OK(put_node(ses, 1000, {}));
  commit(ses);
  close();
  std::ofstream(path() + "/data.mdb", std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(old.data()), static_cast<std::streamsize>(old.size()));
  EXPECT_STATUS(open_database(path(), 0, kClient, &db_), ROV_ERR_CORRUPT);
  EXPECT_NE(std::string(rov_err_message()).find("file changes"), std::string::npos)
      << rov_err_message();
  std::filesystem::remove(path() + "/changes");
  open();
}

}  // namespace
