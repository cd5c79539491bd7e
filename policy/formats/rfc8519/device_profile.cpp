// Device profiles (RFC 8520): they tell which access lists are for packets from a device, and which for
// packets to it.
#include <algorithm>
#include <array>

#include "policy/formats/rfc8519/reader.h"

namespace qimctl::rfc8519 {

namespace {

struct Side {
  std::string_view member;
  uint8_t dir;  // at the interface that the device is behind
  std::string_view packets;
};

constexpr std::array sides{Side{"from-device-policy", QIM_DIR_IN, "from the device"},
                           Side{"to-device-policy", dir_out, "to the device"}};

// Attaches the lists of one side behind those that the document attaches there itself.
class SideReader {
 public:
  SideReader(Reading& reading, const Side& side, const std::string& interface)
      : reading_(reading), notes_(reading.notes), side_(side), interface_(interface) {}

  void read(const Value& value) {
    const Object policy(notes_, value, in_quotes(side_.member), {"access-lists"});
    skip_foreign(notes_, policy);
    const Value lists = policy.find("access-lists");
    if (!lists) return;
    const Object object(notes_, lists, "\"access-lists\"", {"access-list"});
    skip_foreign(notes_, object);
    for (const Value& list : elements(notes_, object.find("access-list"))) read_list(list);
    if (!names_.empty()) note(value);
  }

 private:
  void read_list(const Value& value) {
    const Object object(notes_, value, "an access list of a profile", {"name"});
    if (!value.json.is_object()) return;
    skip_foreign(notes_, object);
    const Value leaf = object.require(notes_, "name");
    const auto name = leaf ? read_name(notes_, leaf, longest_name) : std::nullopt;
    if (!name) return;
    if (!reading_.list_names.contains(*name)) {
      notes_.problem(leaf, "there is no access list " + in_quotes(*name) +
                               "; define it or remove it from the profile");
      return;
    }
    names_ += (names_.empty() ? "" : ", ") + in_quotes(*name);
    if (!interface_.empty()) attach(*name, leaf);
  }

  void attach(const std::string& list, const Value& at) {
    uint32_t last = 0;
    for (const Attachment& other : reading_.model.attachments) {
      if (other.interface != interface_ || other.dir != side_.dir) continue;
      if (other.list == list) {
        notes_.problem(at, "access list " + in_quotes(list) + " is attached to " +
                               in_quotes(interface_) + " in this direction already; remove one");
        return;
      }
      last = std::max(last, other.stage);
    }
    reading_.model.attachments.push_back({list, interface_, side_.dir, last + 1, notes_.place(at)});
  }

  void note(const Value& at) {
    const std::string what = "packets " + std::string(side_.packets) + " are for " + names_;
    if (interface_.empty()) {
      notes_.finding(Fate::skipped, at,
                     what +
                         ", attached nowhere, for a profile names no interface; give the one that "
                         "the device is behind with --interface");
    } else {
      notes_.finding(Fate::accepted, at,
                     what + ", attached to " + in_quotes(interface_) + " for " +
                         (side_.dir == QIM_DIR_IN ? "ingress" : "egress"));
    }
  }

  Reading& reading_;
  Notes& notes_;
  const Side& side_;
  const std::string& interface_;
  std::string names_;
};

}  // namespace

void read_device_profile(Reading& reading, const Value& profile, const std::string& interface) {
  Notes& notes = reading.notes;
  if (!profile.json.is_object()) {
    notes.problem(profile,
                  std::string("a device profile must be an object, not ") + profile.json.kind());
    return;
  }
  if (!interface.empty()) reading.interfaces.index(notes, interface, profile);
  size_t known = 0;
  for (const Side& side : sides) {
    const JsonView found = profile.json.find(side.member);
    if (!found) continue;
    known++;
    const Value value{found};
    SideReader(reading, side, interface).read(value);
  }
  if (profile.json.size() != known) {
    notes.finding(Fate::skipped, profile,
                  "what else the profile says of the device is no access list and is left out");
  }
}

}  // namespace qimctl::rfc8519
