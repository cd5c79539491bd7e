// `qimctl graph`: policies as pictures.
#pragma once

#include <string>

#include "policy/store/database.h"

namespace qimctl {

struct GraphOptions {
  std::string what;  // a list, an interface ("if:eth0", "if:eth0/in"), "" = everything
  bool dot = false;  // the input of Graphviz, else the picture that it makes
};

// Throws DatabaseError when there is nothing of that name, OutputError when it can't be drawn.
void print_graph(const ReadSession& session, const GraphOptions& options);

}  // namespace qimctl
