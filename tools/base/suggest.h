// What a misspelt word may have meant.
#pragma once

#include <string>
#include <vector>

namespace qimctl {

// "; did you mean 'list'?" of the word that is nearest to `word`, "" when none is near: by letters
// that are missing, too many, wrong or swapped, at most one in three.
std::string did_you_mean(const std::string& word, const std::vector<std::string>& known);

}  // namespace qimctl
