// Applying files again of which little or nothing has changed, by what was remembered of the last time.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "policy/formats/parts/cut.h"
#include "policy/model/model.h"
#include "policy/store/applied.h"
#include "tools/commands/policy_files.h"

namespace qimctl {

// Entries of a list that may have changed, as they were and as they are.
struct Span {
  formats::CutRange before{};
  formats::CutRange after{};
  size_t entries = 0;  // that there were in the list
};

// The files of a command, cut into pieces whose digests are compared and remembered.
class FilePrints {
 public:
  // `key` = that of what is remembered, or a new one. Refers to the sources.
  FilePrints(const FileOptions& options, const std::vector<Source>& sources, const DigestKey& key);

  // Is all as it was?
  bool is_same(const Applied& applied) const;
  // By list; nothing when more than entries has changed.
  std::optional<std::vector<Span>> spans(const Applied& applied) const;
  // The file without all other entries.
  std::string text_with(const std::vector<Span>& spans) const;

  // Lets go of the sources. All but what is to be remembered is gone.
  void release() { cuts_.clear(); }
  // `lists` = what was read of the files.
  Applied remember(uint64_t revision, const std::vector<AccessList>& lists, bool pruned) const;

 private:
  DigestKey key_;
  Digest context_;
  std::vector<formats::CutText> cuts_;
  std::vector<AppliedText> texts_;
};

// What applying comes to: lists with what became of each, in words, and edits.
struct AppliedAgain {
  std::vector<std::pair<std::string, std::string>> lists;
  Applied remembered;  // from now on
  size_t edits = 0;
};

// Makes a database hold what one file says that only has other entries than before. Nothing when there
// is more to it; the write session is to be dropped then. Throws DatabaseError.
std::optional<AppliedAgain> apply_spans(uint32_t session, const FileOptions& options,
                                        const FilePrints& prints, const Applied& applied,
                                        bool prune);

}  // namespace qimctl
