// Where packets are asked about: an access list, or those at an interface in a direction.
#pragma once

#include <stdexcept>
#include <string>

#include "policy/trace/evaluate.h"

namespace qimctl {

struct PlaceToAsk {
  std::string text;     // "if:eth0/in", or the list's name
  std::string ingress;  // the interface, "" = a list on its own
  std::string egress;
  Lists lists;  // at least one
};

// There is no such list, or no list at such an interface: what() says so, and what there is.
struct NoSuchPlace : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// From "if:eth0", "if:eth0/in", "if:eth0/out" or the name of a list. Throws NoSuchPlace.
PlaceToAsk find_place(const Model& model, const std::string& text);

}  // namespace qimctl
