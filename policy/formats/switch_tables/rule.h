// Reading one rule.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "policy/formats/parts/criteria.h"
#include "policy/formats/parts/interfaces.h"
#include "policy/formats/parts/notes.h"

namespace qimctl::switch_tables {

using formats::Notes;
using formats::Value;

// A field as a text: the database has no other values, but files may spell numbers as such.
std::string text_of(const Value& field);
// The elements of a field that is a list: an array of texts, or one text with commas.
std::vector<std::string> list_of(Notes& notes, const Value& field);

enum class Family { unknown, ipv4, ipv6 };

struct RuleReading {
  Entry entry;
  std::optional<uint32_t> priority;
  std::vector<formats::Choice> choices;
  std::vector<formats::Obstacle> obstacles;
};

// `family` is what the rule's table is about. `policers` are those that there are.
RuleReading read_rule(Notes& notes, formats::Interfaces& interfaces, const Value& value,
                      Family family, const std::set<std::string>& policers);

}  // namespace qimctl::switch_tables
