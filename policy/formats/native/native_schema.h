// The JSON Schema of the native format, and what is wrong with a document by it, in words.
#pragma once

#include <string>
#include <vector>

#include "policy/base/json.h"
#include "policy/base/policy.h"

namespace qimctl {

// docs/native.schema.json
extern const char* const native_schema_text;

// Every place where `document` breaks the schema, in no order and without lines; empty when it
// follows it. `file` goes into the places.
std::vector<Problem> check_native_schema(JsonView document, const std::string& file);

}  // namespace qimctl
