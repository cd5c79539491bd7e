// The filter table of `iptables-save` and `ip6tables-save` as a model (docs/formats.md).
#pragma once

#include <string>

#include "policy/model/model.h"
#include "policy/model/read_options.h"

namespace qimctl {

// Does the text have a filter table?
bool has_filter_table(const std::string& text);

// Reads the built-in chains of the filter table as access lists, with the chains that they jump to in
// their places. The findings list what became of each chain, and everything that was left out or
// carried differently. Throws InputError with everything that is wrong with the text.
ModelInput read_iptables(const std::string& text, const std::string& file,
                         const ReadOptions& options = {});

}  // namespace qimctl
