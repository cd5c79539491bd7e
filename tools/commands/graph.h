// `qimctl graph`: policies as pictures.
#pragma once

#include <string>

#include "policy/store/database.h"
#include "tools/base/form.h"

namespace qimctl {

struct GraphOptions {
  std::string what;  // a list, an interface ("if:eth0", "if:eth0/in"), "" = everything
  bool dot = false;  // the input of Graphviz, else the picture that it makes
  OutputForm form = OutputForm::table;  // for programs: the picture as a text in a document
};

// Throws DatabaseError when there is nothing of that name, OutputError when it can't be drawn.
void print_graph(const ReadSession& session, const GraphOptions& options);

}  // namespace qimctl
