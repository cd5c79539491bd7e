// The matches of an entry as criteria.
#include <algorithm>
#include <array>
#include <initializer_list>
#include <memory>
#include <utility>

#include "policy/base/canonical_json.h"
#include "policy/formats/rfc8519/leaves.h"
#include "policy/formats/rfc8519/reader.h"

namespace qimctl::rfc8519 {

namespace {

constexpr std::array headers{Header::eth, Header::ipv4, Header::ipv6,
                             Header::tcp, Header::udp,  Header::icmp};

constexpr std::string_view mask_suffix = "-mask";

std::string mask_name(const CriterionKind& kind) {
  return std::string(kind.field()).append(mask_suffix);
}

// What may be matched on in a header.
struct HeaderFields {
  Header header;
  std::string name;
  std::string quoted;
  std::vector<const CriterionKind*> kinds;
  std::vector<std::string> masks;
  std::vector<std::string_view> names;  // of all its members

  explicit HeaderFields(Header which)
      : header(which), name(header_name(which)), quoted(in_quotes(name)) {
    for (const CriterionKind& kind : criterion_kinds())
      if (kind.header == header && !kind.field().empty()) kinds.push_back(&kind);
    for (const CriterionKind* kind : kinds)
      if (kind->encoding == Encoding::mac) masks.push_back(mask_name(*kind));
    names.assign(masks.begin(), masks.end());
    for (const CriterionKind* kind : kinds) names.push_back(kind->field());
  }
  HeaderFields(const HeaderFields&) = delete;
  HeaderFields& operator=(const HeaderFields&) = delete;
};

// Made once: an entry has a few headers, a file a hundred thousand entries.
struct AllFields {
  HeaderFields interface { Header::interface };
  std::vector<std::unique_ptr<HeaderFields>> each;
  std::vector<std::string_view> names;  // of the members of the matches

  AllFields() {
    for (const Header header : headers) each.push_back(std::make_unique<HeaderFields>(header));
    for (const auto& fields : each) names.emplace_back(fields->name);
    names.insert(names.end(), interface.names.begin(), interface.names.end());
  }
};

const AllFields& all_fields() {
  static const AllFields all;
  return all;
}

// One level of an entry's matches.
class MatchReader {
 public:
  MatchReader(Reading& reading, std::vector<Obstacle>& obstacles)
      : reading_(reading), notes_(reading.notes), obstacles_(obstacles) {}

  void read(const Value& matches, const ListType& type);
  std::vector<Criterion> take();

 private:
  void read_header(const HeaderFields& fields, const Value& value);
  void read_field(const CriterionKind& kind, const Object& object, const Value& value);
  void read_opaque(const Object& object, const std::string& within);
  void read_ports_field(const CriterionKind& kind, const Value& value);
  void read_mac_field(const CriterionKind& kind, const Object& object);
  void read_interface(const CriterionKind& kind, const Value& leaf);
  void add(const CriterionKind& kind, std::optional<std::vector<uint8_t>> args);
  void check_choice(const Object& matches, std::initializer_list<std::string_view> cases);
  void check_type(const Object& matches, const ListType& type, Header header, uint32_t bit);

  Reading& reading_;
  Notes& notes_;
  std::vector<Obstacle>& obstacles_;
  std::vector<Criterion> criteria_;
  std::vector<Criterion> opaque_;  // those of other models
};

void MatchReader::read(const Value& matches, const ListType& type) {
  const AllFields& all = all_fields();
  const Object object(notes_, matches, "\"matches\"", all.names);
  read_opaque(object, "");
  check_choice(object, {"ipv4", "ipv6"});
  check_choice(object, {"tcp", "udp", "icmp"});
  check_type(object, type, Header::eth, acl_type_eth);
  check_type(object, type, Header::ipv4, acl_type_ipv4);
  check_type(object, type, Header::ipv6, acl_type_ipv6);
  for (size_t i = 0; i < all.interface.kinds.size(); i++) {
    if (const Value leaf = object.at(all.each.size() + all.interface.masks.size() + i))
      read_interface(*all.interface.kinds[i], leaf);
  }
  for (size_t i = 0; i < all.each.size(); i++) {
    if (const Value value = object.at(i)) read_header(*all.each[i], value);
  }
}

void MatchReader::check_choice(const Object& matches,
                               std::initializer_list<std::string_view> cases) {
  const auto is_present = [&](std::string_view name) { return bool(matches.find(name)); };
  if (std::count_if(cases.begin(), cases.end(), is_present) < 2) return;
  std::string names;
  for (const std::string_view name : cases)
    if (is_present(name)) names += (names.empty() ? "" : " and ") + in_quotes(name);
  notes_.problem(matches.value(), names + " exclude each other; keep one");
}

void MatchReader::check_type(const Object& matches, const ListType& type, Header header,
                             uint32_t bit) {
  const Value value = matches.find(header_name(header));
  if (!value || !type.checked || (type.bits & bit) != 0) return;
  const std::string name = in_quotes(header_name(header));
  const std::string has =
      type.name.empty() ? "has no \"type\"" : "is of the type " + in_quotes(type.name);
  notes_.problem(value, name + " cannot be matched in an access list that " + has +
                            "; give the list a \"type\" that includes " + name);
}

// A header that says nothing about its fields still has to be there.
void MatchReader::read_header(const HeaderFields& fields, const Value& value) {
  const Object object(notes_, value, fields.quoted, fields.names);
  read_opaque(object, fields.name);
  const size_t before = criteria_.size();
  for (size_t i = 0; i < fields.kinds.size(); i++)
    read_field(*fields.kinds[i], object, object.at(fields.masks.size() + i));
  if (criteria_.size() == before) criteria_.push_back({static_cast<uint32_t>(fields.header), {}});
}

void MatchReader::read_field(const CriterionKind& kind, const Object& object, const Value& value) {
  if (kind.encoding == Encoding::mac) return read_mac_field(kind, object);
  if (!value) return;
  if (kind.encoding == Encoding::ports) return read_ports_field(kind, value);
  add(kind, read_args(notes_, kind, value));
}

// An empty container is the same as none.
void MatchReader::read_ports_field(const CriterionKind& kind, const Value& value) {
  const Object ports(notes_, value, in_quotes(kind.field()),
                     {"operator", "port", "lower-port", "upper-port"});
  read_opaque(ports, std::string(header_name(kind.header)) + "/" + std::string(kind.field()));
  if (value.json.is_object() && value.json.size() != ports.foreign().size())
    add(kind, read_ports(notes_, ports));
}

// Matches that only another model understands are carried whole.
void MatchReader::read_opaque(const Object& object, const std::string& within) {
  for (const Foreign& member : object.foreign()) {
    const size_t colon = member.name.find(':');
    OpaqueMatch match{within, member.name.substr(0, colon), member.name.substr(colon + 1), ""};
    std::optional<std::string> json = canonical_json(member.value.json);
    const bool short_enough = match.module.size() <= UINT16_MAX && match.name.size() <= UINT16_MAX;
    if (!json || !short_enough) {
      obstacles_.push_back(
          {notes_.place(member.value),
           in_quotes(member.name) +
               (short_enough ? " with a number of 2^53 or more, which JSON does not keep exactly"
                             : ", which is too long for a name")});
      continue;
    }
    match.json = *std::move(json);
    notes_.finding(Fate::accepted, member.value,
                   in_quotes(member.name) + " is carried whole, but only a reader that knows " +
                       in_quotes(match.module) + " can decide it");
    opaque_.push_back(to_criterion(match));
  }
}

// In ascending order of type, and of arguments among those of other models, which come first.
std::vector<Criterion> MatchReader::take() {
  std::sort(opaque_.begin(), opaque_.end(),
            [](const Criterion& a, const Criterion& b) { return a.args < b.args; });
  opaque_.insert(opaque_.end(), std::make_move_iterator(criteria_.begin()),
                 std::make_move_iterator(criteria_.end()));
  return std::move(opaque_);
}

void MatchReader::read_mac_field(const CriterionKind& kind, const Object& object) {
  const Value address = object.find(kind.field());
  const Value mask = object.find(mask_name(kind));
  if (address) return add(kind, read_mac(notes_, address, mask));
  if (mask) obstacles_.push_back({notes_.place(mask), "a mask without an address to compare with"});
}

void MatchReader::read_interface(const CriterionKind& kind, const Value& leaf) {
  const auto name = read_name(notes_, leaf, std::string::npos);
  if (!name) return;
  criteria_.push_back(reading_.interfaces.criterion(notes_, kind.type, *name, leaf));
}

void MatchReader::add(const CriterionKind& kind, std::optional<std::vector<uint8_t>> args) {
  if (args) criteria_.push_back({kind.type, std::move(*args)});
}

}  // namespace

std::vector<Criterion> read_matches(Reading& reading, const Value& matches, const ListType& type,
                                    std::vector<Obstacle>& obstacles) {
  MatchReader reader(reading, obstacles);
  reader.read(matches, type);
  return reader.take();
}

void note_obstacles(const Notes& notes, const Object& object, std::vector<Obstacle>& obstacles) {
  for (const Foreign& member : object.foreign()) {
    obstacles.push_back({notes.place(member.value), in_quotes(member.name) + " of another model"});
  }
}

}  // namespace qimctl::rfc8519
