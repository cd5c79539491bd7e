// The layout of every record and all that hangs on it, written down once, apart from the schema's
// rows: tests hold the library to this table.
//
// What stands here is what clients and databases in the field rely on. A record may grow by members
// behind those named here, and a table by fields of other numbers; packaging/layout.* shows both.
#ifndef TESTS_FAKE_RECORDS_H
#define TESTS_FAKE_RECORDS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "qim.h"

namespace fake {

// What a member is. Pointers widen with the build, everything else has the device's width.
enum class Is { plain, pointer, integer, link_kind, args, list, record, body, single, full };

// Whether a copy for a client takes a member over.
enum class Copy { no, yes };

struct RecordMember {
  const char* name;
  std::uint32_t at;     // byte position on the device
  std::uint32_t width;  // bytes there
  Is is;
  Copy copy;
  std::uint32_t tlv = 0;         // field id in TLV
  std::uint32_t show = 0;        // id in the show table
  const char* shown = nullptr;   // its name there where that is another one
  const char* record = nullptr;  // of Is::record and Is::list

  bool widens() const { return is == Is::pointer || is == Is::args || is == Is::list; }
  bool is_slot() const { return is == Is::single || is == Is::full; }
  std::uint32_t width_here() const {
    return widens() ? static_cast<std::uint32_t>(sizeof(void*)) : width;
  }
};

struct RecordLayout {
  const char* kind;
  std::uint32_t struct_id;
  std::uint32_t size;                    // bytes on the device
  const char* show_name;                 // NULL: not in the show table
  std::vector<RecordMember> members;     // by position, without a hidden gap on the device
  std::vector<std::uint32_t> tlv_order;  // field ids in the order of the descriptor table

  // Where a member stands in this build: behind the one before it, pointers at their alignment.
  std::uint32_t here(const RecordMember& member) const {
    constexpr std::uint32_t word = sizeof(void*);
    std::uint32_t end = 0;
    for (const RecordMember& one : members) {
      if (one.widens()) end = (end + word - 1) / word * word;
      if (one.name == member.name) break;
      end += one.width_here();
    }
    return end;
  }
  bool has(std::string_view name) const {
    for (const RecordMember& one : members) {
      if (one.name == name) return true;
    }
    return false;
  }
  const RecordMember* with_tlv(std::uint32_t id) const {
    for (const RecordMember& one : members) {
      if (one.tlv == id) return &one;
    }
    return nullptr;
  }
};

// The code in the name of a slot: "ln_2c1" is 0x2c1.
inline std::uint16_t link_code(const RecordMember& slot) {
  return static_cast<std::uint16_t>(std::stoul(slot.name + 3, nullptr, 16));
}

// In the order of the show table.
inline const std::vector<RecordLayout>& record_layouts() {
  constexpr Copy yes = Copy::yes;
  constexpr Copy no = Copy::no;
  static const std::vector<RecordLayout> all = {
      {"node",
       1,
       168,
       "node",
       {{"links_total", 0, 4, Is::plain, yes},
        {"links_unfixed", 4, 4, Is::plain, yes},
        {"refs", 8, 4, Is::plain, yes},
        {"id", 12, 4, Is::plain, yes},
        {"group", 16, 4, Is::integer, yes, 1, 1},
        {"type", 20, 4, Is::plain, yes},
        {"flags", 24, 4, Is::integer, yes, 2, 2},
        {"priv_len", 28, 4, Is::plain, yes},
        {"priv_buf", 32, 4, Is::pointer, no},
        {"priv_ptr", 36, 4, Is::pointer, yes},
        {"body", 40, 128, Is::body, no, 3, 3, "type"}},
       {2, 1, 3}},
      {"criterion",
       3,
       16,
       "crit",
       {{"next", 0, 4, Is::pointer, no},
        {"type", 4, 4, Is::integer, yes, 1, 1},
        {"args_len", 8, 4, Is::plain, yes},
        {"args", 12, 4, Is::args, no, 2, 2}},
       {1, 2}},
      {"filter",
       2,
       36,
       "fltr",
       {{"ln_081", 0, 4, Is::single, yes},
        {"flags", 4, 4, Is::integer, yes, 3, 3},
        {"match", 8, 4, Is::link_kind, yes, 1, 1},
        {"nomatch", 12, 4, Is::link_kind, yes, 2, 2},
        {"crit_cnt", 16, 4, Is::plain, yes},
        {"crit_bytes", 20, 4, Is::plain, yes},
        {"crit_aux", 24, 4, Is::plain, no},
        {"reserved", 28, 4, Is::plain, no},
        {"crit", 32, 4, Is::list, no, 4, 4, nullptr, "criterion"}},
       {3, 1, 2, 4}},
      {"hfilter",
       4,
       36,
       "hfltr",
       {{"ln_081", 0, 4, Is::single, yes},
        {"true_act", 4, 4, Is::link_kind, yes, 2, 2},
        {"false_act", 8, 4, Is::link_kind, yes, 3, 3},
        {"nomatch_act", 12, 4, Is::link_kind, yes, 4, 4},
        {"type", 16, 4, Is::integer, yes, 1, 1},
        {"ln_102", 20, 16, Is::full, yes}},
       {1, 2, 3, 4}},
      {"action",
       5,
       16,
       "act",
       {{"ln_141", 0, 4, Is::single, yes},
        {"type", 4, 4, Is::integer, yes, 1, 1},
        {"args_len", 8, 4, Is::plain, yes},
        {"args", 12, 4, Is::args, no, 2, 2}},
       {1, 2}},
      {"def",
       12,
       32,
       "def",
       {{"ln_301", 0, 4, Is::single, yes},
        {"ln_302", 4, 16, Is::full, yes},
        {"type", 20, 4, Is::integer, yes, 1, 1},
        {"args_len", 24, 4, Is::plain, yes},
        {"args", 28, 4, Is::args, no, 2, 2}},
       {1, 2}},
      {"haction",
       6,
       24,
       "hact",
       {{"ln_141", 0, 4, Is::single, yes},
        {"type", 4, 4, Is::integer, yes, 1, 1},
        {"ln_182", 8, 16, Is::full, yes}},
       {1}},
      {"action_bw",
       7,
       32,
       "actbw",
       {{"rate_units", 0, 4, Is::integer, yes, 1, 1},
        {"gap0", 4, 4, Is::plain, no},
        {"rate", 8, 8, Is::integer, yes, 2, 2},
        {"burst_units", 16, 4, Is::integer, yes, 3, 3},
        {"gap1", 20, 4, Is::plain, no},
        {"burst", 24, 8, Is::integer, yes, 4, 4}},
       {1, 2, 3, 4}},
      {"police",
       8,
       128,
       "police",
       {{"ln_141", 0, 4, Is::single, yes},
        {"ln_201", 4, 16, Is::full, yes},
        {"ln_202", 20, 16, Is::full, yes},
        {"ln_203", 36, 16, Is::full, yes},
        {"gap0", 52, 4, Is::plain, no},
        {"comt_bw", 56, 32, Is::record, yes, 1, 1, nullptr, "action_bw"},
        {"peak_bw", 88, 32, Is::record, yes, 2, 2, nullptr, "action_bw"},
        {"reserved[0]", 120, 4, Is::plain, yes},
        {"reserved[1]", 124, 4, Is::plain, no}},
       {1, 2}},
      {"group",
       10,
       28,
       "group",
       {{"ln_282", 0, 4, Is::single, no},
        {"type", 4, 4, Is::integer, yes, 1, 1},
        {"subtype", 8, 4, Is::integer, yes, 2, 2},
        {"ln_281", 12, 16, Is::full, yes}},
       {1, 2}},
      {"pinst",
       11,
       48,
       "pinst",
       {{"fields.dest", 0, 16, Is::plain, yes},
        {"fields.dir", 16, 1, Is::plain, yes},
        {"fields.reserved", 17, 3, Is::plain, no},
        {"fields.type", 20, 4, Is::plain, yes},
        {"edests", 24, 4, Is::plain, yes},
        {"nonedests", 28, 4, Is::plain, yes, 0, 1},
        {"ln_2c1", 32, 16, Is::full, yes}},
       {}},
      {"ifelse",
       9,
       64,
       nullptr,
       {{"ln_241", 0, 16, Is::full, yes},
        {"ln_242", 16, 16, Is::full, yes},
        {"ln_243", 32, 16, Is::full, yes},
        {"ln_244", 48, 16, Is::full, yes}},
       {}}};
  return all;
}

inline void PrintTo(const RecordLayout& record, std::ostream* os) {
  *os << record.kind;
}

// Names tests that are made for each record.
inline std::string kind_of(const testing::TestParamInfo<RecordLayout>& tested) {
  return tested.param.kind;
}

inline const RecordLayout& record_layout(std::string_view kind) {
  for (const RecordLayout& record : record_layouts()) {
    if (record.kind == kind) return record;
  }
  static const RecordLayout none = {"", 0, 0, nullptr, {}, {}};
  return none;
}

// The types of nodes whose body a record is, by code. Type 33 has none.
struct TypeLayout {
  std::uint32_t code;
  const char* name;
  const char* kind;
};
inline constexpr TypeLayout type_layouts[] = {
    {1, "Filter", "filter"},   {2, "Action", "action"},   {3, "Ifelse", "ifelse"},
    {4, "Hfilter", "hfilter"}, {5, "Haction", "haction"}, {6, "Police", "police"},
    {7, "Group", "group"},     {8, "Pinst", "pinst"},     {9, "Def", "def"},
    {10, "Edest", "pinst"},    {32, "Dset", "pinst"}};

}  // namespace fake

#endif
