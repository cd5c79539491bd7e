// `qimctl export`: access lists of a database as a file.
#pragma once

#include <string>
#include <vector>

#include "policy/formats/any/any.h"
#include "policy/store/database.h"

namespace qimctl {

struct ExportOptions {
  Format format = Format::rfc8519;
  std::vector<std::string> names;  // of lists; none = all
  bool lossy = false;              // print although the format has no word for something
};

enum class Exported { whole, nothing_known, lossy };

// Prints the lists, and complains of whatever the format has no word for; without `lossy` nothing is
// printed then. Says which names the database does not have; nothing is printed then either. Throws
// DatabaseError.
Exported export_lists(ReadSession& session, const ExportOptions& options);

}  // namespace qimctl
