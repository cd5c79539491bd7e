// One node of every kind, with all that a node can have, and one of every kind with as little as
// possible: what the database holds, and the record that reading it must give.
#ifndef TESTS_LIBRARY_NODE_SAMPLES_H
#define TESTS_LIBRARY_NODE_SAMPLES_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "qim.h"

namespace node_test {

using Bytes = std::vector<std::uint8_t>;

struct Criterion {
  std::uint32_t type;
  Bytes args;
};

struct Sample {
  std::string name;
  qim_node_t copy{};              // what qim_node_read gives
  std::vector<qim_link_t> links;  // all links of the node, in order of their field codes
  std::vector<Criterion> criteria;
  Bytes args;  // of an action or default
  Bytes dset_name;
  Bytes priv;

  bool is_data_set() const {
    return copy.type == QIM_NODE_DSET || copy.type == QIM_NODE_DSET_NONAME;
  }
  // Blocks that decoding allocates: criteria, and arguments that are not empty.
  std::size_t decoder_blocks() const;
};
void PrintTo(const Sample& sample, std::ostream* os);

// They refer to one another; copy.refs is the number of samples that refer to a sample.
const std::vector<Sample>& samples();

}  // namespace node_test

#endif
