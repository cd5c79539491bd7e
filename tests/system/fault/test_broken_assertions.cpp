// What the storage engine asserts of its file, and what comes of it when the file is damaged while
// a process has it open: a status, and a database that this process uses no more.
#include <chrono>
#include <thread>

#include "database/store/store.h"
#include "tests/database/child.h"
#include "tests/database/database_fixture.h"
#include "tests/system/fault/engine_file.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace fault;
using namespace testing_rov;

constexpr uint32_t kNodes = 400;  // numbered by tens
constexpr uint32_t kBigNode = 55;
constexpr const char* kFewEntries = "it has too few entries";

class BrokenAssertion : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    uint32_t ses = begin();
    for (uint32_t i = 1; i <= kNodes; ++i) ASSERT_OK(put_node(ses, 10 * i, pattern(i, 100)));
    ASSERT_OK(put_node(ses, kBigNode, pattern(1, 20000)));
    commit(ses);
    // Pages become free, and are free for use two commits later.
    for (uint32_t round = 0; round < 4; ++round) {
      ses = begin();
      for (uint32_t i = 1; i <= kNodes; i += 40) ASSERT_OK(put_node(ses, 10 * i, pattern(i, 100)));
      commit(ses);
    }
    file_ = std::make_unique<EngineFile>(path());
    other_ = read();
  }

  // The root page of the nodes, which is a branch page, and its children.
  rov::Word root() const { return file_->table("nodes").root; }
  rov::Word leaf(uint32_t index) const { return file_->entry(root(), index).child; }
  // The node of a leaf's entry.
  uint32_t node_of(uint32_t leaf_index, uint32_t index) const {
    return rov::load<uint32_t>(file_->entry(leaf(leaf_index), index).key.data);
  }
  uint32_t last_node_of(uint32_t leaf_index) const {
    return node_of(leaf_index, file_->entries(leaf(leaf_index)) - 1);
  }

  static void expect_message(const char* assertion) {
    const std::string message = rov_err_message();
    for (const char* part : {"was damaged while it was open", assertion, "qimctl check",
                             "restore the database from a dump"}) {
      EXPECT_NE(message.find(part), std::string::npos) << part << " is not in: " << message;
    }
  }

  // Everything that needs the file is refused, with that assertion in the message.
  void expect_dead(const char* assertion) {
    rov_node_parms_t parms;
    uint32_t ses = 0;
    EXPECT_STATUS(rov_node_parms_get(other_, id(10), &parms), ROV_ERR_CORRUPT);
    expect_message(assertion);
    EXPECT_STATUS(rov_node_next(other_, id(10), &parms), ROV_ERR_CORRUPT);
    EXPECT_STATUS(rov_ses_open_ro(db_, &ses), ROV_ERR_CORRUPT);
    EXPECT_STATUS(rov_edit_begin(db_, &ses), ROV_ERR_CORRUPT);
    expect_message(assertion);
    uint32_t snapshot = 0;
    EXPECT_STATUS(rov_db_snapshot(db_, "copy", &snapshot), ROV_ERR_CORRUPT);
    rov_verify_t report;
    EXPECT_STATUS(rov_edit_verify(db_, &report), ROV_ERR_CORRUPT);
    EXPECT_OK(rov_ses_close(other_));
  }

  // Another process gets an answer at once; when the damage is gone, it can write.
  void expect_others_write(bool repaired) {
    if (emulated()) return;  // the system does not know which locks a program holds
    const auto start = std::chrono::steady_clock::now();
    const Child child(path(), [&](uint32_t db, int pipe) {
      uint32_t lib = 0;
      if (rov_lib_init(7, &lib) != ROV_OK) return false;
      if (rov_lib_init_locks(lib, pace::patience_ms(), 1, 0, 0) != ROV_OK) return false;
      uint32_t ses = 0;
      uint32_t status = rov_edit_begin(db, &ses);
      if (status == ROV_OK) status = put_node(ses, 5, pattern(5, 50));
      if (status == ROV_OK) status = rov_edit_commit(ses);
      say(pipe, status);
      return true;
    });
    uint32_t status = ROV_ERR_CORRUPT;  // unless it could open the database at all
    static_cast<void>(child.next(&status));
    EXPECT_TRUE(status == ROV_OK || !repaired) << rov_status_name(status);
    EXPECT_LT(std::chrono::steady_clock::now() - start, pace::at_once());
  }

  // The damage is named by who opens the database next; without it, all is as it was.
  void expect_refused_then_good() {
    expect_others_write(false);
    close();
    uint32_t db = 0;
    EXPECT_STATUS(open_database(path(), 0, kClient, &db), ROV_ERR_CORRUPT);
    EXPECT_NE(std::string(rov_err_message()).find("restore the database from a dump"),
              std::string::npos)
        << rov_err_message();
    file_->repair();
    if (emulated()) return;
    open();
    expect_others_write(true);
    const uint32_t writer = begin();
    ASSERT_OK(put_node(writer, 7, pattern(7, 50)));
    commit(writer);
    const uint32_t ses = read();
    for (uint32_t i = 1; i <= kNodes; ++i) EXPECT_EQ(tlv_of(ses, 10 * i), pattern(i, 100));
    EXPECT_EQ(tlv_of(ses, 7), pattern(7, 50));
    EXPECT_EQ(tlv_of(ses, 5), pattern(5, 50));
  }

  // Commits edits that meet damage which was not there when they were made.
  void expect_commit_dies(const std::function<void(uint32_t)>& edit,
                          const std::function<void()>& damage, const char* assertion) {
    const uint32_t ses = begin();
    edit(ses);
    damage();
    EXPECT_STATUS(rov_edit_commit(ses), ROV_ERR_CORRUPT);
    expect_message(assertion);
    expect_dead(assertion);
    expect_refused_then_good();
  }

  std::unique_ptr<EngineFile> file_;
  uint32_t other_ = 0;  // a session that was open before the damage
};

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(BrokenAssertion, ABranchPageWithOneChild) {
  const uint32_t ses = read();
  rov_node_parms_t parms;
  ASSERT_OK(rov_node_parms_get(ses, id(10), &parms));
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 11, {}));
  file_->poke<uint16_t>(file_->page_at(root()) + kLowerAt, rov::kPageHead + 2);
  EXPECT_STATUS(rov_node_parms_get(ses, id(2000), &parms), ROV_ERR_CORRUPT);
  expect_message(kFewEntries);
  EXPECT_STATUS(rov_node_parms_get(ses, id(10), &parms), ROV_ERR_CORRUPT)
      << "what the session remembered is not to be trusted either";
  EXPECT_STATUS(rov_edit_commit(writer), ROV_ERR_CORRUPT);
  expect_dead(kFewEntries);
  EXPECT_OK(rov_ses_close(ses));
  expect_refused_then_good();
}

TEST_F(BrokenAssertion, MetByThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < 4; ++i) {
    threads.emplace_back([&, ses = read()] {
      rov_node_parms_t parms;
      uint32_t status = ROV_ERR_NO_ITEM;  // which no session remembers
      while (status == ROV_ERR_NO_ITEM) status = rov_node_parms_get(ses, id(15), &parms);
      EXPECT_STATUS(status, ROV_ERR_CORRUPT);
      expect_message("");
      EXPECT_OK(rov_ses_close(ses));
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  file_->poke<uint16_t>(file_->page_at(root()) + kLowerAt, rov::kPageHead + 2);
  for (std::thread& thread : threads) thread.join();
  expect_dead(kFewEntries);
  expect_refused_then_good();
}

TEST_F(BrokenAssertion, ATableWhoseRootIsAMetaPage) {
  const uint64_t root_at = file_->table_at("nodes") + 8 + 4 * rov::kWord;
  file_->poke<rov::Word>(root_at, 1);
  const uint32_t ses = read();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(10), &parms), ROV_ERR_CORRUPT);
  expect_dead("page 1: there is no such page");
  EXPECT_OK(rov_ses_close(ses));
  expect_refused_then_good();
}

TEST_F(BrokenAssertion, TablesWithSeveralValuesForAKey) {
  const uint64_t flags_at = file_->meta_at() + 8 + 2 * rov::kWord + rov::kTreeBytes + 4;
  file_->poke<uint16_t>(flags_at, 4);
  const uint32_t ses = read();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_ses_dset_get(ses, 0, &parms), ROV_ERR_CORRUPT);
  expect_dead("it leads to no tables");
  EXPECT_OK(rov_ses_close(ses));
  expect_refused_then_good();
}

TEST_F(BrokenAssertion, MetByTheProcessThatOpensTheDatabaseNext) {
  const uint64_t trees_at = file_->meta_at() + 8 + 2 * rov::kWord;
  file_->poke<rov::Word>(trees_at + rov::kTreeBytes + 8 + 4 * rov::kWord, 1);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    uint32_t db = 0;
    EXPECT_STATUS(open_database(path(), 0, kClient, &db), ROV_ERR_CORRUPT);
    expect_message("root > 1");
    _exit(HasFailure() ? 1 : 0);
  }
  int result = 0;
  ASSERT_EQ(waitpid(child, &result, 0), child);
  EXPECT_EQ(result, 0);
  file_->repair();
}

TEST_F(BrokenAssertion, ANextLeafThatIsNone) {
  const uint32_t ses = read();
  file_->poke<uint16_t>(file_->page_at(leaf(1)) + kFlagsAt, rov::kOverflowPage);
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_next(ses, id(last_node_of(0)), &parms), ROV_ERR_CORRUPT);
  expect_dead("it is of another kind");
  EXPECT_OK(rov_ses_close(ses));
  expect_refused_then_good();
}

// The last record not above a key, as a session looks for it.
class LookingBack {
 public:
  explicit LookingBack(const std::string& database) {
    EXPECT_OK(rov::store_open(database.c_str(), {}, &env_));
    EXPECT_OK(rov::snapshot_open(env_, &gate_, rov::Reading::kAlone, &snapshot_));
  }
  ~LookingBack() {
    rov::snapshot_close(snapshot_);
    rov::store_close(env_);
  }
  LookingBack(const LookingBack&) = delete;
  LookingBack& operator=(const LookingBack&) = delete;

  uint32_t from(rov::Table table, uint32_t number) {
    uint8_t key[4];
    rov::write_be32(key, number);
    rov::Record record;
    return rov::snapshot_le(snapshot_, table, {key, sizeof key}, &record);
  }

 private:
  rov::Env* env_ = nullptr;
  rov::Gate gate_;
  rov::Snapshot* snapshot_ = nullptr;
};

TEST_F(BrokenAssertion, APreviousLeafThatIsNone) {
  // The branch page leads to the second leaf from the node that was its first.
  const uint32_t gone = node_of(1, 0);
  const uint32_t writer = begin();
  ASSERT_OK(rov_edit_node_del(writer, id(gone)));
  ASSERT_OK(put_node(writer, gone + 5, pattern(1, 100)));
  commit(writer);
  file_->load();
  {
    LookingBack back(path());
    file_->poke<uint16_t>(file_->page_at(leaf(0)) + kFlagsAt, rov::kOverflowPage);
    EXPECT_STATUS(back.from(rov::Table::kNodes, gone + 1), ROV_ERR_CORRUPT);
    EXPECT_STATUS(back.from(rov::Table::kNodes, gone + 1), ROV_ERR_CORRUPT);
  }
  expect_dead("it is of another kind");
}

TEST_F(BrokenAssertion, AnOnlyLeafThatIsNoneAnyMore) {
  const uint32_t writer = begin();
  ASSERT_OK(put_link(writer, 10, 3, 20));
  ASSERT_OK(put_link(writer, 10, 4, 30));
  commit(writer);
  file_->load();
  {
    LookingBack back(path());
    EXPECT_OK(back.from(rov::Table::kReferrers, 1000));
    const rov::Word root = file_->table("referrers").root;
    ASSERT_EQ(rov::page_flags(file_->page(root)), rov::kLeafPage);
    file_->poke<uint16_t>(file_->page_at(root) + kFlagsAt, rov::kOverflowPage);
    EXPECT_STATUS(back.from(rov::Table::kReferrers, 1000), ROV_ERR_CORRUPT);
  }
  expect_dead("it is of another kind");
}

// ---- Writing ------------------------------------------------------------------------------------

TEST_F(BrokenAssertion, ALeafWithoutOrder) {
  const uint64_t page = file_->page_at(leaf(0));
  const uint32_t lower = rov::page_lower(file_->page(leaf(0)));
  expect_commit_dies([](uint32_t ses) { ASSERT_OK(put_node(ses, 11, pattern(1, 50))); },
                     [&] { file_->poke(page + kUpperAt, static_cast<uint16_t>(lower - 2)); },
                     "its bounds are in disorder");
}

TEST_F(BrokenAssertion, AnOverflowPageThatIsBeingWritten) {
  uint32_t index = 0;
  while (node_of(0, index) != kBigNode) ++index;
  const auto page = rov::load<rov::Word>(file_->entry(leaf(0), index).data);
  ASSERT_EQ(rov::page_flags(file_->page(page)), rov::kOverflowPage);
  constexpr uint16_t kBeingWritten = 0x10;
  expect_commit_dies([](uint32_t ses) { ASSERT_OK(rov_edit_node_del(ses, id(kBigNode))); },
                     [&] {
                       file_->poke<uint16_t>(file_->page_at(page) + kFlagsAt,
                                             rov::kOverflowPage | kBeingWritten);
                     },
                     "its tree has an entry that is none");
}

// What the engine would follow without looking, and what would spoil its memory.
TEST_F(BrokenAssertion, EntriesOfAPageThatIsWrittenTo) {
  struct Row {
    uint32_t at;  // within the entry
    uint16_t value;
    const char* what;
  };
  for (const Row& row :
       {Row{4, 4, "an entry has unknown flags"}, Row{6, 60, "an entry has no key"},
        Row{0, 5000, "an entry ends beyond it"}, Row{0, 2, "its entries do not fill it"}}) {
    SCOPED_TRACE(row.what);
    expect_commit_dies([](uint32_t ses) { ASSERT_OK(put_node(ses, 11, pattern(1, 50))); },
                       [&] { file_->poke(file_->entry_at(leaf(0), 1) + row.at, row.value); },
                       row.what);
    if (emulated()) return;
    other_ = read();
    file_->load();
  }
}

// A leaf that another one has taken the place of is as good as that one, but not where it is.
TEST_F(BrokenAssertion, ALeafOfOtherKeys) {
  const uint64_t page = file_->page_at(leaf(0));
  Image other(file_->page(leaf(2)), file_->page(leaf(2)) + file_->page_size());
  rov::write_value(other.data(), leaf(0));
  file_->write(page, other.data(), other.size());
  const uint32_t ses = read();
  rov_node_parms_t parms;
  EXPECT_STATUS(rov_node_parms_get(ses, id(15), &parms), ROV_ERR_CORRUPT);
  expect_dead("its last key lies behind what leads to it");
  EXPECT_OK(rov_ses_close(ses));
  expect_refused_then_good();
}

// The list of free pages that the next commit takes pages from.
class FreePages : public BrokenAssertion {
 protected:
  void SetUp() override {
    BrokenAssertion::SetUp();
    ASSERT_EQ(rov::page_flags(file_->page(file_->meta().free.root)), rov::kLeafPage);
    const rov::Entry oldest = file_->entry(file_->meta().free.root, 0);
    list_at_ = static_cast<uint64_t>(oldest.data - file_->bytes().data());
    count_ = rov::load<rov::Word>(oldest.data);
    ASSERT_GE(count_, 2U);
  }
  // They are taken from the end.
  uint64_t last_at() const { return list_at_ + count_ * rov::kWord; }
  static void edit(uint32_t ses) { ASSERT_OK(put_node(ses, 11, pattern(1, 50))); }
  // One page alone, so that there is no order to be broken.
  void list_only(rov::Word page) {
    file_->poke(list_at_, rov::Word{1});
    file_->poke(list_at_ + rov::kWord, page);
  }

  uint64_t list_at_ = 0;
  rov::Word count_ = 0;
};

TEST_F(FreePages, WithOnePageTwice) {
  expect_commit_dies(
      edit,
      [this] {
        file_->poke(last_at() - rov::kWord,
                    rov::load<rov::Word>(file_->bytes().data() + last_at()));
      },
      "a list of free pages is out of order");
}

TEST_F(FreePages, WithAPageThatIsChanged) {
  expect_commit_dies(
      edit, [this] { list_only(leaf(0)); }, "a list of free pages has one in use");
}

TEST_F(FreePages, WithMorePagesThanItHas) {
  expect_commit_dies(
      edit, [this] { file_->poke(list_at_, rov::Word{5000}); },
      "a list of free pages contradicts itself");
}

// What only the engine finds, in the midst of writing.
TEST_F(FreePages, WithThePageThatListsThem) {
  expect_commit_dies(
      edit, [this] { list_only(file_->meta().free.root); }, "Assertion");
}

TEST_F(FreePages, FoundWrongByAThreadThatEndsThen) {
  std::thread([this] {
    expect_commit_dies(
        edit, [this] { list_only(file_->meta().free.root); }, "Assertion");
  }).join();
  if (emulated()) return;
  const uint32_t writer = begin();
  ASSERT_OK(put_node(writer, 8, {}));
  commit(writer);
}

}  // namespace
