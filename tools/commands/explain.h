// `qimctl explain`: what a word or a number means.
#pragma once

#include <string>

#include "tools/base/form.h"

namespace qimctl {

// Prints what is known of it. False when nothing is, after saying what it may have been meant for.
bool explain_word(const std::string& word, OutputForm form);

}  // namespace qimctl
