// What start-up registers for the show routine: two records, and the attribute table with its
// names.

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/fake/fixture.h"

namespace {

// What an entry's auxiliary word leads to.
enum class Aux { none, link_kinds, body, table };

struct Entry {
  std::uint32_t id;
  const char* name;
  std::uint32_t kind;
  Aux aux;
};

constexpr Entry kEntries[] = {
    {0x10000, "node", 0, Aux::none},
    {1, "group", 1, Aux::none},
    {2, "flags", 1, Aux::none},
    {3, "type", 6, Aux::body},
    {0x30000, "crit", 0, Aux::none},
    {1, "type", 1, Aux::none},
    {2, "args", 0, Aux::none},
    {0x20000, "fltr", 0, Aux::none},
    {1, "match", 5, Aux::link_kinds},
    {2, "nomatch", 5, Aux::link_kinds},
    {3, "flags", 1, Aux::none},
    {4, "crit", 3, Aux::table},
    {0x40000, "hfltr", 0, Aux::none},
    {1, "type", 1, Aux::none},
    {2, "true_act", 5, Aux::link_kinds},
    {3, "false_act", 5, Aux::link_kinds},
    {4, "nomatch_act", 5, Aux::link_kinds},
    {0x50000, "act", 0, Aux::none},
    {1, "type", 1, Aux::none},
    {2, "args", 0, Aux::none},
    {0xc0000, "def", 0, Aux::none},
    {1, "type", 1, Aux::none},
    {2, "args", 0, Aux::none},
    {0x60000, "hact", 0, Aux::none},
    {1, "type", 1, Aux::none},
    {0x70000, "actbw", 0, Aux::none},
    {1, "rate_units", 1, Aux::none},
    {2, "rate", 1, Aux::none},
    {3, "burst_units", 1, Aux::none},
    {4, "burst", 1, Aux::none},
    {0x80000, "police", 0, Aux::none},
    {1, "comt_bw", 2, Aux::table},
    {2, "peak_bw", 2, Aux::table},
    {3, "id", 1, Aux::none},
    {0xa0000, "group", 0, Aux::none},
    {1, "type", 1, Aux::none},
    {2, "subtype", 1, Aux::none},
    {0xb0000, "pinst", 0, Aux::none},
    {1, "nonedests", 1, Aux::none},
};
static_assert(std::size(kEntries) == 39);

const rov_show_t* table() {
  return qim_dbg_tlva_handler.aux.table;
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
  for (std::size_t i = 0; i < std::size(kEntries); ++i) {
    SCOPED_TRACE(testing::Message() << "entry " << i << ", " << kEntries[i].name);
    expect_record(table()[i], 0, kEntries[i].id, kEntries[i].kind);
    EXPECT_STREQ(table()[i].name, kEntries[i].name);
  }
}

TEST(ShowTable, ends_by_an_entry_of_zeros_and_has_none_before) {
  const rov_show_t zero{};
  for (std::size_t i = 0; i < std::size(kEntries); ++i) {
    EXPECT_NE(std::memcmp(&table()[i], &zero, sizeof zero), 0) << "entry " << i;
  }
  const rov_show_t& end = table()[std::size(kEntries)];
  expect_record(end, 0, 0, 0);
  EXPECT_EQ(end.name, nullptr);
  EXPECT_EQ(end.aux.none, nullptr);
}

TEST(ShowTable, leads_to_names_and_tables_by_kind) {
  const rov_name_t* const link_kinds = table()[8].aux.names;
  for (std::size_t i = 0; i < std::size(kEntries); ++i) {
    SCOPED_TRACE(testing::Message() << "entry " << i << ", " << kEntries[i].name);
    switch (kEntries[i].aux) {
      case Aux::none:
        EXPECT_EQ(table()[i].aux.none, nullptr);
        break;
      case Aux::link_kinds:
        EXPECT_EQ(table()[i].aux.names, link_kinds);
        break;
      case Aux::table:
        EXPECT_EQ(table()[i].aux.table, table());
        break;
      case Aux::body:
        EXPECT_EQ(table()[i].aux.body->table, table());
        break;
    }
  }
}

TEST(ShowTable, names_link_kinds) {
  EXPECT_EQ(names_of(table()[8].aux.names),
            (std::vector<Name>{{1, "True"}, {2, "False"}, {3, "Nomatch"}, {4, "Next"}}));
}

TEST(ShowTable, names_node_types) {
  EXPECT_EQ(names_of(table()[3].aux.body->names), (std::vector<Name>{{1, "Filter"},
                                                                     {2, "Action"},
                                                                     {3, "Ifelse"},
                                                                     {4, "Hfilter"},
                                                                     {5, "Haction"},
                                                                     {6, "Police"},
                                                                     {7, "Group"},
                                                                     {8, "Pinst"},
                                                                     {9, "Def"},
                                                                     {10, "Edest"}}));
}

// The records' struct ids are the ones under which the codec knows them.
TEST(ShowTable, numbers_records_as_the_codec_does) {
  const tlvo_table_t* const tables[] = {&qim_node_tbl,    &qim_criterion_tbl, &qim_filter_tbl,
                                        &qim_hfilter_tbl, &qim_action_tbl,    &qim_def_tbl,
                                        &qim_haction_tbl, &qim_action_bw_tbl, &qim_police_tbl,
                                        &qim_group_tbl,   &qim_pinst_tbl};
  std::size_t next = 0;
  for (std::size_t i = 0; i < std::size(kEntries); ++i) {
    if (table()[i].attr_id < 0x10000) continue;
    ASSERT_LT(next, std::size(tables));
    EXPECT_EQ(table()[i].attr_id >> 16, tables[next++]->struct_id);
  }
  EXPECT_EQ(next, std::size(tables)) << "every record but that of an if/else";
}

}  // namespace
