// Verifying a data file: its meta pages, its trees, and that every page belongs to somebody.
#include "database/file/verify.h"

#include <cstdio>
#include <cstring>

#include "database/base/error.h"
#include "database/base/tables.h"
#include "database/file/tree.h"
#include "database/record/keys.h"
#include "rov.h"

namespace rov {
namespace {

// ---- Free pages ---------------------------------------------------------------------------------

// The list of free pages: a tree whose keys are commits and whose values are the pages that each
// set free.
class FreeCheck final : public EntryVisitor {
 public:
  FreeCheck(Pages& pages, Word revision) : pages_(pages), revision_(revision) {}
  uint32_t visit(const Place& place, Bytes key, Bytes value) override;
  // Every commit frees pages, namely those that it wrote anew; only a file that was just made or
  // compacted has no list. `meta`: the page that says which commit this is.
  uint32_t check_newest(Word meta) const;
  uint64_t pages() const { return count_; }

 private:
  Pages& pages_;
  Word revision_;
  Word newest_ = 0;
  uint64_t count_ = 0;
};

uint32_t FreeCheck::visit(const Place& place, Bytes key, Bytes value) {
  const Word commit = load<Word>(key.data);
  if (commit == 0 || commit > revision_) {
    return pages_.damaged(place.page,
                          "entry %u lists free pages of commit %llu, which is not there",
                          place.index, static_cast<unsigned long long>(commit));
  }
  newest_ = commit;
  // A word that counts, then the pages, the highest first. What follows is room that was not
  // needed.
  const uint32_t room = value.len / kWord;
  const Word count = room == 0 ? 0 : load<Word>(value.data);
  if (room == 0 || value.len % kWord != 0 || count >= room) {
    return pages_.damaged(place.page, "entry %u, a list of free pages, contradicts itself",
                          place.index);
  }
  Word above = kNoPage;
  for (Word i = 1; i <= count; ++i) {
    const Word page = load<Word>(value.data + i * kWord);
    if (page >= above) {
      return pages_.damaged(place.page, "entry %u lists free pages out of order", place.index);
    }
    const uint32_t status = pages_.claim(page, 1, place.page, "the list of free pages");
    if (status != ROV_OK) return status;
    above = page;
  }
  count_ += count;
  return ROV_OK;
}

uint32_t FreeCheck::check_newest(Word meta) const {
  if (newest_ == 0 || newest_ == revision_) return ROV_OK;
  return pages_.damaged(meta, "it says commit %llu, its list of free pages commit %llu",
                        static_cast<unsigned long long>(revision_),
                        static_cast<unsigned long long>(newest_));
}

// ---- Records ------------------------------------------------------------------------------------

// The records of one table: their keys, checksums and shapes.
class RecordCheck final : public EntryVisitor {
 public:
  RecordCheck(const Pages& pages, Table table) : pages_(pages), table_(table) {}
  uint32_t visit(const Place& place, Bytes key, Bytes value) override;
  // Of the checksums of all records visited.
  uint64_t sum() const { return sum_; }

 private:
  uint32_t broken(const Place& place, Bytes key, const char* what) const;

  const Pages& pages_;
  Table table_;
  uint64_t sum_ = 0;
};

bool is_key_length(Table table, uint32_t len) {
  switch (table) {
    case Table::kNodes:
      return len == 4;
    case Table::kReferrers:
    case Table::kPrivate:
    case Table::kUsers:
      return len == 8;
    case Table::kDataSets:
      return len == kNamedKeyBytes || len == kUnnamedKeyBytes;
    case Table::kClients:
      return len == kClientKeyBytes;
    case Table::kChanges:
      break;
  }
  return len == kChangeKeyBytes;
}

bool has_shape(Table table, Bytes key, Bytes value) {
  if (table == Table::kNodes) {
    NodeView node;
    return parse_node(load_be32(key.data), value, &node);
  }
  if (table == Table::kReferrers) {
    Chunk chunk;
    return parse_chunk(value, &chunk);
  }
  return true;
}

uint32_t RecordCheck::broken(const Place& place, Bytes key, const char* what) const {
  const char* name = kTableRows[static_cast<uint32_t>(table_)].name;
  if (key.len < 4) {
    return pages_.damaged(place.page, "entry %u, a record of table %s, %s", place.index, name,
                          what);
  }
  // The first word of most keys is a node; that of data sets ends with it.
  const uint8_t* word = table_ == Table::kDataSets ? key.data + key.len - 4 : key.data;
  return pages_.damaged(place.page, "entry %u, the record of 0x%08x in table %s, %s", place.index,
                        static_cast<unsigned>(load_be32(word)), name, what);
}

uint32_t RecordCheck::visit(const Place& place, Bytes key, Bytes value) {
  uint8_t node[4];
  if (!is_key_length(table_, key.len)) return broken(place, {}, "has a key of the wrong length");
  if (table_ == Table::kNodes) {
    write_be32(node, load<uint32_t>(key.data));
    key = {node, sizeof node};
  }
  if (value.len < 4 || load<uint32_t>(value.data) != record_crc(key, value)) {
    return broken(place, key, "does not match its checksum");
  }
  if (!has_shape(table_, key, value)) return broken(place, key, "contradicts itself");
  sum_ += load<uint32_t>(value.data);
  return ROV_OK;
}

// No map is larger, so a damaged size would only end in a system error that says nothing.
constexpr uint64_t kLargestMap = kWord > 4 ? uint64_t{1} << 46 : uint64_t{3} << 30;

// ---- Meta pages ---------------------------------------------------------------------------------

uint32_t no_engine_file(const Pages& pages, uint32_t page, const char* what) {
  return fail_text(ROV_ERR_FORMAT,
                   "data.mdb of database %s is not a file of the storage engine, or is damaged at "
                   "page %u: %s; restore the database from a dump",
                   pages.path(), page, what);
}

bool is_page_size(uint32_t size) {
  return size >= kLeastPage && size <= kLargestPage && (size & (size - 1)) == 0;
}

// What must hold for the engine to open the file at all. `offset`: of the page.
uint32_t load_meta(const Pages& pages, uint32_t page, uint64_t offset, Meta* meta) {
  uint8_t bytes[kPageHead + kMetaBytes];
  if (pages.file_bytes() < offset + sizeof bytes) {
    return no_engine_file(pages, page, "the file ends before it");
  }
  const uint32_t status = pages.read_at(page, offset, bytes, sizeof bytes);
  if (status != ROV_OK) return status;
  *meta = read_meta(bytes + kPageHead);
  if (page_flags(bytes) != kMetaPage || meta->magic != kMagic) {
    return no_engine_file(pages, page, "it is no meta page");
  }
  if (meta->version != kEngineVersion) {
    return no_engine_file(pages, page, "it is of another version");
  }
  if (!is_page_size(meta->free.pad)) return no_engine_file(pages, page, "it has no page size");
  return ROV_OK;
}

// Commit N is on page N % 2 and the one before it on the other. Anything else is a damaged number,
// which could pass an old commit off as the newest.
bool are_neighbours(const Meta (&metas)[kMetaPages]) {
  const Word first = metas[0].revision;
  const Word second = metas[1].revision;
  if (first == 0 && second == 0) return true;
  return first % 2 == 0 && second % 2 == 1 && (first + 1 == second || second + 1 == first);
}

uint32_t check_meta(const Pages& pages, uint32_t page, const Meta& meta) {
  if (meta.free.flags != kIntegerKeys || meta.tables.flags != 0 || meta.tables.pad != 0) {
    return pages.damaged(page, "the meta page has unknown flags");
  }
  if (meta.map_size > kLargestMap) return pages.damaged(page, "the map is too large");
  if (meta.last_page + 1 < kMetaPages) return pages.damaged(page, "the last page is before it");
  return ROV_OK;
}

// The newest one. *page: where it is.
uint32_t load_metas(Pages& pages, Meta* newest, uint32_t* page) {
  Meta metas[kMetaPages];
  uint32_t status = load_meta(pages, 0, 0, &metas[0]);
  if (status == ROV_OK) status = load_meta(pages, 1, metas[0].free.pad, &metas[1]);
  if (status != ROV_OK) return status;
  if (metas[0].free.pad != metas[1].free.pad) {
    return no_engine_file(pages, 1, "its page size is not that of page 0");
  }
  *page = metas[1].revision > metas[0].revision ? 1 : 0;
  *newest = metas[*page];
  status = pages.set_extent(newest->free.pad, newest->last_page);
  if (status != ROV_OK) return status;
  if (!are_neighbours(metas)) {
    return pages.damaged(*page, "the meta pages have the commits %llu and %llu",
                         static_cast<unsigned long long>(metas[0].revision),
                         static_cast<unsigned long long>(metas[1].revision));
  }
  return check_meta(pages, *page, *newest);
}

// ---- Tables -------------------------------------------------------------------------------------

struct TablePlace {
  bool found = false;
  Word page = 0;
  Tree tree;
};

// The tree of tables.
class TableList final : public EntryVisitor {
 public:
  explicit TableList(const Pages& pages) : pages_(pages) {}

  uint16_t flags() const override { return kIsTree; }

  uint32_t visit(const Place& place, Bytes key, Bytes value) override {
    const TableRow* row = find(key);
    if (row == nullptr || value.len != kTreeBytes) {
      return pages_.damaged(place.page, "entry %u is no table of the database", place.index);
    }
    TablePlace& table = places[row - kTableRows];
    table.found = true;
    table.page = place.page;
    table.tree = read_tree(value.data);
    if (table.tree.flags == (row->integer_keys ? kIntegerKeys : 0) && table.tree.pad == 0) {
      return ROV_OK;
    }
    return pages_.damaged(place.page, "table %s has unknown flags", row->name);
  }

  TablePlace places[kTables];

 private:
  static const TableRow* find(Bytes key) {
    for (const TableRow& row : kTableRows) {
      if (key.len == strlen(row.name) && memcmp(key.data, row.name, key.len) == 0) return &row;
    }
    return nullptr;
  }

  const Pages& pages_;
};

uint32_t verify_table(Pages& pages, Table table, const TablePlace& place, VerifyReport* report) {
  const TableRow& row = kTableRows[static_cast<uint32_t>(table)];
  if (!place.found) {
    return fail_text(ROV_ERR_FORMAT,
                     "data.mdb of database %s has no table %s: it is damaged, or of another "
                     "version; restore the database from a dump",
                     pages.path(), row.name);
  }
  char name[32];
  snprintf(name, sizeof name, "table %s", row.name);
  RecordCheck check(pages, table);
  TreeWalk walk(pages, name, row.integer_keys ? KeyOrder::kInteger : KeyOrder::kBytes, check);
  const auto index = static_cast<uint32_t>(table);
  report->records[index] = place.tree.entries;
  const uint32_t status = walk.run(place.tree, place.page);
  report->sums[index] = check.sum();
  return status;
}

uint32_t verify_trees(Pages& pages, const Meta& meta, uint32_t page, VerifyReport* report) {
  FreeCheck free_check(pages, meta.revision);
  TreeWalk free_walk(pages, "the list of free pages", KeyOrder::kWordKey, free_check);
  uint32_t status = free_walk.run(meta.free, page);
  if (status == ROV_OK) status = free_check.check_newest(page);
  if (status != ROV_OK) return status;
  report->free_pages = free_check.pages();

  TableList tables(pages);
  TreeWalk walk(pages, "the list of tables", KeyOrder::kBytes, tables);
  status = walk.run(meta.tables, page);
  for (uint32_t i = 0; i < kTables && status == ROV_OK; ++i) {
    status = verify_table(pages, static_cast<Table>(i), tables.places[i], report);
  }
  return status == ROV_OK ? pages.check_all_claimed() : status;
}

}  // namespace

uint32_t verify_data(int file, const char* path, VerifyReport* report) {
  VerifyReport unused;
  if (report == nullptr) report = &unused;
  *report = VerifyReport();
  Pages pages(file, path);
  uint32_t status = pages.measure();
  if (status != ROV_OK) return status;
  Meta meta;
  uint32_t page = 0;
  status = load_metas(pages, &meta, &page);
  if (status != ROV_OK) return status;
  report->revision = meta.revision;
  report->bytes = pages.file_bytes();
  report->pages = uint64_t{meta.last_page} + 1;
  report->page_size = pages.page_size();
  return verify_trees(pages, meta, page, report);
}

}  // namespace rov
