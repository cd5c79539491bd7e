#include "tests/fuzz/good_image.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "database/base/tables.h"
#include "database/file/tree.h"
#include "policy/store/database.h"
#include "rov_edit.h"
#include "tests/fuzz/targets.h"

namespace fuzz {
namespace {

constexpr uint32_t kFirstNode = 0x100;
constexpr uint32_t kNodes = 40;  // on two pages at least

void put_nodes(uint32_t session, uint32_t round) {
  for (uint32_t n = 0; n < kNodes; ++n) {
    const std::vector<uint8_t> tlv(n == 7 ? 9000 : 60, static_cast<uint8_t>(n + round));
    rov_edit_node_t node = {};
    node.id = qimctl::database_id(kFirstNode + n);
    node.tlv_len = static_cast<uint32_t>(tlv.size());
    node.tlv = tlv.data();
    require(rov_edit_node_put(session, &node) == ROV_OK, "a node is stored");
  }
}

// Of all to one, so that it has many referrers.
void put_links(uint32_t session) {
  for (uint32_t n = 1; n < kNodes; ++n) {
    rov_link_t link = {};
    link.owner = qimctl::database_id(kFirstNode + n);
    link.node = qimctl::database_id(kFirstNode);
    link.field = static_cast<uint16_t>(n);
    require(rov_edit_link_put(session, &link) == ROV_OK, "a link is stored");
  }
}

class Collector final : public rov::EntryVisitor {
 public:
  Collector(rov::Table table, std::vector<RecordPlace>* records)
      : table_(table), records_(records) {}
  uint32_t visit(const rov::Place& place, rov::Bytes, rov::Bytes) override {
    records_->push_back({table_, place.page, place.index});
    return ROV_OK;
  }

 private:
  rov::Table table_;
  std::vector<RecordPlace>* records_;
};

}  // namespace

GoodImage::GoodImage() {
  require(run_tool({"--db", directory(), "import", example("edge-all-types.json")}) == 0,
          "the examples import");
  fill();
  for (const char* name : {"data.mdb", "format", "changes"}) {
    const std::string path = directory() + "/" + name;
    std::ifstream file(path, std::ios::binary);
    files_.emplace_back(path, Image(std::istreambuf_iterator<char>(file), {}));
  }
  dissect();
}

void GoodImage::fill() {
  const qimctl::Database database(directory(), qimctl::OpenMode::create);
  for (uint32_t round = 0; round < 3; ++round) {
    qimctl::WriteSession session(database);
    put_nodes(session.handle(), round);
    put_links(session.handle());
    session.commit();
  }
  contents_ = fault::read_contents(database.handle());
  require(contents_.good, "what was stored can be read");
}

void GoodImage::dissect() {
  const uint8_t* bytes = image().data();
  const rov::Meta first = rov::read_meta(bytes + rov::kPageHead);
  const size_t page_size = first.free.pad;
  const rov::Meta second = rov::read_meta(bytes + page_size + rov::kPageHead);
  const bool is_second = second.revision > first.revision;
  const rov::Meta& newest = is_second ? second : first;
  const size_t free_tree =
      (is_second ? page_size : 0) + rov::kPageHead + 8 + size_t{2} * sizeof(rov::Word);
  anatomy_.page_size = first.free.pad;
  anatomy_.trees = {free_tree, free_tree + rov::kTreeBytes};
  require(newest.tables.depth == 1, "the list of tables is a page");
  const int file = open(files_.front().first.c_str(), O_RDONLY | O_CLOEXEC);
  rov::Pages pages(file, directory().c_str());
  require(
      pages.measure() == ROV_OK && pages.set_extent(anatomy_.page_size, newest.last_page) == ROV_OK,
      "the file has pages");
  for (uint32_t table = 0; table < rov::kTables; ++table) dissect_table(table, newest, pages);
  close(file);
  require(anatomy_.trees.size() == 2 + rov::kTables, "there are all trees");
}

// Finds one table in the list of tables, and its records.
void GoodImage::dissect_table(uint32_t table, const rov::Meta& meta, rov::Pages& pages) {
  const rov::TableRow& row = rov::kTableRows[table];
  const rov::Bytes name = {reinterpret_cast<const uint8_t*>(row.name),
                           static_cast<uint32_t>(strlen(row.name))};
  const uint8_t* page = image().data() + meta.tables.root * anatomy_.page_size;
  for (uint32_t n = 0; n < meta.tables.entries; ++n) {
    const rov::Entry entry = rov::read_entry(page + rov::entry_offset(page, n));
    if (rov::compare(entry.key, name) != 0) continue;
    anatomy_.trees.push_back(static_cast<size_t>(entry.data - image().data()));
    Collector collector(static_cast<rov::Table>(table), &anatomy_.records);
    rov::TreeWalk walk(pages, row.name,
                       row.integer_keys ? rov::KeyOrder::kInteger : rov::KeyOrder::kBytes,
                       collector);
    require(walk.run(rov::read_tree(entry.data), meta.tables.root) == ROV_OK, "a tree is good");
  }
}

void GoodImage::place(const Image& image) const {
  for (const auto& [name, bytes] : files_) {
    const Image& contents = name == files_.front().first ? image : bytes;
    std::ofstream(name, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(contents.data()),
               static_cast<std::streamsize>(contents.size()));
  }
}

}  // namespace fuzz
