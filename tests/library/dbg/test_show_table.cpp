// What start-up registers for the show routine: two records, and the attribute table with its
// names.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/fake/fixture.h"
#include "tests/support/fake/records.h"

namespace {

// What an entry's auxiliary word leads to.
enum class Aux { none, link_kinds, body, table };

struct Entry {
  std::uint32_t id;
  const char* name;
  std::uint32_t kind;
  Aux aux;
};

Entry entry_of(const fake::RecordMember& member) {
  Entry entry = {member.show, member.shown != nullptr ? member.shown : member.name, 1, Aux::none};
  switch (member.is) {
    case fake::Is::link_kind:
      entry.kind = 5;
      entry.aux = Aux::link_kinds;
      break;
    case fake::Is::args:
      entry.kind = 0;
      break;
    case fake::Is::list:
      entry.kind = 3;
      entry.aux = Aux::table;
      break;
    case fake::Is::record:
      entry.kind = 2;
      entry.aux = Aux::table;
      break;
    case fake::Is::body:
      entry.kind = 6;
      entry.aux = Aux::body;
      break;
    default:
      break;
  }
  return entry;
}

// For each record a head, then its fields by id.
std::vector<Entry> make_entries() {
  std::vector<Entry> entries;
  for (const fake::RecordLayout& record : fake::record_layouts()) {
    if (record.show_name == nullptr) continue;
    entries.push_back({record.struct_id << 16, record.show_name, 0, Aux::none});
    const std::size_t head = entries.size();
    for (const fake::RecordMember& member : record.members) {
      if (member.show != 0) entries.push_back(entry_of(member));
    }
    // Databases may hold the field, records do not.
    if (record.struct_id == 8) entries.push_back({3, "id", 1, Aux::none});
    std::sort(entries.begin() + static_cast<std::ptrdiff_t>(head), entries.end(),
              [](const Entry& a, const Entry& b) { return a.id < b.id; });
  }
  return entries;
}
const std::vector<Entry> kEntries = make_entries();

const rov_show_t* table() {
  return qim_dbg_tlva_handler.aux.table;
}

// How many fields the entries of a record name, 0 for a record that they do not name.
std::uint32_t fields_known(std::uint32_t head) {
  std::uint32_t fields = 0;
  bool inside = false;
  for (const Entry& entry : kEntries) {
    if (entry.id >= 0x10000) inside = entry.id == head;
    if (inside && entry.id < 0x10000) fields = entry.id;
  }
  return fields;
}

bool is_record_known(std::uint32_t head) {
  return std::any_of(kEntries.begin(), kEntries.end(),
                     [head](const Entry& entry) { return entry.id == head; });
}

// The table's end, and on the way there the entries without those of records and fields that came
// after this test.
const rov_show_t* known_entries(std::vector<const rov_show_t*>& known) {
  const rov_show_t* entry = table();
  std::uint32_t head = 0;
  for (; entry->attr_id != 0; ++entry) {
    if (entry->attr_id >= 0x10000) head = entry->attr_id;
    if (!is_record_known(head)) continue;
    if (entry->attr_id == head || entry->attr_id <= fields_known(head)) known.push_back(entry);
  }
  return entry;
}

const rov_show_t& entry_at(std::size_t i) {
  static const std::vector<const rov_show_t*> known = [] {
    std::vector<const rov_show_t*> found;
    known_entries(found);
    return found;
  }();
  return *known.at(i);
}

struct Name {
  std::uint32_t code;
  std::string name;
  friend bool operator==(const Name&, const Name&) = default;
};
void PrintTo(const Name& name, std::ostream* os) {
  *os << name.code << " " << name.name;
}

// The names of a table that ends by {0, NULL}.
std::vector<Name> names_of(const rov_name_t* names) {
  std::vector<Name> found;
  for (; names->name != nullptr && found.size() < 100; ++names) {
    found.push_back({names->code, names->name});
  }
  EXPECT_EQ(names->code, 0u);
  EXPECT_EQ(names->name, nullptr);
  return found;
}

// The seven words of a record, where words hold pointers.
std::vector<std::uint32_t> words_of(const rov_show_t& record) {
  std::vector<std::uint32_t> words(sizeof record / sizeof(std::uint32_t));
  std::memcpy(words.data(), &record, sizeof record);
  return words;
}

// On the device a record is nothing but these words; elsewhere its members say the same.
void expect_record(const rov_show_t& record, std::uint32_t selector, std::uint32_t id,
                   std::uint32_t kind) {
  EXPECT_EQ(record.reserved0, 0u);
  EXPECT_EQ(record.selector, selector);
  EXPECT_EQ(record.attr_id, id);
  EXPECT_EQ(record.kind, kind);
  EXPECT_EQ(record.reserved1, 0u);
  if (sizeof(void*) != 4) return;
  const auto word = [](const void* pointer) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer));
  };
  EXPECT_EQ(words_of(record), (std::vector<std::uint32_t>{0, selector, id, word(record.name), kind,
                                                          0, word(record.aux.none)}));
}

TEST(ShowRecords, tlva_handler_describes_a_record_by_the_attribute_table) {
  expect_record(qim_dbg_tlva_handler, 1, 0, 2);
  EXPECT_EQ(qim_dbg_tlva_handler.name, nullptr);
  EXPECT_NE(table(), nullptr);
}

TEST(ShowRecords, dsetname_is_printed_by_a_function) {
  expect_record(qim_dbg_dsetname, 3, 0, 7);
  EXPECT_EQ(qim_dbg_dsetname.name, nullptr);
  EXPECT_NE(qim_dbg_dsetname.aux.print, nullptr);
}

TEST(ShowTable, has_39_entries_in_this_order) {
  EXPECT_EQ(kEntries.size(), 39u);
  for (std::size_t i = 0; i < kEntries.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "entry " << i << ", " << kEntries[i].name);
    expect_record(entry_at(i), 0, kEntries[i].id, kEntries[i].kind);
    EXPECT_STREQ(entry_at(i).name, kEntries[i].name);
  }
}

TEST(ShowTable, ends_by_an_entry_of_zeros_and_has_none_before) {
  const rov_show_t zero{};
  for (std::size_t i = 0; i < kEntries.size(); ++i) {
    EXPECT_NE(std::memcmp(&entry_at(i), &zero, sizeof zero), 0) << "entry " << i;
  }
  std::vector<const rov_show_t*> known;
  const rov_show_t& end = *known_entries(known);
  EXPECT_EQ(known.size(), kEntries.size());
  expect_record(end, 0, 0, 0);
  EXPECT_EQ(end.name, nullptr);
  EXPECT_EQ(end.aux.none, nullptr);
}

TEST(ShowTable, leads_to_names_and_tables_by_kind) {
  const rov_name_t* const link_kinds = entry_at(8).aux.names;
  for (std::size_t i = 0; i < kEntries.size(); ++i) {
    SCOPED_TRACE(testing::Message() << "entry " << i << ", " << kEntries[i].name);
    switch (kEntries[i].aux) {
      case Aux::none:
        EXPECT_EQ(entry_at(i).aux.none, nullptr);
        break;
      case Aux::link_kinds:
        EXPECT_EQ(entry_at(i).aux.names, link_kinds);
        break;
      case Aux::table:
        EXPECT_EQ(entry_at(i).aux.table, table());
        break;
      case Aux::body:
        EXPECT_EQ(entry_at(i).aux.body->table, table());
        break;
    }
  }
}

TEST(ShowTable, names_link_kinds) {
  EXPECT_EQ(names_of(entry_at(8).aux.names),
            (std::vector<Name>{{1, "True"}, {2, "False"}, {3, "Nomatch"}, {4, "Next"}}));
}

TEST(ShowTable, names_node_types) {
  std::vector<Name> names = names_of(entry_at(3).aux.body->names);
  ASSERT_EQ(names.size(), TLVO_UNION_MEMBERS);
  names.resize(10);  // of those that the type table of the tests knows
  std::vector<Name> expected;
  for (const fake::TypeLayout& type : fake::type_layouts) {
    if (type.code <= 10) expected.push_back({type.code, type.name});
  }
  EXPECT_EQ(names, expected);
}

// The records' struct ids are the ones under which the codec knows them.
TEST(ShowTable, numbers_records_as_the_codec_does) {
  const tlvo_table_t* const tables[] = {&qim_node_tbl,    &qim_criterion_tbl, &qim_filter_tbl,
                                        &qim_hfilter_tbl, &qim_action_tbl,    &qim_def_tbl,
                                        &qim_haction_tbl, &qim_action_bw_tbl, &qim_police_tbl,
                                        &qim_group_tbl,   &qim_pinst_tbl};
  std::size_t next = 0;
  for (std::size_t i = 0; i < kEntries.size(); ++i) {
    if (entry_at(i).attr_id < 0x10000) continue;
    ASSERT_LT(next, std::size(tables));
    EXPECT_EQ(entry_at(i).attr_id >> 16, tables[next++]->struct_id);
  }
  EXPECT_EQ(next, std::size(tables)) << "every record but that of an if/else";
}

}  // namespace
