// Searches in a mapped data file: they find what the engine finds, and whatever stands in the file, they
// end, stay on its pages and give no entry of another table.
#include "database/file/search.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>

#include "tests/database/database_fixture.h"
#include "tests/database/random.h"
#include "tests/support/pace.h"
#include "tests/system/fault/scale.h"

namespace {

using namespace testing_rov;
using rov::Entry;
using rov::Finding;
using rov::KeyOrder;
using rov::kPageHead;
using rov::kWord;
using rov::Search;
using rov::Table;
using rov::Word;

constexpr uint32_t kNodes = 900;
constexpr uint32_t kBig = 400;  // a node with pages of its own

class SearchTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    for (uint32_t round = 0; round < 3; ++round) {
      const uint32_t ses = begin();
      for (uint32_t node = 10; node <= 10 * kNodes; node += 10) {
        ASSERT_OK(put_node(ses, node, pattern(node + round, node == kBig ? 20000 : 100),
                           node % 30 == 0 ? name(std::to_string(node)) : Bytes()));
      }
      commit(ses);
    }
    close();
    std::ifstream file(path() + "/data.mdb", std::ios::binary);
    image_.assign(std::istreambuf_iterator<char>(file), {});
    good_ = image_;
    map_.file = ::open((path() + "/data.mdb").c_str(), O_RDONLY | O_CLOEXEC);
    map_.page_size = rov::read_meta(image_.data() + kPageHead).free.pad;
    map_.pages = static_cast<Word>(image_.size() / map_.page_size);
    map_.good_in = static_cast<std::atomic<uint32_t>*>(calloc(map_.pages, sizeof *map_.good_in));
    map_.base = image_.data();
    forget();
    ASSERT_TRUE(find(Table::kNodes, &nodes_));
    ASSERT_GE(nodes_.depth, 2U);
    ASSERT_TRUE(find(Table::kDataSets, &sets_));
  }
  void TearDown() override {
    free(map_.good_in);
    ::close(map_.file);
    DatabaseTest::TearDown();
  }

  // As it was written, with nothing looked at.
  void forget() {
    image_ = good_;
    for (Word page = 0; page < map_.pages; ++page) map_.good_in[page] = 0;
    const rov::Meta one = rov::read_meta(image_.data() + kPageHead);
    const rov::Meta other = rov::read_meta(image_.data() + map_.page_size + kPageHead);
    meta_ = one.revision > other.revision ? one : other;
    commit_ = {&map_, static_cast<uint32_t>(meta_.revision), meta_.last_page};
  }
  bool find(Table table, rov::Tree* tree) {
    return rov::find_tree(commit_, meta_, table, tree, &damage_);
  }

  uint8_t* page(Word number) { return image_.data() + size_t{number} * map_.page_size; }
  Word child(Word number, uint32_t index) {
    return rov::read_entry(page(number) + rov::entry_offset(page(number), index)).child;
  }
  uint8_t* entry(Word number, uint32_t index) {
    return page(number) + rov::entry_offset(page(number), index);
  }
  Word root() const { return nodes_.root; }
  Word leaf(uint32_t index) { return child(root(), index); }

  Finding get(uint32_t node, Entry* out) {
    Search search(commit_, nodes_, KeyOrder::kInteger);
    const Finding finding = search.get(key(node), out);
    damage_ = search.damage();
    return finding;
  }
  Finding around(uint32_t node) {
    Search search(commit_, nodes_, KeyOrder::kInteger);
    const Finding finding = search.look_around(key(node), nullptr);
    damage_ = search.damage();
    return finding;
  }
  rov::Bytes key(uint32_t node) {
    key_ = node;
    return {reinterpret_cast<const uint8_t*>(&key_), sizeof key_};
  }
  static uint32_t number_of(const Entry& entry) { return rov::load<uint32_t>(entry.key.data); }

  // A change to the file that a reader, and who writes there, meets.
  void expect_damage(const char* what, Word at, const std::function<void()>& change) {
    SCOPED_TRACE(what);
    forget();
    change();
    Entry found;
    EXPECT_EQ(get(10, &found), Finding::kDamaged);
    EXPECT_STREQ(damage_.what, what);
    EXPECT_EQ(damage_.page, at);
    EXPECT_EQ(around(10), Finding::kDamaged);
    EXPECT_STREQ(damage_.what, what);
    forget();
    EXPECT_EQ(around(10), Finding::kFound);
    change();
    EXPECT_EQ(around(10), Finding::kDamaged) << "although it was good before";
  }

  Bytes image_;
  Bytes good_;
  rov::MappedFile map_;
  rov::Meta meta_;
  rov::Commit commit_;
  rov::Tree nodes_;
  rov::Tree sets_;
  rov::PageDamage damage_;
  uint32_t key_ = 0;
};

TEST_F(SearchTest, FindsWhatIsThere) {
  Entry found;
  for (uint32_t node = 1; node <= 10 * kNodes + 15; ++node) {
    const bool there = node % 10 == 0 && node <= 10 * kNodes;
    ASSERT_EQ(get(node, &found), there ? Finding::kFound : Finding::kNone) << node;
    if (there) {
      ASSERT_EQ(number_of(found), node);
    }
    Search search(commit_, nodes_, KeyOrder::kInteger);
    const bool has_next = node <= 10 * kNodes;
    const uint8_t* none = nullptr;
    ASSERT_EQ(search.first_from(key(node), &none, &found),
              has_next ? Finding::kFound : Finding::kNone);
    if (has_next) {
      ASSERT_EQ(number_of(found), (node + 9) / 10 * 10);
    }
    ASSERT_EQ(search.last_to(key(node), &found), node >= 10 ? Finding::kFound : Finding::kNone);
    if (node >= 10) {
      ASSERT_EQ(number_of(found), std::min(node / 10 * 10, 10 * kNodes));
    }
  }
}

TEST_F(SearchTest, GoesOnWhereItFoundSomething) {
  for (const auto& [tree, order, count] : {std::tuple(nodes_, KeyOrder::kInteger, kNodes),
                                           std::tuple(sets_, KeyOrder::kBytes, kNodes / 3)}) {
    Search search(commit_, tree, order);
    const uint8_t* leaf = nullptr;
    Bytes next = {0, 0, 0, 0};
    uint32_t found = 0;
    Entry entry;
    while (search.first_from({next.data(), static_cast<uint32_t>(next.size())}, &leaf, &entry) ==
           Finding::kFound) {
      ++found;
      next.assign(entry.key.data, entry.key.data + entry.key.len);
      if (order == KeyOrder::kBytes) {
        next.push_back(0);
      } else {
        rov::write_value(next.data(), rov::load<uint32_t>(next.data()) + 1);
      }
    }
    EXPECT_EQ(found, count);
  }
}

TEST_F(SearchTest, AnEmptyTableHasNothing) {
  rov::Tree empty;
  ASSERT_TRUE(find(Table::kClients, &empty));
  Search search(commit_, empty, KeyOrder::kBytes);
  Entry entry;
  const uint8_t* leaf = nullptr;
  EXPECT_EQ(search.get(key(1), &entry), Finding::kNone);
  EXPECT_EQ(search.first_from(key(1), &leaf, &entry), Finding::kNone);
  EXPECT_EQ(search.last_to(key(1), &entry), Finding::kNone);
  EXPECT_EQ(search.look_around(key(1), nullptr), Finding::kFound);
}

TEST_F(SearchTest, AValueWithPagesOfItsOwn) {
  Entry found;
  ASSERT_EQ(get(kBig, &found), Finding::kFound);
  EXPECT_GT(found.size, 20000U);
  const uint8_t* head = found.data - kPageHead;
  EXPECT_EQ(rov::page_flags(head), rov::kOverflowPage);
  const Word at = rov::page_number(head);
  EXPECT_EQ(around(kBig), Finding::kFound);
  rov::write_value(page(at) + kWord + 2, uint16_t{0x14});
  EXPECT_EQ(around(kBig), Finding::kBadEntry);
  forget();
  const uint32_t leaves = (rov::page_lower(page(root())) - kPageHead) / 2;
  for (uint32_t i = 0; i < leaves; ++i) {
    const uint32_t entries = (rov::page_lower(page(leaf(i))) - kPageHead) / 2;
    for (uint32_t n = 0; n < entries; ++n) {
      const Entry value = rov::read_entry(entry(leaf(i), n));
      if (number_of(value) == kBig) rov::write_value(const_cast<uint8_t*>(value.data), Word{1});
    }
  }
  EXPECT_EQ(get(kBig, &found), Finding::kBadEntry);
}

TEST_F(SearchTest, PagesThatAreNotWhatTheyShouldBe) {
  const Word first = leaf(0);
  const uint32_t lower = rov::page_lower(page(root()));
  expect_damage("it has another page's number", first,
                [&] { rov::write_value(page(first), Word{first + 1}); });
  expect_damage("it is of another kind", first,
                [&] { rov::write_value(page(first) + kWord + 2, uint16_t{4}); });
  expect_damage("it is of another kind", root(),
                [&] { rov::write_value(page(root()) + kWord + 2, uint16_t{2}); });
  expect_damage("it has too few entries", root(), [&] {
    rov::write_value(page(root()) + kWord + 4, static_cast<uint16_t>(kPageHead + 2));
  });
  for (const uint32_t bound : {3U, lower + 1, 60000U}) {
    expect_damage("its bounds are in disorder", root(), [&] {
      rov::write_value(page(root()) + kWord + 4, static_cast<uint16_t>(bound));
    });
  }
  for (const uint32_t offset : {2U, 4095U, 60000U}) {
    expect_damage("an entry lies outside of its entries", first, [&] {
      rov::write_value(page(first) + kPageHead + 4, static_cast<uint16_t>(offset));
    });
  }
  expect_damage("its keys are out of order", first,
                [&] { rov::write_value(entry(first, 3) + 8, uint32_t{5}); });
  expect_damage("its entries do not fill it", first,
                [&] { rov::write_value(entry(first, 3), uint32_t{2}); });
  expect_damage("its last key lies behind what leads to it", first, [&] {
    const uint32_t last = (rov::page_lower(page(first)) - kPageHead) / 2 - 1;
    rov::write_value(entry(first, last) + 8, uint32_t{8000});
  });
  expect_damage("there is no such page", Word{1},
                [&] { rov::write_value(entry(root(), 0), uint32_t{1}); });
}

TEST_F(SearchTest, ALeafWhoseKeysLieBeforeIt) {
  const Word second = leaf(1);
  const uint32_t node = rov::load<uint32_t>(entry(second, 0) + 8);
  rov::write_value(entry(second, 0) + 8, uint32_t{15});
  Entry found;
  EXPECT_EQ(get(node + 10, &found), Finding::kDamaged);
  EXPECT_STREQ(damage_.what, "its first key lies before what leads to it");
}

// What whoever reads need not know.
TEST_F(SearchTest, EntriesThatTheEngineMustNotMove) {
  struct Row {
    uint32_t at;
    uint16_t value;
    const char* what;
  };
  const Word first = leaf(0);
  for (const Row& row : {Row{4, 6, "an entry has unknown flags"}, Row{6, 60, "an entry has no key"},
                         Row{0, 5000, "an entry ends beyond it"}}) {
    SCOPED_TRACE(row.what);
    forget();
    rov::write_value(entry(first, 3) + row.at, row.value);
    Entry found;
    EXPECT_NE(get(10, &found), Finding::kDamaged);
    EXPECT_EQ(around(10), Finding::kDamaged);
    EXPECT_STREQ(damage_.what, row.what);
  }
  forget();
  rov::write_value(entry(leaf(1), 0) + 4, uint16_t{6});
  EXPECT_EQ(around(10), Finding::kDamaged) << "of the page beside it";
}

// Whoever writes looks at each leaf once, and at each value.
TEST_F(SearchTest, EditsOfOneLeafAreLookedAtOnIt) {
  Search search(commit_, nodes_, KeyOrder::kInteger);
  ASSERT_EQ(search.look_around(key(kBig - 10), nullptr), Finding::kFound);
  const uint8_t* leaf = search.leaf();
  EXPECT_FALSE(search.is_behind_all());
  for (uint32_t n = 0; n < (rov::page_lower(leaf) - kPageHead) / 2; ++n) {
    const Entry value = rov::read_entry(leaf + rov::entry_offset(leaf, n));
    const bool apart = (value.flags & rov::kOnOverflow) != 0;
    if (apart) rov::write_value(const_cast<uint8_t*>(value.data), Word{1});
    EXPECT_EQ(search.look_around(key(number_of(value)), leaf),
              apart ? Finding::kBadEntry : Finding::kFound);
    EXPECT_EQ(search.leaf(), leaf);
  }
  EXPECT_EQ(search.look_around(key(10), leaf), Finding::kFound);
  EXPECT_NE(search.leaf(), leaf);
  EXPECT_EQ(search.look_around(key(10 * kNodes + 1), leaf), Finding::kFound);
  EXPECT_TRUE(search.is_behind_all());
}

// A page that is damaged after it was found to be good.
TEST_F(SearchTest, WhatIsMissedIsLookedForOnceMore) {
  Entry found;
  EXPECT_EQ(get(15, &found), Finding::kNone);
  rov::write_value(page(leaf(0)) + kWord + 4, static_cast<uint16_t>(kPageHead));
  EXPECT_EQ(get(10, &found), Finding::kDamaged);
  rov::write_value(page(leaf(0)) + kWord + 4, static_cast<uint16_t>(kPageHead - 2));
  EXPECT_EQ(get(10, &found), Finding::kDamaged);
}

TEST_F(SearchTest, APageIsNotLookedAtAgainForTwoCommits) {
  Entry found;
  ASSERT_EQ(get(10, &found), Finding::kFound);
  const uint32_t last = (rov::page_lower(page(leaf(0))) - kPageHead) / 2 - 1;
  rov::write_value(entry(leaf(0), last) + 8, uint32_t{8000});
  const auto finds = [&](uint32_t later) {
    commit_.number = static_cast<uint32_t>(meta_.revision) + later;
    return get(10, &found);
  };
  EXPECT_EQ(finds(0), Finding::kFound);
  EXPECT_EQ(finds(2), Finding::kFound);
  EXPECT_EQ(finds(1), Finding::kFound) << "an older one";
  EXPECT_EQ(finds(4), Finding::kFound) << "two after that in which it was used";
  EXPECT_EQ(finds(7), Finding::kDamaged);
}

TEST_F(SearchTest, AFileThatWasCut) {
  ASSERT_EQ(truncate((path() + "/data.mdb").c_str(), static_cast<off_t>(2) * map_.page_size), 0);
  Entry found;
  EXPECT_EQ(get(10, &found), Finding::kDamaged);
  EXPECT_STREQ(damage_.what, "the file ends before it");
  rov::Tree tree;
  EXPECT_FALSE(find(Table::kNodes, &tree));
  EXPECT_STREQ(damage_.what, "the file ends before it");
  EXPECT_FALSE(rov::look_at_free_pages(commit_, meta_.free, &damage_));
  EXPECT_STREQ(damage_.what, "the file ends before it");
}

TEST_F(SearchTest, MetaPagesThatLeadAstray) {
  rov::Tree tree;
  for (const auto& [what, change] :
       std::initializer_list<std::pair<const char*, std::function<void()>>>{
           {"it is of another commit", [&] { ++meta_.revision; }},
           {"it leads to no tables", [&] { meta_.tables.root = 1; }},
           {"it leads to no tables", [&] { meta_.tables.depth = 3; }},
           {"it leads to no tables", [&] { meta_.tables.flags = 4; }},
           {"it counts more pages than there are", [&] { commit_.last_page = map_.pages; }}}) {
    forget();
    change();
    EXPECT_FALSE(find(Table::kNodes, &tree));
    EXPECT_STREQ(damage_.what, what);
  }
}

TEST_F(SearchTest, TablesThatAreNone) {
  rov::Tree tree;
  const Word tables = meta_.tables.root;
  const uint32_t count = (rov::page_lower(page(tables)) - kPageHead) / 2;
  for (uint32_t i = 0; i < count; ++i) {
    const Entry table = rov::read_entry(entry(tables, i));
    if (table.key.len != 5 || memcmp(table.key.data, "nodes", 5) != 0) continue;
    auto* at = const_cast<uint8_t*>(table.data);
    rov::write_value(at + 4, uint16_t{0});  // its flags
    EXPECT_FALSE(find(Table::kNodes, &tree));
    forget();
    rov::write_value(at + 6, uint16_t{40});  // its depth
    EXPECT_FALSE(find(Table::kNodes, &tree));
    forget();
    entry(tables, i)[8 + 4] = 'z';
    EXPECT_FALSE(find(Table::kNodes, &tree));
    EXPECT_STREQ(damage_.what, "it lacks a table, or does not describe it");
  }
  forget();
  EXPECT_TRUE(find(Table::kNodes, &tree));
  Search deep(commit_, tree, KeyOrder::kInteger);
  tree.depth = 33;
  Entry found;
  EXPECT_EQ(deep.get(key(10), &found), Finding::kDamaged);
  rov::Tree list = meta_.free;
  list.depth = 33;
  EXPECT_FALSE(rov::look_at_free_pages(commit_, list, &damage_));
}

TEST_F(SearchTest, ListsOfFreePages) {
  const Word list = meta_.free.root;
  ASSERT_EQ(meta_.free.depth, 1U);
  ASSERT_GE(rov::page_lower(page(list)), kPageHead + 4);
  const auto look = [&] { return rov::look_at_free_pages(commit_, meta_.free, &damage_); };
  EXPECT_TRUE(look());
  EXPECT_TRUE(look()) << "which is known by now";
  const Entry first = rov::read_entry(entry(list, 0));
  if ((first.flags & rov::kOnOverflow) != 0) GTEST_SKIP() << "the list is on pages of its own";
  auto* at = const_cast<uint8_t*>(first.data);
  for (const auto& [what, change] :
       std::initializer_list<std::pair<const char*, std::function<void()>>>{
           {"an entry of the list of free pages is none",
            [&] { rov::write_value(entry(list, 0), uint32_t{60000}); }},
           {"an entry of the list of free pages is none",
            [&] { rov::write_value(entry(list, 0), uint32_t{kWord * 4000}); }},
           {"a list of free pages contradicts itself", [&] { rov::write_value(at, Word{5000}); }},
           {"a list of free pages is out of order", [&] { rov::write_value(at + kWord, Word{1}); }},
           {"an entry of the list of free pages leads nowhere",
            [&] {
              rov::write_value(entry(list, 0) + 4, rov::kOnOverflow);
              rov::write_value(entry(list, 1), uint32_t{60000});  // so that no sum is looked at
              rov::write_value(at, Word{1});
            }},
           {"it is no list of free pages",
            [&] {
              rov::write_value(entry(list, 0) + 4, rov::kOnOverflow);
              rov::write_value(entry(list, 1), uint32_t{60000});  // so that no sum is looked at
              rov::write_value(at, root());
            }},
           {"it is of another kind",
            [&] { rov::write_value(page(list) + kWord + 2, uint16_t{1}); }}}) {
    SCOPED_TRACE(what);
    forget();
    change();
    EXPECT_FALSE(look());
    EXPECT_STREQ(damage_.what, what);
  }
  forget();
  map_.good_in[rov::load<Word>(at + kWord)] = commit_.number;
  EXPECT_FALSE(look());
  EXPECT_STREQ(damage_.what, "a list of free pages has one in use");
  forget();
  rov::Tree elsewhere = meta_.free;
  elsewhere.root = 1;
  EXPECT_FALSE(rov::look_at_free_pages(commit_, elsewhere, &damage_));
}

// Anything may stand there, also on pages that were good before.
TEST_F(SearchTest, EndsWhateverStandsInTheFile) {
  const uint32_t rounds = (pace::emulated() ? 20 : 300) * fault::soak();
  uint32_t damaged = 0;
  for (uint32_t round = 0; round < rounds; ++round) {
    Random random(round);
    forget();
    Entry found;
    for (uint32_t node = 10; round % 2 == 0 && node <= 10 * kNodes; node += 500) get(node, &found);
    for (uint32_t i = 0; i < 30; ++i) {
      const Word at = 2 + random.below(static_cast<uint32_t>(map_.pages) - 2);
      const uint32_t offset = random.below(i % 2 == 0 ? 60 : map_.page_size);
      page(at)[offset] = static_cast<uint8_t>(random());
    }
    rov::Tree tree;
    if (!find(Table::kNodes, &tree)) continue;
    nodes_ = tree;
    Search search(commit_, nodes_, KeyOrder::kInteger);
    const uint8_t* last = nullptr;
    uint32_t steps = 0;
    Finding finding = Finding::kFound;
    for (uint32_t next = 0; finding == Finding::kFound; next = number_of(found) + 1) {
      ASSERT_LE(++steps, 1000000U);
      finding = search.first_from(key(next), &last, &found);
      if (finding != Finding::kFound) break;
      ASSERT_GE(number_of(found), next);
      if (number_of(found) == UINT32_MAX) break;
    }
    if (finding != Finding::kNone) ++damaged;
    for (uint32_t i = 0; i < 100; ++i) {
      const uint32_t node = random.below(11 * kNodes);
      if (get(node, &found) == Finding::kFound) {
        ASSERT_EQ(number_of(found), node);
      }
      if (search.last_to(key(node), &found) == Finding::kFound) {
        ASSERT_LE(number_of(found), node);
      }
      static_cast<void>(around(node));
    }
    static_cast<void>(rov::look_at_free_pages(commit_, meta_.free, &damage_));
  }
  EXPECT_GT(damaged, rounds / 4);
}

}  // namespace
