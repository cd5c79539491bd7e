#include "tests/library/node/samples.h"

#include <algorithm>
#include <ostream>

namespace node_test {
namespace {

// A code that no record holds.
constexpr std::uint16_t kUnheld = 0x7c1;

enum : qim_node_id_t {
  kFilter = 0x00300001,
  kAction,
  kIfelse,
  kHfilter,
  kHaction,
  kPolice,
  kGroup,
  kPinst,
  kDef,
  kEdest,
  kDset,
  kNoName,
  kBare = 0xfc300000  // bare samples count up from here
};

// A link that carries everything, different in every field for every code.
qim_link_t full(std::uint16_t field, qim_node_id_t node) {
  const std::uint32_t n = field;
  return {node, kFilter, 0xb0000000 + n, static_cast<std::uint16_t>(0xc000 + n), field};
}

qim_link_t single(std::uint16_t field, qim_node_id_t node) {
  return {node, 0, 0, static_cast<std::uint16_t>(0xd000 + field), field};
}

Sample start(const char* name, qim_node_id_t id, std::uint32_t type) {
  Sample sample;
  sample.name = name;
  sample.copy.id = id;
  sample.copy.type = type;
  sample.copy.group = 0xa1000000 + type;
  sample.copy.flags = 0xa2000000 + type;
  sample.priv = Bytes(type % 4 + 1, static_cast<std::uint8_t>(0x40 + type));
  return sample;
}

void add_fields(Sample& sample, const Bytes& name, const qim_pinst_fields_t& fields) {
  sample.dset_name = name;
  sample.copy.body.pinst.fields = fields;
}

qim_pinst_fields_t fields_of(const qim_policy_dest_t& dest, std::uint8_t dir, std::uint32_t type) {
  qim_pinst_fields_t fields{};
  fields.dest = dest;
  fields.dir = dir;
  fields.type = type;
  return fields;
}

Sample filter() {
  Sample s = start("Filter", kFilter, QIM_NODE_FILTER);
  s.links = {single(0x081, kAction)};
  s.criteria = {{0x51, {1, 2, 3, 4}}, {0x52, {}}, {0x53, {5, 6, 7}}};
  s.copy.body.filter.ln_081 = kAction;
  s.copy.body.filter.flags = 0x80000001;
  s.copy.body.filter.match = QIM_LINK_TRUE;
  s.copy.body.filter.nomatch = QIM_LINK_NEXT;
  s.copy.body.filter.crit_cnt = 3;
  s.copy.body.filter.crit_bytes = 3 * 32 + 7;
  return s;
}

Sample action() {
  Sample s = start("Action", kAction, QIM_NODE_ACTION);
  s.links = {single(0x141, kHaction)};
  s.args = {9, 8, 7, 6, 5};
  s.copy.body.action.ln_141 = kHaction;
  s.copy.body.action.type = 0x61;
  s.copy.body.action.args_len = 5;
  return s;
}

Sample ifelse() {
  Sample s = start("Ifelse", kIfelse, QIM_NODE_IFELSE);
  s.links = {full(0x241, kFilter), full(0x242, kAction), full(0x243, kHfilter),
             full(0x244, kPolice)};
  s.copy.body.ifelse = {s.links[0], s.links[1], s.links[2], s.links[3]};
  return s;
}

Sample hfilter() {
  Sample s = start("Hfilter", kHfilter, QIM_NODE_HFILTER);
  s.links = {single(0x081, kFilter), full(0x102, kGroup)};
  s.copy.body.hfilter = {kFilter,          QIM_LINK_TRUE, QIM_LINK_FALSE,
                         QIM_LINK_NOMATCH, 0x80000062,    s.links[1]};
  return s;
}

Sample haction() {
  Sample s = start("Haction", kHaction, QIM_NODE_HACTION);
  s.links = {single(0x141, kPolice), full(0x182, kAction)};
  s.copy.body.haction.ln_141 = kPolice;
  s.copy.body.haction.type = 0x63;
  s.copy.body.haction.ln_182 = s.links[1];
  return s;
}

Sample police() {
  Sample s = start("Police", kPolice, QIM_NODE_POLICE);
  s.links = {single(0x141, kAction), full(0x201, kAction), full(0x202, kHaction),
             full(0x203, kDef)};
  qim_police_t& police = s.copy.body.police;
  police.ln_141 = kAction;
  police.ln_201 = s.links[1];
  police.ln_202 = s.links[2];
  police.ln_203 = s.links[3];
  police.comt_bw = {1, 0, 0x0102030405060708, 2, 0, 0x1112131415161718};
  police.peak_bw = {3, 0, 0x2122232425262728, 4, 0, UINT64_MAX};
  return s;
}

// A copy leaves the bare link out.
Sample group() {
  Sample s = start("Group", kGroup, QIM_NODE_GROUP);
  s.links = {full(0x281, kIfelse), single(0x282, kDef)};
  s.copy.body.group = {0, QIM_GROUP_IFELSE, 0x64, s.links[0]};
  return s;
}

Sample pinst() {
  Sample s = start("Pinst", kPinst, QIM_NODE_PINST);
  s.links = {full(0x2c1, kGroup)};
  qim_policy_dest_t dest{};
  dest.intf = {QIM_DEST_IF, 0x11223344, 0x01020304, 0x0a0b, 0x0102, {}};
  add_fields(s, {1, 0x11, 0x22, 0x33, 0x44, 1, 2, 3, 4, 0x0a, 0x0b, 1, 2, 0, 0, 0, 0, 0, 0, 5, 1},
             fields_of(dest, QIM_DIR_IN, 5));
  s.copy.body.pinst.ln_2c1 = s.links[0];
  return s;
}

Sample edest() {
  Sample s = start("Edest", kEdest, QIM_NODE_EDEST);
  s.links = {full(0x2c1, kPinst)};
  qim_policy_dest_t dest{};
  dest.srv = {QIM_DEST_SRV, 0x21222324, 0x31323334, 0x4142, {}};
  add_fields(s, {2, 0x21, 0x22, 0x23, 0x24, 0x31, 0x32, 0x33, 0x34, 0x41, 0x42,
                 0, 0,    0,    0,    0,    0xfe, 0xdc, 0xba, 0x98, 2},
             fields_of(dest, 2, 0xfedcba98));
  s.copy.body.pinst.ln_2c1 = s.links[0];
  return s;
}

Sample def() {
  Sample s = start("Def", kDef, QIM_NODE_DEF);
  s.links = {single(0x301, kFilter), full(0x302, kAction)};
  s.args = {0xff};
  s.copy.body.def.ln_301 = kFilter;
  s.copy.body.def.ln_302 = s.links[1];
  s.copy.body.def.type = 0x65;
  s.copy.body.def.args_len = 1;
  return s;
}

// Group and flags travel in TLV, which data-set nodes do not have.
Sample data_set(const char* name, qim_node_id_t id, std::uint32_t type) {
  Sample s = start(name, id, type);
  s.copy.group = 0;
  s.copy.flags = 0;
  s.links = {full(0x2c1, kPinst)};
  return s;
}

Sample dset() {
  Sample s = data_set("Dset", kDset, QIM_NODE_DSET);
  qim_policy_dest_t dest{};
  dest.gen = {QIM_DEST_GEN, 0x0102, 0x03, 0x0405, 0x0607, 0x08090a0b, 0x0c0d0e0f};
  add_fields(s, {3, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0, 0, 1, 0, 0},
             fields_of(dest, 0, 0x100));
  s.copy.body.pinst.ln_2c1 = s.links[0];
  return s;
}

// A node of that type of which the database holds nothing but the type.
Sample bare(const Sample& whole) {
  Sample s;
  s.name = whole.name + "Bare";
  s.copy.id = kBare + whole.copy.type;
  s.copy.type = whole.copy.type;
  if (whole.copy.type == QIM_NODE_DSET) {
    s.dset_name = Bytes(21);
  }
  return s;
}

bool refers(const Sample& from, qim_node_id_t to) {
  return std::any_of(from.links.begin(), from.links.end(),
                     [to](const qim_link_t& link) { return link.node == to || link.node2 == to; });
}

// Counts that follow from the links.
void count_links(std::vector<Sample>& all) {
  for (Sample& s : all) {
    s.copy.links_total = static_cast<std::uint32_t>(s.links.size());
    const bool unheld = s.copy.type == QIM_NODE_DSET_NONAME;
    s.copy.links_unfixed = static_cast<std::uint32_t>(std::count_if(
        s.links.begin(), s.links.end(),
        [unheld](const qim_link_t& link) { return unheld || link.field == kUnheld; }));
    s.copy.refs = static_cast<std::uint32_t>(std::count_if(
        all.begin(), all.end(), [&s](const Sample& from) { return refers(from, s.copy.id); }));
    if (s.copy.type == QIM_NODE_PINST || s.copy.type == QIM_NODE_EDEST) {
      s.copy.body.pinst.edests = s.copy.refs;
    }
    s.copy.priv_len = static_cast<std::uint32_t>(s.priv.size());
  }
}

std::vector<Sample> make_samples() {
  std::vector<Sample> all = {
      filter(),  action(), ifelse(), hfilter(),
      haction(), police(), group(),  pinst(),
      def(),     edest(),  dset(),   data_set("NoName", kNoName, QIM_NODE_DSET_NONAME)};
  for (Sample& s : all) s.links.push_back(full(kUnheld, kEdest));
  const std::size_t whole = all.size();
  for (std::size_t i = 0; i < whole; ++i) all.push_back(bare(all[i]));
  count_links(all);
  return all;
}

}  // namespace

std::size_t Sample::decoder_blocks() const {
  std::size_t blocks = criteria.size() + (args.empty() ? 0 : 1);
  for (const Criterion& crit : criteria) blocks += crit.args.empty() ? 0 : 1;
  return blocks;
}

void PrintTo(const Sample& sample, std::ostream* os) {
  *os << sample.name;
}

const std::vector<Sample>& samples() {
  static const std::vector<Sample> all = make_samples();
  return all;
}

}  // namespace node_test
