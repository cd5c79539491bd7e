// Policies as pictures: the input of Graphviz.
#pragma once

#include <cstddef>
#include <string>

#include "policy/model/model.h"

namespace qimctl {

// What is drawn.
struct GraphChoice {
  std::string list;       // this list, "" = all
  std::string interface;  // what is attached there, "" = everywhere
  std::string direction;  // "in", "out", "" = both
  size_t most = 200;      // of a list of more entries only the first and the last are shown
};

// "guard", "if:eth0", "if:eth0/in"; "" draws everything.
GraphChoice graph_choice(const std::string& text);

// A digraph: each interface with the stages that it has, each list as one table of its entries, the
// actions that lists share. "" when nothing is chosen that there is.
std::string to_dot(const Model& model, const GraphChoice& choice);

}  // namespace qimctl
