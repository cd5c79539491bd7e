// What policies are to people: access lists with their entries, and where they are attached.
//
// Formats read files into a model and write files from it; the store makes nodes of it and reads it
// back; everything that compares, explains or analyses policies works on models alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "policy/base/criteria_codes.h"
#include "policy/base/policy.h"
#include "policy/base/text.h"

namespace qimctl {

// A match that only another data model understands, carried whole as a criterion of type
// criterion_opaque: whoever does not know it can't decide whether the entry matches.
struct OpaqueMatch {
  std::string within;  // the container below the matches that holds it, "" = the matches: "ipv4"
  std::string module;  // "ietf-acldns"
  std::string name;    // "dst-dnsname"
  std::string json;    // its value, in canonical form (RFC 8785)

  bool operator==(const OpaqueMatch&) const = default;
};

Criterion to_criterion(const OpaqueMatch& match);
// Of a criterion of type criterion_opaque. Throws std::invalid_argument for damaged arguments.
OpaqueMatch to_opaque(const Criterion& criterion);

// A limit of what an entry lets through. Rates are in `unit` a second; 0 = there is none.
struct Policer {
  enum class Unit : uint32_t { bytes = 1, packets = 2 };
  std::string name;
  Unit unit = Unit::bytes;
  uint64_t committed_rate = 0;
  uint64_t committed_burst = 0;
  uint64_t peak_rate = 0;
  uint64_t peak_burst = 0;

  bool operator==(const Policer&) const = default;
};

// An entry (ACE).
struct Entry {
  std::string name;
  std::vector<Criterion> criteria;  // all must hold; in ascending order of type, and of arguments
                                    // among opaque ones, the only ones of which there may be more
  ActionType forwarding = ActionType::drop;
  bool log = false;
  std::string policer;  // the name of one, "" = none
  Place place;
};

struct AccessList {
  std::string name;
  uint32_t type = acl_type_unknown;              // AclType bits
  std::vector<Entry> entries;                    // in the order in which they are tried
  ActionType default_action = ActionType::drop;  // of a packet that no entry matches
  Place place;
};

// An access list applied to an interface in one direction.
struct Attachment {
  std::string list;  // its name
  std::string interface;
  uint8_t dir = QIM_DIR_IN;  // or dir_out
  uint32_t stage = 1;  // its place among the lists of that interface and direction, from 1; what
                       // counts is the order, not the number
  Place place;
};

// Names are unique: of lists, of policers, and of entries in their list. A list is attached to an
// interface in one direction once at most.
struct Model {
  std::vector<AccessList> lists;
  std::vector<Attachment> attachments;
  std::vector<Policer> policers;
};

// An access list of the input of whose entries none could be carried: it would drop everything.
struct EmptiedList {
  std::string name;
  size_t entries = 0;  // that the input has
  Place place;
};

// What a format makes of a file: the model, and what became of each piece of the input.
struct ModelInput {
  Model model;
  std::vector<Finding> findings;
  std::vector<EmptiedList> emptied;
};

// What a format makes of a model: a file, and what became of whatever it has no word for, each at
// the list ("LIST" or "LIST/ENTRY") that it is of.
struct ModelText {
  std::vector<std::string> pieces;  // of the file, which may be large
  std::vector<Finding> findings;

  std::string text() const { return joined(pieces); }
};

// Do two entries match and do the same? Places do not count.
bool same_entry(const Entry& a, const Entry& b);
// The list of a name, NULL when there is none.
const AccessList* find_list(const Model& model, std::string_view name);
const Policer* find_policer(const Model& model, std::string_view name);
// What is wrong with importing it, and what to do.
Problem problem_of(const EmptiedList& list);
// "if:eth0/in"
std::string attachment_text(const Attachment& attachment);

}  // namespace qimctl
