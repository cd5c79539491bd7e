// What a misspelt word may have meant.
#include "tools/base/suggest.h"

#include <algorithm>

#include "policy/base/text.h"

namespace qimctl {

namespace {

// Letters to insert, drop, change or swap with the next to make one word of the other.
size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> rows(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); i++) {
    for (size_t j = 0; j <= b.size(); j++) {
      if (i == 0 || j == 0) {
        rows[i][j] = i + j;
        continue;
      }
      const size_t changed = rows[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      rows[i][j] = std::min({changed, rows[i - 1][j] + 1, rows[i][j - 1] + 1});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
    }
  }
  return rows[a.size()][b.size()];
}

}  // namespace

std::string did_you_mean(const std::string& word, const std::vector<std::string>& known) {
  constexpr size_t longest = 100;  // longer words are no misspelling
  if (word.size() > longest) return "";
  const std::string* nearest = nullptr;
  size_t least = std::max<size_t>(1, word.size() / 3) + 1;
  for (const std::string& candidate : known) {
    if (candidate.size() > longest) continue;
    const size_t found = distance(word, candidate);
    if (found >= least) continue;
    least = found;
    nearest = &candidate;
  }
  return nearest == nullptr ? "" : "; did you mean '" + printable(*nearest) + "'?";
}

}  // namespace qimctl
