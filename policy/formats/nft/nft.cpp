// Writing a ruleset as a file.
#include "policy/formats/nft/nft.h"

#include <algorithm>

#include "policy/formats/nft/ruleset.h"

namespace qimctl::nft {

ModelText write_nft(const Model& model, const std::vector<std::string>& names) {
  Model wanted;
  const auto is_wanted = [&names](const std::string& name) {
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
  };
  for (const AccessList& list : model.lists)
    if (is_wanted(list.name)) wanted.lists.push_back(list);
  for (const Attachment& attachment : model.attachments)
    if (is_wanted(attachment.list)) wanted.attachments.push_back(attachment);
  wanted.policers = model.policers;
  const Translation translation = translate(wanted);
  ModelText text;
  for (const Refusal& refusal : translation.refusals)
    text.findings.push_back({Fate::skipped, {refusal.where, 0, ""}, refusal.what});
  if (text.findings.empty()) text.pieces.push_back(to_json(translation.ruleset));
  return text;
}

}  // namespace qimctl::nft
