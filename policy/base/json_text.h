// JSON input: parsed strictly, and with a way back from a JSON pointer to the line that it points
// at.
//
// A value knows its line and its path. Who has a path alone looks its line up, in one more pass over
// the text.
#pragma once

#include <string>
#include <vector>

#include "policy/base/json.h"
#include "policy/base/policy.h"

namespace qimctl {

// Parses `text`. Throws InputError for text that is not JSON (RFC 8259, UTF-8), for two members of
// one name in an object and for values nested deeper than max_json_depth.
// The document refers to `text`.
JsonDocument parse_json(const std::string& text, const std::string& file);
// It keeps the text.
JsonDocument parse_json(std::string&& text, const std::string& file);

inline constexpr size_t max_json_depth = 64;

// Extends a JSON pointer by a member's name, escaped as RFC 6901 section 3 says, or by an index.
std::string pointer_to(const std::string& base, const std::string& member);
std::string pointer_to(const std::string& base, size_t index);

// Fills in `line` where it is 0 and `file` is the one given. `text` must be JSON. A path that leads
// nowhere gets the line of the longest part of it that leads somewhere.
void fill_lines(const std::string& text, const std::string& file,
                const std::vector<Place*>& places);
void fill_lines(const std::string& text, const std::string& file, std::vector<Problem>& problems);
void fill_lines(const std::string& text, const std::string& file, std::vector<Finding>& findings);

}  // namespace qimctl
