// Models for tests of formats.
#include "tests/policy/formats/model_support.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <tuple>

#include "policy/base/criteria.h"
#include "policy/base/names.h"
#include "policy/model/name_hash.h"

namespace formats_test {
namespace {

using namespace qimctl;

class Generator {
 public:
  explicit Generator(uint32_t number) : random_(number) {}

  Model model() {
    Model model;
    const uint32_t lists = 1 + below(4);
    for (uint32_t i = 0; i < lists; i++) model.lists.push_back(list("list " + std::to_string(i)));
    for (const char* interface : {"eth0", "eth1", "\xc3\xbc\"1/0"}) {
      for (const uint8_t dir : {static_cast<uint8_t>(QIM_DIR_IN), dir_out}) {
        uint32_t stage = 0;
        for (const AccessList& list : model.lists)
          if (below(2) == 0) model.attachments.push_back({list.name, interface, dir, ++stage, {}});
      }
    }
    return model;
  }

 private:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }
  uint8_t byte() { return static_cast<uint8_t>(below(256)); }

  AccessList list(std::string name) {
    static constexpr uint32_t types[] = {acl_type_unknown,
                                         acl_type_eth,
                                         acl_type_ipv4,
                                         acl_type_ipv6,
                                         acl_type_eth | acl_type_ipv4,
                                         acl_type_eth | acl_type_ipv6,
                                         acl_type_eth | acl_type_ipv4 | acl_type_ipv6};
    AccessList list;
    list.name = std::move(name);
    list.type = types[below(7)];
    const uint32_t entries = below(8);
    for (uint32_t i = 0; i < entries; i++)
      list.entries.push_back(entry(list.type, "entry " + std::to_string(i)));
    return list;
  }

  Entry entry(uint32_t type, std::string name) {
    static constexpr ActionType actions[] = {ActionType::accept, ActionType::drop,
                                             ActionType::reject};
    Entry entry;
    entry.name = std::move(name);
    entry.forwarding = actions[below(3)];
    entry.log = below(3) == 0;
    const Header third =
        (type & acl_type_ipv4) != 0 && ((type & acl_type_ipv6) == 0 || below(2) == 0)
            ? Header::ipv4
            : Header::ipv6;
    const Header fourth = std::array{Header::tcp, Header::udp, Header::icmp}[below(3)];
    for (const Header header : {Header::interface, Header::eth, third, fourth}) {
      if (header == Header::eth && (type & acl_type_eth) == 0) continue;
      if (header == third && (type & (acl_type_ipv4 | acl_type_ipv6)) == 0) continue;
      if (below(3) != 0) add_header(entry, header);
    }
    add_opaque(entry);
    return entry;
  }

  void add_header(Entry& entry, Header header) {
    const size_t before = entry.criteria.size();
    const CriterionKind* whole = nullptr;
    for (const CriterionKind& kind : criterion_kinds()) {
      if (kind.header != header) continue;
      if (kind.field().empty()) {
        whole = &kind;
      } else if (below(4) == 0) {
        entry.criteria.push_back({kind.type, args(kind)});
      }
    }
    if (whole != nullptr && entry.criteria.size() == before)
      entry.criteria.push_back({whole->type, {}});
  }

  std::vector<uint8_t> number(const CriterionKind& kind, int bytes) {
    const uint64_t span = uint64_t{kind.max} - kind.min + 1;
    const auto value = static_cast<uint32_t>(kind.min + (uint64_t{below(UINT32_MAX)} % span));
    std::vector<uint8_t> args;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
      args.push_back(static_cast<uint8_t>(value >> shift));
    return args;
  }

  std::vector<uint8_t> some(size_t count) {
    std::vector<uint8_t> bytes(count);
    for (uint8_t& one : bytes) one = byte();
    return bytes;
  }

  std::vector<uint8_t> prefix(size_t width) {
    std::vector<uint8_t> args = some(width);
    const auto length = below(static_cast<uint32_t>(8 * width) + 1);
    for (uint32_t bit = length; bit < 8 * width; bit++)
      args[bit / 8] = static_cast<uint8_t>(args[bit / 8] & ~(0x80u >> bit % 8));
    args.push_back(static_cast<uint8_t>(length));
    return args;
  }

  std::vector<uint8_t> ports() {
    const auto op = static_cast<uint8_t>(1 + below(5));
    const uint32_t first = below(65536);
    const uint32_t last = op == 5 ? first + below(65536 - first) : first;
    return {op, static_cast<uint8_t>(first >> 8), static_cast<uint8_t>(first),
            static_cast<uint8_t>(last >> 8), static_cast<uint8_t>(last)};
  }

  std::vector<uint8_t> mac() {
    std::vector<uint8_t> args = some(6);
    const std::vector<uint8_t> mask = below(2) == 0 ? std::vector<uint8_t>(6, 0xff) : some(6);
    for (size_t i = 0; i < 6; i++) args[i] = static_cast<uint8_t>(args[i] & mask[i]);
    args.insert(args.end(), mask.begin(), mask.end());
    return args;
  }

  std::vector<uint8_t> args(const CriterionKind& kind) {
    switch (kind.encoding) {
      case Encoding::u8:
        return number(kind, 1);
      case Encoding::u16:
      case Encoding::u16_hex:
        return number(kind, 2);
      case Encoding::u32:
        return number(kind, 4);
      case Encoding::ipv4_flags:
        return {static_cast<uint8_t>(below(8))};
      case Encoding::tcp_flags:
        return {byte()};
      case Encoding::mac:
        return mac();
      case Encoding::ipv4_prefix:
        return prefix(4);
      case Encoding::ipv6_prefix:
        return prefix(16);
      case Encoding::ports:
        return ports();
      case Encoding::bytes:
        return some(kind.min + below(8));
      default:
        return interface();
    }
  }

  std::vector<uint8_t> interface() {
    const std::string name = "port" + std::to_string(below(3));
    const uint32_t index = interface_index(name);
    std::vector<uint8_t> args{static_cast<uint8_t>(index >> 24), static_cast<uint8_t>(index >> 16),
                              static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)};
    args.insert(args.end(), name.begin(), name.end());
    return args;
  }

  // Below headers that are there: another one would have to be matched on, too.
  void add_opaque(Entry& entry) {
    std::vector<std::string> within{""};
    for (const Criterion& criterion : entry.criteria) {
      const CriterionKind& kind = *find_criterion_kind(criterion.type);
      if (kind.header == Header::interface) continue;
      within.emplace_back(header_name(kind.header));
      if (kind.encoding == Encoding::ports)
        within.push_back(within.back() + "/" + std::string(kind.field()));
    }
    std::vector<Criterion> opaque;
    for (uint32_t i = below(3); i > 0; i--) {
      const std::string name = "match" + std::to_string(i) + "\"\n";
      opaque.push_back(to_criterion({within[below(static_cast<uint32_t>(within.size()))],
                                     "example-" + std::to_string(below(2)), name,
                                     R"({"a":[1,null,"\n"],"b":{}})"}));
    }
    std::sort(opaque.begin(), opaque.end(),
              [](const Criterion& a, const Criterion& b) { return a.args < b.args; });
    entry.criteria.insert(entry.criteria.begin(), opaque.begin(), opaque.end());
  }

  std::mt19937 random_;
};

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string source_dir() {
  const char* dir = std::getenv("QIM_SOURCE_DIR");
  return dir != nullptr ? dir : ".";
}

}  // namespace

Model generated_model(uint32_t number) {
  return Generator(number).model();
}

std::string words_of(const Model& model) {
  std::string text;
  for (const AccessList& list : model.lists) {
    text += "list " + list.name + " type " + std::to_string(list.type) + " default " +
            std::string(action_name(static_cast<uint32_t>(list.default_action))) + "\n";
    for (const Entry& entry : list.entries) {
      text += " " + entry.name;
      for (const Criterion& criterion : entry.criteria)
        text += " " + hex_number(criterion.type, 4) + ":" + hex_bytes(criterion.args);
      text += " -> " + std::string(action_name(static_cast<uint32_t>(entry.forwarding))) +
              (entry.log ? " log" : "") + " " + entry.policer + "\n";
    }
  }
  std::vector<const Attachment*> attached;
  for (const Attachment& attachment : model.attachments) attached.push_back(&attachment);
  std::stable_sort(attached.begin(), attached.end(), [](const auto* a, const auto* b) {
    return std::tuple(attachment_text(*a), a->stage) < std::tuple(attachment_text(*b), b->stage);
  });
  for (const Attachment* attachment : attached)
    text += attachment_text(*attachment) + " " + attachment->list + "\n";
  for (const Policer& policer : model.policers)
    text += "policer " + policer.name + " " + std::to_string(static_cast<uint32_t>(policer.unit)) +
            " " + std::to_string(policer.committed_rate) + " " +
            std::to_string(policer.committed_burst) + " " + std::to_string(policer.peak_rate) +
            " " + std::to_string(policer.peak_burst) + "\n";
  return text;
}

std::string real_data(const std::string& name) {
  const char* dir = std::getenv("QIM_DATA_DIR");
  return contents((dir != nullptr ? std::string(dir) : source_dir() + "/../shared/data") + "/" +
                  name);
}

std::string example(const std::string& name) {
  return contents(source_dir() + "/examples/" + name);
}

}  // namespace formats_test
