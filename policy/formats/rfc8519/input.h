// Reading one value of the model at a time: members of objects, leaves by their YANG types, and the
// problems and findings that come up.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "policy/base/json.h"
#include "policy/base/policy.h"
#include "policy/formats/parts/interfaces.h"
#include "policy/formats/parts/notes.h"

namespace qimctl::rfc8519 {

using formats::alternatives;
using formats::characters;
using formats::elements;
using formats::in_quotes;
using formats::Interfaces;
using formats::is_forbidden;
using formats::Names;
using formats::note_left_out;
using formats::Notes;
using formats::Obstacle;
using formats::read_name;
using formats::read_number;
using formats::read_string;
using formats::Value;

// A member that belongs to another module.
struct Foreign {
  std::string name;  // with the module's prefix
  Value value;
};

// The members of one object. Those of the model are found by their simple names; one that is
// spelled with the model's own prefix is taken for the same. Metadata annotations (RFC 7952) are
// left out.
class Object {
 public:
  // Reports a value that is no object, and members that are neither in `known` nor foreign. `what`
  // names the object in messages.
  Object(Notes& notes, const Value& value, std::string_view what, Names known);
  Object(Notes& notes, const Value& value, std::string_view what,
         std::initializer_list<std::string_view> known)
      : Object(notes, value, what, Names(known.begin(), known.size())) {}

  const Value& value() const { return value_; }
  // The member, or nothing when it is absent.
  Value find(std::string_view name) const;
  // Reports its absence.
  Value require(Notes& notes, std::string_view name) const;
  // That of the name at this place among the known ones.
  Value at(size_t known) const;
  const std::vector<Foreign>& foreign() const { return foreign_; }

 private:
  struct Member {
    std::string_view name;
    size_t known = 0;  // its place among these
    Value value;
  };

  bool read_plain(Names known);
  void read_all(Notes& notes, Names known);
  std::span<const Member> members() const {
    return more_.empty() ? std::span(few_.data(), count_) : std::span<const Member>(more_);
  }

  Value value_;
  std::string what_;
  // Mostly there are few members: they take no memory of their own.
  std::array<Member, 6> few_;
  size_t count_ = 0;
  std::vector<Member> more_;  // all, where there is more to them
  std::vector<Foreign> foreign_;
};

// The same of binary data, in base64.
std::optional<std::vector<uint8_t>> read_binary(Notes& notes, const Value& leaf);

// An identity: the simple name when the model defines it. `foreign` is set for one of another
// module.
struct Identity {
  std::string name;
  bool foreign = false;
};
std::optional<Identity> read_identity(Notes& notes, const Value& leaf);

}  // namespace qimctl::rfc8519
