// Which packets two policies decide differently, printed.
#pragma once

#include "policy/model/model.h"
#include "tools/base/form.h"

namespace qimctl {

// What `before` becomes where the lists that `named` has take the place of those of their names. Other
// lists stay, and so do the places where they are attached.
Model with_lists_of(const Model& before, Model named);

// Prints the packets, place by place, with an example of each kind. False when all are decided alike.
bool print_semantic_difference(const Model& before, const Model& after, OutputForm form);

}  // namespace qimctl
