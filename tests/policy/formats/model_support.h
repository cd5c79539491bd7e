// Models for tests of formats: generated ones, and how two compare.
#pragma once

#include <string>

#include "policy/model/model.h"

namespace formats_test {

// A model of lists of all types with entries of every kind of criterion that RFC 8519 has, opaque
// matches and attachments in both directions. The same number gives the same model.
qimctl::Model generated_model(uint32_t number);

// The model in words, a line for each part, but for places and the numbers of stages: two models are
// the same when these are.
std::string words_of(const qimctl::Model& model);

// A file of the real input that is not kept here: in $QIM_DATA_DIR, or a folder beside the source
// tree; "" when it is not there.
std::string real_data(const std::string& name);
std::string example(const std::string& name);

}  // namespace formats_test
